// Shared stores.
//
// Counts of values are atomic only once a value is marked shared, so everything that the store keeps is
// marked: stripped values come marked, and what the store makes itself (containers, sums, tuples of queues)
// goes through `shared`. Stripping happens before the lock is taken and copies of what leaves are made under
// it, since the containers inside change in place.
#include "ipe/values/ipe_store.h"

#include <atomic>
#include <ctime>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_threadpassport.h"

const char IPE_Store::TypeName[] = "StoreType";

namespace {

using Guard = EPA_LockScope<EPA_Lock>;

IPE_Object shared(IPE_Object object) {
    object.counted()->markShared();
    return object;
}

// A key that the store may keep. Values without a hash raise here, before anything changes.
IPE_Object keep(const IPE_Object& key) {
    IPE_Object kept = IPE_Object_Strip(key);
    key->__hash__();
    XPK_Assert(kept);
    return kept;
}

IPE_Object leave(IPE_Type* value) { return value ? IPE_Object_Copy(IPE_Object(value)) : IPE_Object(); }

// Null, the value that cannot be copied, removes.
void put(IPE_DictType& dict, const IPE_Object& key, const IPE_Object& value) {
    if (value)
        dict.set(key, value);
    else
        dict.remove(key);
}

IPE_ListType& needList(IPE_DictType& dict, const IPE_Object& key) {
    if (IPE_Type* found = dict.find(key)) return *PyList_SafeCast(IPE_Object(found));
    IPE_Object list = shared(IPE_NewList());
    dict.set(key, list);
    return *list.as<IPE_ListType>();
}

IPE_Object sum(IPE_Type* value, const IPE_Object& amount) {
    IPE_Object old = value ? IPE_Object(value) : IPE_Int(0);
    return shared(IPE_SafeCast<IPE_IntType>(old, "PyInt_SafeCast")->__add__(amount));
}

int64_t integerOf(IPE_Type* value) {
    return value ? IPE_SafeCast<IPE_IntType>(IPE_Object(value), "PyInt_SafeCast")->value : 0;
}

bool removeFrom(IPE_Type* list, const IPE_Object& value) {
    if (!list) return false;
    auto& items = PyList_SafeCast(IPE_Object(list))->items();
    for (auto item = items.begin(); item != items.end(); ++item) {
        if (!IPE_Object_Equal(*item, value)) continue;
        items.erase(item);
        return true;
    }
    return false;
}

const IPE_Object& locksName() {
    // Never destroyed: the pools are gone when static objects die.
    static const IPE_Object& name = *new IPE_Object(IPE_StringType::intern("__locks"));
    return name;
}

}  // namespace

IPE_Store::IPE_Store()
    : IPE_Type(TypeName, IsContainer), values_(shared(IPE_NewDict())), created_(time(nullptr)) {}

IPE_DictType* IPE_Store::findDict(const IPE_Object& name) {
    IPE_Type* found = root().find(name);
    return found ? PyDict_SafeCast(IPE_Object(found)) : nullptr;
}

IPE_DictType& IPE_Store::needDict(const IPE_Object& name) {
    if (IPE_DictType* found = findDict(name)) return *found;
    IPE_Object dict = shared(IPE_NewDict());
    root().set(name, dict);
    return *dict.as<IPE_DictType>();
}

// --- Names.

IPE_Object IPE_Store::get(const IPE_Object& name) {
    Guard guard(lock_);
    return leave(root().find(name));
}

bool IPE_Store::has(const IPE_Object& name) {
    Guard guard(lock_);
    return root().find(name) != nullptr;
}

void IPE_Store::set(const IPE_Object& name, const IPE_Object& value) {
    IPE_Object key = keep(name), kept = IPE_Object_Strip(value);
    Guard guard(lock_);
    put(root(), key, kept);
}

void IPE_Store::remove(const IPE_Object& name) {
    Guard guard(lock_);
    root().remove(name);
}

IPE_Object IPE_Store::names() {
    Guard guard(lock_);
    return IPE_Object_Copy(root().keys());
}

bool IPE_Store::setIfExists(const IPE_Object& name, const IPE_Object& value) {
    IPE_Object key = keep(name), kept = IPE_Object_Strip(value);
    Guard guard(lock_);
    if (!root().find(key)) return false;
    put(root(), key, kept);
    return true;
}

void IPE_Store::bulkSet(const IPE_Object& entries) {
    PyDict_SafeCast(entries);
    IPE_Object kept = IPE_Object_Strip(entries);
    Guard guard(lock_);
    root().update(*kept.as<IPE_DictType>());
}

