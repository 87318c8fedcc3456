// The busy handler.
#include "ipe_sqlite/ipe_sqlite_busy.h"

#include <algorithm>

#include "ipe_sqlite/ipe_sqlite.h"
#include "runtime/epa_semaphore.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_shutdownhandler.h"
#include "runtime/xpk_threadstate.h"

namespace {

constexpr int64_t Step = 50;
constexpr int64_t LongestPoll = 1'000'000'000;
constexpr int64_t QuietWait = 2000;  // longer ones can be woken

void waitFor(int64_t delay) {
    EPA_Semaphore semaphore(0, 1);
    XPK_ThreadState* state = XPK_CurrentThread();
    if (delay > QuietWait && state && state->passport) {
        EPA_InterruptibleWait(semaphore, delay);
        return;
    }
    // A thread that the manager does not know looks for itself.
    for (; delay > 0 && XPK_IsRunning(); delay -= QuietWait) semaphore.wait(std::min(delay, QuietWait));
}

}  // namespace

IPE_Sqlite_BusyWait IPE_Sqlite_BusyWaitOf(int calls, int64_t pollTime) noexcept {
    const int64_t poll = std::clamp<int64_t>(pollTime, 1, LongestPoll);
    const int64_t terms = int64_t{calls} + 1;
    const int64_t growing = std::min(terms, poll / Step);
    return {std::min(Step * terms, poll), Step * growing * (growing + 1) / 2 + (terms - growing) * poll};
}

int IPE_Sqlite_Busy(void* module, int calls) noexcept {
    if (!XPK_IsRunning()) return 0;
    try {
        auto& settings = *static_cast<IPE_Sqlite*>(static_cast<EPA_Counted*>(module));
        IPE_Sqlite_BusyWait wait = IPE_Sqlite_BusyWaitOf(calls, settings.busyPollTime());
        if (wait.total > settings.busyTimeout()) return 0;
        waitFor(wait.delay);
        return 1;
    } catch (...) {
        // A setting that is no number: the statement fails as busy.
        return 0;
    }
}
