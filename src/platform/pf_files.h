#pragma once

// Files by path: details, folders, names, attributes, times, volumes.
//
// Paths are system paths (bytes, see pf_paths.h) of any length. Functions give 0 or an errno and never raise;
// a path with a NUL inside gives EINVAL. A symbolic link named by a path is followed only where told. Any
// thread may call.

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

struct FileTime {
    int64_t seconds = 0;  // since 1970-01-01 UTC, may be negative
    uint32_t nanoseconds = 0;
};

enum FileAttribute : uint32_t {
    kAttributeReadOnly = 0x1,    // no write bit in the mode
    kAttributeHidden = 0x2,      // the name begins with a dot
    kAttributeSystem = 0x4,      // of the extended attribute, as are archive and offline
    kAttributeDirectory = 0x10,  // a directory, or a symbolic link to one
    kAttributeArchive = 0x20,
    kAttributeReparse = 0x400,  // a symbolic link to a directory, or the root of a mount
    kAttributeOffline = 0x1000,
};

struct FileDetails {
    uint64_t size = 0;   // bytes; of a symbolic link the length of its target's path
    uint64_t space = 0;  // bytes allocated
    uint64_t links = 0;
    uint64_t device = 0;
    uint64_t inode = 0;
    uint32_t uid = 0;
    uint32_t gid = 0;
    uint32_t mode = 0;  // type and permission bits
    uint32_t attributes = 0;
    FileTime created;  // zero where the file system does not tell
    FileTime modified;
    FileTime accessed;

    bool isDirectory() const { return (mode & 0170000) == 0040000; }
    bool isLink() const { return (mode & 0170000) == 0120000; }
    bool isRegular() const { return (mode & 0170000) == 0100000; }
};

// What a listing or a query reads beside the plain details.
struct DetailWish {
    bool extended = true;  // the bits of the extended attribute: one more call for each file and folder
};

// Details of one path; with `follow` of what a symbolic link leads to.
int fileDetails(const std::string& path, bool follow, FileDetails& details, DetailWish wish = {});

// The building block of the listings: details of `name` in the open folder `dir` (or AT_FDCWD). `plain` is
// the folder's path for calls without a descriptor, "" for none. `parentDevice` is the folder's device, 0 if
// unknown. `extendedWorks` is cleared when the file system has no extended attributes.
int detailsAt(int dir, const char* name, const std::string& plain, uint64_t parentDevice, bool& extendedWorks,
              FileDetails& details);

bool pathExists(const std::string& path);   // anything, a dangling symbolic link too
bool isDirectory(const std::string& path);  // follows symbolic links

int currentDirectory(std::string& path);
int createDirectory(const std::string& path);  // one level; EEXIST if the name is taken
int removeDirectory(const std::string& path);
int removeFile(const std::string& path);  // not a directory (EISDIR); removes a symbolic link itself
int createLink(const std::string& link,
               const std::string& target);                   // symbolic; `target` is stored as it stands
int readLink(const std::string& path, std::string& target);  // EINVAL if it is no symbolic link

// Renames within one file system and never replaces: EEXIST if `to` is taken, EXDEV across file systems.
// Works without a race also where the file system does not know the kernel's flag, except for files on file
// systems that have no hard links either.
int renameNoReplace(const std::string& from, const std::string& to);
// The way that `renameNoReplace` takes where the flag is unknown.
int renameByLink(const std::string& from, const std::string& to);

// Sets the attributes read-only, system, archive and offline as given; follows symbolic links. Hidden belongs
// to the name, directory and reparse to the kind: these bits are ignored.
int setAttributes(const std::string& path, uint32_t attributes);

// Sets the times that are not null, follows symbolic links.
int setTimes(const std::string& path, const FileTime* modified, const FileTime* accessed);

struct SpaceInfo {
    uint64_t freeToCaller = 0;  // bytes that an ordinary user may still take
    uint64_t total = 0;
    uint64_t free = 0;
};
int spaceInfo(const std::string& path, SpaceInfo& space);

struct VolumeInfo {
    std::string type;        // as the system spells it: "ext4", "tmpfs", "nfs4"
    std::string source;      // device or remote name
    std::string mountPoint;  // bytes, octal escapes of the mount table undone
};
int volumeInfo(const std::string& path, VolumeInfo& volume);

}  // namespace platform
