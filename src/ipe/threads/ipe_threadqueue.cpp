// Queues of jobs.
//
// A job costs a system call only when a worker must be woken. At most one worker without work looks on for a
// few microseconds; the others sleep in the semaphore. While one looks on, or is on its way out of the
// semaphore, whoever queues a job wakes nobody: that worker sees the job, and when it takes one and leaves
// more behind it wakes the next. A worker goes to sleep only after it has found the queue empty under the
// lock, and in the same hold of the lock counts itself as asleep, so no job is left without somebody who will
// look.
//
// Shutdown wakes sleepers through the semaphore without counting them out, and its handler stands before the
// worker looks at the queue for the last time. A wake-up too many costs one round.
#include "ipe/threads/ipe_threadqueue.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "ipe/threads/ipe_queueworker.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_shutdownhandler.h"

const char ThreadQueueShutdownThread::TypeName[] = "ThreadQueueShutdownThread";
const char IPE_ThreadQueue::TypeName[] = "ThreadQueueType";

namespace {

using Guard = EPA_LockScope<EPA_Lock>;
using Clock = std::chrono::steady_clock;

constexpr int64_t SemaphoreCeiling = 2'000'000'000;
constexpr size_t FirstSlots = 16;
// A table of more slots than this is given back when its queue has run empty.
constexpr size_t KeptSlots = 4096;
constexpr std::chrono::microseconds SpinTime(15);

enum { MethodEnqueue, MethodSetPriority, MethodSetThreads };

int priorityOf(std::string_view word) {
    if (word == "highest") return 2;
    if (word == "higher") return 1;
    if (word == "lower") return -1;
    if (word == "lowest") return -2;
    return 0;
}

inline void pauseProcessor() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace

IPE_ThreadQueue::IPE_ThreadQueue(std::string_view name, const IPE_Object& settings)
    : IPE_ModuleType(TypeName),
      name_(name),
      settings_(IPE_Object_Strip(settings)),
      semaphore_(0, SemaphoreCeiling) {
    IPE_DictType* dictionary = PyDict_SafeCast(settings_);
    IPE_Type* module = dictionary->findText("module");
    module_ = module ? IPE_Object_Text(IPE_Object(module)) : "threads." + name_;
    jobSettings_ = IPE_Object(dictionary->findText("settings"));
    bindMethods(
        {{"enqueue", MethodEnqueue}, {"set_priority", MethodSetPriority}, {"set_threads", MethodSetThreads}});
    // Every thread reads the methods from now on, so their counts must be atomic.
    attributes_->markShared();
    for (uint32_t i = 0; i < attributes_->slots(); ++i)
        if (attributes_->keyAt(i)) attributes_->valueAt(i)->markShared();
    markShared();
}

IPE_Object IPE_ThreadQueue::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case MethodEnqueue:
            arguments.check("o", "enqueue");
            enqueue(arguments[0]);
            break;
        case MethodSetPriority:
            arguments.check("s", "set_priority");
            setPriority(priorityOf(arguments.text(0)));
            break;
        case MethodSetThreads:
            arguments.check("i", "set_threads");
            setThreads(arguments.integer(0));
            break;
    }
    return {};
}

// --- Putting in.

void IPE_ThreadQueue::enqueue(const IPE_Object& job) {
    IPE_Object copy;
    if (job) copy = IPE_Object_Strip(job);
    if (!copy) IPE_Object_Copy(copy);  // raises
    enqueueStripped(std::move(copy));
}

void IPE_ThreadQueue::enqueueStripped(IPE_Object job) {
    if (!append(std::move(job), true)) XPK_Raise("RuntimeError", "Queue is full").raise();
}

// False, and nothing is done, when the queue is full and `bounded` says that this matters.
bool IPE_ThreadQueue::append(IPE_Object job, bool bounded) {
    bool wake;
    {
        Guard guard(lock_);
        if (bounded && tail_ - head_ >= MaximumJobs) return false;
        if (tail_ - head_ == jobs_.size()) grow();
        jobs_[tail_ & (jobs_.size() - 1)] = std::move(job);
        ++tail_;
        ++entered_;
        waiting_.store(static_cast<int64_t>(tail_ - head_), std::memory_order_relaxed);
        wake = wakeOne();
    }
    if (wake) semaphore_.release();
    return true;
}

