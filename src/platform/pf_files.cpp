// Files over the Linux calls.
//
// All details come from one statx, which alone tells the time of creation and whether a name is the root of a
// mount. Two facts need further calls: whether a symbolic link leads to a directory, and the attribute bits
// that only the extended attribute holds. The latter is asked for files and folders alone, since the kernel
// refuses `user.*` elsewhere, and given up for the rest of a listing once the file system says that it has
// none.

#include "platform/pf_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>

#include "platform/pf_anchor.h"
#include "platform/pf_dosattrib.h"

namespace platform {

namespace {

constexpr uint32_t kExtendedBits = kAttributeSystem | kAttributeArchive | kAttributeOffline;
constexpr size_t kDosAttribLongest = 4096;

int result(int code) { return code < 0 ? errno : 0; }

FileTime timeOf(const struct statx_timestamp& stamp) { return {stamp.tv_sec, stamp.tv_nsec}; }

// Gives the extended attribute's value, or the errno; ENODATA if there is none.
int readDosAttrib(const std::string& plain, std::string& value) {
    value.resize(kDosAttribLongest);
    ssize_t size = ::getxattr(plain.c_str(), kDosAttribName, value.data(), value.size());
    if (size < 0) return errno;
    value.resize(static_cast<size_t>(size));
    return 0;
}

void fill(const struct statx& from, FileDetails& to) {
    to.size = from.stx_size;
    to.space = from.stx_blocks * 512;
    to.links = from.stx_nlink;
    to.device = makedev(from.stx_dev_major, from.stx_dev_minor);
    to.inode = from.stx_ino;
    to.uid = from.stx_uid;
    to.gid = from.stx_gid;
    to.mode = from.stx_mode;
    to.modified = timeOf(from.stx_mtime);
    to.accessed = timeOf(from.stx_atime);
    to.created = from.stx_mask & STATX_BTIME ? timeOf(from.stx_btime) : FileTime{};
    to.attributes = 0;
    if (!to.isLink() && (to.mode & 0222) == 0) to.attributes |= kAttributeReadOnly;
    if (to.isDirectory()) to.attributes |= kAttributeDirectory;
}

bool isMountRoot(const struct statx& from, uint64_t parentDevice) {
#ifdef STATX_ATTR_MOUNT_ROOT
    if (from.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) return from.stx_attributes & STATX_ATTR_MOUNT_ROOT;
#endif
    return parentDevice != 0 && makedev(from.stx_dev_major, from.stx_dev_minor) != parentDevice;
}

bool isHiddenName(std::string_view name) { return name.size() > 1 && name[0] == '.' && name != ".."; }

void addExtended(const std::string& plain, bool& works, FileDetails& details) {
    std::string value;
    int error = readDosAttrib(plain, value);
    if (error == EOPNOTSUPP) works = false;
    uint32_t bits = 0;
    if (error == 0 && parseDosAttrib(value, bits)) details.attributes |= bits & kExtendedBits;
}

// Undoes the octal escapes of the mount table.
std::string unescape(std::string_view text) {
    std::string out;
    auto octal = [](char c) { return c >= '0' && c <= '7'; };
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && octal(text[i + 1]) && octal(text[i + 2]) &&
            octal(text[i + 3])) {
            out.push_back(
                static_cast<char>((text[i + 1] - '0') << 6 | (text[i + 2] - '0') << 3 | (text[i + 3] - '0')));
            i += 3;
        } else {
            out.push_back(text[i]);
        }
    }
    return out;
}

// Takes the next word of a line of the mount table.
std::string_view word(std::string_view& line) {
    size_t cut = line.find(' ');
    std::string_view taken = line.substr(0, cut);
    line.remove_prefix(cut == std::string_view::npos ? line.size() : cut + 1);
    return taken;
}

// One line of /proc/self/mountinfo (proc(5)): number, parent, major:minor, root, mount point, options,
// optional fields up to "-", type, source, super options.
bool readMount(std::string_view line, uint64_t mount, const std::string& device, VolumeInfo& volume) {
    std::string_view number = word(line);
    word(line);
    std::string_view lineDevice = word(line);
    if (mount ? number != std::to_string(mount) : lineDevice != device) return false;
    word(line);
    volume.mountPoint = unescape(word(line));
    while (!line.empty() && word(line) != "-") {
    }
    volume.type = unescape(word(line));
    volume.source = unescape(word(line));
    return true;
}

}  // namespace

