// Folder listings.
//
// Details are read relative to the open folder, so a rename of the folder or of one above it does no harm
// during the walk. The extended attribute has no call relative to a descriptor; it goes by the folder's entry
// under /proc/self/fd, which means the same folder.

#include "platform/pf_listing.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace platform {

int DirectoryReader::open(const std::string& path, ListingWish wish) {
    dir_.reset();
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    Descriptor fd(::openat(anchor.dir(), anchor.rest(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    if (!fd) return errno;
    struct stat raw;
    if (::fstat(fd.get(), &raw) != 0) return errno;
    dir_.reset(::fdopendir(fd.get()));
    if (!dir_) return errno;
    device_ = raw.st_dev;
    plain_ = "/proc/self/fd/" + std::to_string(fd.release());
    extended_ = wish.extended;
    targets_ = wish.targets;
    return 0;
}

bool DirectoryReader::describe(const dirent& raw, DirectoryEntry& entry) {
    int folder = ::dirfd(dir_.get());
    entry.name = raw.d_name;
    entry.target.clear();
    entry.error = detailsAt(folder, raw.d_name, plain_, device_, extended_, entry.details);
    if (entry.error == ENOENT) return false;
    if (entry.error) {
        entry.details = FileDetails{};
        entry.details.inode = raw.d_ino;
        entry.details.device = device_;
        entry.details.mode = DTTOIF(raw.d_type);
        if (raw.d_type == DT_DIR) entry.details.attributes |= kAttributeDirectory;
        if (raw.d_name[0] == '.') entry.details.attributes |= kAttributeHidden;
    } else if (targets_ && entry.details.isLink()) {
        entry.target.resize(PATH_MAX);
        ssize_t size = ::readlinkat(folder, raw.d_name, entry.target.data(), entry.target.size());
        entry.target.resize(size > 0 ? static_cast<size_t>(size) : 0);
    }
    return true;
}

bool DirectoryReader::next(DirectoryEntry& entry, int& error) {
    for (;;) {
        errno = 0;
        const dirent* raw = dir_ ? ::readdir(dir_.get()) : nullptr;
        if (!raw) {
            error = errno;
            return false;
        }
        if (std::strcmp(raw->d_name, ".") == 0 || std::strcmp(raw->d_name, "..") == 0) continue;
        if (describe(*raw, entry)) return true;
    }
}

int listDirectory(const std::string& path, ListingWish wish,
                  const std::function<bool(const DirectoryEntry&)>& visit) {
    DirectoryReader reader;
    if (int error = reader.open(path, wish)) return error;
    DirectoryEntry entry;
    int error = 0;
    while (reader.next(entry, error)) {
        if (!visit(entry)) return 0;
    }
    return error;
}

}  // namespace platform
