#pragma once

// Descriptors owned by scope, and an anchor that lets every call of this floor take paths longer than the
// kernel's limit of 4095 bytes: the front part is walked with O_PATH descriptors until the rest is short
// enough.

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace platform {

// Owns one file descriptor; -1 is none. Not copyable, one thread at a time.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

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
    UniqueFd dir_;
    std::string rest_;
    int error_ = 0;
};

// Gives the folder part of a system path ("." if it has none) and its last name. Trailing separators are
// dropped.
std::pair<std::string, std::string> splitLast(const std::string& path);

}  // namespace platform
