// Streams as extended attributes.
//
// The kernel bounds the list of one file (64 KiB on Linux), so it is fetched whole; a list that grows between
// the two calls is asked for again.

#include "platform/pf_streams.h"

#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "platform/pf_anchor.h"
#include "platform/pf_dosattrib.h"

namespace platform {

namespace {

constexpr std::string_view kUser = "user.";
constexpr std::string_view kStream = "user.DosStream.";
constexpr std::string_view kSuffix = ":$DATA";
constexpr size_t kLongest = 1u << 20;

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// The stream that an attribute holds, empty if it holds none.
std::string_view streamName(std::string_view attribute) {
    if (attribute.substr(0, kUser.size()) != kUser || attribute == kDosAttribName) return {};
    if (attribute.substr(0, kStream.size()) != kStream) return attribute.substr(kUser.size());
    attribute.remove_prefix(kStream.size());
    if (endsWith(attribute, kSuffix)) attribute.remove_suffix(kSuffix.size());
    return attribute;
}

}  // namespace

int listStreams(const std::string& path, std::vector<std::string>& names) {
    names.clear();
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    std::string plain = anchor.plain();
    std::vector<char> list(4096);
    ssize_t size;
    while ((size = ::listxattr(plain.c_str(), list.data(), list.size())) < 0 && errno == ERANGE) {
        if (list.size() >= kLongest) return E2BIG;
        list.resize(list.size() * 2);
    }
    if (size < 0) return errno == EOPNOTSUPP ? 0 : errno;
    for (const char* at = list.data(); at < list.data() + size;) {
        std::string_view attribute(at);
        at += attribute.size() + 1;
        std::string_view name = streamName(attribute);
        if (!name.empty()) names.emplace_back(name);
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return 0;
}

}  // namespace platform
