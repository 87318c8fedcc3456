// The thread manager and the frame of its threads.
//
// Threads are joined, not detached, so that after stop() none of them is still inside the runtime: a thread
// that empties its slot joins the one that left before it and leaves its own id behind. At most one ended
// thread waits to be joined at any time.
#include "runtime/epa_threadmanager.h"

#include <pthread.h>

#include <chrono>
#include <utility>

#include "runtime/epa_lifecycle.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_memory.h"
#include "runtime/xpk_threadstate.h"

namespace {

// Guards the pointer against a thread that ends while the manager is destroyed. Taken before the manager's
// lock.
EPA_Lock instanceLock;
std::atomic<EPA_ThreadManager*> manager{nullptr};

EPA_Component component(
    [](bool up, const char*, void*) {
        if (up)
            EPA_ThreadManager::create();
        else
            EPA_ThreadManager::destroy();
    },
    "EPA_ThreadShutdown", "EPA_ThreadManager");

}  // namespace

// What every thread does around its body.
class EPA_ThreadFrame {
  public:
    struct Start {
        EPA_ThreadEntry entry;
        EPA_ThreadPassportImpl* passport;
        std::shared_ptr<EPA_Semaphore> started;
    };
    static void* run(void* argument) {
        auto start = std::unique_ptr<Start>(static_cast<Start*>(argument));
        XPK_ThreadScope scope(false, start->passport);
        try {
            start->entry(*start->passport);
        } catch (...) {
            // The body's owner reports what it wants reported.
        }
        // A body that failed before it announced itself must not leave its starter waiting. One release too
        // many is harmless: nobody waits twice.
        start->started->release();
        start.reset();
        XPK_FlushThreadCaches();
        leave(scope.state());
        return nullptr;
    }

  private:
    static void leave(XPK_ThreadState& state) {
        EPA_ThreadPassportImpl* passport = std::exchange(state.passport, nullptr);
        std::optional<pthread_t> previous;
        {
            EPA_LockScope guard(instanceLock);
            if (EPA_ThreadManager* current = manager.load(std::memory_order_relaxed))
                previous = current->leave(passport);
            else
                delete passport;
        }
        if (previous) pthread_join(*previous, nullptr);
    }
};

EPA_ThreadManager::EPA_ThreadManager() {
    XPK_ThreadState* state = XPK_CurrentThread();
    XPK_Assert(state);
    slots_[0] = std::make_unique<EPA_ThreadPassportImpl>(0, nullptr);
    slots_[0]->adopt(state->lock);
    state->passport = slots_[0].get();
}

EPA_ThreadManager::~EPA_ThreadManager() {
    reap();
    XPK_ThreadState* state = XPK_CurrentThread();
    EPA_LockScope guard(lock_);
    if (state && state->passport == slots_[0].get()) state->passport = nullptr;
    for (int i = 1; i < SlotLimit; ++i) slots_[i].release();  // belongs to a thread that still runs
}

EPA_ThreadManager& EPA_ThreadManager::instance() {
    EPA_ThreadManager* current = find();
    XPK_Assert(current);
    return *current;
}

EPA_ThreadManager* EPA_ThreadManager::find() noexcept { return manager.load(std::memory_order_acquire); }

void EPA_ThreadManager::create() {
    XPK_Assert(!find());
    manager.store(new EPA_ThreadManager, std::memory_order_release);
}

void EPA_ThreadManager::destroy() {
    std::unique_ptr<EPA_ThreadManager> gone;
    EPA_LockScope guard(instanceLock);
    gone.reset(manager.exchange(nullptr));
}

// Gives the first empty slot from the cursor on, going round once.
int EPA_ThreadManager::takeSlot() {
    for (int tries = 0; tries < 2; ++tries) {
        for (; cursor_ < SlotLimit; ++cursor_)
            if (!slots_[cursor_]) return cursor_;
        cursor_ = 0;
    }
    XPK_Raise("ApplicationError", "Too many threads").raise();
}

int EPA_ThreadManager::start(EPA_ThreadEntry entry, void* argument) {
    auto start = std::make_unique<EPA_ThreadFrame::Start>();
    int slot;
    {
        EPA_LockScope guard(lock_);
        slot = takeSlot();
        slots_[slot] = std::make_unique<EPA_ThreadPassportImpl>(slot, argument);
        if (released_) slots_[slot]->gate_.release();
        *start = {entry, slots_[slot].get(), slots_[slot]->started_};
    }
    std::shared_ptr<EPA_Semaphore> started = start->started;
    pthread_t thread;
    if (pthread_create(&thread, nullptr, EPA_ThreadFrame::run, start.get()) != 0) {
        EPA_LockScope guard(lock_);
        slots_[slot].reset();
        XPK_AssertFailed(__FILE__, __LINE__);
    }
    start.release();
    started->wait();
    return slot;
}

// A thread's last act but one: gives the thread to join.
std::optional<pthread_t> EPA_ThreadManager::leave(EPA_ThreadPassportImpl* passport) {
    EPA_LockScope guard(lock_);
    slots_[passport->slot()].reset();
    left_.notify_all();
    return std::exchange(ending_, pthread_self());
}

void EPA_ThreadManager::reap() {
    std::optional<pthread_t> thread;
    {
        EPA_LockScope guard(lock_);
        thread = std::exchange(ending_, std::nullopt);
    }
    if (thread) pthread_join(*thread, nullptr);
}

void EPA_ThreadManager::release() {
    XPK_FlushThreadCaches();
    EPA_LockScope guard(lock_);
    if (released_) return;
    for (auto& passport : slots_)
        if (passport) passport->gate_.release();
    released_ = true;
}

int EPA_ThreadManager::workers() {
    int count = 0;
    for (int i = 1; i < SlotLimit; ++i)
        if (slots_[i]) ++count;
    return count;
}

void EPA_ThreadManager::stop() {
    release();
    {
        EPA_LockScope guard(lock_);
        while (workers() > 0) {
            for (int i = 1; i < SlotLimit; ++i)
                if (slots_[i]) slots_[i]->interrupt();
            // A thread that goes into another wait after this round is met by the next. The wait ends early
            // when the last worker has left.
            auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(250);
            while (workers() > 0 && left_.wait_until(lock_, until) == std::cv_status::no_timeout) {
            }
        }
    }
    reap();
}

void EPA_ThreadManager::count(int& total, int& used) {
    EPA_LockScope guard(lock_);
    total = SlotLimit;
    used = workers() + (slots_[0] ? 1 : 0);
}

void EPA_ThreadManager::collect(const IPE_Object& key, const IPE_Object& list) {
    auto ask = EPA_GetPassportFactory().collect;
    if (!ask) return;
    EPA_LockScope guard(lock_);
    for (auto& passport : slots_)
        if (passport) ask(passport->sharedVariables(), key, list);
}

void EPA_ThreadManager::assignWhere(const IPE_Object& key, const IPE_Object& field,
                                    const IPE_Object& expected, const IPE_Object& value,
                                    const IPE_Object& target) {
    auto assign = EPA_GetPassportFactory().assignWhere;
    if (!assign) return;
    EPA_LockScope guard(lock_);
    for (auto& passport : slots_)
        if (passport) assign(passport->sharedVariables(), key, field, expected, value, target);
}
