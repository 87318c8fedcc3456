// A core file wants the registers of every thread at one moment. The faulting thread sends each other one a
// signal; its handler stores the registers into that thread's row of a static table and sleeps on a futex
// until released.
//
// Rows are handed out before the signals go, so handlers need no lock: a handler looks for the row with its
// own number. After the waiting time the table is closed, and a late handler only sleeps. Threads that did
// not answer are asked of the kernel: a blocked one shows its stack and instruction pointers in
// /proc/self/task/N/syscall (proc(5)).

#include "platform/pf_threadhalt.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#ifdef __x86_64__
#include <asm/prctl.h>
#endif

namespace platform {

namespace {

constexpr size_t kMostThreads = 1024;
constexpr int kWaitSteps = 500;  // of a millisecond

ThreadRegisters table[kMostThreads];
std::atomic<bool> answered[kMostThreads];
std::atomic<size_t> rows{0};
std::atomic<bool> open_{false};
std::atomic<uint32_t> halted{0};  // futex; 1 while threads are to sleep

int haltSignal() { return SIGRTMIN + 6; }

long futex(std::atomic<uint32_t>& word, int operation, uint32_t value) {
    return syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), operation, value, nullptr, nullptr, 0);
}

void onHalt(int, siginfo_t*, void* context) {
    int saved = errno;
    auto self = static_cast<pid_t>(syscall(SYS_gettid));
    if (halted.load() && open_.load()) {
        for (size_t i = 0; i < rows.load(); ++i) {
            if (table[i].tid != self) continue;
            takeRegisters(context, table[i]);
            answered[i] = true;
            break;
        }
    }
    while (halted.load()) futex(halted, FUTEX_WAIT_PRIVATE, 1);
    errno = saved;
}

// Fills the table with the numbers of all threads but the caller.
void listThreads(pid_t self) {
    struct Entry {
        uint64_t inode;
        int64_t offset;
        uint16_t length;
        uint8_t type;
        char name[256];
    };
    rows = 0;
    int dir = open("/proc/self/task", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return;
    alignas(Entry) char buffer[4096];
    for (;;) {
        long got = syscall(SYS_getdents64, dir, buffer, sizeof buffer);
        if (got <= 0) break;
        for (long at = 0; at < got;) {
            const auto* entry = reinterpret_cast<const Entry*>(buffer + at);
            at += entry->length;
            auto tid = static_cast<pid_t>(atoi(entry->name));
            size_t row = rows.load();
            if (tid <= 0 || tid == self || row >= kMostThreads) continue;
            table[row] = {};
            table[row].tid = tid;
            answered[row] = false;
            rows = row + 1;
        }
    }
    close(dir);
}

void askKernel(ThreadRegisters& registers) {
    char path[64], text[256];
    snprintf(path, sizeof path, "/proc/self/task/%d/syscall", registers.tid);
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    ssize_t got = read(fd, text, sizeof text - 1);
    close(fd);
    if (got <= 0) return;
    text[got] = 0;
#ifdef __x86_64__
    // "number arg0 ... arg5 sp pc", or "-1 sp pc" outside a call, or "running".
    const char* instruction = strrchr(text, ' ');
    if (!instruction) return;
    const char* stack = instruction;
    while (stack > text && stack[-1] != ' ') --stack;
    registers.general[16] = strtoull(instruction + 1, nullptr, 16);
    registers.general[19] = strtoull(stack, nullptr, 16);
#endif
}

}  // namespace

#ifdef __x86_64__

uint64_t stackPointerOf(const ThreadRegisters& registers) { return registers.general[19]; }

void takeRegisters(const void* context, ThreadRegisters& registers) {
    const auto* machine = &static_cast<const ucontext_t*>(context)->uc_mcontext;
    static constexpr int order[] = {REG_R15, REG_R14, REG_R13, REG_R12,    REG_RBP, REG_RBX, REG_R11,
                                    REG_R10, REG_R9,  REG_R8,  REG_RAX,    REG_RCX, REG_RDX, REG_RSI,
                                    REG_RDI, REG_RAX, REG_RIP, REG_CSGSFS, REG_EFL, REG_RSP};
    for (size_t i = 0; i < sizeof order / sizeof *order; ++i)
        registers.general[i] = static_cast<uint64_t>(machine->gregs[order[i]]);
    auto segments = static_cast<uint64_t>(machine->gregs[REG_CSGSFS]);
    registers.general[15] = ~uint64_t{0};               // no system call is under way
    registers.general[17] = segments & 0xFFFF;          // cs
    registers.general[20] = (segments >> 48) & 0xFFFF;  // ss
    syscall(SYS_arch_prctl, ARCH_GET_FS, &registers.general[21]);
    syscall(SYS_arch_prctl, ARCH_GET_GS, &registers.general[22]);
    if (machine->fpregs) memcpy(registers.floating, machine->fpregs, sizeof registers.floating);
    registers.complete = true;
}

#else

uint64_t stackPointerOf(const ThreadRegisters&) { return 0; }
void takeRegisters(const void*, ThreadRegisters&) {}

#endif

int prepareThreadHalt() {
    struct sigaction action {};
    action.sa_sigaction = onHalt;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    return sigaction(haltSignal(), &action, nullptr) == 0 ? 0 : errno;
}

const ThreadRegisters* haltThreads(size_t& count) {
    auto self = static_cast<pid_t>(syscall(SYS_gettid));
    listThreads(self);
    open_ = true;
    halted = 1;
    size_t all = rows.load();
    for (size_t i = 0; i < all; ++i) syscall(SYS_tgkill, getpid(), table[i].tid, haltSignal());
    for (int step = 0; step < kWaitSteps; ++step) {
        size_t waiting = 0;
        for (size_t i = 0; i < all; ++i)
            waiting +=
                !answered[i] && syscall(SYS_tgkill, getpid(), table[i].tid, 0) == 0;  // else it has ended
        if (waiting == 0) break;
        timespec pause{0, 1'000'000};
        nanosleep(&pause, nullptr);
    }
    open_ = false;
    count = all;
    for (size_t i = 0; i < count; ++i)
        if (!answered[i]) askKernel(table[i]);
    return table;
}

void releaseThreads() {
    halted = 0;
    futex(halted, FUTEX_WAKE_PRIVATE, INT32_MAX);
}

}  // namespace platform
