// Walk: a tree in depth-first order, read ahead by several threads.
//
// The calling thread is the emitter: it hands every directory to the visitor in order, and reads too when
// what comes next is not there yet. The other threads read the directories nearest in order that nobody has
// taken, as long as what waits to be handed on stays below a bound; so memory does not grow with the tree.
// What the visitor sees does not depend on the number of threads.
#pragma once

#include <condition_variable>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "scan_listing.h"

namespace quillscan {

// Called on the emitter's thread.
class Visitor {
  public:
    virtual ~Visitor() = default;
    // A directory, before anything in it: with a status, or with the error that left it without one. A
    // directory that vanished is not told.
    virtual void enter(Folder& folder) = 0;
    // The next of its entries.
    virtual void entries(Folder& folder, const Chunk& chunk) = 0;
    // Its whole tree is complete.
    virtual void leave(Folder& folder) = 0;
};

class Walk {
  public:
    Walk(const Rules& rules, unsigned threads);
    ~Walk();
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

    // Visits `top` and all below it. A directory of kind Above is not listed: it has the children that
    // `above` gives for its path, with their kinds. What the visitor or a reader raises ends the walk. Once.
    using Above = std::map<std::string, std::vector<std::pair<std::string, FolderKind>>>;
    void run(std::string_view top, FolderKind kind, const Above& above, Visitor& visitor);

  private:
    static constexpr size_t MostAhead = 65536;  // entries, names and directories read and not yet handed on
    static constexpr size_t MostReady = 64;     // chunks of one directory

    void readers();
    void read(Folder& folder, std::unique_ptr<Listing>& listing, std::unique_lock<std::mutex>& lock);
    void addNamed(Folder& folder);
    void finish(Folder& folder);
    Folder* take();
    Folder* takeChild(Folder& parent);
    void addCost(Folder& folder, size_t cost);
    void dropCost(Folder& folder, size_t cost);
    void link(Folder& folder, Folder* behind);
    void unlink(Folder& folder);

    bool step();
    void emitListing(Folder& folder);
    void emit(Folder& folder);
    void hand(Folder& folder, const Chunk& chunk, bool& entered);
    void discard(Folder* folder);
    void stop() noexcept;

    const Rules& rules_;
    const unsigned threads_;
    OpenFolders opened_;
    const Above* above_ = nullptr;
    Visitor* visitor_ = nullptr;
    std::vector<std::thread> pool_;
    std::unique_ptr<Listing> own_;  // the emitter's
    Chunk chunk_;                   // the emitter's
    std::vector<Folder*> branch_;   // handed on, with children that are not

    std::mutex mutex_;
    std::condition_variable ready_, room_;  // for the emitter; for readers
    unsigned idle_ = 0, held_ = 0;          // readers that wait for work; for room
    bool waiting_ = false, stopping_ = false;
    size_t ahead_ = 0;
    Folder *first_ = nullptr, *last_ = nullptr;
    std::exception_ptr failure_;
};

}  // namespace quillscan
