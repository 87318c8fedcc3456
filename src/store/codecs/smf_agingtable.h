// SMF_AgingTable: the dictionary of the encoders, up to 128 keys that give way by age.
//
// On disk a dictionary is told as a scan: entries from the first to the last, the first free entry is taken,
// an equal entry is a hit, otherwise the entry that was touched longest ago gives way. Every touch raises the
// clock, so no two entries are equally old, and free entries are taken in order. This table finds the same
// entry without the scan: a small hash tells the hit, a list in the order of touching the oldest.
//
//   auto place = table.touch(value);   // a hit or a new entry, the youngest from now on
//   write(place.byte());
//   if (!place.known) write(value);
//
// Entries are numbered from First to Last. `Hash` and == must take what is looked up, and Key be assignable
// from it: a table of std::string is asked with std::string_view.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>

struct SMF_KeyHash {
    uint32_t operator()(uint64_t key) const noexcept {
        return static_cast<uint32_t>(key * 0x9E3779B97F4A7C15u >> 32);
    }
    uint32_t operator()(std::string_view key) const noexcept {
        // Most keys are extensions, whose first and last bytes tell them apart.
        size_t size = key.size();
        if (size > 14) return static_cast<uint32_t>(std::hash<std::string_view>()(key));
        uint32_t first = 0, last = 0;
        if (size >= 4) {
            std::memcpy(&first, key.data(), 4);
            std::memcpy(&last, key.data() + size - 4, 4);
        } else {
            for (char c : key) first = first << 8 | static_cast<uint8_t>(c);
        }
        return (*this)(first | uint64_t{last} << 32) + static_cast<uint32_t>(size);
    }
};

template <class Key, unsigned First = 0, unsigned Last = 127, class Hash = SMF_KeyHash>
class SMF_AgingTable {
    static_assert(First <= Last && Last <= 127);
    static constexpr unsigned Count = Last - First + 1;

  public:
    struct Place {
        uint8_t index;
        bool known;
        // As the schemes write it: the high bit tells that the new key follows.
        uint8_t byte() const noexcept { return static_cast<uint8_t>(index | (known ? 0 : 0x80)); }
    };

    SMF_AgingTable() { clear(); }
    // Frees every entry. The keys keep their memory for the next ones.
    void clear() noexcept {
        used_ = 0;
        youngest_ = oldest_ = None;
        heads_.fill(None);
    }
    unsigned size() const noexcept { return used_; }
    const Key& at(unsigned index) const noexcept { return keys_[index - First]; }

    // The entry of a key, which becomes the youngest.
    template <class Wanted>
    Place touch(const Wanted& key) {
        if (youngest_ != None && keys_[youngest_] == key)
            return {static_cast<uint8_t>(youngest_ + First), true};
        uint32_t hash = Hash()(key);
        if (int known = lookUp(key, hash); known >= 0) {
            refresh(static_cast<unsigned>(known) + First);
            return {static_cast<uint8_t>(known + First), true};
        }
        return {insertHashed(key, hash), false};
    }

    // The steps of touch(), for schemes that age otherwise. The index of a key or -1, with no age changed.
    template <class Wanted>
    int find(const Wanted& key) const {
        int known = lookUp(key, Hash()(key));
        return known < 0 ? -1 : known + static_cast<int>(First);
    }
    // Makes an entry the youngest.
    void refresh(unsigned index) noexcept {
        auto entry = static_cast<uint8_t>(index - First);
        if (youngest_ == entry) return;
        unlink(entry);
        linkYoungest(entry);
    }
    // Takes the first free entry, or else the oldest, for a key that is not in the table.
    template <class Wanted>
    uint8_t insert(const Wanted& key) {
        return insertHashed(key, Hash()(key));
    }

  private:
    static constexpr uint8_t None = 0xFF;
    static constexpr uint32_t Buckets = 256;

    template <class Wanted>
    int lookUp(const Wanted& key, uint32_t hash) const {
        for (uint8_t entry = heads_[hash % Buckets]; entry != None; entry = chain_[entry])
            if (hashes_[entry] == hash && keys_[entry] == key) return entry;
        return -1;
    }

    template <class Wanted>
    uint8_t insertHashed(const Wanted& key, uint32_t hash) {
        uint8_t entry;
        if (used_ < Count) {
            entry = static_cast<uint8_t>(used_++);
        } else {
            entry = oldest_;
            unlink(entry);
            uint8_t* link = &heads_[hashes_[entry] % Buckets];
            while (*link != entry) link = &chain_[*link];
            *link = chain_[entry];
        }
        linkYoungest(entry);
        keys_[entry] = key;
        hashes_[entry] = hash;
        chain_[entry] = heads_[hash % Buckets];
        heads_[hash % Buckets] = entry;
        return static_cast<uint8_t>(entry + First);
    }

    void unlink(uint8_t entry) noexcept {
        uint8_t older = older_[entry], younger = younger_[entry];
        (older == None ? oldest_ : younger_[older]) = younger;
        (younger == None ? youngest_ : older_[younger]) = older;
    }
    void linkYoungest(uint8_t entry) noexcept {
        older_[entry] = youngest_;
        younger_[entry] = None;
        (youngest_ == None ? oldest_ : younger_[youngest_]) = entry;
        youngest_ = entry;
    }

    unsigned used_ = 0;
    uint8_t youngest_ = None, oldest_ = None;
    std::array<uint8_t, Buckets> heads_;
    std::array<uint8_t, Count> chain_, older_, younger_;
    std::array<uint32_t, Count> hashes_;
    std::array<Key, Count> keys_{};
};
