// Reads by position rather than a mapping: a mapped file that another process cuts short would fault.

#include "platform/pf_bytefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

int ByteFile::open(const std::string& path) {
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    // O_NONBLOCK keeps the open of a pipe without a writer from waiting for ever.
    fd_.reset(::openat(anchor.dir(), anchor.rest(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd_) return errno == ENXIO ? EOPNOTSUPP : errno;
    struct stat raw;
    if (::fstat(fd_.get(), &raw) != 0) return errno;
    if (S_ISDIR(raw.st_mode)) return EISDIR;
    return S_ISREG(raw.st_mode) ? 0 : EOPNOTSUPP;
}

bool ByteFile::read(uint64_t at, size_t size, std::string& out) {
    if (at > static_cast<uint64_t>(INT64_MAX) - size) return false;
    out.resize(size);
    for (size_t done = 0; done < size;) {
        ssize_t got = ::pread(fd_.get(), out.data() + done, size - done, static_cast<off_t>(at + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) error_ = errno;
        if (got <= 0) return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

uint64_t ByteView::number(uint64_t at, size_t width) const {
    if (!has(at, width)) return 0;
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        size_t place = big_ ? i : width - 1 - i;
        value = value << 8 | static_cast<uint8_t>(bytes_[at + place]);
    }
    return value;
}

}  // namespace platform
