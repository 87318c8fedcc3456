// Opening by descriptor, so that long paths work, folders are refused at once and no pipe can hold a thread
// up.

#include "platform/pf_stdio.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/pf_anchor.h"

namespace platform {

namespace {

bool parseMode(std::string_view mode, int& flags, std::string& plain) {
    if (mode.empty()) return false;
    bool update = false;
    switch (mode[0]) {
        case 'r': flags = 0; break;
        case 'w': flags = O_CREAT | O_TRUNC; break;
        case 'a': flags = O_CREAT | O_APPEND; break;
        default: return false;
    }
    for (char c : mode.substr(1)) {
        if (c == '+') {
            update = true;
        } else if (c == 'x') {
            flags |= O_EXCL;
        } else if (c != 'b' && c != 't') {
            return false;
        }
    }
    flags |= update ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    plain = mode[0];
    if (update) plain += '+';
    return true;
}

// The system opens what /dev/stdout leads to anew, and refuses that for sockets and for pipes of other users.
int standardDescriptor(const std::string& path) {
    if (path == "/dev/stdout") return STDOUT_FILENO;
    return path == "/dev/stderr" ? STDERR_FILENO : -1;
}

}  // namespace

int openStdio(const std::string& path, std::string_view mode, StdioFile& file) {
    file.reset();
    int flags = 0;
    std::string plain;
    if (!parseMode(mode, flags, plain)) return EINVAL;
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    Descriptor fd(::openat(anchor.dir(), anchor.rest(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666));
    if (fd) {
        struct stat raw;
        if (::fstat(fd.get(), &raw) != 0) return errno;
        if (S_ISDIR(raw.st_mode)) return EISDIR;
        if (::fcntl(fd.get(), F_SETFL, flags & O_APPEND) != 0) return errno;
    } else {
        int error = errno;
        int standard = standardDescriptor(path);
        if (standard < 0 || (error != EACCES && error != ENXIO)) return error;
        fd.reset(::fcntl(standard, F_DUPFD_CLOEXEC, 3));
        if (!fd) return error;
    }
    file.reset(::fdopen(fd.get(), plain.c_str()));
    if (!file) return errno;
    (void)fd.release();
    return 0;
}

}  // namespace platform
