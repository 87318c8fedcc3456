// From a fault to an exception.
//
// The handler runs on the thread's alternate stack, so that an overflow of the normal one can be served, and
// with no signal blocked: a handler that is left by an exception never gets to restore the mask. It reads the
// fault, writes the dump while it holds the dump lock, and calls the translator. The unwinder walks from the
// handler through the signal frame to the faulting instruction; the kernel sees by the stack pointer that the
// alternate stack is free again.
//
// A call through a bad pointer leaves the processor at an address without unwind information. The frame is
// that of the call itself, so the context is set back into the call instruction before throwing.
//
// What may not be thrown ends by the signal's default action: the handler takes itself out and returns, and
// the instruction faults again.

#include "platform/pf_crash.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>

#include "platform/pf_coredump.h"
#include "platform/pf_process.h"
#include "platform/pf_safememory.h"

namespace platform {

namespace {

// Parses one file name; adds to `kind` if it is a marker.
void addMarker(const char* name, uint32_t& kind) {
    constexpr char prefix[] = "dbghelp_dump=";
    constexpr char suffix[] = ".txt";
    constexpr size_t prefixSize = sizeof prefix - 1, suffixSize = sizeof suffix - 1;
    size_t length = strlen(name);
    if (length < prefixSize + suffixSize || strncmp(name, prefix, prefixSize) != 0) return;
    if (strcmp(name + length - suffixSize, suffix) != 0) return;
    const char* text = name + prefixSize;
    size_t size = length - prefixSize - suffixSize;
    if (size == 3 && (text[0] | 0x20) == 'a' && (text[1] | 0x20) == 'l' && (text[2] | 0x20) == 'l') {
        kind |= 0x26;
        return;
    }
    uint32_t number = 0;
    for (size_t i = 0; i < size && text[i] >= '0' && text[i] <= '9'; ++i)
        number = number * 10 + static_cast<uint32_t>(text[i] - '0');
    kind |= number;
}

}  // namespace

uint32_t readDumpKind() {
    struct Entry {  // linux_dirent64, getdents64(2)
        uint64_t inode;
        int64_t offset;
        uint16_t length;
        uint8_t type;
        char name[256];
    };
    uint32_t kind = 0;
    int dir = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return kind;
    alignas(Entry) char buffer[4096];
    for (;;) {
        long got = syscall(SYS_getdents64, dir, buffer, sizeof buffer);
        if (got <= 0) break;
        for (long at = 0; at < got;) {
            const auto* entry = reinterpret_cast<const Entry*>(buffer + at);
            addMarker(entry->name, kind);
            at += entry->length;
        }
    }
    close(dir);
    return kind;
}

#if defined(__x86_64__) && !defined(__clang__) && !defined(QUILL_SANITIZED)

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};
constexpr size_t kStackSize = 512 << 10;
constexpr size_t kGuardSize = 4096;
constexpr size_t kLongestStem = PATH_MAX;

FaultTranslator translator = nullptr;
std::terminate_handler previousTerminate = nullptr;
char stem[kLongestStem];
std::atomic<bool> dumping{false};

struct ThreadFaults {
    char* stack;        // mapping of the alternate stack with its guard; null if not installed
    uint64_t stackLow;  // of the normal stack, with its guard
    uint64_t guardSize;
    bool handling;
    uint32_t lastCode;
    char dumpName[kLongestStem + 32];
};
// Constant initialisation: the handler must not run into a constructor.
thread_local constinit ThreadFaults state{};

// Functions of the allocator that hold its lock while they touch its structures.
constexpr const char* kLockedNames[] = {"malloc",   "free",          "calloc",        "realloc",
                                        "memalign", "aligned_alloc", "posix_memalign"};
void* lockedFunctions[sizeof kLockedNames / sizeof *kLockedNames];

void say(const Fault& fault, const char* reason) {
    char message[PATH_MAX + 1024], text[512];
    formatFault(fault, text, sizeof text);
    int length = snprintf(message, sizeof message, "%s %s: %s; the process ends%s%s\n", faultName(fault.code),
                          reason, text, *fault.dumpName ? ", dump in " : "", fault.dumpName);
    if (length > 0) [[maybe_unused]]
        ssize_t wrote =
            write(STDERR_FILENO, message, std::min(static_cast<size_t>(length), sizeof message - 1));
}

void dump(Fault& fault, const void* context) {
    while (dumping.exchange(true)) {
        timespec pause{0, 1'000'000};
        nanosleep(&pause, nullptr);
    }
    snprintf(state.dumpName, sizeof state.dumpName, "%s_%ld.dmp", stem, static_cast<long>(time(nullptr)));
    // A dump that cannot be written is no reason to lose the exception.
    if (writeCore(state.dumpName, fault.info, context, readDumpKind()) == 0) fault.dumpName = state.dumpName;
    dumping = false;
}

struct Walk {
    bool behindSignal = false;
    bool locked = false;
    int frames = 0;
};

_Unwind_Reason_Code visitFrame(_Unwind_Context* frame, void* data) {
    auto* walk = static_cast<Walk*>(data);
    int signalFrame = 0;
    uintptr_t at = _Unwind_GetIPInfo(frame, &signalFrame);
    if (signalFrame) walk->behindSignal = true;
    if (!walk->behindSignal) return _URC_NO_REASON;
    void* function = _Unwind_FindEnclosingFunction(reinterpret_cast<void*>(signalFrame ? at : at - 1));
    for (void* locked : lockedFunctions)
        if (function && function == locked) walk->locked = true;
    return walk->locked || ++walk->frames >= 8 ? _URC_END_OF_STACK : _URC_NO_REASON;
}

