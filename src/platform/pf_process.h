#pragma once

// The process and the machine that it runs on: program file, environment, names, memory, versions, clocks,
// threads, random bytes, mounts. Texts are the system's bytes, normally UTF-8.
//
// Functions that can fail give 0 or an errno and fill their out-parameter on success only. Any thread may
// call.

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

// Absolute path of the running program's file, symbolic links resolved. A program whose file was replaced
// while it runs keeps the path that it was started from.
int programPath(std::string& path);

// The process's arguments, the program's name first.
int programArguments(std::vector<std::string>& arguments);

// Environment. All access of this program goes through these three: they share one lock, which the C
// library's calls lack. ENOENT: no such variable; EINVAL: an empty name, '=' in a name, a NUL inside.
int environmentGet(const std::string& name, std::string& value);
int environmentSet(const std::string& name, const std::string& value);
int environmentUnset(const std::string& name);
std::vector<std::string> environmentList();  // "NAME=value" each

int setCurrentDirectory(const std::string& path);

int computerName(std::string& name);
// The DNS domain of the host's name, else the NIS domain; ENOENT if the machine has neither.
int domainName(std::string& name);

struct MemoryFigures {
    uint64_t capacity = 0;   // bytes of memory
    uint64_t available = 0;  // bytes that could be had without swapping
};
int memoryFigures(MemoryFigures& figures);

struct OsVersion {
    std::string kernel;        // "Linux 6.1.0-18-amd64"
    std::string machine;       // "x86_64"
    std::string distribution;  // "Debian GNU/Linux 12 (bookworm)"; empty where the system does not tell
};
int osVersion(OsVersion& version);

// A monotonic counter and its ticks for each second. The counter's start is of no meaning.
int64_t highResolutionCounter();
constexpr int64_t kHighResolutionFrequency = 1'000'000'000;

// The kernel's number of the calling thread.
int64_t threadId();

// Priority of the calling thread: 2 highest, 1, 0 normal, -1, -2 lowest (nice -10, -5, 0, 5, 10 around the
// process's own nice value). EINVAL outside that range; EACCES or EPERM without the right to raise it.
int setThreadPriority(int level);

struct Guid {
    uint32_t a;
    uint16_t b, c;
    uint8_t d[8];
};
// A random (version 4) identifier, RFC 4122.
int newGuid(Guid& guid);
int randomBytes(void* buffer, size_t size);

// Whether a descriptor is a terminal.
bool isTerminal(int fd);

// Mount points of the machine's own disks: file systems on block devices, and the root
// whatever it is made of. Read-only images, pseudo file systems and network file systems are left out, and
// each device is listed once. In the order of mounting; spelled as the system spells them.
int fixedDrives(std::vector<std::string>& mountPoints);
// The same from a text in the form of /proc/self/mountinfo (proc(5)), without a look at the file system.
// Lines that do not parse are skipped.
std::vector<std::string> fixedDrivesOf(const std::string& mountinfo);

// Whole content of a small file of the system, such as those in /proc. E2BIG above `limit` bytes.
int readSystemFile(const char* path, std::string& content, size_t limit = 16 << 20);

}  // namespace platform
