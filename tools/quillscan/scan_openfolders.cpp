// Directories kept open, a list from the newest use to the oldest.
#include "scan_openfolders.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>

namespace quillscan {

namespace {

constexpr int Searched = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr size_t MostKept = 512, LeastKept = 2, Reserve = 32;

size_t roomForDescriptors() {
    struct rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return LeastKept;
    auto room = static_cast<size_t>(limit.rlim_cur);
    return std::clamp(room > Reserve ? room - Reserve : 0, LeastKept, MostKept);
}

}  // namespace

OpenFolders::OpenFolders() : limit_(roomForDescriptors()) {}

void OpenFolders::link(Folder& folder) {
    folder.newer = nullptr;
    folder.older = newest_;
    (newest_ ? newest_->newer : oldest_) = &folder;
    newest_ = &folder;
    ++count_;
}

void OpenFolders::unlink(Folder& folder) {
    (folder.newer ? folder.newer->older : newest_) = folder.older;
    (folder.older ? folder.older->newer : oldest_) = folder.newer;
    --count_;
}

Handle OpenFolders::find(Folder& folder) {
    EPA_LockScope scope(lock_);
    if (folder.handle && newest_ != &folder) {
        unlink(folder);
        link(folder);
    }
    return folder.handle;
}

void OpenFolders::keep(Folder& folder, Handle handle) {
    Handle closed;  // outside the lock
    EPA_LockScope scope(lock_);
    if (folder.handle) return;
    if (count_ >= limit_) {
        closed = std::move(oldest_->handle);
        oldest_->handle.reset();
        unlink(*oldest_);
    }
    folder.handle = std::move(handle);
    link(folder);
}

void OpenFolders::drop(Folder& folder) {
    Handle closed;
    EPA_LockScope scope(lock_);
    if (!folder.handle) return;
    closed = std::move(folder.handle);
    folder.handle.reset();
    unlink(folder);
}

bool OpenFolders::closeOldest() {
    Handle closed;
    EPA_LockScope scope(lock_);
    if (!oldest_) return false;
    closed = std::move(oldest_->handle);
    oldest_->handle.reset();
    unlink(*oldest_);
    return true;
}

int OpenFolders::openAt(int parent, const char* name, int flags) {
    for (;;) {
        int fd = ::openat(parent, name, flags);
        if (fd >= 0 || (errno != EMFILE && errno != ENFILE && errno != EINTR)) return fd;
        if (errno != EINTR && !closeOldest()) {
            errno = EMFILE;
            return -1;
        }
    }
}

Handle OpenFolders::open(Folder& folder) {
    if (Handle known = find(folder)) return known;
    // Down from the nearest one that is open.
    std::vector<Folder*> branch;
    Handle at;
    for (Folder* f = &folder; f && !(at = find(*f)); f = f->parent) branch.push_back(f);
    for (auto next = branch.rbegin(); next != branch.rend(); ++next) {
        Folder& f = **next;
        platform::Descriptor fd(openAt(at ? at->get() : AT_FDCWD, f.name.c_str(), Searched));
        struct statx status;
        if (!fd || statx(fd.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_INO, &status) != 0)
            return {};
        if (!Status(status).isSame(f.status)) {
            errno = ESTALE;
            return {};
        }
        at = std::make_shared<platform::Descriptor>(std::move(fd));
        keep(f, at);
    }
    return at;
}

}  // namespace quillscan
