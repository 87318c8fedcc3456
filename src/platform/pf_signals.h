#pragma once

// Signals that ask the process to end, taken by one thread of their own instead of by a handler that
// interrupts whatever runs.

#include <atomic>
#include <functional>
#include <thread>

#include "platform/pf_descriptor.h"

namespace platform {

// Blocks SIGINT and SIGTERM in the calling thread, and thereby in all threads that it starts, and gives
// SIGPIPE and (with `swallowHangup`) SIGHUP an empty handler, so that a write to a closed peer fails with
// EPIPE. To be called before any thread exists. An empty handler, unlike an ignored signal, is not handed
// down to programs that are started; the blocked signals are, so whoever forks calls resetSignalsInChild.
int prepareSignals(bool swallowHangup);

// Between fork and exec: unblocks all signals. Safe there.
void resetSignalsInChild();

// The thread that takes SIGINT and SIGTERM. At most one object of the process is started at a time.
class SignalWaiter {
  public:
    SignalWaiter() = default;
    SignalWaiter(const SignalWaiter&) = delete;
    SignalWaiter& operator=(const SignalWaiter&) = delete;
    ~SignalWaiter() { stop(); }

    // `taken` runs on the waiting thread for each signal, with its number; what it raises is dropped, for the
    // thread has nobody to tell. EBUSY: another waiter is started. prepareSignals must have been called
    // before.
    int start(std::function<void(int)> taken);

    // Ends and joins the thread; signals stay blocked. From `taken` itself it only asks the thread to end.
    // Does nothing if not started.
    void stop();

  private:
    void run();

    std::function<void(int)> taken_;
    Descriptor signals_, wake_;
    std::thread thread_;
    std::atomic<bool> ending_{false};
};

}  // namespace platform
