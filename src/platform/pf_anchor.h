#pragma once

// An anchor that lets every call of this floor take paths longer than the
// kernel's limit of 4095 bytes: the front part is walked with O_PATH descriptors until the rest is short
// enough.

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "platform/pf_descriptor.h"

namespace platform {

// Where a path starts for the *at calls. `path` is a system path (bytes); one with a NUL inside gives EINVAL.
class PathAnchor {
  public:
    explicit PathAnchor(const std::string& path);

    int error() const { return error_; }  // 0, or the errno of the walk; then the rest is of no use
    int dir() const { return dir_ ? dir_.get() : AT_FDCWD; }
    const char* rest() const { return rest_.c_str(); }
    // The same place for calls that know no directory descriptor. Valid while the anchor lives.
    std::string plain() const;

  private:
    Descriptor dir_;
    std::string rest_;
    int error_ = 0;
};

// Gives the folder part of a system path ("." if it has none) and its last name. Trailing separators are
// dropped.
std::pair<std::string, std::string> splitLast(const std::string& path);

}  // namespace platform
