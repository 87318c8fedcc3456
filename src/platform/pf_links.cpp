// An administrator moves a server's working directory away from its program by a symbolic link beside the
// program: /opt/quill/quillsrv with /opt/quill/quillsrv.LNK -> /srv/data. Anything but a link to a directory
// is refused with an errno, and the caller falls back to the program's own directory.

#include "platform/pf_links.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

namespace platform {

std::string directoryOf(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string workingDirectoryLink(const std::string& program) {
    size_t slash = program.rfind('/');
    size_t dot = program.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return program + ".LNK";
    return program.substr(0, dot + 1) + "LNK";
}

int readWorkingDirectoryLink(const std::string& program, std::string& directory) {
    std::string link = workingDirectoryLink(program);
    struct stat info;
    if (lstat(link.c_str(), &info) != 0) return errno;
    if (!S_ISLNK(info.st_mode)) return EINVAL;
    if (stat(link.c_str(), &info) != 0) return errno;
    if (!S_ISDIR(info.st_mode)) return ENOTDIR;
    std::unique_ptr<char, decltype(&free)> target(realpath(link.c_str(), nullptr), &free);
    if (!target) return errno;
    directory = target.get();
    return 0;
}

}  // namespace platform
