// What readers hand to the writer: directories with their entries, in plain buffers.
#pragma once

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/pf_descriptor.h"

namespace quillscan {

class Listing;

// What statx tells, as far as a census keeps it. Moments are seconds since 1970; 0 where none is known.
struct Status {
    uint64_t device = 0, inode = 0, attributes = 0;
    int64_t size = 0, space = 0;
    int64_t created = 0, modified = 0, accessed = 0, changed = 0;
    uint32_t mode = 0, links = 0, user = 0, group = 0;

    Status() = default;
    explicit Status(const struct statx& from)
        : device(makedev(from.stx_dev_major, from.stx_dev_minor)),
          inode(from.stx_ino),
          attributes(from.stx_attributes & from.stx_attributes_mask),
          size(static_cast<int64_t>(from.stx_size)),
          space(static_cast<int64_t>(from.stx_blocks) * 512),
          created(from.stx_mask & STATX_BTIME ? from.stx_btime.tv_sec : 0),
          modified(from.stx_mtime.tv_sec),
          accessed(from.stx_atime.tv_sec),
          changed(from.stx_ctime.tv_sec),
          mode(from.stx_mode),
          links(from.stx_nlink),
          user(from.stx_uid),
          group(from.stx_gid) {}
    bool isFolder() const noexcept { return S_ISDIR(mode); }
    bool isSame(const Status& other) const noexcept { return inode == other.inode && device == other.device; }
};

// Something that is no directory. Its name, and behind that a link's target, lie in the chunk's text.
struct Entry {
    Entry(const Status& status, uint32_t text, uint16_t nameSize)
        : status(status), text(text), nameSize(nameSize) {}
    Status status;
    uint32_t text;
    uint16_t nameSize, targetSize = 0;
};

struct Fault {
    std::string name;  // empty: the directory itself, whose listing broke off
    const char* call = "";
    int error = 0;
};

// A stretch of a directory, in the order of its rows.
struct Chunk {
    std::vector<Entry> entries;
    std::string text;
    std::vector<Fault> faults;

    std::string_view name(const Entry& e) const { return std::string_view(text).substr(e.text, e.nameSize); }
    std::string_view target(const Entry& e) const {
        return std::string_view(text).substr(e.text + e.nameSize, e.targetSize);
    }
    void clear() {
        entries.clear();
        text.clear();
        faults.clear();
    }
};

// An entry of a POSIX access list; `tag` is one of ACL_USER_OBJ and on.
struct Right {
    uint16_t tag = 0;
    uint8_t rights = 0;
    bool isDefault = false;
    uint32_t id = 0;
};

// The names of child directories, packed: a tree's waiting names are most of what a scan remembers.
class NameList {
  public:
    void add(std::string_view name);
    void sort();  // by bytes
    size_t count() const noexcept { return starts_.size(); }
    const char* at(size_t i) const noexcept { return text_.data() + starts_[i]; }
    void release() noexcept;

  private:
    std::string text_;
    std::vector<size_t> starts_;
};

using Handle = std::shared_ptr<const platform::Descriptor>;

enum class FolderKind : uint8_t {
    Above,  // on the way to a root: has a row, is not listed
    Root,
    Inner,
};

// A directory between its discovery and the end of its tree. A folder outlives the folders below it.
//
// Who may touch what: the thread that reads it, everything in the first two groups until the folder is done;
// the third belongs to the Walk and its lock, the fourth to OpenFolders and its lock. The emitter reads the
// first two groups once there is a chunk, the children once the folder is done.
struct Folder {
    Folder(Folder* parent, std::string_view name, FolderKind kind);
    ~Folder();

    Folder* const parent;
    const std::string name;  // "/" for the top
    const FolderKind kind;

    // --- What reading it gave.
    Status status;
    bool isPresent = false;     // has a status, and so a row
    int error = 0;              // why it was not read, else 0
    const char* call = "";      // what failed
    std::vector<Right> rights;  // only with an extended access list

    NameList children;

    // --- The walk's.
    enum class State : uint8_t { Reading, Paused, Done };
    State state = State::Reading;
    std::unique_ptr<Listing> paused;
    std::list<Chunk> ready;
    // Children that are being read or were read, and have not been handed on.
    Folder *firstTaken = nullptr, *lastTaken = nullptr, *nextTaken = nullptr;
    size_t nextChild = 0;                         // the first that nobody has taken
    size_t cost = 0;                              // what it adds to the read-ahead
    Folder *before = nullptr, *behind = nullptr;  // in the list of folders to take from
    bool isListed = false;

    // --- The descriptors'.
    Handle handle;
    Folder *newer = nullptr, *older = nullptr;

    // --- The emitter's.
    int32_t number = 0;
};

// The path without a "/" at its end, but "/" for the top.
std::string pathOf(const Folder& folder);
// The same with the name of an entry.
std::string pathOf(const Folder& folder, std::string_view name);

}  // namespace quillscan
