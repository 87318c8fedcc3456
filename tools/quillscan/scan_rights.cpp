// Access lists in the form in which the system keeps them in extended attributes: a version of 32 bits, 2,
// then entries of a tag and the rights, 16 bits each, and an identifier of 32 bits, all little-endian (linux/
// posix_acl_xattr.h). The library for access lists takes no descriptor for the inherited ones and asks for
// each list with a call of its own; one call for the names tells here that most directories have none.
#include "scan_rights.h"

#include <fcntl.h>
#include <sys/acl.h>
#include <sys/xattr.h>

#include <cstring>
#include <string_view>

namespace quillscan {

namespace {

constexpr char Access[] = "system.posix_acl_access", Inherited[] = "system.posix_acl_default";
constexpr uint32_t Version = 2;
constexpr size_t HeaderSize = 4, EntrySize = 8, LongestList = 65536;

uint32_t little(const unsigned char* at, int bytes) {
    uint32_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= static_cast<uint32_t>(at[i]) << 8 * i;
    return value;
}

void takeList(const std::vector<unsigned char>& bytes, size_t size, bool isDefault, std::vector<Right>& out) {
    if (size < HeaderSize || little(bytes.data(), 4) != Version) return;
    for (size_t at = HeaderSize; at + EntrySize <= size; at += EntrySize) {
        const unsigned char* entry = bytes.data() + at;
        out.push_back({static_cast<uint16_t>(little(entry, 2)),
                       static_cast<uint8_t>(little(entry + 2, 2) & 7), isDefault, little(entry + 4, 4)});
    }
}

// The name among those that a list of them holds, each with a zero behind it.
bool contains(std::string_view names, const char* wanted) {
    for (size_t at = 0; at < names.size(); at += std::strlen(names.data() + at) + 1)
        if (names.substr(at).starts_with(wanted) && names[at + std::strlen(wanted)] == '\0') return true;
    return false;
}

}  // namespace

void readRights(int fd, int parent, const std::string& name, std::vector<Right>& out) {
    std::string path;
    if (fd < 0) path = parent == AT_FDCWD ? name : "/proc/self/fd/" + std::to_string(parent) + "/" + name;
    char names[4096];
    ssize_t size =
        fd >= 0 ? flistxattr(fd, names, sizeof names - 1) : llistxattr(path.c_str(), names, sizeof names - 1);
    bool tooMany = size < 0 && errno == ERANGE;
    if (size <= 0 && !tooMany) return;
    if (size > 0) names[size] = '\0';
    std::string_view all(names, size > 0 ? static_cast<size_t>(size) : 0);
    std::vector<unsigned char> list;
    for (const char* kind : {Access, Inherited}) {
        if (!tooMany && !contains(all, kind)) continue;
        list.resize(LongestList);
        ssize_t got = fd >= 0 ? fgetxattr(fd, kind, list.data(), list.size())
                              : lgetxattr(path.c_str(), kind, list.data(), list.size());
        if (got > 0) takeList(list, static_cast<size_t>(got), kind == Inherited, out);
    }
}

std::vector<Right> rightsOfMode(uint32_t mode) {
    return {{ACL_USER_OBJ, static_cast<uint8_t>(mode >> 6 & 7), false, 0},
            {ACL_GROUP_OBJ, static_cast<uint8_t>(mode >> 3 & 7), false, 0},
            {ACL_OTHER, static_cast<uint8_t>(mode & 7), false, 0}};
}

std::string typeOfRight(const Right& right) {
    const char* name = right.tag == ACL_USER_OBJ    ? "owner"
                       : right.tag == ACL_USER      ? "user"
                       : right.tag == ACL_GROUP_OBJ ? "group"
                       : right.tag == ACL_GROUP     ? "named group"
                       : right.tag == ACL_MASK      ? "mask"
                                                    : "other";
    return std::string(right.isDefault ? "default " : "") + name;
}

std::string textOfRights(uint8_t rights) {
    std::string text = "rwx";
    for (int i = 0; i < 3; ++i)
        if (!(rights >> (2 - i) & 1)) text[static_cast<size_t>(i)] = '-';
    return text;
}

}  // namespace quillscan
