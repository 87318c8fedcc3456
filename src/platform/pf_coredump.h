#pragma once

// A core file (ELF type ET_CORE, core(5)) of the running process, written by the process itself.

#include <csignal>
#include <cstdint>

namespace platform {

// Bits of the dump kind. 0 has the registers of all threads, their stacks and the list of loaded modules.
enum CoreKind : uint32_t {
    kCoreDataSegments = 1,  // and the writable data of all modules
    kCoreFullMemory = 2,    // and everything that can be read
};

// To be called once before writeCore, outside a handler.
void prepareCore();

// Writes the core file anew, mode 0600, from a signal handler: `info` and `context` (a ucontext_t) are the
// handler's. One thread at a time. The other threads are halted meanwhile. 0 or an errno; after an error no
// file is left.
int writeCore(const char* path, const siginfo_t* info, const void* context, uint32_t kind);

}  // namespace platform
