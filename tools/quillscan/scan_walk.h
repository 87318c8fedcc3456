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
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "runtime/epa_lock.h"
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

    class Unlocked;

    void readers();
    void read(Folder& folder, std::unique_ptr<Listing>& listing) EPA_REQUIRES(lock_);
    void addNamed(Folder& folder);
    void finish(Folder& folder) EPA_REQUIRES(lock_);
    Folder* take() EPA_REQUIRES(lock_);
    Folder* takeChild(Folder& parent) EPA_REQUIRES(lock_);
    void addCost(Folder& folder, size_t cost) EPA_REQUIRES(lock_);
    void dropCost(Folder& folder, size_t cost) EPA_REQUIRES(lock_);
    void link(Folder& folder, Folder* behind) EPA_REQUIRES(lock_);
    void unlink(Folder& folder) EPA_REQUIRES(lock_);

    bool step();
    Folder* nextChild(Folder& folder, bool& isOwn) EPA_REQUIRES(lock_);
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

    EPA_Lock lock_;                             // and the walk's part of every Folder
    std::condition_variable_any ready_, room_;  // for the emitter; for readers
    // Readers that wait for work and those that wait for room; whether the emitter waits.
    unsigned idle_ EPA_GUARDED_BY(lock_) = 0, held_ EPA_GUARDED_BY(lock_) = 0;
    bool waiting_ EPA_GUARDED_BY(lock_) = false, stopping_ EPA_GUARDED_BY(lock_) = false;
    size_t ahead_ EPA_GUARDED_BY(lock_) = 0;
    Folder* first_ EPA_GUARDED_BY(lock_) = nullptr;
    Folder* last_ EPA_GUARDED_BY(lock_) = nullptr;
    std::exception_ptr failure_ EPA_GUARDED_BY(lock_);
};

}  // namespace quillscan
