// EPA_ThreadPassportImpl: a thread's own record in the thread manager; EPA_ThreadPassport: the way to it.
//
// The passport belongs to the manager's slot. Its thread uses it freely; other threads reach it only through
// the manager, under the manager's lock, and then under the passport's lock. That lock guards the handler and
// the handle `variables`; it is the process-wide lock until the thread has announced itself, then the
// thread's own. Lock order: manager, passport, store.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "runtime/epa_lock.h"
#include "runtime/epa_semaphore.h"
#include "runtime/ipe_object.h"

class EPA_ShutdownHandler;

// How the runtime makes and asks the script values of a passport without knowing them; the values' floor
// registers it from a static initialiser. Without one, passports hold null handles and nothing is found.
struct EPA_PassportFactory {
    IPE_Object (*newDictionary)() = nullptr;
    IPE_Object (*newStore)() = nullptr;  // safe for several threads
    // Appends to `list` the store's value under `key`, if there is one.
    void (*collect)(const IPE_Object& store, const IPE_Object& key, const IPE_Object& list) = nullptr;
    // Where the field of the store's value under `key` equals `expected`, stores `value` under `target`.
    void (*assignWhere)(const IPE_Object& store, const IPE_Object& key, const IPE_Object& field,
                        const IPE_Object& expected, const IPE_Object& value,
                        const IPE_Object& target) = nullptr;
};
void EPA_SetPassportFactory(const EPA_PassportFactory& factory);
const EPA_PassportFactory& EPA_GetPassportFactory() noexcept;

class EPA_ThreadPassportImpl {
  public:
    static constexpr int64_t SemaphoreCeiling = 2'000'000'000;

    EPA_ThreadPassportImpl(int slot, void* argument);
    EPA_ThreadPassportImpl(const EPA_ThreadPassportImpl&) = delete;
    EPA_ThreadPassportImpl& operator=(const EPA_ThreadPassportImpl&) = delete;
    virtual ~EPA_ThreadPassportImpl() = default;

    int slot() const noexcept { return slot_; }
    void* argument() const noexcept { return argument_; }

    // --- The passport's own thread.
    // The first action of a thread's body: takes the thread's own lock, names the thread (`nameFormat` holds
    // one %i for the slot; 64 characters or more are an assertion), lets the starter go on, and waits at the
    // gate.
    void announce(const char* nameFormat);
    // At most one handler at a time; a second one is an assertion. The handler lives until clearHandler.
    void setHandler(EPA_ShutdownHandler* handler);
    void clearHandler();
    // Whether a handler is set, which is what "waiting" means.
    bool isBlocked() const noexcept { return handler_ != nullptr; }
    // New `tls` and `tls_luacode`, and a new store of variables.
    void resetVariables();
    // Dictionaries of this thread alone.
    const IPE_Object& tls() const noexcept { return tls_; }
    const IPE_Object& tlsLuaCode() const noexcept { return tlsLuaCode_; }
    // The store of thread variables.
    const IPE_Object& variables() const noexcept { return variables_; }

    // --- Other threads, through the manager.
    // Calls `shutdown` on the current handler, if there is one.
    void interrupt();
    IPE_Object sharedVariables();

  private:
    friend class EPA_ThreadManager;
    class Guard;
    // The creating thread of the manager has no gate to pass.
    void adopt(EPA_RecursiveLock& lock);

    const int slot_;
    void* const argument_;
    EPA_ShutdownHandler* handler_ = nullptr;
    // Shared with the starter, which may still be leaving its wait when a short thread is over.
    std::shared_ptr<EPA_Semaphore> started_;
    EPA_Semaphore gate_;
    std::atomic<EPA_RecursiveLock*> lock_;
    IPE_Object variables_, tls_, tlsLuaCode_;
};

// The current thread's passport; DevelopmentError "Thread passport is not available." when it has none.
class EPA_ThreadPassport {
  public:
    EPA_ThreadPassport();
    EPA_ThreadPassportImpl* operator->() const noexcept { return passport_; }
    EPA_ThreadPassportImpl& operator*() const noexcept { return *passport_; }

  private:
    EPA_ThreadPassportImpl* passport_;
};
