// Copies that are whole or not there.
//
// The data go to a new file with a hidden name in the target's folder, which gets mode, attributes and times
// and then takes the target's name in one rename. So nobody sees half a copy, an old target survives a full
// disk, and a killed process leaves at most the hidden file. Data move inside the kernel where the two file
// systems allow it (copy_file_range, which also shares extents), else by sendfile, else through a buffer.
// Files of the kernel's own tables claim to be empty and refuse the fast ways, so a source without data
// ranges ends in the plain loop as well.

#include "platform/pf_copy.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/pf_anchor.h"
#include "platform/pf_files.h"

namespace platform {

namespace {

constexpr size_t kStep = 8u << 20;
constexpr size_t kBuffer = 256u << 10;

// A new file beside the target, removed unless it got the target's name.
class Draft {
  public:
    explicit Draft(const std::string& target) {
        auto [folder, name] = splitLast(target);
        (void)name;
        folder_ = std::make_unique<PathAnchor>(folder);
        error_ = folder_->error();
        if (error_) return;
        dir_.reset(::openat(folder_->dir(), folder_->rest(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!dir_) error_ = errno;
    }
    ~Draft() { remove(); }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    int error() const { return error_; }
    int fd() const { return fd_.get(); }

    int create() {
        return retry([this] {
            fd_.reset(::openat(dir_.get(), name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                               0600));
            return fd_ ? 0 : errno;
        });
    }

    int createLink(const std::string& target) {
        return retry([&] { return ::symlinkat(target.c_str(), dir_.get(), name_.c_str()) == 0 ? 0 : errno; });
    }

    int dir() const { return dir_.get(); }
    const std::string& name() const { return name_; }
    // The path of the draft for calls without a descriptor.
    std::string plain() const { return "/proc/self/fd/" + std::to_string(dir_.get()) + "/" + name_; }

    int finish(const std::string& target, bool replace) {
        if (!replace) {
            int error = renameNoReplace(plain(), target);
            if (error == 0) made_ = false;
            return error;
        }
        PathAnchor place(target);
        if (place.error()) return place.error();
        if (::renameat(dir_.get(), name_.c_str(), place.dir(), place.rest()) != 0) return errno;
        made_ = false;
        return 0;
    }

  private:
    template <typename Make>
    int retry(Make make) {
        for (int tries = 0; tries < 100; ++tries) {
            uint64_t number = 0;
            if (::getrandom(&number, sizeof number, 0) < 0) return errno;
            char text[32];
            std::snprintf(text, sizeof text, ".copy-%016llx", static_cast<unsigned long long>(number));
            name_ = text;
            int error = make();
            if (error == EEXIST) continue;
            made_ = error == 0;
            return error;
        }
        return EEXIST;
    }

    void remove() {
        if (made_) ::unlinkat(dir_.get(), name_.c_str(), 0);
    }

    std::unique_ptr<PathAnchor> folder_;
    Descriptor dir_, fd_;
    std::string name_;
    int error_ = 0;
    bool made_ = false;
};

// Copies data from one open file to another, ways from fast to plain.
class Pump {
  public:
    Pump(int from, int to, const CopyProgress& progress) : from_(from), to_(to), progress_(progress) {}

    int run(uint64_t size) {
        if (!goOn()) return ECANCELED;
        off_t at = 0;
        while (static_cast<uint64_t>(at) < size) {
            off_t data = ::lseek(from_, at, SEEK_DATA);
            if (data < 0 && errno == ENXIO) break;
            if (data < 0) return tail(at);
            off_t hole = ::lseek(from_, data, SEEK_HOLE);
            if (hole <= data) return tail(data);
            bool ended = false;
            if (int error = range(data, std::min<off_t>(hole, static_cast<off_t>(size)), ended)) return error;
            if (ended) return tail(data);
            at = hole;
        }
        if (::ftruncate(to_, static_cast<off_t>(size)) != 0) return errno;
        // The length was fixed at the start, so a log that grows all the time has an end. No length at all
        // may be the fiction of a kernel table.
        return size ? 0 : tail(0);
    }

  private:
    bool goOn() { return !progress_ || progress_(done_); }

    // Moves [at, end). `ended` tells that the source gave nothing before its end.
    int range(off_t at, off_t end, bool& ended) {
        while (at < end) {
            size_t want = static_cast<size_t>(std::min<off_t>(end - at, kStep));
            ssize_t got = step(at, want);
            if (got < 0) return errno;
            if (got == 0) {
                ended = true;
                return 0;
            }
            at += got;
            done_ += static_cast<uint64_t>(got);
            if (!goOn()) return ECANCELED;
        }
        return 0;
    }

    // Everything from `at` on, through the buffer.
    int tail(off_t at) {
        for (;;) {
            ssize_t got = plainStep(at, kBuffer);
            if (got < 0) return errno;
            if (got == 0) return 0;
            at += got;
            done_ += static_cast<uint64_t>(got);
            if (!goOn()) return ECANCELED;
        }
    }

    ssize_t step(off_t at, size_t want) {
        if (way_ == 0) {
            off_t in = at, out = at;
            ssize_t got = ::copy_file_range(from_, &in, to_, &out, want, 0);
            if (got > 0) return got;
            if (got < 0 && !refuses(errno)) return got;
            way_ = 1;
        }
        if (way_ == 1) {
            off_t in = at;
            if (::lseek(to_, at, SEEK_SET) < 0) return -1;
            ssize_t got = ::sendfile(to_, from_, &in, want);
            if (got > 0) return got;
            if (got < 0 && !refuses(errno)) return got;
            way_ = 2;
        }
        return plainStep(at, std::min(want, kBuffer));
    }

    static bool refuses(int error) {
        return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
               error == EPERM || error == EBADF;
    }

    ssize_t plainStep(off_t at, size_t want) {
        if (buffer_.empty()) buffer_.resize(kBuffer);
        ssize_t got;
        do {
            got = ::pread(from_, buffer_.data(), want, at);
        } while (got < 0 && errno == EINTR);
        for (ssize_t put = 0; put < got;) {
            ssize_t wrote = ::pwrite(to_, buffer_.data() + put, static_cast<size_t>(got - put), at + put);
            if (wrote < 0 && errno != EINTR) return -1;
            put += std::max<ssize_t>(wrote, 0);
        }
        return got;
    }

    int from_, to_;
    const CopyProgress& progress_;
    uint64_t done_ = 0;
    int way_ = 0;
    std::vector<char> buffer_;
};

bool hasPrefix(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// What becomes of one attribute: in a plain copy only what describes the content and who may read it.
bool wanted(std::string_view name, bool whole) {
    return whole || hasPrefix(name, "user.") || name == "system.posix_acl_access";
}

// Labels that only a privileged process may set follow when they can.
bool mayFail(std::string_view name, int error, bool whole) {
    if (name == "system.posix_acl_access") return false;
    if (hasPrefix(name, "user.")) return !whole && error == EOPNOTSUPP;
    return error == EPERM || error == EACCES || error == EOPNOTSUPP || error == EINVAL;
}

int copyAttribute(int from, int to, const char* name, bool whole) {
    std::vector<char> value(4096);
    ssize_t size;
    while ((size = ::fgetxattr(from, name, value.data(), value.size())) < 0 && errno == ERANGE) {
        ssize_t need = ::fgetxattr(from, name, nullptr, 0);
        if (need < 0) break;
        value.resize(static_cast<size_t>(need) + 256);
    }
    if (size < 0) return errno == ENODATA || errno == EACCES || errno == EPERM ? 0 : errno;
    if (::fsetxattr(to, name, value.data(), static_cast<size_t>(size), 0) == 0) return 0;
    return mayFail(name, errno, whole) ? 0 : errno;
}

int copyAttributes(int from, int to, bool whole) {
    std::vector<char> names(4096);
    ssize_t size;
    while ((size = ::flistxattr(from, names.data(), names.size())) < 0 && errno == ERANGE) {
        if (names.size() > (1u << 20)) return E2BIG;
        names.resize(names.size() * 2);
    }
    if (size < 0) return errno == EOPNOTSUPP ? 0 : errno;
    for (const char* name = names.data(); name < names.data() + size;
         name += std::string_view(name).size() + 1) {
        if (!wanted(name, whole)) continue;
        if (int error = copyAttribute(from, to, name, whole)) return error;
    }
    return 0;
}

// Owner first, since a change of owner clears the set-id bits; then mode, attributes (the access list refines
// the mode), and times last, since all before touch them.
int copyMeta(int from, int to, const struct stat& source, bool whole) {
    struct stat made;
    if (::fstat(to, &made) != 0) return errno;
    if (whole && (made.st_uid != source.st_uid || made.st_gid != source.st_gid)) {
        if (::fchown(to, source.st_uid, source.st_gid) != 0) return errno;
        made.st_uid = source.st_uid;
        made.st_gid = source.st_gid;
    }
    mode_t mode = source.st_mode & 07777;
    if (made.st_uid != source.st_uid) mode &= ~static_cast<mode_t>(S_ISUID);
    if (made.st_gid != source.st_gid) mode &= ~static_cast<mode_t>(S_ISGID);
    if (::fchmod(to, mode) != 0) return errno;
    if (int error = copyAttributes(from, to, whole)) return error;
    timespec times[2] = {source.st_atim, source.st_mtim};
    return ::futimens(to, times) == 0 ? 0 : errno;
}

int openSource(const std::string& path, int flags, Descriptor& fd, struct stat& raw) {
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    // O_NONBLOCK keeps the open of a pipe without a writer from waiting for ever.
    fd.reset(::openat(anchor.dir(), anchor.rest(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | flags));
    if (!fd) return errno == ENXIO ? EOPNOTSUPP : errno;
    if (::fstat(fd.get(), &raw) != 0) return errno;
    if (S_ISDIR(raw.st_mode)) return EISDIR;
    return S_ISREG(raw.st_mode) ? 0 : EOPNOTSUPP;
}

// Finds the file that `to` names at last and checks that it may be replaced.
int resolveTarget(const std::string& to, const struct stat& source, std::string& place) {
    place = to;
    PathAnchor anchor(to);
    if (anchor.error()) return anchor.error();
    struct stat raw;
    if (::fstatat(anchor.dir(), anchor.rest(), &raw, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? 0 : errno;
    if (S_ISLNK(raw.st_mode)) {
        std::unique_ptr<char, decltype(&::free)> real(::realpath(anchor.plain().c_str(), nullptr), ::free);
        if (!real) return errno;
        place = real.get();
        if (::stat(place.c_str(), &raw) != 0) return errno;
    }
    if (S_ISDIR(raw.st_mode)) return EISDIR;
    if (!S_ISREG(raw.st_mode)) return EOPNOTSUPP;
    return raw.st_dev == source.st_dev && raw.st_ino == source.st_ino ? EINVAL : 0;
}

int fillDraft(Draft& draft, int from, const struct stat& source, bool whole, const CopyProgress& progress) {
    if (int error = draft.create()) return error;
    if (int error = Pump(from, draft.fd(), progress).run(static_cast<uint64_t>(source.st_size))) return error;
    return copyMeta(from, draft.fd(), source, whole);
}

int moveLink(const std::string& from, const std::string& to, const struct stat& source) {
    std::string target;
    if (int error = readLink(from, target)) return error;
    Draft draft(to);
    if (draft.error()) return draft.error();
    if (int error = draft.createLink(target)) return error;
    if (::fchownat(draft.dir(), draft.name().c_str(), source.st_uid, source.st_gid, AT_SYMLINK_NOFOLLOW) !=
        0) {
        return errno;
    }
    timespec times[2] = {source.st_atim, source.st_mtim};
    if (::utimensat(draft.dir(), draft.name().c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    return draft.finish(to, false);
}

int moveRegular(const std::string& from, const std::string& to, const CopyProgress& progress) {
    Descriptor fd;
    struct stat source, after;
    if (int error = openSource(from, O_NOFOLLOW, fd, source)) return error;
    Draft draft(to);
    if (draft.error()) return draft.error();
    if (int error = fillDraft(draft, fd.get(), source, true, progress)) return error;
    if (::fsync(draft.fd()) != 0) return errno;
    if (::fstat(fd.get(), &after) != 0) return errno;
    bool same = after.st_size == source.st_size && after.st_mtim.tv_sec == source.st_mtim.tv_sec &&
                after.st_mtim.tv_nsec == source.st_mtim.tv_nsec;
    return same ? draft.finish(to, false) : EBUSY;
}

}  // namespace

int copyFile(const std::string& from, const std::string& to, const CopyProgress& progress) {
    Descriptor fd;
    struct stat source;
    std::string place;
    if (int error = openSource(from, 0, fd, source)) return error;
    if (int error = resolveTarget(to, source, place)) return error;
    Draft draft(place);
    if (draft.error()) return draft.error();
    if (int error = fillDraft(draft, fd.get(), source, false, progress)) return error;
    return draft.finish(place, true);
}

int moveFile(const std::string& from, const std::string& to, const CopyProgress& progress) {
    int error = renameNoReplace(from, to);
    if (error != EXDEV) return error;
    PathAnchor anchor(from);
    if (anchor.error()) return anchor.error();
    struct stat source;
    if (::fstatat(anchor.dir(), anchor.rest(), &source, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (pathExists(to)) return EEXIST;
    if (S_ISLNK(source.st_mode)) {
        error = moveLink(from, to, source);
    } else {
        error = S_ISREG(source.st_mode) ? moveRegular(from, to, progress) : EXDEV;
    }
    if (error) return error;
    error = removeFile(from);
    if (error) removeFile(to);
    return error;
}

}  // namespace platform
