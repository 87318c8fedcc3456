// Built-in functions on the two kinds of store: the process-wide one (`global_...`) and the one of the
// calling thread (`thread_...`).
//
// Both kinds are the same functions over another store, so they come from one template. A store strips what
// enters and copies what leaves. The two functions that walk all threads go through the thread manager, which
// holds its lock, then each passport's.
#include "ipe/builtins/ipe_builtinsupport.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_store.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_threadmanager.h"

namespace {

using Arguments = const IPE_Arguments&;

struct Global {
    static IPE_Store& store() { return IPE_GlobalStore(); }
    static IPE_Store& storeToChange(const IPE_Object&) { return store(); }
    static IPE_Object get(const IPE_Object& name) { return store().get(name); }
    static constexpr const char* Missing = "There is no global variable $name";
};

// The job of a queue's worker is on loan to its thread.
struct Thread {
    static IPE_Store& store() { return IPE_ThreadStore(); }
    static IPE_Store& storeToChange(const IPE_Object& name) {
        store().forgetLoan(name);
        return store();
    }
    static IPE_Object get(const IPE_Object& name) { return store().own(name); }
    static constexpr const char* Missing = "There is no thread variable $name";
};

template <class Kind>
IPE_Object setValue(Arguments a) {
    if (a.size() > 1)
        Kind::storeToChange(a[0]).set(a[0], a[1]);
    else
        Kind::storeToChange(a[0]).remove(a[0]);
    return {};
}

template <class Kind>
IPE_Object getValue(Arguments a) {
    if (a.size() == 0) return Kind::store().names();
    IPE_Object value = Kind::get(a[0]);
    if (value) return value;
    if (a.size() > 1) return a[1];
    XPK_Raise("RuntimeError", Kind::Missing).string("name", a.text(0)).raise();
}

template <class Kind>
IPE_Object deleteValue(Arguments a) {
    if (a.size() > 1)
        Kind::storeToChange(a[0]).removeKey(a[0], a[1]);
    else
        Kind::storeToChange(a[0]).remove(a[0]);
    return {};
}

template <class Kind>
IPE_Object execute(Arguments a) {
    return Kind::store().execute(a);
}

IPE_Object queuePush(Arguments a) {
    IPE_GlobalStore().push(a[0], a[1]);
    return {};
}

IPE_Object queuePop(Arguments a) { return IPE_GlobalStore().pop(a[0]); }
IPE_Object queueLength(Arguments a) { return IPE_Int(IPE_GlobalStore().queued(a[0])); }

IPE_Object valuesOfAllThreads(Arguments a) {
    IPE_Object list = IPE_NewList();
    EPA_ThreadManager::instance().collect(a[0], list);
    return list;
}

// Dictionary, field, expected value, target name, value: the manager takes the value before its target.
IPE_Object setWhere(Arguments a) {
    EPA_ThreadManager::instance().assignWhere(a[0], a[1], a[2], a[4], a[3]);
    return {};
}

const IPE_Builtin Rows[] = {
    {"global_set", "s|o", setValue<Global>},
    {"global_get", "|so", getValue<Global>},
    {"global_delete", "s|o", deleteValue<Global>},
    {"global_execute", "s|oooo", execute<Global>},
    {"thread_set", "s|o", setValue<Thread>},
    {"thread_get", "|so", getValue<Thread>},
    {"thread_delete", "s|o", deleteValue<Thread>},
    {"thread_execute", "s|oooo", execute<Thread>},
    {"global_qpush", "so", queuePush},
    {"global_qpop", "s", queuePop},
    {"global_qempty", "s", queueLength},
    {"get_value_from_shared_storage_on_all_passports", "s", valuesOfAllThreads},
    {"set_value_into_shared_storage_where", "sssso", setWhere},
};
const IPE_BuiltinTable registered(Rows);

}  // namespace
