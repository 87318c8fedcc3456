#pragma once

// Processor faults as exceptions: SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGTRAP write a crash dump and then
// call the translator, which throws out of the handler. The program must be compiled with
// -fnon-call-exceptions.
//
// A fault is thrown only on a thread with installThread, from code that has unwind tables. It ends the
// process after the dump, with a message on standard error, when the translator returns, when the signal was
// sent by somebody instead of raised by the processor, when it strikes inside the C library's allocator
// (whose lock would stay held) or inside fault handling itself. A fault in a C library function that the
// compiler knows not to throw, such as memcpy, passes through its caller only if the caller has nothing to
// clean up and nothing to catch; otherwise the C++ runtime calls terminate, and the terminate handler set
// here names the fault.
//
// Builds with sanitizers (QUILL_SANITIZED) and processors other than x86-64 install nothing: all calls
// succeed and faults end the process in the system's way.

#include <cstdint>
#include <string>

#include "platform/pf_fault.h"

namespace platform {

// Throws; called on the faulting thread, inside the handler, on the thread's alternate stack of half a
// megabyte.
using FaultTranslator = void (*)(const Fault& fault);

// Installs the handlers; once, before other threads exist. Dumps are named by the program's path without its
// extension, "_SECONDS.dmp". 0 or an errno.
int installCrashHandlers(FaultTranslator translate);

// Another beginning of the dump's name, in place of the program's path; EINVAL if empty, ENAMETOOLONG.
int setDumpName(const std::string& stem);

// The alternate stack of the calling thread; each thread calls the pair itself, at its start and at its end.
// A second installThread does nothing. 0 or an errno.
int installThread();
void removeThread();

// The kind of dump that the files "dbghelp_dump=*.txt" of the current directory ask for: the texts behind '='
// up to the last dot, "all" in any case meaning 0x26 and others a decimal number, joined by or. Safe in a
// handler.
uint32_t readDumpKind();

}  // namespace platform
