// Passports.
//
// The lock changes once, when the thread announces itself. Whoever takes it checks afterwards that it is
// still the passport's lock and tries again if not; the change happens under the old lock, so handler and
// variables are never touched under two locks at once.
#include "runtime/epa_threadpassport.h"

#include <pthread.h>

#include <cstdio>
#include <cstring>

#include "runtime/epa_processlock.h"
#include "runtime/epa_shutdownhandler.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_threadstate.h"

namespace {

constinit EPA_PassportFactory passport_factory;

}  // namespace

void EPA_SetPassportFactory(const EPA_PassportFactory& factory) { passport_factory = factory; }
const EPA_PassportFactory& EPA_GetPassportFactory() noexcept { return passport_factory; }

class EPA_ThreadPassportImpl::Guard {
  public:
    explicit Guard(const EPA_ThreadPassportImpl& passport) {
        for (;;) {
            lock_ = passport.lock_.load(std::memory_order_acquire);
            lock();
            if (passport.lock_.load(std::memory_order_acquire) == lock_) return;
            unlock();
        }
    }
    ~Guard() { unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

  private:
    // Which lock it is, is known at run time only.
    void lock() EPA_THREAD_MARK(no_thread_safety_analysis) { lock_->lock(); }
    void unlock() EPA_THREAD_MARK(no_thread_safety_analysis) { lock_->unlock(); }
    EPA_RecursiveLock* lock_;
};

EPA_ThreadPassportImpl::EPA_ThreadPassportImpl(int slot, void* argument)
    : slot_(slot),
      argument_(argument),
      started_(std::make_shared<EPA_Semaphore>(0, SemaphoreCeiling)),
      gate_(0, SemaphoreCeiling),
      lock_(&XPK_ProcessLock()) {
    resetVariables();
}

void EPA_ThreadPassportImpl::adopt(EPA_RecursiveLock& lock) {
    EPA_LockScope guard(XPK_ProcessLock());
    lock_.store(&lock, std::memory_order_release);
}

void EPA_ThreadPassportImpl::announce(const char* nameFormat) {
    XPK_ThreadState* state = XPK_CurrentThread();
    XPK_Assert(state && state->passport == this);
    char name[sizeof state->name];
    int length = snprintf(name, sizeof name, nameFormat, slot_);
    XPK_Assert(length >= 0 && static_cast<size_t>(length) < sizeof name);
    memcpy(state->name, name, static_cast<size_t>(length) + 1);
    name[15] = 0;  // the system keeps 15 characters
    pthread_setname_np(pthread_self(), name);
    adopt(state->lock);
    started_->release();
    gate_.wait();
}

void EPA_ThreadPassportImpl::setHandler(EPA_ShutdownHandler* handler) {
    Guard guard(*this);
    XPK_Assert(!handler_);
    handler_ = handler;
}

void EPA_ThreadPassportImpl::clearHandler() {
    Guard guard(*this);
    handler_ = nullptr;
}

void EPA_ThreadPassportImpl::interrupt() {
    Guard guard(*this);
    if (handler_) handler_->shutdown();
}

void EPA_ThreadPassportImpl::resetVariables() {
    if (!passport_factory.newDictionary) return;
    IPE_Object tls = passport_factory.newDictionary();
    IPE_Object code = passport_factory.newDictionary();
    IPE_Object variables = passport_factory.newStore();
    // Swapped under the lock; the old values die after it, since their end may run long.
    Guard guard(*this);
    tls_.swap(tls);
    tlsLuaCode_.swap(code);
    variables_.swap(variables);
}

IPE_Object EPA_ThreadPassportImpl::sharedVariables() {
    Guard guard(*this);
    return variables_;
}

EPA_ThreadPassport::EPA_ThreadPassport() : passport_(nullptr) {
    if (XPK_ThreadState* state = XPK_CurrentThread()) passport_ = state->passport;
    if (!passport_) XPK_Raise("DevelopmentError", "Thread passport is not available.").raise();
}
