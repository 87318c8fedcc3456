#pragma once

// The C library's buffered files, opened by system path.

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

struct StdioCloser {
    void operator()(FILE* file) const { ::fclose(file); }
};
using StdioFile = std::unique_ptr<FILE, StdioCloser>;

// Opens a file; `mode` is the C library's: r, w or a, then any of +, b, t, x (EINVAL otherwise). Paths may be
// of any length. 0 or an errno; EISDIR for a folder in every mode. Opening a pipe does not wait: for reading
// it is open at once, for writing it is ENXIO without a reader. Descriptors are not inherited by child
// processes. /dev/stdout and /dev/stderr that the system does not open, as sockets, are the open descriptors.
int openStdio(const std::string& path, std::string_view mode, StdioFile& file);

}  // namespace platform
