// The running flag and the table of shutdown functions.
//
// The flag is constant-initialised, so it is true before any static initialiser runs. It turns under the
// process-wide lock together with the note who asked, so that exactly one request wins and the note always
// belongs to that one. The functions run outside the lock: each is taken out of its slot first, so a function
// may itself ask for shutdown or register another.
#include "runtime/epa_shutdown.h"

#include <exception>

#include "runtime/epa_processlock.h"
#include "runtime/xpk_exception.h"

namespace epa_detail {
constinit std::atomic<bool> running{true};
}

namespace {

constexpr int SlotLimit = 10;

struct Slot {
    XPK_ShutdownFunction function = nullptr;
    void* data = nullptr;
};
constinit Slot slots[SlotLimit];  // guarded by the process-wide lock
constinit std::atomic<bool> askedByScript{false};

bool turnOff(bool byScript) {
    EPA_LockScope guard(XPK_ProcessLock());
    if (!epa_detail::running.load(std::memory_order_relaxed)) return false;
    askedByScript.store(byScript, std::memory_order_relaxed);
    epa_detail::running.store(false, std::memory_order_release);
    return true;
}

Slot take(int index) {
    EPA_LockScope guard(XPK_ProcessLock());
    return std::exchange(slots[index], Slot());
}

// A function that raises does not keep the others from being called; its error reaches the caller at the end.
void shutDown(bool byScript) {
    if (!turnOff(byScript)) return;
    std::exception_ptr failure;
    for (int i = 0; i < SlotLimit; ++i) {
        Slot slot = take(i);
        if (!slot.function) continue;
        try {
            slot.function(slot.data);
        } catch (...) {
            if (!failure) failure = std::current_exception();
        }
    }
    if (failure) std::rethrow_exception(failure);
}

}  // namespace

EPA_RecursiveLock& XPK_ProcessLock() noexcept {
    // Never destroyed: threads and static destructors may take it to the very end.
    static EPA_RecursiveLock* lock = new EPA_RecursiveLock;
    return *lock;
}

void request_shutdown() { shutDown(false); }

void request_script_exit() { shutDown(true); }

bool XPK_ScriptAskedToExit() noexcept { return askedByScript.load(std::memory_order_relaxed); }

void XPK_AddShutdownFunction(XPK_ShutdownFunction function, void* data) {
    {
        EPA_LockScope guard(XPK_ProcessLock());
        for (Slot& slot : slots) {
            if (slot.function) continue;
            slot = {function, data};
            return;
        }
    }
    XPK_Raise("SystemError", "Too many shutdown functions").raise();
}

void XPK_ClearShutdownFunctions() {
    EPA_LockScope guard(XPK_ProcessLock());
    for (Slot& slot : slots) slot = Slot();
}
