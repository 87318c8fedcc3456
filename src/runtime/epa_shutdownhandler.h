// The handlers that wake a blocked thread when the process shuts down.
//
// A thread that blocks puts a handler on its stack around the call; while it lives it is the one handler of
// the thread's passport, and the thread manager's stop procedure calls its `shutdown` from another thread,
// again every 250 ms. Classes install themselves as the last step of their own constructor and remove
// themselves as the first step of their own destructor, since a call may come at any moment between.
#pragma once

#include <memory>

#include "runtime/epa_semaphore.h"
#include "runtime/epa_threadpassport.h"

class EPA_ShutdownHandler {
  public:
    EPA_ShutdownHandler() = default;
    EPA_ShutdownHandler(const EPA_ShutdownHandler&) = delete;
    EPA_ShutdownHandler& operator=(const EPA_ShutdownHandler&) = delete;
    virtual ~EPA_ShutdownHandler() = default;
    virtual void shutdown() = 0;

    // The process's list of handlers that live outside a passport; a new one goes to the head. Primary
    // thread.
    static void link(std::unique_ptr<EPA_ShutdownHandler> handler);
    // Calls each from the head on and destroys it. A handler that raises ends the run.
    static void runLinked();

  private:
    std::unique_ptr<EPA_ShutdownHandler> next_;
};

// Runs the thread manager's stop procedure, if there is a manager.
class EPA_ThreadShutdown final : public EPA_ShutdownHandler {
  public:
    void shutdown() override;
};

// Around an unlimited wait on a semaphore: shutdown releases it once. If shutdown has begun already, the
// constructor releases it, so the wait returns at once. The semaphore outlives the handler.
// DevelopmentError "Thread passport is not available." on a thread without one.
class EPA_ShutdownSemaphore final : public EPA_ShutdownHandler {
  public:
    explicit EPA_ShutdownSemaphore(EPA_Semaphore& semaphore);
    ~EPA_ShutdownSemaphore() override;
    void shutdown() override { semaphore_.release(); }

  private:
    EPA_ThreadPassport passport_;
    EPA_Semaphore& semaphore_;
};

// The same around a timed wait.
class EPA_ShutdownTimeout final : public EPA_ShutdownHandler {
  public:
    explicit EPA_ShutdownTimeout(EPA_Semaphore& semaphore);
    ~EPA_ShutdownTimeout() override;
    void shutdown() override { semaphore_.release(); }

  private:
    EPA_ThreadPassport passport_;
    EPA_Semaphore& semaphore_;
};

// Takes the semaphore within `milliseconds`, or without limit if that is negative, under a handler. Also
// looks at the running flag twice a second: the stop procedure never interrupts the thread that runs it, and
// the primary thread may block as well. False when the time was up or shutdown ended the wait.
bool EPA_InterruptibleWait(EPA_Semaphore& semaphore, int64_t milliseconds);
