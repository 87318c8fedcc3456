// The dictionary's table: probing, inserting, growing, removing.
//
// Keys, values and hashes lie in three runs of one block, so a probe that misses reads keys and hashes only. The
// remainders of the probe formula are taken by multiplication with precomputed reciprocals (D. Lemire, O. Kaser,
// N. Kurz, "Faster remainder by direct computation", 2019); the step to the next probe is one addition. A string
// is compared without a virtual call, and by address alone when both are interned.
//
// A key's own comparison can be script code that changes this very dictionary. A probe that has called one
// starts again when the table was replaced under it. What is dropped is released last, after the table is whole
// again, because a destructor too may come back here.
#include "ipe/values/ipe_dicttype.h"

#include <cstring>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/xpk_memory.h"

const char IPE_DictType::TypeName[] = "DictType";

namespace {

struct Capacity {
    uint32_t size;
    uint64_t sizeInverse, stepInverse;  // for remainders by size and by size - 2
    constexpr Capacity(uint32_t c) : size(c), sizeInverse(UINT64_MAX / c + 1), stepInverse(UINT64_MAX / (c - 2) + 1) {}
};

constexpr Capacity capacities[] = {7,      31,     61,      127,     257,     509,     1021,    2039,
                                   4093,   8191,   16381,   32369,   65537,   100003,  200003,  300007,
                                   400009, 500009, 600011,  700001,  800011,  900001,  1000003, 1100009,
                                   1200007, 1300021, 1400017, 1500007, 2000003, 3000017, 4000037, 5000011};
constexpr uint8_t LastCapacity = sizeof capacities / sizeof capacities[0] - 1;

inline uint32_t remainder(uint32_t value, uint64_t inverse, uint32_t divisor) {
    return static_cast<uint32_t>((static_cast<unsigned __int128>(inverse * value) * divisor) >> 64);
}

inline IPE_Type* tombstone() { return static_cast<IPE_Type*>(ipe_detail::tombstone); }

}  // namespace

IPE_DictType::IPE_DictType() : IPE_Type(TypeName, IsContainer) {}

IPE_DictType::~IPE_DictType() { releaseEntries(takeTable()); }

void IPE_DictType::accessAfterClear(const char* text) { XPK_Raise("RuntimeError", text).raise(); }

// --- Probing

template <class Same>
IPE_DictType::Place IPE_DictType::probe(uint32_t hash, Same&& same) const {
    if (capacity_ == 0) return {NoSlot, false};
    const Capacity& capacity = capacities[prime_];
    uint32_t size = capacity.size;
    uint32_t slot = remainder(hash, capacity.sizeInverse, size);
    uint32_t step = remainder(hash, capacity.stepInverse, size - 2) + 1;
    uint32_t reusable = NoSlot;
    for (uint32_t left = size; left > 0; --left) {
        IPE_Type* key = keys_[slot];
        if (!key) return {reusable == NoSlot ? slot : reusable, false};
        if (key == tombstone()) {
            if (reusable == NoSlot) reusable = slot;
        } else if (hashes_[slot] == hash && same(slot)) {
            return {slot, true};
        }
        slot += step;
        if (slot >= size) slot -= size;
    }
    return {reusable, false};
}

// `name` is the interned string of the text, or null.
IPE_DictType::Place IPE_DictType::probeText(uint32_t hash, std::string_view text, const IPE_Type* name) const {
    return probe(hash, [&](uint32_t slot) {
        const IPE_Type* key = keys_[slot];
        if (key == name) return true;
        if (key->typeName() != IPE_StringType::TypeName) return false;
        const auto* string = static_cast<const IPE_StringType*>(key);
        if (name && string->isInterned()) return false;
        return string->view() == text;
    });
}

IPE_DictType::Place IPE_DictType::probeKey(uint32_t hash, const IPE_Object& key) const {
    if (auto* string = key.tryAs<IPE_StringType>())
        return probeText(hash, string->view(), string->isInterned() ? string : nullptr);
    for (;;) {
        bool moved = false;
        Place place = probe(hash, [&](uint32_t slot) {
            IPE_Object stored(keys_[slot]);
            if (stored == key) return true;
            if (stored.is<IPE_IntType>() && key.is<IPE_IntType>())
                return stored.as<IPE_IntType>()->value == key.as<IPE_IntType>()->value;
            IPE_Type** table = keys_;
            bool equal = stored->__cmp__(key) == 0;
            moved = keys_ != table || keys_[slot] != stored.get();
            return equal || moved;
        });
        if (!moved) return place;
        check();
    }
}

