// The runtime's side of processor faults: which exception a fault becomes.
//
// The platform catches the signal, writes the dump and calls `translate` on the faulting thread, on its
// alternate stack. What is thrown there is an ordinary exception, built like any other: it takes the active
// trace entries of the thread and the script's stack, so that a script sees where it was when native code
// failed.
#include "runtime/xpk_translator.h"

#include "platform/pf_crash.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_threadstate.h"

namespace {

constexpr size_t MessageBytes = 2048;

[[noreturn]] void translate(const platform::Fault& fault) {
    char message[MessageBytes];
    platform::formatFault(fault, message, sizeof message);
    XPK_TraceScope scope;
    try {
        XPK_TraceString(scope.state(), "dmp_file", fault.dumpName);
    } catch (const XPK_Exception&) {
        // A full trace must not turn the fault into another error: the field is what can be spared.
    }
    throw XPK_Exception("", 0, platform::faultName(fault.code), "", message);
}

// A thread without an alternate stack runs on: only its faults then end the process.
void enterThread() { (void)platform::installThread(); }

bool installed = false;

}  // namespace

void XPK_InstallTranslator() {
    if (installed) return;
    XPK_ThrowSystemError("sigaction", platform::installCrashHandlers(translate));
    installed = true;
    XPK_SetThreadHooks({enterThread, platform::removeThread});
    if (XPK_CurrentThread()) enterThread();
}
