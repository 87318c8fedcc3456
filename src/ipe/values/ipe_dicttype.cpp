// The dictionary's table: probing, inserting, growing, removing.
//
// A slot's key, value and hash lie side by side, so a look-up in a large table waits for memory once. The
// remainders of the probe formula are taken by multiplication with precomputed reciprocals (D. Lemire, O.
// Kaser, N. Kurz, "Faster remainder by direct computation", 2019); the step to the next probe is one
// addition. A string is compared without a virtual call, and by address alone when both are interned.
//
// A key's own comparison can be script code that changes this very dictionary. A probe that has called one
// starts again when the table was replaced under it. What is dropped is released last, after the table is
// whole again, because a destructor too may come back here.
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
    constexpr Capacity(uint32_t c)
        : size(c), sizeInverse(UINT64_MAX / c + 1), stepInverse(UINT64_MAX / (c - 2) + 1) {}
};

constexpr Capacity capacities[] = {7,       31,      61,      127,     257,     509,     1021,    2039,
                                   4093,    8191,    16381,   32369,   65537,   100003,  200003,  300007,
                                   400009,  500009,  600011,  700001,  800011,  900001,  1000003, 1100009,
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
        IPE_Type* key = entries_[slot].key;
        if (!key) return {reusable == NoSlot ? slot : reusable, false};
        if (key == tombstone()) {
            if (reusable == NoSlot) reusable = slot;
        } else if (entries_[slot].hash == hash && same(slot)) {
            return {slot, true};
        }
        slot += step;
        if (slot >= size) slot -= size;
    }
    return {reusable, false};
}

