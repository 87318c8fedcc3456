// IPE_Store: a dictionary of names to stripped values that several threads share.
//
// Each operation is atomic: it takes the store's lock for its whole length. What enters is stripped, so the
// store owns a private copy; what leaves is copied, so no mutable value is ever shared (numbers, strings and
// the like leave as themselves). A value that cannot be copied counts as no value at all: storing it removes
// what stood there, appending it appends nothing.
//
// Operations that need a container of a kind under a name raise TypeError "Require a '$need' but given a
// '$have'" when another value is there. Keys are values with a hash; others raise TypeError.
#pragma once

#include <cstdint>
#include <string_view>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"
#include "ipe/values/ipe_dicttype.h"
#include "runtime/epa_lock.h"

class IPE_Store final : public IPE_Type {
  public:
    static const char TypeName[];
    IPE_Store();
    // Seconds since 1970 at which the store was made.
    int64_t created() const noexcept { return created_; }

    // --- Names. Names are strings to scripts; native callers may use any key.
    IPE_Object get(const IPE_Object& name);  // null when absent
    IPE_Object get(std::string_view name) { return get(IPE_String(name)); }
    bool has(const IPE_Object& name);
    bool has(std::string_view name) { return has(IPE_String(name)); }
    void set(const IPE_Object& name, const IPE_Object& value);
    void set(std::string_view name, const IPE_Object& value) { set(IPE_String(name), value); }
    void remove(const IPE_Object& name);
    IPE_Object names();  // new list

    // --- A value on loan, of a thread's own store: while the loan lasts, own() gives that thread the very
    // object, to everybody else the name holds `stripped`, which nobody changes. One loan at a time. The
    // store's own thread alone calls these.
    void lend(const IPE_Object& name, const IPE_Object& object, const IPE_Object& stripped);
    // Ends the loan and removes the name.
    void endLoan();
    // Lets go of the object if it is lent under this name: the name then holds what other threads see.
    void forgetLoan(const IPE_Object& name);
    // The lent object, or what get() gives.
    IPE_Object own(const IPE_Object& name);

    // --- Dictionaries under a name.
    // A copy of the dictionary, made empty when the name is absent.
    IPE_Object dictionary(const IPE_Object& name);
    void setKey(const IPE_Object& name, const IPE_Object& key, const IPE_Object& value);
    void setKey(std::string_view name, std::string_view key, const IPE_Object& value) {
        setKey(IPE_String(name), IPE_String(key), value);
    }
    IPE_Object getKey(const IPE_Object& name, const IPE_Object& key);  // null when either is absent
    void removeKey(const IPE_Object& name, const IPE_Object& key);
    IPE_Object keys(const IPE_Object& name);  // new list; empty when the name is absent
    // As setKey, but only if the name holds a dictionary already; false otherwise.
    bool setKeyIfPresent(const IPE_Object& name, const IPE_Object& key, const IPE_Object& value);
    // Adds `amount` to the integer at the key, from 0, and gives the new value.
    IPE_Object addToKey(const IPE_Object& name, const IPE_Object& key, const IPE_Object& amount);

    // --- Integers. Overflow raises SafeIntArithmeticOverflow.
    IPE_Object add(const IPE_Object& name, int64_t amount);  // the new value, from 0
    // Adds 1 if the value is below the one under `limit`; an absent one counts as 0.
    bool incrementBelow(const IPE_Object& name, const IPE_Object& limit);

    // --- Lists.
    void append(const IPE_Object& name, const IPE_Object& value);
    bool removeItem(const IPE_Object& name, const IPE_Object& value);  // the first equal one
    void appendAt(const IPE_Object& name, const IPE_Object& key, const IPE_Object& value);
    bool removeItemAt(const IPE_Object& name, const IPE_Object& key, const IPE_Object& value);

    bool setIfExists(const IPE_Object& name, const IPE_Object& value);
    void bulkSet(const IPE_Object& entries);  // a DictType

    // --- Queues: a tuple of head index, tail index and a dictionary of the values between them.
    void push(const IPE_Object& name, const IPE_Object& value);
    IPE_Object pop(const IPE_Object& name);  // None when empty
    int64_t queued(const IPE_Object& name);

    // --- Named try-locks: status boards in the dictionary `__locks`.
    // None if the name is taken, otherwise it is taken with a new dictionary, of which a copy is given.
    IPE_Object tryLock(const IPE_Object& name);
    void setLock(const IPE_Object& name, const IPE_Object& value);
    IPE_Object lockEntry(const IPE_Object& name);  // or None
    void releaseLock(const IPE_Object& name);

    // One operation by its script name, arguments[0], such as "inc" or "dict_list_append", on the rest. Gives
    // what the operation gives, None if that is nothing. RuntimeError "Unknown store operation $name";
    // argument errors as in every native call.
    IPE_Object execute(const IPE_Arguments& arguments);

    // Unique within the process: the time in seconds times 1000 plus a counter that restarts each second.
    static int64_t timestamp();

  private:
    IPE_DictType& root() EPA_REQUIRES(lock_) { return *values_.as<IPE_DictType>(); }
    IPE_DictType* findDict(const IPE_Object& name) EPA_REQUIRES(lock_);
    IPE_DictType& needDict(const IPE_Object& name) EPA_REQUIRES(lock_);
    struct Queue;
    Queue queue(const IPE_Object& name) EPA_REQUIRES(lock_);
    void store(const IPE_Object& name, const Queue& queue) EPA_REQUIRES(lock_);

    EPA_Lock lock_;
    IPE_Object values_ EPA_GUARDED_BY(lock_);
    const int64_t created_;
    IPE_Object lentName_, lent_;  // of the store's own thread
};

// The handle as a store; the errors of every cast.
inline IPE_Store& IPE_StoreOf(const IPE_Object& object) {
    return *IPE_SafeCast<IPE_Store>(object, "IPE_StoreOf");
}

// The calling thread's variables; DevelopmentError "Thread passport is not available." without a passport.
IPE_Store& IPE_ThreadStore();