// --- A value on loan.

void IPE_Store::lend(const IPE_Object& name, const IPE_Object& object, const IPE_Object& stripped) {
    IPE_Object key = keep(name);
    {
        Guard guard(lock_);
        root().set(key, stripped);
    }
    lentName_ = std::move(key);
    lent_ = object;
}

void IPE_Store::endLoan() {
    IPE_Object gone = std::move(lent_);
    IPE_Object name = std::move(lentName_);
    if (name) remove(name);
}

void IPE_Store::forgetLoan(const IPE_Object& name) {
    if (lent_ && IPE_Object_Equal(lentName_, name)) lent_ = nullptr;
}

IPE_Object IPE_Store::own(const IPE_Object& name) {
    if (lent_ && IPE_Object_Equal(lentName_, name)) return lent_;
    return get(name);
}

// --- Dictionaries.

IPE_Object IPE_Store::dictionary(const IPE_Object& name) {
    IPE_Object key = keep(name);
    Guard guard(lock_);
    return needDict(key).__copy__();
}

void IPE_Store::setKey(const IPE_Object& name, const IPE_Object& key, const IPE_Object& value) {
    IPE_Object keptName = keep(name), keptKey = keep(key), kept = IPE_Object_Strip(value);
    Guard guard(lock_);
    put(needDict(keptName), keptKey, kept);
}

bool IPE_Store::setKeyIfPresent(const IPE_Object& name, const IPE_Object& key, const IPE_Object& value) {
    IPE_Object keptKey = keep(key), kept = IPE_Object_Strip(value);
    Guard guard(lock_);
    IPE_Type* found = root().find(name);
    if (!found || !IPE_Object(found).is<IPE_DictType>()) return false;
    put(*findDict(name), keptKey, kept);
    return true;
}

IPE_Object IPE_Store::getKey(const IPE_Object& name, const IPE_Object& key) {
    Guard guard(lock_);
    IPE_DictType* dict = findDict(name);
    return dict ? leave(dict->find(key)) : IPE_Object();
}

void IPE_Store::removeKey(const IPE_Object& name, const IPE_Object& key) {
    Guard guard(lock_);
    if (IPE_DictType* dict = findDict(name)) dict->remove(key);
}

IPE_Object IPE_Store::keys(const IPE_Object& name) {
    Guard guard(lock_);
    IPE_DictType* dict = findDict(name);
    return dict ? IPE_Object_Copy(dict->keys()) : IPE_NewList();
}

IPE_Object IPE_Store::addToKey(const IPE_Object& name, const IPE_Object& key, const IPE_Object& amount) {
    IPE_Object keptName = keep(name), keptKey = keep(key);
    Guard guard(lock_);
    IPE_DictType& dict = needDict(keptName);
    IPE_Object result = sum(dict.find(keptKey), amount);
    dict.set(keptKey, result);
    return result;
}

// --- Integers.

IPE_Object IPE_Store::add(const IPE_Object& name, int64_t amount) {
    IPE_Object key = keep(name);
    Guard guard(lock_);
    IPE_Object result = sum(root().find(key), IPE_Int(amount));
    root().set(key, result);
    return result;
}

bool IPE_Store::incrementBelow(const IPE_Object& name, const IPE_Object& limit) {
    IPE_Object key = keep(name);
    Guard guard(lock_);
    IPE_Type* value = root().find(key);
    if (integerOf(value) >= integerOf(root().find(limit))) return false;
    root().set(key, sum(value, IPE_Int(1)));
    return true;
}

// --- Lists.

void IPE_Store::append(const IPE_Object& name, const IPE_Object& value) {
    IPE_Object key = keep(name), kept = IPE_Object_Strip(value);
    Guard guard(lock_);
    IPE_ListType& list = needList(root(), key);
    if (kept) list.append(kept);
}

bool IPE_Store::removeItem(const IPE_Object& name, const IPE_Object& value) {
    Guard guard(lock_);
    return removeFrom(root().find(name), value);
}

void IPE_Store::appendAt(const IPE_Object& name, const IPE_Object& key, const IPE_Object& value) {
    IPE_Object keptName = keep(name), keptKey = keep(key), kept = IPE_Object_Strip(value);
    Guard guard(lock_);
    IPE_ListType& list = needList(needDict(keptName), keptKey);
    if (kept) list.append(kept);
}

bool IPE_Store::removeItemAt(const IPE_Object& name, const IPE_Object& key, const IPE_Object& value) {
    Guard guard(lock_);
    IPE_DictType* dict = findDict(name);
    return dict && removeFrom(dict->find(key), value);
}

