#pragma once

// Stops the other threads of the process for the time of a crash dump and takes their registers.
//
// One thread at a time may halt. The halting signal (SIGRTMIN + 6) is this system's own. A system call that a
// halted thread was in is restarted where signal(7) says so and gives EINTR elsewhere.

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace platform {

// In the order and shape of a core file's register notes.
struct ThreadRegisters {
    pid_t tid;
    bool complete;          // all registers; else only the two below, or nothing known
    uint64_t general[27];   // struct user_regs_struct
    uint8_t floating[512];  // struct user_fpregs_struct
};

uint64_t stackPointerOf(const ThreadRegisters& registers);

// Installs the handler of the halting signal. 0 or an errno.
int prepareThreadHalt();

// Safe in a signal handler. Halts all other threads that can be halted within about half a second, and gives
// a table of all, which lives until releaseThreads; `count` is its length. A thread that blocks all signals
// keeps running.
const ThreadRegisters* haltThreads(size_t& count);
void releaseThreads();

// Fills from a signal's context (a ucontext_t) of the calling thread.
void takeRegisters(const void* context, ThreadRegisters& registers);

}  // namespace platform
