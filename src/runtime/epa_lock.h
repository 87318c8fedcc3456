// EPA_Lock and EPA_RecursiveLock: mutexes that Clang's thread-safety analysis knows, and their scope.
//
// Members that a lock guards are marked EPA_GUARDED_BY(lock); a Clang build then rejects an access without
// it. Under other compilers the marks vanish.
#pragma once

#include <mutex>

#if defined(__clang__)
#define EPA_THREAD_MARK(x) __attribute__((x))
#else
#define EPA_THREAD_MARK(x)
#endif
#define EPA_GUARDED_BY(lock) EPA_THREAD_MARK(guarded_by(lock))
#define EPA_REQUIRES(lock) EPA_THREAD_MARK(requires_capability(lock))

template <class Mutex>
class EPA_THREAD_MARK(capability("mutex")) EPA_LockOf {
  public:
    void lock() EPA_THREAD_MARK(acquire_capability()) { mutex_.lock(); }
    void unlock() EPA_THREAD_MARK(release_capability()) { mutex_.unlock(); }

  private:
    Mutex mutex_;
};
using EPA_Lock = EPA_LockOf<std::mutex>;
// One thread may take it again and again, and gives it back as often.
using EPA_RecursiveLock = EPA_LockOf<std::recursive_mutex>;

// Holds a lock for a scope.
template <class Lock>
class EPA_THREAD_MARK(scoped_lockable) EPA_LockScope {
  public:
    explicit EPA_LockScope(Lock& lock) EPA_THREAD_MARK(acquire_capability(lock)) : lock_(lock) {
        lock_.lock();
    }
    ~EPA_LockScope() EPA_THREAD_MARK(release_capability()) { lock_.unlock(); }
    EPA_LockScope(const EPA_LockScope&) = delete;
    EPA_LockScope& operator=(const EPA_LockScope&) = delete;

  private:
    Lock& lock_;
};