IPE_Type* IPE_DictType::find(const IPE_Object& key) {
    check();
    XPK_Assert(!key.isNull());
    uint32_t hash = key->__hash__();
    Place place = probeKey(hash, key);
    return place.found ? values_[place.slot] : nullptr;
}

IPE_Type* IPE_DictType::findText(std::string_view key) {
    check();
    Place place = probeText(IPE_StringType::hashOf(key), key, nullptr);
    return place.found ? values_[place.slot] : nullptr;
}

IPE_Type* IPE_DictType::findName(IPE_StringType* name) {
    check();
    Place place = probeText(name->hash(), name->view(), name->isInterned() ? name : nullptr);
    return place.found ? values_[place.slot] : nullptr;
}

IPE_Type* IPE_DictType::findSlow(IPE_StringType* name, uint32_t& hint) {
    check();
    Place place = probeText(name->hash(), name->view(), name->isInterned() ? name : nullptr);
    if (!place.found) return nullptr;
    hint = place.slot;
    return values_[place.slot];
}

// --- Inserting

void IPE_DictType::prepareInsert() {
    if (capacity_ == 0) {
        rebuild(prime_);
        return;
    }
    auto count = static_cast<uint32_t>(count_);
    if (count > capacity_ / 3 * 2 + 2) {
        if (prime_ == LastCapacity) XPK_Raise("ApplicationError", "Dictionary size too large").raise();
        rebuild(static_cast<uint8_t>(prime_ + 1));
    } else if (prime_ > 0 && capacity_ - count - tombstones_ < capacity_ / 8 && tombstones_ > 0) {
        rebuild(prime_);
    }
}

void IPE_DictType::rebuild(uint8_t prime) {
    uint32_t capacity = capacities[prime].size;
    auto** keys = static_cast<IPE_Type**>(
        XPK_Allocate(capacity * (2 * sizeof(IPE_Type*) + sizeof(uint32_t))));
    memset(keys, 0, capacity * 2 * sizeof(IPE_Type*));
    IPE_Type** oldKeys = keys_;
    IPE_Type** oldValues = values_;
    uint32_t* oldHashes = hashes_;
    uint32_t oldCapacity = capacity_;
    keys_ = keys;
    values_ = keys + capacity;
    hashes_ = reinterpret_cast<uint32_t*>(keys + 2 * size_t{capacity});
    capacity_ = capacity;
    prime_ = prime;
    tombstones_ = 0;
    for (uint32_t i = 0; i < oldCapacity; ++i) {
        IPE_Type* key = oldKeys[i];
        if (!key || key == tombstone()) continue;
        uint32_t slot = probe(oldHashes[i], [](uint32_t) { return false; }).slot;
        keys_[slot] = key;
        values_[slot] = oldValues[i];
        hashes_[slot] = oldHashes[i];
    }
    XPK_Free(oldKeys);
}

// `place` is the result of a probe in the present table; the key is used only for a new entry.
uint32_t IPE_DictType::insertAt(Place place, uint32_t hash, IPE_Object key, IPE_Object value) {
    uint32_t slot = place.slot;
    if (place.found) {
        IPE_Object old = IPE_Object::adopt(values_[slot]);
        values_[slot] = static_cast<IPE_Type*>(value.detach());
        return slot;
    }
    XPK_Assert(slot < capacity_);
    if (keys_[slot]) --tombstones_;
    keys_[slot] = static_cast<IPE_Type*>(key.detach());
    values_[slot] = static_cast<IPE_Type*>(value.detach());
    hashes_[slot] = hash;
    ++count_;
    return slot;
}

void IPE_DictType::set(const IPE_Object& key, IPE_Object value) {
    check();
    if (key.isNull() || value.isNull())
        XPK_Raise("RuntimeError", "Null objects passed to IPE_DictType::__setitem__").raise();
    uint32_t hash = key->__hash__();
    prepareInsert();
    insertAt(probeKey(hash, key), hash, key, std::move(value));
}

void IPE_DictType::setText(std::string_view key, IPE_Object value) {
    check();
    if (value.isNull()) XPK_Raise("RuntimeError", "Null objects passed to IPE_DictType::__setitem__").raise();
    uint32_t hash = IPE_StringType::hashOf(key);
    prepareInsert();
    Place place = probeText(hash, key, nullptr);
    insertAt(place, hash, place.found ? IPE_Object() : IPE_String(key), std::move(value));
}

void IPE_DictType::setName(IPE_StringType* name, IPE_Object value) {
    uint32_t hint;
    setSlow(name, std::move(value), hint);
}