void IPE_ThreadQueue::grow() {
    std::vector<IPE_Object> wider(std::max(FirstSlots, jobs_.size() * 2));
    for (uint64_t at = head_; at != tail_; ++at)
        wider[at & (wider.size() - 1)] = std::move(jobs_[at & (jobs_.size() - 1)]);
    jobs_.swap(wider);
}

// Whether somebody must be woken for what lies in the queue; if so, one sleeper counts as woken.
bool IPE_ThreadQueue::wakeOne() {
    if (head_ == tail_ || spinning_ || woken_ > 0 || sleeping_ == 0) return false;
    ++woken_;
    return true;
}

// --- Taking out.

bool IPE_ThreadQueue::takeNow(IPE_Object& job, bool& wake) {
    if (head_ == tail_) return false;
    job = std::move(jobs_[head_ & (jobs_.size() - 1)]);
    if (++head_ == tail_) {
        head_ = tail_ = 0;
        if (jobs_.size() > KeptSlots) std::vector<IPE_Object>().swap(jobs_);
    }
    waiting_.store(static_cast<int64_t>(tail_ - head_), std::memory_order_relaxed);
    wake = wakeOne();
    return true;
}

// Looks on for a moment; true when something has come.
bool IPE_ThreadQueue::spin() {
    const auto until = Clock::now() + SpinTime;
    do {
        for (int i = 0; i < 16; ++i) {
            if (waiting_.load(std::memory_order_relaxed) > 0) return true;
            pauseProcessor();
        }
    } while (Clock::now() < until && XPK_IsRunning());
    return false;
}

IPE_Object IPE_ThreadQueue::take() {
    // With one processor nobody could put a job in while this thread looks on.
    static const bool maySpin = std::thread::hardware_concurrency() > 1;
    IPE_Object job;
    while (XPK_IsRunning()) {
        bool taken, wake = false, spins = false;
        {
            Guard guard(lock_);
            taken = takeNow(job, wake);
            if (!taken && maySpin && !spinning_) spinning_ = spins = true;
        }
        if (spins) {
            spin();
            Guard guard(lock_);
            spinning_ = false;
            taken = takeNow(job, wake);
        }
        if (!taken) taken = sleep(job);
        if (wake) semaphore_.release();
        if (taken) return job;
    }
    return {};
}

// Waits for a wake-up; true with a job when one came before that.
bool IPE_ThreadQueue::sleep(IPE_Object& job) {
    EPA_ShutdownSemaphore handler(semaphore_);
    bool wake = false;
    {
        Guard guard(lock_);
        if (takeNow(job, wake)) {
            if (!wake) return true;
        } else {
            ++sleeping_;
        }
    }
    if (wake) {
        semaphore_.release();
        return true;
    }
    semaphore_.wait();
    Guard guard(lock_);
    --sleeping_;
    if (woken_ > 0) --woken_;
    return false;
}

// --- Workers.

void IPE_ThreadQueue::setThreads(int64_t wanted) {
    const int count = static_cast<int>(std::clamp<int64_t>(wanted, 1, MaximumThreads));
    Guard sizing(sizing_);
    int difference;
    {
        Guard guard(lock_);
        difference = count - wanted_;
        wanted_ = count;
        threads_ += std::max(difference, 0);
    }
    for (; difference < 0; ++difference) append(IPE_New<ThreadQueueShutdownThread>(), false);
    for (; difference > 0; --difference) {
        try {
            IPE_QueueWorker::start(*this);
        } catch (...) {
            Guard guard(lock_);
            wanted_ -= difference;
            threads_ -= difference;
            throw;
        }
    }
}

void IPE_ThreadQueue::workerEnded(bool failed) noexcept {
    Guard guard(lock_);
    --threads_;
    if (failed && wanted_ > 0) --wanted_;
}

IPE_ThreadQueue::Figures IPE_ThreadQueue::figures() {
    Guard guard(lock_);
    return {priority(), threads_, static_cast<int64_t>(tail_ - head_), entered_};
}

std::vector<IPE_Object> IPE_ThreadQueue::drain() {
    std::vector<IPE_Object> jobs;
    Guard guard(lock_);
    for (; head_ != tail_; ++head_) jobs.push_back(std::move(jobs_[head_ & (jobs_.size() - 1)]));
    head_ = tail_ = 0;
    waiting_.store(0, std::memory_order_relaxed);
    return jobs;
}
