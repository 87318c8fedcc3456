// Notifying happens under the lock, so that a waiter which destroys the semaphore on its return cannot do so
// while release() still uses the condition.
#include "runtime/epa_semaphore.h"

#include <algorithm>
#include <chrono>

#include "runtime/xpk_exception.h"

namespace {
// Far enough for every wait, and no overflow when added to the clock.
constexpr int64_t LongestWait = int64_t{1000} * 86400 * 365;
}  // namespace

EPA_Semaphore::EPA_Semaphore(int64_t initial, int64_t ceiling) : count_(initial), ceiling_(ceiling) {
    if (initial < 0 || ceiling <= 0 || initial > ceiling)
        XPK_Raise("SystemError", "Unable to CreateSemaphore").raise();
}

bool EPA_Semaphore::release(int64_t count) {
    std::lock_guard guard(lock_);
    if (count <= 0 || count > ceiling_ - count_) return false;
    count_ += count;
    if (count == 1)
        changed_.notify_one();
    else
        changed_.notify_all();
    return true;
}

void EPA_Semaphore::wait() {
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return count_ > 0; });
    --count_;
}

bool EPA_Semaphore::wait(int64_t milliseconds) {
    std::unique_lock guard(lock_);
    auto until = std::chrono::steady_clock::now() +
                 std::chrono::milliseconds(std::clamp<int64_t>(milliseconds, 0, LongestWait));
    if (!changed_.wait_until(guard, until, [this] { return count_ > 0; })) return false;
    --count_;
    return true;
}