bool insideAllocator() {
    Walk walk;
    _Unwind_Backtrace(visitFrame, &walk);
    return walk.locked;
}

// Makes the faulting frame one that can be unwound. False if it cannot be.
bool reachUnwindTables(ucontext_t* context) {
    auto& registers = context->uc_mcontext.gregs;
    auto known = [](uint64_t at) {
        return _Unwind_FindEnclosingFunction(reinterpret_cast<void*>(at)) != nullptr;
    };
    if (known(static_cast<uint64_t>(registers[REG_RIP]))) return true;
    uint64_t back = 0;
    auto stack = static_cast<uint64_t>(registers[REG_RSP]);
    if (readOwnMemory(stack, &back, sizeof back) != sizeof back || back == 0 || !known(back - 1))
        return false;
    registers[REG_RIP] = static_cast<greg_t>(back - 1);  // inside the call instruction
    registers[REG_RSP] = static_cast<greg_t>(stack + sizeof back);
    return true;
}

void endBySignal(int signal) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
}

void onFault(int signal, siginfo_t* info, void* context) {
    if (state.handling) {
        Fault fault = readFault(signal, info, context, 0, 0);
        say(fault, "inside fault handling");
        endBySignal(signal);
        return;
    }
    state.handling = true;
    Fault fault = readFault(signal, info, context, state.stackLow, state.guardSize);
    dump(fault, context);
    const char* reason = nullptr;
    if (info->si_code <= 0) {
        reason = "sent by another";
    } else if (!translator || !state.stack) {
        reason = "on a thread without translator";
    } else if (insideAllocator()) {
        reason = "inside the allocator";
    } else {
        auto* registers = static_cast<ucontext_t*>(context);
        mcontext_t before = registers->uc_mcontext;
        if (reachUnwindTables(registers)) {
            state.lastCode = fault.code;
            state.handling = false;
            translator(fault);
        }
        registers->uc_mcontext = before;
        reason = "that cannot be raised";
    }
    say(fault, reason);
    endBySignal(signal);
    // A sent signal has no instruction that faults again.
    if (info->si_code <= 0) syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), signal);
}

[[noreturn]] void onTerminate() {
    if (state.lastCode != kUnknownFault) {
        Fault fault;
        fault.code = state.lastCode;
        fault.dumpName = state.dumpName;
        char message[PATH_MAX + 256];
        int length =
            snprintf(message, sizeof message,
                     "The process ends without a handler; the last processor fault of this thread was %s, "
                     "dump in %s\n",
                     faultName(fault.code), fault.dumpName);
        if (length > 0) [[maybe_unused]]
            ssize_t wrote =
                write(STDERR_FILENO, message, std::min(static_cast<size_t>(length), sizeof message - 1));
    }
    if (previousTerminate) previousTerminate();
    abort();
}

void readStackBounds() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
    void* low = nullptr;
    size_t size = 0, guard = 0;
    if (pthread_attr_getstack(&attributes, &low, &size) == 0 &&
        pthread_attr_getguardsize(&attributes, &guard) == 0) {
        state.stackLow = reinterpret_cast<uint64_t>(low) - guard;
        state.guardSize = 2 * guard;  // whether the bounds hold the guard depends on the C library's age
    }
    pthread_attr_destroy(&attributes);
}

std::string programStem() {
    std::string path;
    if (programPath(path) != 0) return "quillsrv";
    size_t dot = path.rfind('.'), slash = path.rfind('/');
    return dot == std::string::npos || dot < slash ? path : path.substr(0, dot);
}

}  // namespace

int setDumpName(const std::string& name) {
    if (name.empty() || name.find('\0') != std::string::npos) return EINVAL;
    if (name.size() >= sizeof stem) return ENAMETOOLONG;
    memcpy(stem, name.c_str(), name.size() + 1);
    return 0;
}

int installCrashHandlers(FaultTranslator translate) {
    if (!*stem)
        if (int error = setDumpName(programStem())) return error;
    prepareCore();
    for (size_t i = 0; i < sizeof kLockedNames / sizeof *kLockedNames; ++i)
        lockedFunctions[i] = dlsym(RTLD_DEFAULT, kLockedNames[i]);
    // The unwinder's first use loads its library and allocates: not a thing for the handler.
    insideAllocator();
    translator = translate;
    if (std::get_terminate() != onTerminate) previousTerminate = std::set_terminate(onTerminate);
    for (int signal : kSignals) {
        struct sigaction action {};
        action.sa_sigaction = onFault;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
        sigemptyset(&action.sa_mask);
        if (sigaction(signal, &action, nullptr) != 0) return errno;
    }
    return 0;
}

int installThread() {
    if (state.stack) return 0;
    size_t whole = kGuardSize + kStackSize;
    void* memory =
        mmap(nullptr, whole, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return errno;
    auto* base = static_cast<char*>(memory);
    stack_t alternate{};
    alternate.ss_sp = base + kGuardSize;
    alternate.ss_size = kStackSize;
    if (mprotect(base, kGuardSize, PROT_NONE) != 0 || sigaltstack(&alternate, nullptr) != 0) {
        int error = errno;
        munmap(memory, whole);
        return error;
    }
    readStackBounds();
    state.stack = base;
    return 0;
}

void removeThread() {
    if (!state.stack) return;
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
    munmap(state.stack, kGuardSize + kStackSize);
    state.stack = nullptr;
}

#else

int setDumpName(const std::string& name) { return name.empty() ? EINVAL : 0; }
int installCrashHandlers(FaultTranslator) { return 0; }
int installThread() { return 0; }
void removeThread() {}

#endif

}  // namespace platform
