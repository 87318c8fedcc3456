// EPA_ThreadManager: every worker thread of the process in one of 256 numbered slots.
//
// Threads that are started before release() wait at their gate. The component EPA_ThreadManager makes the one
// manager; slot 0 holds the passport of the thread that made it and is never waited for. All operations may
// be called from any thread unless told otherwise.
#pragma once

#include <pthread.h>

#include <condition_variable>
#include <memory>
#include <optional>

#include "runtime/epa_lock.h"
#include "runtime/epa_threadpassport.h"

// The body of a thread. Its first action is passport.announce(); it handles the errors that it wants known,
// whatever leaves it is dropped.
using EPA_ThreadEntry = void (*)(EPA_ThreadPassportImpl& passport);

class EPA_ThreadManager {
  public:
    static constexpr int SlotLimit = 256;

    // The one manager; its absence is an assertion.
    static EPA_ThreadManager& instance();
    // The one manager, or null.
    static EPA_ThreadManager* find() noexcept;
    // Primary thread, which must have a thread state. A thread that still runs when the manager is destroyed
    // keeps its passport and deletes it at its end.
    static void create();
    static void destroy();

    // Starts a thread and returns its slot once it has announced itself. `argument` is the passport's to hand
    // out, not to own. ApplicationError "Too many threads"; an assertion when the system has no thread left.
    int start(EPA_ThreadEntry entry, void* argument);
    // Gives the caller's pool caches back and opens the gate of every thread, present and future. Only the
    // first call has an effect.
    void release();
    // Interrupts every worker each 250 ms until all have ended. Not on a worker.
    void stop();
    // 256, and the number of occupied slots.
    void count(int& total, int& used);
    // Appends to `list`, slot by slot, the value that `key` has in each passport's variables, where it has
    // one.
    void collect(const IPE_Object& key, const IPE_Object& list);
    // Where the field of the value under `key` equals `expected`, stores `value` under `target` in those
    // variables.
    void assignWhere(const IPE_Object& key, const IPE_Object& field, const IPE_Object& expected,
                     const IPE_Object& value, const IPE_Object& target);

    virtual ~EPA_ThreadManager();

  private:
    friend class EPA_ThreadFrame;
    EPA_ThreadManager();
    int takeSlot() EPA_REQUIRES(lock_);
    int workers() EPA_REQUIRES(lock_);
    std::optional<pthread_t> leave(EPA_ThreadPassportImpl* passport);
    void reap();

    EPA_Lock lock_;
    std::condition_variable_any left_;  // with lock_: a worker emptied its slot
    std::unique_ptr<EPA_ThreadPassportImpl> slots_[SlotLimit] EPA_GUARDED_BY(lock_);
    bool released_ EPA_GUARDED_BY(lock_) = false;
    int cursor_ EPA_GUARDED_BY(lock_) = 0;
    // A thread that has left its slot and is about to end. The next one to leave, or stop(), joins it.
    std::optional<pthread_t> ending_ EPA_GUARDED_BY(lock_);
};
