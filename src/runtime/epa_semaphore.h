// EPA_Semaphore: a counting semaphore with a ceiling and a timed wait on the monotonic clock.
//
// Any thread may use it. A waiter that has returned may destroy it: release() touches nothing once a waiter
// can run.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

class EPA_Semaphore {
  public:
    // SystemError "Unable to CreateSemaphore" unless 0 <= initial <= ceiling and ceiling > 0.
    EPA_Semaphore(int64_t initial, int64_t ceiling);
    EPA_Semaphore(const EPA_Semaphore&) = delete;
    EPA_Semaphore& operator=(const EPA_Semaphore&) = delete;

    // Adds `count`; false, and no change, when that would pass the ceiling.
    bool release(int64_t count = 1);
    // Takes one, waiting without limit.
    void wait();
    // Takes one within `milliseconds`; false when there was none in that time. 0 or less only tries.
    bool wait(int64_t milliseconds);

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    int64_t count_;
    const int64_t ceiling_;
};
