// What the process can learn about itself and its machine.
//
// Everything is asked of the kernel at the call, nothing is cached, so that a changed host name or a new
// mount shows. The one piece of state is the lock over the environment: the C library leaves setenv beside
// getenv undefined, and scripts use both from many threads. Library code that calls getenv on its own is
// outside that lock; the C library never frees the old environment strings, so such a reader sees an old
// value at worst.

#include "platform/pf_process.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <string_view>

#include "platform/pf_descriptor.h"

namespace platform {

namespace {

std::shared_mutex environmentLock;

bool validVariableName(const std::string& name) {
    return !name.empty() && name.find('=') == std::string::npos && name.find('\0') == std::string::npos;
}

// Value of a shell-like assignment in os-release(5): optional quotes, backslash escapes inside double quotes.
std::string unquoteAssignment(std::string_view text) {
    std::string value;
    char quote = 0;
    if (!text.empty() && (text[0] == '"' || text[0] == '\'')) {
        quote = text[0];
        text.remove_prefix(1);
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (quote && text[i] == quote) break;
        if (quote != '\'' && text[i] == '\\' && i + 1 < text.size()) ++i;
        value += text[i];
    }
    return value;
}

std::string distributionName() {
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::string content;
        if (readSystemFile(path, content, 1 << 20) != 0) continue;
        constexpr std::string_view key = "PRETTY_NAME=";
        for (size_t start = 0; start < content.size();) {
            size_t end = content.find('\n', start);
            if (end == std::string::npos) end = content.size();
            std::string_view line(content.data() + start, end - start);
            if (line.starts_with(key)) return unquoteAssignment(line.substr(key.size()));
            start = end + 1;
        }
    }
    return {};
}

bool meminfoFigure(const std::string& content, std::string_view key, uint64_t& bytes) {
    size_t at = content.find(key);
    if (at == std::string::npos) return false;
    at = content.find_first_not_of(" \t", at + key.size());
    if (at == std::string::npos) return false;
    uint64_t kilobytes = 0;
    if (std::from_chars(content.data() + at, content.data() + content.size(), kilobytes).ec != std::errc())
        return false;
    bytes = kilobytes * 1024;
    return true;
}

// A path in mountinfo has blank, tab, newline and backslash as three octal digits.
std::string unescapeMount(std::string_view text) {
    std::string path;
    for (size_t i = 0; i < text.size(); ++i) {
        auto octal = [&](size_t at) { return at < text.size() && text[at] >= '0' && text[at] <= '7'; };
        if (text[i] == '\\' && octal(i + 1) && octal(i + 2) && octal(i + 3)) {
            path +=
                static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
            i += 3;
        } else {
            path += text[i];
        }
    }
    return path;
}

struct Mount {
    std::string device, root, point, type, source;
};

bool parseMount(std::string_view line, Mount& mount) {
    std::vector<std::string_view> fields;
    for (size_t start = 0; start < line.size();) {
        size_t end = line.find(' ', start);
        if (end == std::string_view::npos) end = line.size();
        fields.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    size_t dash = 6;  // a variable number of optional fields ends at a lone dash
    while (dash < fields.size() && fields[dash] != "-") ++dash;
    if (dash + 2 >= fields.size()) return false;
    mount.device = fields[2];
    mount.root = unescapeMount(fields[3]);
    mount.point = unescapeMount(fields[4]);
    mount.type = fields[dash + 1];
    mount.source = unescapeMount(fields[dash + 2]);
    return true;
}

// Images and optical media sit on block devices without being disks; the second set are disks without one
// device.
bool isDisk(const Mount& mount) {
    static const std::set<std::string> images{"squashfs", "erofs", "iso9660", "udf", "cramfs", "romfs"};
    static const std::set<std::string> pools{"zfs", "bcachefs", "btrfs", "virtiofs", "9p"};
    if (mount.point == "/") return true;
    if (images.count(mount.type)) return false;
    return pools.count(mount.type) || mount.source.starts_with("/dev/");
}

}  // namespace

int readSystemFile(const char* path, std::string& content, size_t limit) {
    Descriptor fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd) return errno;
    std::string all;
    char buffer[16384];
    for (;;) {
        ssize_t got = read(fd.get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno;
        if (got == 0) break;
        if (all.size() + static_cast<size_t>(got) > limit) return E2BIG;
        all.append(buffer, static_cast<size_t>(got));
    }
    content.swap(all);
    return 0;
}

int programPath(std::string& path) {
    std::string buffer(256, '\0');
    for (;;) {
        ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
        if (length < 0) return errno;
        if (static_cast<size_t>(length) < buffer.size()) {
            buffer.resize(static_cast<size_t>(length));
            break;
        }
        buffer.resize(buffer.size() * 2);
    }
    constexpr std::string_view gone = " (deleted)";
    if (buffer.ends_with(gone) && access(buffer.c_str(), F_OK) != 0)
        buffer.resize(buffer.size() - gone.size());
    path.swap(buffer);
    return 0;
}

int programArguments(std::vector<std::string>& arguments) {
    std::string content;
    if (int error = readSystemFile("/proc/self/cmdline", content)) return error;
    std::vector<std::string> list;
    for (size_t start = 0; start < content.size();) {
        size_t end = content.find('\0', start);
        if (end == std::string::npos) end = content.size();
        list.emplace_back(content, start, end - start);
        start = end + 1;
    }
    arguments.swap(list);
    return 0;
}

int environmentGet(const std::string& name, std::string& value) {
    if (!validVariableName(name)) return EINVAL;
    std::shared_lock hold(environmentLock);
    const char* found = getenv(name.c_str());
    if (!found) return ENOENT;
    value = found;
    return 0;
}

int environmentSet(const std::string& name, const std::string& value) {
    if (!validVariableName(name) || value.find('\0') != std::string::npos) return EINVAL;
    std::unique_lock hold(environmentLock);
    return setenv(name.c_str(), value.c_str(), 1) == 0 ? 0 : errno;
}

int environmentUnset(const std::string& name) {
    if (!validVariableName(name)) return EINVAL;
    std::unique_lock hold(environmentLock);
    return unsetenv(name.c_str()) == 0 ? 0 : errno;
}

std::vector<std::string> environmentList() {
    std::shared_lock hold(environmentLock);
    std::vector<std::string> list;
    for (char** entry = environ; entry && *entry; ++entry) list.emplace_back(*entry);
    return list;
}

int setCurrentDirectory(const std::string& path) {
    if (path.find('\0') != std::string::npos) return EINVAL;
    return chdir(path.c_str()) == 0 ? 0 : errno;
}

int computerName(std::string& name) {
    char buffer[HOST_NAME_MAX + 1];
    if (gethostname(buffer, sizeof buffer) != 0) return errno;
    buffer[sizeof buffer - 1] = 0;
    std::string_view whole(buffer);
    name = whole.substr(0, whole.find('.'));
    return 0;
}

int domainName(std::string& name) {
    utsname names;
    if (uname(&names) != 0) return errno;
    std::string_view host(names.nodename), nis(names.domainname);
    if (size_t dot = host.find('.'); dot != std::string_view::npos && dot + 1 < host.size()) {
        name = host.substr(dot + 1);
        return 0;
    }
    if (nis.empty() || nis == "(none)" || nis == "localdomain") return ENOENT;
    name = nis;
    return 0;
}

int memoryFigures(MemoryFigures& figures) {
    std::string content;
    if (int error = readSystemFile("/proc/meminfo", content, 1 << 20)) return error;
    MemoryFigures read;
    if (!meminfoFigure(content, "MemTotal:", read.capacity)) return ENODATA;
    if (!meminfoFigure(content, "MemAvailable:", read.available)) return ENODATA;
    figures = read;
    return 0;
}

int osVersion(OsVersion& version) {
    utsname names;
    if (uname(&names) != 0) return errno;
    version.kernel = std::string(names.sysname) + " " + names.release;
    version.machine = names.machine;
    version.distribution = distributionName();
    return 0;
}

int64_t highResolutionCounter() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * kHighResolutionFrequency + now.tv_nsec;
}

