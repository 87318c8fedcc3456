// One directory: open, status, access list, names, statuses.
//
// A directory is opened first and asked for its status through the descriptor, so that what is listed is what
// the row tells, whatever happens to its name meanwhile. What a name is goes by its status alone; the type
// that a directory tells is only the hint that saves the call for child directories, which are asked once
// they are open.
#include "scan_listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>

#include "scan_rights.h"

namespace quillscan {

namespace {

constexpr int Quiet = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
constexpr unsigned Wanted = STATX_BASIC_STATS | STATX_BTIME;
constexpr int Opening = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
// The position that common file systems give behind the last entry of a directory. Nothing can stand behind
// it, and so the call that would tell the end is saved.
constexpr int64_t LastPosition = std::numeric_limits<int64_t>::max();
constexpr size_t BlockSize = 128 * 1024, LongestTarget = 65535;

// 0 or errno.
int statusAt(int parent, const char* name, int flags, Status& out) {
    struct statx status;
    while (::statx(parent, name, flags, Wanted, &status) != 0)
        if (errno != EINTR) return errno;
    out = Status(status);
    return 0;
}

bool isGone(int error) { return error == ENOENT; }

uint64_t prefixOf(const char* name, size_t size) {
    uint64_t word = 0;
    std::memcpy(&word, name, std::min<size_t>(size, 8));
    return __builtin_bswap64(word);
}

}  // namespace

Listing::Listing(const Rules& rules, OpenFolders& opened)
    : rules_(rules), opened_(opened), block_(BlockSize), target_(LongestTarget) {}

bool Listing::open(Folder& folder) {
    blockAt_ = blockEnd_ = batchAt_ = 0;
    batch_.clear();
    names_.clear();
    handle_.reset();
    isHandedOn_ = isLast_ = false;
    atEnd_ = true;  // until there is something to read
    Handle parent;
    if (folder.parent && !(parent = opened_.open(*folder.parent))) {
        if (!isGone(errno)) folder.error = errno, folder.call = "openat";
        return false;
    }
    int at = parent ? parent->get() : AT_FDCWD;
    if (rules_.mayMount && !mayOpen(folder, at)) return false;
    // Reading is to leave no trace in the times; only owners may ask for that.
    static const bool isOwner = geteuid() == 0;
    int access = folder.kind == FolderKind::Above ? O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC
                 : isOwner                        ? Opening | O_NOATIME
                                                  : Opening;
    platform::Descriptor fd(opened_.openAt(at, folder.name.c_str(), access));
    if (!fd && errno == EPERM && access & O_NOATIME)
        fd.reset(opened_.openAt(at, folder.name.c_str(), Opening));
    if (!fd) {
        fail(folder, at, "openat", errno);
        return false;
    }
    if (int error = statusAt(fd.get(), "", AT_EMPTY_PATH | Quiet, folder.status)) {
        folder.error = error;
        folder.call = "statx";
        return false;
    }
    folder.isPresent = true;
    readRights(folder.kind == FolderKind::Above ? -1 : fd.get(), at, folder.name, folder.rights);
    handle_ = std::make_shared<platform::Descriptor>(std::move(fd));
    if (folder.kind == FolderKind::Above) {
        opened_.keep(folder, std::move(handle_));
        return false;
    }
    noteLoop(folder);
    atEnd_ = folder.error || !staysHere(folder);
    return !atEnd_;
}

// The directory cannot be opened: its status by name, if it still is one.
void Listing::fail(Folder& folder, int parent, const char* call, int error) {
    if (isGone(error)) return;
    int absent = statusAt(parent, folder.name.c_str(), Quiet, folder.status);
    if (isGone(absent)) return;
    folder.isPresent = absent == 0 && folder.status.isFolder();
    folder.error = error;
    folder.call = call;
    if (folder.isPresent) readRights(-1, parent, folder.name, folder.rights);
}

// False for a directory on another file system, which has a row and is not read.
bool Listing::staysHere(const Folder& folder) const {
    if (!rules_.oneFileSystem || folder.kind != FolderKind::Inner) return true;
    return folder.status.device == folder.parent->status.device || rules_.isEntered(folder.status);
}

// The same before it is opened, where opening may mount what is to be left alone.
bool Listing::mayOpen(Folder& folder, int parent) {
    if (!rules_.oneFileSystem || folder.kind != FolderKind::Inner) return true;
    if (int error = statusAt(parent, folder.name.c_str(), Quiet, folder.status)) {
        fail(folder, parent, "statx", error);
        return false;
    }
    bool mounts = folder.status.attributes & STATX_ATTR_AUTOMOUNT;
    if (!folder.status.isFolder() || rules_.isEntered(folder.status) || (staysHere(folder) && !mounts))
        return true;
    folder.isPresent = true;
    readRights(-1, parent, folder.name, folder.rights);
    return false;
}

void Listing::noteLoop(Folder& folder) {
    for (const Folder* f = folder.parent; f; f = f->parent) {
        if (!f->status.isSame(folder.status)) continue;
        folder.error = ELOOP;
        folder.call = "openat";
        return;
    }
}

bool Listing::next(Folder& folder, Chunk& chunk) {
    while (chunk.entries.size() < ChunkEntries) {
        if (batchAt_ == batch_.size()) {
            if (atEnd_) break;
            fillBatch(folder, chunk);
            continue;
        }
        stat(folder, batch_[batchAt_++], chunk);
    }
    isHandedOn_ = true;
    if (batchAt_ < batch_.size() || !atEnd_) return true;
    folder.children.sort();
    if (folder.children.count() > 0) opened_.keep(folder, handle_);
    handle_.reset();
    return false;
}

// The next block of the directory; false at its end.
bool Listing::takeBlock(Folder& folder, Chunk& chunk) {
    ssize_t got;
    while ((got = ::getdents64(handle_->get(), block_.data(), block_.size())) < 0 && errno == EINTR) {
    }
    if (got < 0 && !isGone(errno)) {
        if (isHandedOn_)
            chunk.faults.push_back({"", "getdents64", errno});
        else
            folder.error = errno, folder.call = "getdents64";
    }
    blockAt_ = 0;
    blockEnd_ = got > 0 ? static_cast<size_t>(got) : 0;
    return got > 0;
}

void Listing::fillBatch(Folder& folder, Chunk& chunk) {
    batch_.clear();
    names_.clear();
    batchAt_ = 0;
    bool filtered = !rules_.excluded.isEmpty();
    bool hasOutput = folder.status.isSame(rules_.outputFolder);
    while (batch_.size() < BatchNames) {
        if (blockAt_ == blockEnd_ && (isLast_ || !takeBlock(folder, chunk))) {
            atEnd_ = true;
            break;
        }
        auto* item = reinterpret_cast<const dirent64*>(block_.data() + blockAt_);
        blockAt_ += item->d_reclen;
        isLast_ = item->d_off == LastPosition;
        const char* name = item->d_name;
        if (name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2]))) continue;
        if (hasOutput && rules_.isOutput(folder, name)) continue;
        if (filtered && rules_.excluded.matches(folder, name)) continue;
        size_t size = std::strlen(name);
        if (item->d_type == DT_DIR) {
            folder.children.add({name, size});
            continue;
        }
        batch_.push_back(
            {prefixOf(name, size), static_cast<uint32_t>(names_.size()), static_cast<uint16_t>(size)});
        names_.append(name, size + 1);
    }
    std::sort(batch_.begin(), batch_.end(), [this](const Name& a, const Name& b) {
        return a.prefix != b.prefix ? a.prefix < b.prefix : std::strcmp(text(a), text(b)) < 0;
    });
}

void Listing::stat(Folder& folder, const Name& name, Chunk& chunk) {
    const char* label = text(name);
    Status status;
    int error = statusAt(handle_->get(), label, Quiet, status);
    if (error || status.isFolder()) {
        if (!error)
            folder.children.add({label, name.size});
        else if (!isGone(error))
            chunk.faults.push_back({label, "statx", error});
        return;
    }
    Entry& entry = chunk.entries.emplace_back(status, static_cast<uint32_t>(chunk.text.size()), name.size);
    chunk.text.append(label, name.size);
    if (!S_ISLNK(entry.status.mode)) return;
    ssize_t got = ::readlinkat(handle_->get(), label, target_.data(), target_.size());
    if (got >= 0) {
        entry.targetSize = static_cast<uint16_t>(got);
        chunk.text.append(target_.data(), static_cast<size_t>(got));
    } else if (!isGone(errno)) {
        chunk.faults.push_back({label, "readlinkat", errno});
    }
}

}  // namespace quillscan
