// Long paths.
//
// A tree can be deeper than the kernel accepts in one string, and a storage scan meets such trees. Each step
// takes the longest front part that ends at a separator and fits, so a path of n bytes costs about n / 4000
// calls.

#include "platform/pf_anchor.h"

#include <cerrno>

namespace platform {

namespace {
constexpr size_t kLongest = 4095;
constexpr size_t kStep = 4000;
}  // namespace

PathAnchor::PathAnchor(const std::string& path) : rest_(path) {
    if (path.find('\0') != std::string::npos) error_ = EINVAL;
    size_t start = 0;
    while (error_ == 0 && path.size() - start > kLongest) {
        size_t cut = path.rfind('/', start + kStep);
        if (cut == std::string::npos || cut <= start) {
            error_ = ENAMETOOLONG;
            break;
        }
        std::string front = path.substr(start, cut - start + 1);
        Descriptor next(::openat(dir(), front.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!next) {
            error_ = errno;
            break;
        }
        dir_ = std::move(next);
        start = path.find_first_not_of('/', cut);
        if (start == std::string::npos) start = path.size();
    }
    if (dir_) rest_ = start < path.size() ? path.substr(start) : ".";
}

std::string PathAnchor::plain() const {
    if (!dir_) return rest_;
    return "/proc/self/fd/" + std::to_string(dir_.get()) + "/" + rest_;
}

std::pair<std::string, std::string> splitLast(const std::string& path) {
    size_t end = path.find_last_not_of('/');
    if (end == std::string::npos) return {path.empty() ? "." : "/", ""};
    size_t cut = path.rfind('/', end);
    std::string name = path.substr(cut == std::string::npos ? 0 : cut + 1,
                                   end - (cut == std::string::npos ? 0 : cut + 1) + 1);
    if (cut == std::string::npos) return {".", name};
    size_t folder = path.find_last_not_of('/', cut);
    return {folder == std::string::npos ? "/" : path.substr(0, folder + 1), name};
}

}  // namespace platform