int detailsAt(int dir, const char* name, const std::string& plain, uint64_t parentDevice, bool& extendedWorks,
              FileDetails& details) {
    struct statx raw;
    constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_SYNC_AS_STAT;
    if (::statx(dir, name, kFlags, STATX_BASIC_STATS | STATX_BTIME, &raw) != 0) return errno;
    fill(raw, details);
    std::string_view text(name);
    size_t cut = text.rfind('/');
    if (isHiddenName(cut == std::string_view::npos ? text : text.substr(cut + 1))) {
        details.attributes |= kAttributeHidden;
    }
    if (details.isLink()) {
        struct stat target;
        if (::fstatat(dir, name, &target, AT_NO_AUTOMOUNT) == 0 && S_ISDIR(target.st_mode)) {
            details.attributes |= kAttributeDirectory | kAttributeReparse;
        }
    } else if (details.isDirectory() && isMountRoot(raw, parentDevice)) {
        details.attributes |= kAttributeReparse;
    }
    if (extendedWorks && (details.isDirectory() || details.isRegular())) {
        addExtended(plain.empty() ? std::string(name) : plain + "/" + name, extendedWorks, details);
    }
    return 0;
}

int fileDetails(const std::string& path, bool follow, FileDetails& details, DetailWish wish) {
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    std::string plain = anchor.plain();
    bool extended = false;
    int error = detailsAt(AT_FDCWD, plain.c_str(), "", 0, extended, details);
    if (error) return error;
    if (follow && details.isLink()) {
        struct statx raw;
        if (::statx(AT_FDCWD, plain.c_str(), AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_BTIME, &raw) != 0)
            return errno;
        uint32_t hidden = details.attributes & kAttributeHidden;
        fill(raw, details);
        details.attributes |= hidden;
        if (details.isDirectory() && isMountRoot(raw, 0)) details.attributes |= kAttributeReparse;
    }
    extended = true;
    if (wish.extended && (details.isDirectory() || details.isRegular()))
        addExtended(plain, extended, details);
    return 0;
}

