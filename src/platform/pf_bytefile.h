#pragma once

// A regular file read by position, for parsers of untrusted formats: every access is checked against what is
// there.

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/pf_anchor.h"

namespace platform {

class ByteFile {
  public:
    // 0 or an errno; EISDIR for folders, EOPNOTSUPP for what is no regular file.
    int open(const std::string& path);

    // Reads exactly `size` bytes at `at`; false if they are not all there. `error` keeps the errno of a
    // failed read.
    bool read(uint64_t at, size_t size, std::string& out);
    int error() const { return error_; }

  private:
    Descriptor fd_;
    int error_ = 0;
};

// Numbers inside a block of bytes.
class ByteView {
  public:
    explicit ByteView(std::string_view bytes, bool big = false) : bytes_(bytes), big_(big) {}

    size_t size() const { return bytes_.size(); }
    bool has(uint64_t at, uint64_t count) const { return at <= bytes_.size() && count <= bytes_.size() - at; }
    // Unsigned number of 1 to 8 bytes; 0 where the block ends too early.
    uint64_t number(uint64_t at, size_t width) const;
    // Part of the block, cut off at its end.
    std::string_view part(uint64_t at, uint64_t count) const {
        return at < bytes_.size() ? bytes_.substr(at, count) : std::string_view();
    }

  private:
    std::string_view bytes_;
    bool big_;
};

}  // namespace platform