// --- Queues.

struct IPE_Store::Queue {
    int64_t head = 0, tail = 0;
    IPE_Object values;
};

// Scripts can store a tuple of their own under the name: whatever does not have the form raises.
IPE_Store::Queue IPE_Store::queue(const IPE_Object& name) {
    IPE_Type* found = root().find(name);
    if (!found) return {};
    IPE_Tuple tuple{IPE_Object(found)};
    Queue queue{integerOf(tuple[0].get()), integerOf(tuple[1].get()), tuple[2]};
    PyDict_SafeCast(queue.values);
    return queue;
}

void IPE_Store::store(const IPE_Object& name, const Queue& queue) {
    root().set(name,
               shared(IPE_TupleOf({shared(IPE_Int(queue.head)), shared(IPE_Int(queue.tail)), queue.values})));
}

void IPE_Store::push(const IPE_Object& name, const IPE_Object& value) {
    IPE_Object key = keep(name), kept = IPE_Object_Strip(value);
    Guard guard(lock_);
    Queue q = queue(key);
    if (!q.values) q.values = shared(IPE_NewDict());
    if (kept) {
        IPE_Object index = shared(IPE_Int(q.tail));
        q.tail = sum(index.get(), IPE_Int(1))->__int__();
        q.values.as<IPE_DictType>()->set(index, kept);
    }
    store(key, q);
}

IPE_Object IPE_Store::pop(const IPE_Object& name) {
    IPE_Object key = keep(name);
    Guard guard(lock_);
    Queue q = queue(key);
    if (q.head >= q.tail) return IPE_None();
    auto& values = *q.values.as<IPE_DictType>();
    IPE_Object index = IPE_Int(q.head++);
    IPE_Object value(values.find(index));
    values.remove(index);
    store(key, q);
    return value ? leave(value.get()) : IPE_None();
}

int64_t IPE_Store::queued(const IPE_Object& name) {
    Guard guard(lock_);
    Queue q = queue(name);
    return q.tail > q.head ? q.tail - q.head : 0;
}

// --- Locks.

IPE_Object IPE_Store::tryLock(const IPE_Object& name) {
    IPE_Object key = keep(name);
    Guard guard(lock_);
    IPE_DictType& locks = needDict(locksName());
    if (locks.find(key)) return IPE_None();
    locks.set(key, shared(IPE_NewDict()));
    return IPE_NewDict();
}

void IPE_Store::setLock(const IPE_Object& name, const IPE_Object& value) { setKey(locksName(), name, value); }

IPE_Object IPE_Store::lockEntry(const IPE_Object& name) {
    Guard guard(lock_);
    IPE_Type* entry = needDict(locksName()).find(name);
    return entry ? leave(entry) : IPE_None();
}

void IPE_Store::releaseLock(const IPE_Object& name) {
    Guard guard(lock_);
    needDict(locksName()).remove(name);
}

// --- Time stamps.

int64_t IPE_Store::timestamp() {
    // More than 1000 in one second run into the next one's range; taking the maximum keeps them unique then,
    // and also when the clock is set back.
    static std::atomic<int64_t> last{0};
    int64_t base = static_cast<int64_t>(time(nullptr)) * 1000;
    int64_t seen = last.load(std::memory_order_relaxed);
    int64_t next;
    do {
        next = seen < base ? base : seen + 1;
    } while (!last.compare_exchange_weak(seen, next, std::memory_order_relaxed));
    return next;
}

// --- Stores of threads.

IPE_Store& IPE_ThreadStore() { return IPE_StoreOf(EPA_ThreadPassport()->variables()); }

namespace {

void collect(const IPE_Object& store, const IPE_Object& key, const IPE_Object& list) {
    if (IPE_Object value = IPE_StoreOf(store).get(key)) PyList_SafeCast(list)->append(std::move(value));
}

void assignWhere(const IPE_Object& handle, const IPE_Object& key, const IPE_Object& field,
                 const IPE_Object& expected, const IPE_Object& value, const IPE_Object& target) {
    IPE_Store& store = IPE_StoreOf(handle);
    IPE_Object holder = store.get(key);
    if (!holder.is<IPE_DictType>()) return;
    IPE_Object found(holder.as<IPE_DictType>()->find(field));
    if (found && IPE_Object_Equal(found, expected)) store.set(target, value);
}

const bool registered = [] {
    EPA_SetPassportFactory(
        {[] { return IPE_NewDict(); }, [] { return shared(IPE_New<IPE_Store>()); }, collect, assignWhere});
    return true;
}();

}  // namespace