bool pathExists(const std::string& path) {
    PathAnchor anchor(path);
    struct stat raw;
    return !anchor.error() && ::fstatat(anchor.dir(), anchor.rest(), &raw, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isDirectory(const std::string& path) {
    PathAnchor anchor(path);
    struct stat raw;
    return !anchor.error() && ::fstatat(anchor.dir(), anchor.rest(), &raw, 0) == 0 && S_ISDIR(raw.st_mode);
}

int currentDirectory(std::string& path) {
    // The C library falls back to a walk where the kernel's own call gives up, so a long result is possible.
    std::unique_ptr<char, decltype(&::free)> text(::getcwd(nullptr, 0), ::free);
    if (!text) return errno;
    path = text.get();
    return 0;
}

int createDirectory(const std::string& path) {
    PathAnchor anchor(path);
    return anchor.error() ? anchor.error() : result(::mkdirat(anchor.dir(), anchor.rest(), 0777));
}

int removeDirectory(const std::string& path) {
    PathAnchor anchor(path);
    return anchor.error() ? anchor.error() : result(::unlinkat(anchor.dir(), anchor.rest(), AT_REMOVEDIR));
}

int removeFile(const std::string& path) {
    PathAnchor anchor(path);
    return anchor.error() ? anchor.error() : result(::unlinkat(anchor.dir(), anchor.rest(), 0));
}

int createLink(const std::string& link, const std::string& target) {
    PathAnchor anchor(link);
    if (anchor.error()) return anchor.error();
    if (target.find('\0') != std::string::npos) return EINVAL;
    return result(::symlinkat(target.c_str(), anchor.dir(), anchor.rest()));
}

int readLink(const std::string& path, std::string& target) {
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    target.resize(PATH_MAX);
    ssize_t size = ::readlinkat(anchor.dir(), anchor.rest(), target.data(), target.size());
    if (size < 0) return errno;
    target.resize(static_cast<size_t>(size));
    return 0;
}

int renameNoReplace(const std::string& from, const std::string& to) {
    PathAnchor source(from), target(to);
    if (source.error()) return source.error();
    if (target.error()) return target.error();
    if (::renameat2(source.dir(), source.rest(), target.dir(), target.rest(), RENAME_NOREPLACE) == 0)
        return 0;
    // EINVAL is also the answer to a folder moved into itself; the slow way then gives it again.
    return errno == EINVAL || errno == ENOSYS ? renameByLink(from, to) : errno;
}

int renameByLink(const std::string& from, const std::string& to) {
    PathAnchor source(from), target(to);
    if (source.error()) return source.error();
    if (target.error()) return target.error();
    struct stat raw;
    if (::fstatat(source.dir(), source.rest(), &raw, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (S_ISDIR(raw.st_mode)) {
        // A rename may replace an empty folder, so the folder made here takes the name without a race.
        if (::mkdirat(target.dir(), target.rest(), 0700) != 0) return errno;
        if (::renameat(source.dir(), source.rest(), target.dir(), target.rest()) == 0) return 0;
        int error = errno;
        ::unlinkat(target.dir(), target.rest(), AT_REMOVEDIR);
        return error;
    }
    if (::linkat(source.dir(), source.rest(), target.dir(), target.rest(), 0) == 0) {
        if (::unlinkat(source.dir(), source.rest(), 0) == 0) return 0;
        int error = errno;
        ::unlinkat(target.dir(), target.rest(), 0);
        return error;
    }
    if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return errno;
    if (::fstatat(target.dir(), target.rest(), &raw, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
    return result(::renameat(source.dir(), source.rest(), target.dir(), target.rest()));
}

int setAttributes(const std::string& path, uint32_t attributes) {
    FileDetails now;
    if (int error = fileDetails(path, true, now)) return error;
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    std::string plain = anchor.plain();
    bool readOnly = attributes & kAttributeReadOnly;
    if ((attributes ^ now.attributes) & kAttributeReadOnly) {
        mode_t mode = now.mode & 07777;
        mode = readOnly ? mode & ~0222u : mode | S_IWUSR;
        if (::fchmodat(AT_FDCWD, plain.c_str(), mode, 0) != 0) return errno;
    }
    if (((attributes ^ now.attributes) & kExtendedBits) == 0) return 0;
    std::string value;
    int error = readDosAttrib(plain, value);
    if (error == ENODATA) {
        value.clear();
    } else if (error) {
        return error;
    }
    uint32_t bits = 0;
    if (!parseDosAttrib(value, bits)) bits = now.attributes & (kAttributeDirectory | kAttributeReadOnly);
    std::string patched = patchDosAttrib(value, (bits & ~kExtendedBits) | (attributes & kExtendedBits));
    return result(::setxattr(plain.c_str(), kDosAttribName, patched.data(), patched.size(), 0));
}

int setTimes(const std::string& path, const FileTime* modified, const FileTime* accessed) {
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    auto spec = [](const FileTime* time) {
        return time ? timespec{time->seconds, static_cast<long>(time->nanoseconds)} : timespec{0, UTIME_OMIT};
    };
    timespec times[2] = {spec(accessed), spec(modified)};
    return result(::utimensat(anchor.dir(), anchor.rest(), times, 0));
}

int spaceInfo(const std::string& path, SpaceInfo& space) {
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    struct statvfs raw;
    if (::statvfs(anchor.plain().c_str(), &raw) != 0) return errno;
    space.freeToCaller = static_cast<uint64_t>(raw.f_bavail) * raw.f_frsize;
    space.total = static_cast<uint64_t>(raw.f_blocks) * raw.f_frsize;
    space.free = static_cast<uint64_t>(raw.f_bfree) * raw.f_frsize;
    return 0;
}

int volumeInfo(const std::string& path, VolumeInfo& volume) {
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    struct statx raw;
    if (::statx(anchor.dir(), anchor.rest(), 0, STATX_BASIC_STATS | STATX_MNT_ID, &raw) != 0) return errno;
    uint64_t mount = raw.stx_mask & STATX_MNT_ID ? raw.stx_mnt_id : 0;
    std::string device = std::to_string(raw.stx_dev_major) + ":" + std::to_string(raw.stx_dev_minor);
    std::unique_ptr<FILE, decltype(&::fclose)> table(::fopen("/proc/self/mountinfo", "re"), ::fclose);
    if (!table) return errno;
    char* buffer = nullptr;
    size_t capacity = 0;
    bool found = false;
    ssize_t size;
    while (!found && (size = ::getline(&buffer, &capacity, table.get())) > 0) {
        if (buffer[size - 1] == '\n') --size;
        found = readMount({buffer, static_cast<size_t>(size)}, mount, device, volume);
    }
    ::free(buffer);
    return found ? 0 : ENODEV;
}

}  // namespace platform
