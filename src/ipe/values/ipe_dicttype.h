// IPE_DictType: the dictionary, an open-addressed table over a fixed list of prime capacities, and the native
// helpers.
//
// With hash h and capacity c the i-th probe is ((h mod (c - 2) + 1) * i + h mod c) mod c. A free slot ends a
// search, a tombstone is passed over. Keys and values are counted handles, stored and never copied. Iteration
// is in slot order. A dictionary belongs to one thread; one that has been cleared refuses every access with
// RuntimeError "Dict is being accessed after clear() has been called."
//
// A new dictionary has capacity 7 and allocates with its first entry. It grows to the next prime when an
// insert finds more than (c / 3) * 2 + 2 entries. Deleted entries leave tombstones, which later inserts
// reuse; when an insert finds fewer than an eighth of the slots of a larger table free, the table is built
// anew at its size, so that a dictionary used as a queue stays fast.
//
// Hints. A caller that looks the same interned name up again and again keeps a word beside it; the word
// remembers the slot. A hint is only ever a guess: the slot counts when it holds the very key object, so a
// wrong hint costs one compare and can be shared between dictionaries of like history.
#pragma once

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"
#include "ipe/values/ipe_stringtype.h"

class IPE_DictType final : public IPE_Type {
  public:
    static const char TypeName[];
    IPE_DictType();
    ~IPE_DictType() override;

    // --- Native access. Results are borrowed and die with the next change of the dictionary.
    int32_t count() const {
        check();
        return count_;
    }
    // The value, or null when absent. A null key is an assertion; a key without __hash__ raises TypeError.
    IPE_Type* find(const IPE_Object& key);
    IPE_Type* findText(std::string_view key);
    IPE_Type* findName(IPE_StringType* name);
    IPE_Type* findHinted(IPE_StringType* name, uint32_t& hint) {
        if (hint < capacity_ && entries_[hint].key == name) [[likely]]
            return entries_[hint].value;
        return findSlow(name, hint);
    }
    // Inserts or replaces. Null key or value: RuntimeError "Null objects passed to
    // IPE_DictType::__setitem__".
    void set(const IPE_Object& key, IPE_Object value);
    void setText(std::string_view key, IPE_Object value);
    void setName(IPE_StringType* name, IPE_Object value);
    void setHinted(IPE_StringType* name, IPE_Object value, uint32_t& hint) {
        if (hint < capacity_ && entries_[hint].key == name && value) [[likely]] {
            IPE_Type* old = entries_[hint].value;
            entries_[hint].value = static_cast<IPE_Type*>(value.detach());
            old->release();
            return;
        }
        setSlow(name, std::move(value), hint);
    }
    // As setName, noting the slot.
    void setSlow(IPE_StringType* name, IPE_Object value, uint32_t& hint);
    // Empty with this capacity: names entered in a fixed order then land in fixed slots.
    bool isFresh(uint32_t capacity) const noexcept {
        return capacity_ == capacity && count_ == 0 && tombstones_ == 0 && !cleared_;
    }
    // Enters a name that is not there at the slot where a dictionary of the same capacity and history has it.
    void place(IPE_StringType* name, IPE_Object value, uint32_t& slot) {
        if (entries_[slot].key) [[unlikely]]
            return setSlow(name, std::move(value), slot);
        name->retain();
        entries_[slot].key = name;
        entries_[slot].value = static_cast<IPE_Type*>(value.detach());
        entries_[slot].hash = name->hash();
        ++count_;
    }
    // Leaves a tombstone; false when the key was absent.
    bool remove(const IPE_Object& key);
    bool removeText(std::string_view key);

    // Iteration in slot order: for (uint32_t i = 0; i < slots(); ++i) if (EPA_Counted* k = keyAt(i)) ...
    // valueAt(i).
    uint32_t slots() const noexcept { return capacity_; }
    IPE_Type* keyAt(uint32_t slot) const noexcept;  // null for free and deleted slots
    IPE_Type* valueAt(uint32_t slot) const noexcept { return entries_[slot].value; }
    // New list of the keys in slot order; sort is 0, 'A' or 'D'.
    IPE_Object keys(char sort = 0);
    // Drops every entry, keeping the dictionary usable and its capacity if that is small (recycled
    // namespaces).
    void recycle() noexcept;
    // Takes over every entry of `other`, replacing.
    void update(IPE_DictType& other);
    bool isCleared() const noexcept { return cleared_; }
    // The number of a method for __callmethod__, or -1 when there is none of this name: the attribute is then
    // an entry.
    static int methodNumber(std::string_view name) noexcept;

