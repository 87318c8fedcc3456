// Handlers and their list.
//
// Installing first and testing the flag second closes the gap between a thread's test of the flag and its
// wait: whichever comes first, the semaphore is released.
#include "runtime/epa_shutdownhandler.h"

#include <algorithm>
#include <chrono>

#include "runtime/epa_lifecycle.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_threadmanager.h"

namespace {

std::unique_ptr<EPA_ShutdownHandler>& head() {
    static auto* handlers = new std::unique_ptr<EPA_ShutdownHandler>;
    return *handlers;
}

EPA_Component component(
    [](bool up, const char*, void*) {
        if (up) EPA_ShutdownHandler::link(std::make_unique<EPA_ThreadShutdown>());
    },
    nullptr, "EPA_ThreadShutdown");

}  // namespace

void EPA_ShutdownHandler::link(std::unique_ptr<EPA_ShutdownHandler> handler) {
    handler->next_ = std::move(head());
    head() = std::move(handler);
}

void EPA_ShutdownHandler::runLinked() {
    while (head()) {
        // Still linked during the call: one that raises stays for a later run.
        head()->shutdown();
        auto next = std::move(head()->next_);
        head() = std::move(next);
    }
}

void EPA_ThreadShutdown::shutdown() {
    if (EPA_ThreadManager* manager = EPA_ThreadManager::find()) manager->stop();
}

EPA_ShutdownSemaphore::EPA_ShutdownSemaphore(EPA_Semaphore& semaphore) : semaphore_(semaphore) {
    passport_->setHandler(this);
    if (!XPK_IsRunning()) semaphore_.release();
}

EPA_ShutdownSemaphore::~EPA_ShutdownSemaphore() { passport_->clearHandler(); }

EPA_ShutdownTimeout::EPA_ShutdownTimeout(EPA_Semaphore& semaphore) : semaphore_(semaphore) {
    passport_->setHandler(this);
    if (!XPK_IsRunning()) semaphore_.release();
}

EPA_ShutdownTimeout::~EPA_ShutdownTimeout() { passport_->clearHandler(); }

bool EPA_InterruptibleWait(EPA_Semaphore& semaphore, int64_t milliseconds) {
    using Clock = std::chrono::steady_clock;
    constexpr int64_t Slice = 500;
    EPA_ShutdownTimeout handler(semaphore);
    const auto begin = Clock::now();
    for (;;) {
        int64_t slice = Slice;
        if (milliseconds >= 0) {
            int64_t spent =
                std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
            slice = std::clamp<int64_t>(milliseconds - spent, 0, Slice);
        }
        bool taken = semaphore.wait(slice);
        if (!XPK_IsRunning()) return false;
        if (taken) return true;
        if (milliseconds >= 0 && slice < Slice) return false;
    }
}
