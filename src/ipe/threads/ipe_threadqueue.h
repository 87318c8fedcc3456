// IPE_ThreadQueue: a named queue of jobs and the pool of script threads that serve it, as a script object.
//
//   queue = ipe.thread.queue("mail", {"module": "threads.mail", "settings": {"retries": 3}})
//   queue.set_threads(4)
//   queue.enqueue({"to": "..."})
//
// The object is shared by all threads: everything in it stands under its lock, and scripts cannot set
// attributes on it. It copies as itself, so that a queue may be handed to a job. A job is a private copy of
// plain data from the moment it is queued. At most MaximumJobs wait: one more raises RuntimeError "Queue is
// full".
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ipe/object/ipe_moduletype.h"
#include "runtime/epa_lock.h"
#include "runtime/epa_semaphore.h"

class EPA_ThreadPassportImpl;

// A job that tells one worker to end. It holds nothing.
class ThreadQueueShutdownThread final : public IPE_Type {
  public:
    static const char TypeName[];
    ThreadQueueShutdownThread() : IPE_Type(TypeName) {}
};

class IPE_ThreadQueue final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    static constexpr int MaximumThreads = 64;
    static constexpr size_t MaximumJobs = size_t{1} << 20;

    // `settings` is a dictionary and is copied. Its entry `module` names the module that serves the queue,
    // otherwise it is "threads." and the name. SystemError "Unable to CreateSemaphore".
    IPE_ThreadQueue(std::string_view name, const IPE_Object& settings);

    const std::string& name() const noexcept { return name_; }
    const std::string& module() const noexcept { return module_; }
    // The entry `settings` of the settings, to be copied by whoever hands it out; null when there is none.
    const IPE_Object& jobSettings() const noexcept { return jobSettings_; }

    // --- Any thread.
    // Appends a private copy of the job. RuntimeError "Null object passed to IPE_Object_Copy", also for a
    // value that cannot be copied.
    void enqueue(const IPE_Object& job);
    // Appends a job that IPE_Object_Strip made and that nobody else will change.
    void enqueueStripped(IPE_Object job);
    // -2 to 2; workers apply it before their next job.
    void setPriority(int priority) noexcept { priority_.store(priority, std::memory_order_relaxed); }
    int priority() const noexcept { return priority_.load(std::memory_order_relaxed); }
    // The wanted number of workers, brought into 1 to 64. Starts what is missing (ApplicationError "Too many
    // threads" when the slots run out; those started stay) or queues an end for each surplus worker.
    void setThreads(int64_t wanted);
    struct Figures {
        int priority, threads;
        int64_t waiting, entered;
    };
    Figures figures();
    // Takes every waiting job, in order; for the end of the process.
    std::vector<IPE_Object> drain();

    // --- Workers.
    // The next job; waits for one, with a handler on the passport. Null once shutdown has begun.
    IPE_Object take();
    // A worker has ended: by its own job, or, as `failed`, before anybody wanted it to.
    void workerEnded(bool failed) noexcept;

    // --- Scripts.
    void __bind__() override {}  // bound when made: binding again would change what other threads read
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    IPE_Object __copy__() override { return IPE_Object(this); }
    void __setattr__(const IPE_Object& key, const IPE_Object& value) override {
        IPE_Type::__setattr__(key, value);
    }
    void __delattr__(const IPE_Object& key) override { IPE_Type::__delattr__(key); }
    void __setname__(const IPE_Object& name) override { IPE_Type::__setname__(name); }

  private:
    bool append(IPE_Object job, bool bounded);
    bool takeNow(IPE_Object& job, bool& wake) EPA_REQUIRES(lock_);
    void grow() EPA_REQUIRES(lock_);
    bool wakeOne() EPA_REQUIRES(lock_);
    bool spin();
    bool sleep(IPE_Object& job);

    const std::string name_;
    const IPE_Object settings_;
    std::string module_;
    IPE_Object jobSettings_;
    std::atomic<int> priority_{0};
    std::atomic<int64_t> waiting_{0};  // tail less head, written under the lock

    EPA_Lock sizing_;  // one setThreads at a time; taken before lock_
    EPA_Lock lock_;
    int wanted_ EPA_GUARDED_BY(lock_) = 0;
    EPA_Semaphore semaphore_;  // what sleeping workers wait on
    int threads_ EPA_GUARDED_BY(lock_) = 0;
    uint64_t head_ EPA_GUARDED_BY(lock_) = 0, tail_ EPA_GUARDED_BY(lock_) = 0;
    int64_t entered_ EPA_GUARDED_BY(lock_) = 0;
    // The job at position p lies in slot p modulo the size, a power of two.
    std::vector<IPE_Object> jobs_ EPA_GUARDED_BY(lock_);
    bool spinning_ EPA_GUARDED_BY(lock_) = false;  // one worker looks for the next job without sleeping
    int sleeping_ EPA_GUARDED_BY(lock_) = 0;       // workers in the semaphore
    int woken_ EPA_GUARDED_BY(lock_) = 0;          // of these, those on their way out
};