int64_t threadId() {
    thread_local const int64_t id = syscall(SYS_gettid);
    return id;
}

int setThreadPriority(int level) {
    if (level < -2 || level > 2) return EINVAL;
    // A thread inherits its creator's nice value, so the process's own has to be remembered from the first
    // call on.
    static const int base = [] {
        errno = 0;
        int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
        return nice == -1 && errno ? 0 : nice;
    }();
    int nice = base - 5 * level;
    auto thread = static_cast<id_t>(threadId());
    errno = 0;
    int current = getpriority(PRIO_PROCESS, thread);
    if (current == nice && errno == 0) return 0;
    return setpriority(PRIO_PROCESS, thread, nice) == 0 ? 0 : errno;
}

int randomBytes(void* buffer, size_t size) {
    auto* at = static_cast<char*>(buffer);
    while (size > 0) {
        ssize_t got = getrandom(at, size, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno;
        at += got;
        size -= static_cast<size_t>(got);
    }
    return 0;
}

int newGuid(Guid& guid) {
    Guid fresh;
    if (int error = randomBytes(&fresh, sizeof fresh)) return error;
    fresh.c = static_cast<uint16_t>((fresh.c & 0x0FFF) | 0x4000);
    fresh.d[0] = static_cast<uint8_t>((fresh.d[0] & 0x3F) | 0x80);
    guid = fresh;
    return 0;
}

bool isTerminal(int fd) { return isatty(fd) == 1; }

std::vector<std::string> fixedDrivesOf(const std::string& mountinfo) {
    std::vector<Mount> mounts;
    for (size_t start = 0; start < mountinfo.size();) {
        size_t end = mountinfo.find('\n', start);
        if (end == std::string::npos) end = mountinfo.size();
        Mount mount;
        if (parseMount(std::string_view(mountinfo).substr(start, end - start), mount)) {
            // A later mount hides an earlier one on the same folder.
            std::erase_if(mounts, [&](const Mount& other) { return other.point == mount.point; });
            mounts.push_back(std::move(mount));
        }
        start = end + 1;
    }
    // One line for each device: the mount of the device's own root where there is one, for the rest are
    // binds.
    std::map<std::string, size_t> chosen;
    for (size_t i = 0; i < mounts.size(); ++i) {
        if (!isDisk(mounts[i])) continue;
        auto [place, fresh] = chosen.emplace(mounts[i].device, i);
        if (!fresh && mounts[place->second].point != "/" && mounts[place->second].root != "/" &&
            (mounts[i].root == "/" || mounts[i].point == "/"))
            place->second = i;
    }
    std::set<size_t> order;
    for (const auto& [device, index] : chosen) order.insert(index);
    std::vector<std::string> points;
    for (size_t index : order) points.push_back(mounts[index].point);
    return points;
}

int fixedDrives(std::vector<std::string>& mountPoints) {
    std::string content;
    if (int error = readSystemFile("/proc/self/mountinfo", content)) return error;
    std::vector<std::string> points = fixedDrivesOf(content);
    // A single file can be a mount point too, usual in containers.
    std::erase_if(points, [](const std::string& point) { return access((point + "/.").c_str(), F_OK) != 0; });
    mountPoints.swap(points);
    return 0;
}

}  // namespace platform
