// The kernel's view /proc/self/mem answers a bad address with an error instead of a fault. The descriptor is
// opened anew in a forked child, whose memory the inherited one would not show.

#include "platform/pf_safememory.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace platform {

namespace {

std::atomic<int> view{-1};
std::atomic<pid_t> owner{0};

int ownView() {
    if (owner.load() == getpid() && view.load() >= 0) return view.load();
    int fd = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    int old = view.exchange(fd);
    if (old >= 0) close(old);  // two threads at once may lose a read, which then counts as a bad address
    owner = getpid();
    return fd;
}

}  // namespace

void prepareOwnMemory() { ownView(); }

size_t readOwnMemory(uint64_t address, void* buffer, size_t size) {
    int fd = ownView();
    size_t done = 0;
    while (fd >= 0 && done < size) {
        // Addresses of the upper half are no file offsets; nothing of ours lies there.
        if (address + done > INT64_MAX) break;
        ssize_t got =
            pread(fd, static_cast<char*>(buffer) + done, size - done, static_cast<off_t>(address + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

}  // namespace platform
