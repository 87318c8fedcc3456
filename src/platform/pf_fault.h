#pragma once

// Processor faults by number and name, and what a signal tells about one.

#include <csignal>
#include <cstddef>
#include <cstdint>

namespace platform {

// Numbers that scripts and logs know: unchangeable.
enum FaultCode : uint32_t {
    kGuardPage = 0x80000001,
    kDatatypeMisalignment = 0x80000002,
    kBreakpoint = 0x80000003,
    kSingleStep = 0x80000004,
    kAccessViolation = 0xC0000005,
    kInPageError = 0xC0000006,
    kInvalidHandle = 0xC0000008,
    kIllegalInstruction = 0xC000001D,
    kNoncontinuableException = 0xC0000025,
    kInvalidDisposition = 0xC0000026,
    kArrayBoundsExceeded = 0xC000008C,
    kFltDenormalOperand = 0xC000008D,
    kFltDivideByZero = 0xC000008E,
    kFltInexactResult = 0xC000008F,
    kFltInvalidOperation = 0xC0000090,
    kFltOverflow = 0xC0000091,
    kFltStackCheck = 0xC0000092,
    kFltUnderflow = 0xC0000093,
    kIntDivideByZero = 0xC0000094,
    kIntOverflow = 0xC0000095,
    kPrivInstruction = 0xC0000096,
    kStackOverflow = 0xC00000FD,
    kUnknownFault = 0,
};

enum class FaultAccess : uint8_t { none, read, write };

struct Fault {
    uint32_t code = kUnknownFault;
    uint64_t address = 0;  // of the instruction
    FaultAccess access = FaultAccess::none;
    uint64_t touched = 0;  // with an access: the address that was read or written
    const char* dumpName =
        "";  // path of the dump, "" if none was written; good until the thread's next fault
    const siginfo_t* info = nullptr;  // valid inside the handler only
};

// "ACCESS_VIOLATION", ...; "UnknownSEH" for a code outside the table.
const char* faultName(uint32_t code);

// The message of a fault, such as "Exception (0xC0000005) at address 0x004011A6. Unable to read location:
// 0x00000000". Always terminated; gives the length. Does not allocate.
size_t formatFault(const Fault& fault, char* buffer, size_t size);

// Reads a fault from a signal and its context (a ucontext_t). A breakpoint's context is set back to the
// breakpoint itself. `stackLow` is the lowest address of the thread's stack with its guard, 0 if unknown.
// Safe in a handler.
Fault readFault(int signal, const siginfo_t* info, void* context, uint64_t stackLow, uint64_t guardSize);

}  // namespace platform
