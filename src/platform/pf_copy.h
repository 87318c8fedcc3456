#pragma once

// Copying of files, and the rename that may cross file systems. Paths are system paths; results are 0 or an
// errno.

#include <cstdint>
#include <functional>
#include <string>

namespace platform {

// Called with the bytes copied so far, at least every 8 MiB; false ends the copy with ECANCELED. May be
// empty.
using CopyProgress = std::function<bool(uint64_t copied)>;

// Copies a regular file, following a symbolic link. Keeps mode, times, `user.*` attributes and the access
// list; holes stay holes. The copy belongs to the caller; if the source does not, the set-id bits are
// dropped. An existing target file is replaced in one step once the copy is complete, so a failure leaves it
// as it was; a target that is a symbolic link names the file to replace. Errors beside those of the system:
// EISDIR (either one is a folder), EINVAL (both are the same file), EOPNOTSUPP (either one is a device, pipe
// or socket). `user.*` attributes are left behind on a file system that has none; an access list that cannot
// be kept fails.
int copyFile(const std::string& from, const std::string& to, const CopyProgress& progress = {});

// Moves a name and never replaces: EEXIST if `to` is taken. Within a file system a plain rename. Across file
// systems regular files are copied with their owner and all attributes and symbolic links made anew, then the
// source is removed; EXDEV for anything else, folders among them. A source that changes meanwhile stays, with
// EBUSY.
int moveFile(const std::string& from, const std::string& to, const CopyProgress& progress = {});

}  // namespace platform