    // --- Script operations.
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    int __cmp__(const IPE_Object& other) override;
    uint32_t __hash__() override;
    IPE_Object __copy__() override;
    int32_t __len__() override { return count(); }
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    IPE_Object translate(IPE_StackList& stack) override;
    void save(EPA_DataOutput& out) override;
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    void __setattr__(const IPE_Object& key, const IPE_Object& value) override { set(key, value); }
    IPE_Object __getitem__(const IPE_Object& key) override;
    void __setitem__(const IPE_Object& key, const IPE_Object& value) override { set(key, value); }
    void __delitem__(const IPE_Object& key) override { remove(key); }
    IPE_Object __getname__() override;
    void clear() override;

  private:
    void check() const {
        if (cleared_) [[unlikely]]
            accessAfterClear();
    }
    [[noreturn]] static void accessAfterClear(
        const char* text = "Dict is being accessed after clear() has been called.");
    IPE_Type* findSlow(IPE_StringType* name, uint32_t& hint);

    // A place along a probe sequence: the slot of the key, or where it would go.
    struct Place {
        uint32_t slot;
        bool found;
    };
    // Walks the probes of `hash`; same(slot) tells whether the key at a slot of this hash is the one.
    template <class Same>
    Place probe(uint32_t hash, Same&& same) const;
    Place probeText(uint32_t hash, std::string_view text, const IPE_Type* name) const;
    Place probeKey(uint32_t hash, const IPE_Object& key) const;
    static constexpr uint32_t NoSlot = UINT32_MAX;

    // Room for one more entry; may move every slot.
    void prepareInsert();
    uint32_t insertAt(Place place, uint32_t hash, IPE_Object key, IPE_Object value);
    void rebuild(uint8_t prime);
    bool removeAt(Place place);
    // One slot. A free one has no key, a deleted one the tombstone for its key and no value.
    struct Entry {
        IPE_Type* key;
        IPE_Type* value;
        uint32_t hash;
    };
    // Takes the table away, leaving an empty dictionary.
    struct Table {
        Entry* entries;
        uint32_t capacity;
    };
    Table takeTable() noexcept;
    static void releaseEntries(const Table& table) noexcept;
    IPE_Object keyIgnoringCase(const IPE_Object& key);
    void write(IPE_PrintContext& context, IPE_StackList& stack, bool repr, std::string_view colon,
               std::string_view comma);

    Entry* entries_ = nullptr;  // one block of the runtime's allocator
    uint32_t capacity_ = 0;     // 0 until the first entry, and once cleared
    int32_t count_ = 0;
    uint32_t tombstones_ = 0;
    uint8_t prime_ = 0;  // index into the list of capacities
    bool cleared_ = false;
};

inline IPE_Object IPE_NewDict() { return IPE_New<IPE_DictType>(); }
inline IPE_DictType* PyDict_SafeCast(const IPE_Object& object) {
    return IPE_SafeCast<IPE_DictType>(object, "PyDict_SafeCast");
}

// Native helpers over dict handles; a handle of another type raises through PyDict_SafeCast.
// Required fetches: absent raises KeyError "$key" with the field key.
IPE_Object IPE_Dict_Get(const IPE_Object& dict, std::string_view key);
std::string IPE_Dict_GetString(const IPE_Object& dict, std::string_view key);
int64_t IPE_Dict_GetInt64(const IPE_Object& dict, std::string_view key);
// Fetches with a default.
int32_t IPE_Dict_GetInt32(const IPE_Object& dict, std::string_view key, int32_t absent);
int64_t IPE_Dict_GetInt64(const IPE_Object& dict, std::string_view key, int64_t absent);
std::string IPE_Dict_GetString(const IPE_Object& dict, std::string_view key, std::string_view absent);
void IPE_Dict_Set(const IPE_Object& dict, std::string_view key, IPE_Object value);
