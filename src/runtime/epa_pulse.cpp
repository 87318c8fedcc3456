// The pulse.
//
// The lists change at start in practice; the lock is held over a tick all the same, so that an adder never
// meets a list half-run.
#include "runtime/epa_pulse.h"

#include <memory>

#include "runtime/epa_lifecycle.h"
#include "runtime/epa_semaphore.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_shutdownhandler.h"
#include "runtime/epa_threadmanager.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_memory.h"

namespace {

std::unique_ptr<EPA_Pulse> process_pulse;

void body(EPA_ThreadPassportImpl& passport) {
    auto* pulse = static_cast<EPA_Pulse*>(passport.argument());
    passport.announce("pulse_%i");
    while (XPK_IsRunning()) pulse->run();
}

// The thread has ended when the component goes down: the manager's stop procedure ran before.
EPA_Component component(
    [](bool up, const char*, void*) {
        if (up) {
            process_pulse = std::make_unique<EPA_Pulse>();
            EPA_ThreadManager::instance().start(body, process_pulse.get());
        } else {
            process_pulse.reset();
        }
    },
    "EPA_ThreadManager", "EPA_Pulse");

EPA_Pulse& processPulse() {
    XPK_Assert(process_pulse);
    return *process_pulse;
}

}  // namespace

void EPA_Pulse::addOneSecond(EPA_PulseFunction function) { processPulse().add(OneSecond, function); }
void EPA_Pulse::addSevenSecond(EPA_PulseFunction function) { processPulse().add(SevenSecond, function); }
void EPA_Pulse::addThirtyOneSecond(EPA_PulseFunction function) {
    processPulse().add(ThirtyOneSecond, function);
}

void EPA_Pulse::add(List list, EPA_PulseFunction function) {
    static const char* const full[] = {"Too many functions on the 1 second list",
                                       "Too many functions on the 7 second list",
                                       "Too many functions on the 31 second list"};
    EPA_LockScope guard(lock_);
    for (EPA_PulseFunction& place : lists_[list]) {
        if (place) continue;
        place = function;
        return;
    }
    XPK_Raise("RuntimeError", full[list]).raise();
}

void EPA_Pulse::runList(List list) {
    EPA_ThreadPassport passport;
    for (EPA_PulseFunction function : lists_[list]) {
        if (!function) return;
        try {
            passport->resetVariables();
            function();
        } catch (...) {
            // One failing function must not stop the timers of the others.
        }
    }
}

void EPA_Pulse::tick() {
    EPA_LockScope guard(lock_);
    runList(OneSecond);
    if (seven_ == 0) {
        runList(SevenSecond);
        XPK_FlushThreadCaches();
    }
    if (thirtyone_ == 0) runList(ThirtyOneSecond);
    seven_ = seven_ == 7 ? 0 : seven_ + 1;
    thirtyone_ = thirtyone_ == 31 ? 0 : thirtyone_ + 1;
}

void EPA_Pulse::run() {
    EPA_Semaphore semaphore(0, 1000);
    while (XPK_IsRunning()) {
        tick();
        EPA_ShutdownTimeout handler(semaphore);
        semaphore.wait(1000);
    }
}