// `name` is the interned string of the text, or null.
IPE_DictType::Place IPE_DictType::probeText(uint32_t hash, std::string_view text,
                                            const IPE_Type* name) const {
    return probe(hash, [&](uint32_t slot) {
        const IPE_Type* key = entries_[slot].key;
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
            IPE_Object stored(entries_[slot].key);
            if (stored == key) return true;
            if (stored.is<IPE_IntType>() && key.is<IPE_IntType>())
                return stored.as<IPE_IntType>()->value == key.as<IPE_IntType>()->value;
            const Entry* table = entries_;
            bool equal = stored->__cmp__(key) == 0;
            moved = entries_ != table || entries_[slot].key != stored.get();
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
    return place.found ? entries_[place.slot].value : nullptr;
}

IPE_Type* IPE_DictType::findText(std::string_view key) {
    check();
    Place place = probeText(IPE_StringType::hashOf(key), key, nullptr);
    return place.found ? entries_[place.slot].value : nullptr;
}

IPE_Type* IPE_DictType::findName(IPE_StringType* name) {
    check();
    Place place = probeText(name->hash(), name->view(), name->isInterned() ? name : nullptr);
    return place.found ? entries_[place.slot].value : nullptr;
}

IPE_Type* IPE_DictType::findSlow(IPE_StringType* name, uint32_t& hint) {
    check();
    if (capacity_ == 0) return nullptr;
    // Most misses end in the first slot: a name that is not here but in an outer namespace.
    const Capacity& capacity = capacities[prime_];
    uint32_t home = remainder(name->hash(), capacity.sizeInverse, capacity.size);
    if (!entries_[home].key) return nullptr;
    if (entries_[home].key == name) {
        hint = home;
        return entries_[home].value;
    }
    Place place = probeText(name->hash(), name->view(), name->isInterned() ? name : nullptr);
    if (!place.found) return nullptr;
    hint = place.slot;
    return entries_[place.slot].value;
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
    auto* entries = static_cast<Entry*>(XPK_Allocate(capacity * sizeof(Entry)));
    memset(static_cast<void*>(entries), 0, capacity * sizeof(Entry));
    Table old{entries_, capacity_};
    entries_ = entries;
    capacity_ = capacity;
    prime_ = prime;
    tombstones_ = 0;
    // Entries scatter over the new table; fetching their first slots ahead hides the memory's delay.
    constexpr uint32_t Ahead = 8;
    const Capacity& home = capacities[prime];
    for (uint32_t i = 0; i < old.capacity; ++i) {
        if (i + Ahead < old.capacity)
            __builtin_prefetch(&entries_[remainder(old.entries[i + Ahead].hash, home.sizeInverse, capacity)],
                               1);
        const Entry& entry = old.entries[i];
        if (!entry.key || entry.key == tombstone()) continue;
        entries_[probe(entry.hash, [](uint32_t) { return false; }).slot] = entry;
    }
    XPK_Free(old.entries);
}

// `place` is the result of a probe in the present table; the key is used only for a new entry.
uint32_t IPE_DictType::insertAt(Place place, uint32_t hash, IPE_Object key, IPE_Object value) {
    uint32_t slot = place.slot;
    if (place.found) {
        IPE_Object old = IPE_Object::adopt(entries_[slot].value);
        entries_[slot].value = static_cast<IPE_Type*>(value.detach());
        return slot;
    }
    XPK_Assert(slot < capacity_);
    if (entries_[slot].key) --tombstones_;
    entries_[slot].key = static_cast<IPE_Type*>(key.detach());
    entries_[slot].value = static_cast<IPE_Type*>(value.detach());
    entries_[slot].hash = hash;
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
    if (place.found && name->isInterned() && entries_[place.slot].key != name) {
        // An equal key that is not the interned one would miss every hint from now on.
        auto* stored = static_cast<IPE_StringType*>(entries_[place.slot].key);
        if (!stored->isTripleQuoted()) {
            name->retain();
            entries_[place.slot].key = name;
            stored->release();
        }
    }
    hint = insertAt(place, hash, IPE_Object(name), std::move(value));
}

// --- Removing

bool IPE_DictType::removeAt(Place place) {
    if (!place.found) return false;
    IPE_Object key = IPE_Object::adopt(entries_[place.slot].key);
    IPE_Object value = IPE_Object::adopt(entries_[place.slot].value);
    entries_[place.slot].key = tombstone();
    entries_[place.slot].value = nullptr;
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
    Table table{entries_, capacity_};
    entries_ = nullptr;
    capacity_ = 0;
    prime_ = 0;
    count_ = 0;
    tombstones_ = 0;
    return table;
}

void IPE_DictType::releaseEntries(const Table& table) noexcept {
    for (uint32_t i = 0; i < table.capacity; ++i) {
        const Entry& entry = table.entries[i];
        if (!entry.key || entry.key == tombstone()) continue;
        entry.key->release();
        entry.value->release();
    }
    XPK_Free(table.entries);
}

void IPE_DictType::recycle() noexcept {
    constexpr uint32_t Kept = 61;
    uint8_t prime = prime_;
    Table table = takeTable();
    if (table.capacity > Kept || table.capacity == 0) {
        releaseEntries(table);
        return;
    }
    for (uint32_t i = 0; i < table.capacity; ++i) {
        Entry entry = table.entries[i];
        if (!entry.key) continue;
        table.entries[i].key = nullptr;
        if (entry.key == tombstone()) continue;
        entry.key->release();
        entry.value->release();
    }
    // A destructor may have put entries in meanwhile; then there is a table already.
    if (capacity_ != 0 || cleared_) {
        XPK_Free(table.entries);
        return;
    }
    entries_ = table.entries;
    capacity_ = table.capacity;
    prime_ = prime;
}

void IPE_DictType::clear() {
    if (cleared_) return;
    cleared_ = true;
    Table table = takeTable();
    for (uint32_t i = 0; i < table.capacity; ++i) {
        const Entry& entry = table.entries[i];
        if (!entry.key || entry.key == tombstone()) continue;
        IPE_ClearValue(IPE_Object(entry.key));
        IPE_ClearValue(IPE_Object(entry.value));
    }
    releaseEntries(table);
}

// --- Iteration

IPE_Type* IPE_DictType::keyAt(uint32_t slot) const noexcept {
    IPE_Type* key = entries_[slot].key;
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
