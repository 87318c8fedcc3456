// Linux tells a fault as a signal number, a si_code (sigaction(2)) and the registers; this turns them into
// one code.
//
// Where si_code is too coarse the registers help: the page-fault error word tells reading from writing, the
// floating-point status words tell a stack fault and a denormal operand, and the bytes of the instruction
// tell a privileged one, which the kernel reports like an address that no pointer can have.

#include "platform/pf_fault.h"

#include <ucontext.h>

#include <cstdio>
#include <cstring>

#include "platform/pf_safememory.h"

namespace platform {

namespace {

struct NameRow {
    uint32_t code;
    const char* name;
};

constexpr NameRow kNames[] = {
    {kGuardPage, "GUARD_PAGE"},
    {kDatatypeMisalignment, "DATATYPE_MISALIGNMENT"},
    {kBreakpoint, "BREAKPOINT"},
    {kSingleStep, "SINGLE_STEP"},
    {kAccessViolation, "ACCESS_VIOLATION"},
    {kInPageError, "IN_PAGE_ERROR"},
    {kInvalidHandle, "INVALID_HANDLE"},
    {kIllegalInstruction, "ILLEGAL_INSTRUCTION"},
    {kNoncontinuableException, "NONCONTINUABLE_EXCEPTION"},
    {kInvalidDisposition, "INVALID_DISPOSITION"},
    {kArrayBoundsExceeded, "ARRAY_BOUNDS_EXCEEDED"},
    {kFltDenormalOperand, "FLT_DENORMAL_OPERAND"},
    {kFltDivideByZero, "FLT_DIVIDE_BY_ZERO"},
    {kFltInexactResult, "FLT_INEXACT_RESULT"},
    {kFltInvalidOperation, "FLT_INVALID_OPERATION"},
    {kFltOverflow, "FLT_OVERFLOW"},
    {kFltStackCheck, "FLT_STACK_CHECK"},
    {kFltUnderflow, "FLT_UNDERFLOW"},
    {kIntDivideByZero, "INT_DIVIDE_BY_ZERO"},
    {kIntOverflow, "INT_OVERFLOW"},
    {kPrivInstruction, "PRIV_INSTRUCTION"},
    {kStackOverflow, "STACK_OVERFLOW"},
};

// How far beside the end of the stack an access still counts as an overflow: a frame may skip some of its
// locals.
constexpr uint64_t kStackReach = 64 << 10;

#ifdef __x86_64__

constexpr uint64_t kPageFaultWrite = 2;  // bit of the page-fault error word
constexpr uint64_t kTrapPageFault = 14;

uint64_t instructionPointer(const ucontext_t* context) {
    return static_cast<uint64_t>(context->uc_mcontext.gregs[REG_RIP]);
}
uint64_t stackPointer(const ucontext_t* context) {
    return static_cast<uint64_t>(context->uc_mcontext.gregs[REG_RSP]);
}

// hlt, cli, sti, in, out, and the two-byte system instructions, behind their prefixes (Intel manual, volume
// 2).
bool privilegedInstruction(uint64_t address) {
    uint8_t code[15];
    size_t size = readOwnMemory(address, code, sizeof code);
    size_t at = 0;
    while (at < size && (code[at] == 0x66 || code[at] == 0x67 || code[at] == 0xF2 || code[at] == 0xF3 ||
                         (code[at] & 0xF0) == 0x40))
        ++at;
    if (at >= size) return false;
    uint8_t op = code[at];
    if (op == 0xF4 || op == 0xFA || op == 0xFB) return true;
    if ((op >= 0x6C && op <= 0x6F) || (op >= 0xE4 && op <= 0xE7) || (op >= 0xEC && op <= 0xEF)) return true;
    if (op != 0x0F || at + 1 >= size) return false;
    uint8_t second = code[at + 1];
    return second == 0x00 || second == 0x01 || second == 0x06 || second == 0x08 || second == 0x09 ||
           (second >= 0x20 && second <= 0x23) || second == 0x30 || second == 0x32;
}

void readAccess(const siginfo_t* info, const ucontext_t* context, Fault& fault) {
    bool write = context->uc_mcontext.gregs[REG_ERR] & kPageFaultWrite;
    bool page = context->uc_mcontext.gregs[REG_TRAPNO] == kTrapPageFault;
    fault.access = page && write ? FaultAccess::write : FaultAccess::read;
    // An address that no pointer can have, or a misaligned vector: the processor does not tell which.
    fault.touched = page ? reinterpret_cast<uint64_t>(info->si_addr) : ~uint64_t{0};
}

uint32_t floatingCode(const ucontext_t* context, uint32_t code) {
    const auto* floating = context->uc_mcontext.fpregs;
    if (!floating) return code;
    constexpr uint32_t stackFault = 0x40, denormal = 0x2, denormalMask = 0x100;
    if (code == kFltInvalidOperation && (floating->swd & stackFault)) return kFltStackCheck;
    bool unmasked = !(floating->mxcsr & denormalMask) && (floating->mxcsr & denormal);
    return code == kFltUnderflow && unmasked ? kFltDenormalOperand : code;
}

void backToBreakpoint(ucontext_t* context) {
    uint8_t before = 0;
    uint64_t at = instructionPointer(context) - 1;
    if (readOwnMemory(at, &before, 1) == 1 && before == 0xCC)
        context->uc_mcontext.gregs[REG_RIP] = static_cast<greg_t>(at);
}

#else

uint64_t instructionPointer(const ucontext_t*) { return 0; }
uint64_t stackPointer(const ucontext_t*) { return 0; }
bool privilegedInstruction(uint64_t) { return false; }
void readAccess(const siginfo_t* info, const ucontext_t*, Fault& fault) {
    fault.access = FaultAccess::read;
    fault.touched = reinterpret_cast<uint64_t>(info->si_addr);
}
uint32_t floatingCode(const ucontext_t*, uint32_t code) { return code; }
void backToBreakpoint(ucontext_t*) {}

#endif

uint32_t segmentCode(const siginfo_t* info, const ucontext_t* context, uint64_t stackLow,
                     uint64_t guardSize) {
    auto touched = reinterpret_cast<uint64_t>(info->si_addr);
    if (info->si_code == SEGV_BNDERR) return kArrayBoundsExceeded;
    if (info->si_code == SI_KERNEL)
        return privilegedInstruction(instructionPointer(context)) ? kPrivInstruction : kAccessViolation;
    uint64_t low = stackLow - kStackReach, high = stackLow + guardSize + kStackReach;
    bool beside = stackLow && touched >= low && touched < high;
    uint64_t stack = stackPointer(context);
    return beside && stack >= low && stack < high ? kStackOverflow : kAccessViolation;
}

uint32_t arithmeticCode(int code) {
    switch (code) {
        case FPE_INTDIV: return kIntDivideByZero;
        case FPE_INTOVF: return kIntOverflow;
        case FPE_FLTDIV: return kFltDivideByZero;
        case FPE_FLTOVF: return kFltOverflow;
        case FPE_FLTUND: return kFltUnderflow;
        case FPE_FLTRES: return kFltInexactResult;
        case FPE_FLTINV: return kFltInvalidOperation;
        case FPE_FLTSUB: return kArrayBoundsExceeded;
        default: return kUnknownFault;
    }
}

uint32_t illegalCode(int code) {
    return code == ILL_PRVOPC || code == ILL_PRVREG ? kPrivInstruction : kIllegalInstruction;
}

uint32_t trapCode(int code) {
    if (code == TRAP_TRACE || code == TRAP_HWBKPT) return kSingleStep;
    return code == TRAP_BRKPT || code == SI_KERNEL ? kBreakpoint : kUnknownFault;
}

}  // namespace

const char* faultName(uint32_t code) {
    for (const NameRow& row : kNames)
        if (row.code == code) return row.name;
    return "UnknownSEH";
}

size_t formatFault(const Fault& fault, char* buffer, size_t size) {
    auto address = static_cast<unsigned long long>(fault.address);
    auto touched = static_cast<unsigned long long>(fault.touched);
    int length;
    if (fault.code == kUnknownFault || strcmp(faultName(fault.code), "UnknownSEH") == 0)
        length = snprintf(buffer, size, "Unknown exception.");
    else if (fault.code == kAccessViolation)
        length = snprintf(
            buffer, size, "Exception (0x%.8X) at address 0x%.8llX. %s 0x%.8llX", fault.code, address,
            fault.access == FaultAccess::write ? "Unable to write location:" : "Unable to read location:",
            touched);
    else
        length = snprintf(buffer, size, "Exception (0x%.8X) at address 0x%.8llX.", fault.code, address);
    if (length < 0 || size == 0) return 0;
    return static_cast<size_t>(length) < size ? static_cast<size_t>(length) : size - 1;
}

Fault readFault(int signal, const siginfo_t* info, void* context, uint64_t stackLow, uint64_t guardSize) {
    auto* registers = static_cast<ucontext_t*>(context);
    Fault fault;
    fault.info = info;
    if (signal == SIGTRAP) backToBreakpoint(registers);
    fault.address = instructionPointer(registers);
    switch (signal) {
        case SIGSEGV:
            fault.code = segmentCode(info, registers, stackLow, guardSize);
            if (fault.code == kAccessViolation) readAccess(info, registers, fault);
            break;
        case SIGBUS: fault.code = info->si_code == BUS_ADRALN ? kDatatypeMisalignment : kInPageError; break;
        case SIGFPE: fault.code = floatingCode(registers, arithmeticCode(info->si_code)); break;
        case SIGILL: fault.code = illegalCode(info->si_code); break;
        case SIGTRAP: fault.code = trapCode(info->si_code); break;
        default: break;
    }
    return fault;
}

}  // namespace platform
