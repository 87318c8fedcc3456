#pragma once

// Named streams of a file: its extended attributes in the `user.` space.

#include <string>
#include <vector>

namespace platform {

// Names of the streams, sorted, each once: NAME of `user.DosStream.NAME:$DATA` (the form in which file
// servers keep alternate streams) and of every other `user.NAME`, save `user.DOSATTRIB`, which holds
// attribute bits. The names are bytes. Follows symbolic links; a file system without extended attributes
// gives no names. 0 or an errno.
int listStreams(const std::string& path, std::vector<std::string>& names);

}  // namespace platform