void IPE_DictType::setSlow(IPE_StringType* name, IPE_Object value, uint32_t& hint) {
    check();
    if (value.isNull()) XPK_Raise("RuntimeError", "Null objects passed to IPE_DictType::__setitem__").raise();
    uint32_t hash = name->hash();
    prepareInsert();
    Place place = probeText(hash, name->view(), name->isInterned() ? name : nullptr);
    if (place.found && name->isInterned() && keys_[place.slot] != name) {
        // An equal key that is not the interned one would miss every hint from now on.
        auto* stored = static_cast<IPE_StringType*>(keys_[place.slot]);
        if (!stored->isTripleQuoted()) {
            name->retain();
            keys_[place.slot] = name;
            stored->release();
        }
    }
    hint = insertAt(place, hash, IPE_Object(name), std::move(value));
}

// --- Removing

bool IPE_DictType::removeAt(Place place) {
    if (!place.found) return false;
    IPE_Object key = IPE_Object::adopt(keys_[place.slot]);
    IPE_Object value = IPE_Object::adopt(values_[place.slot]);
    keys_[place.slot] = tombstone();
    values_[place.slot] = nullptr;
    --count_;
    ++tombstones_;
    return true;
}

bool IPE_DictType::remove(const IPE_Object& key) {
    check();
    XPK_Assert(!key.isNull());
    uint32_t hash = key->__hash__();
    return removeAt(probeKey(hash, key));
}

bool IPE_DictType::removeText(std::string_view key) {
    check();
    return removeAt(probeText(IPE_StringType::hashOf(key), key, nullptr));
}

IPE_DictType::Table IPE_DictType::takeTable() noexcept {
    Table table{keys_, capacity_};
    keys_ = values_ = nullptr;
    hashes_ = nullptr;
    capacity_ = 0;
    prime_ = 0;
    count_ = 0;
    tombstones_ = 0;
    return table;
}

void IPE_DictType::releaseEntries(const Table& table) noexcept {
    IPE_Type** values = table.keys + table.capacity;
    for (uint32_t i = 0; i < table.capacity; ++i) {
        IPE_Type* key = table.keys[i];
        if (!key || key == tombstone()) continue;
        key->release();
        values[i]->release();
    }
    XPK_Free(table.keys);
}

void IPE_DictType::recycle() noexcept {
    constexpr uint32_t Kept = 61;
    uint8_t prime = prime_;
    Table table = takeTable();
    if (table.capacity > Kept || table.capacity == 0) {
        releaseEntries(table);
        return;
    }
    IPE_Type** values = table.keys + table.capacity;
    for (uint32_t i = 0; i < table.capacity; ++i) {
        IPE_Type* key = table.keys[i];
        if (!key) continue;
        table.keys[i] = nullptr;
        if (key == tombstone()) continue;
        key->release();
        values[i]->release();
    }
    // A destructor may have put entries in meanwhile; then there is a table already.
    if (capacity_ != 0 || cleared_) {
        XPK_Free(table.keys);
        return;
    }
    keys_ = table.keys;
    values_ = values;
    hashes_ = reinterpret_cast<uint32_t*>(table.keys + 2 * size_t{table.capacity});
    capacity_ = table.capacity;
    prime_ = prime;
}

void IPE_DictType::clear() {
    if (cleared_) return;
    cleared_ = true;
    Table table = takeTable();
    IPE_Type** values = table.keys + table.capacity;
    for (uint32_t i = 0; i < table.capacity; ++i) {
        IPE_Type* key = table.keys[i];
        if (!key || key == tombstone()) continue;
        IPE_ClearValue(IPE_Object(key));
        IPE_ClearValue(IPE_Object(values[i]));
    }
    releaseEntries(table);
}

// --- Iteration

IPE_Type* IPE_DictType::keyAt(uint32_t slot) const noexcept {
    IPE_Type* key = keys_[slot];
    return key == tombstone() ? nullptr : key;
}

IPE_Object IPE_DictType::keys(char sort) {
    check();
    IPE_Object list = IPE_NewList();
    auto* result = list.as<IPE_ListType>();
    result->reserve(static_cast<size_t>(count_));
    for (uint32_t i = 0; i < capacity_; ++i)
        if (IPE_Type* key = keyAt(i)) result->append(IPE_Object(key));
    if (sort) result->sort(sort == 'D');
    return list;
}

void IPE_DictType::update(IPE_DictType& other) {
    check();
    other.check();
    if (&other == this) return;
    for (uint32_t i = 0; i < other.capacity_; ++i)
        if (IPE_Type* key = other.keyAt(i)) set(IPE_Object(key), IPE_Object(other.valueAt(i)));
}
