#pragma once

// The link file that names a program's working directory.

#include <string>

namespace platform {

// Path of the link of a program: the text behind the last full stop of the last path component replaced by
// "LNK", or
// ".LNK" added where the component has none.
std::string workingDirectoryLink(const std::string& program);

// What the link of `program` leads to, as an absolute path. ENOENT: there is none; EINVAL: it is no symbolic
// link; ENOTDIR: it leads to something else than a directory.
int readWorkingDirectoryLink(const std::string& program, std::string& directory);

// The directory of a path: all before the last slash, "/" for a path in the root, "." for a bare name.
std::string directoryOf(const std::string& path);

}  // namespace platform
