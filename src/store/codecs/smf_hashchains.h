// SMF_HashChains: finds entries of a table of at most 128 by the hash of what they hold.
//
// The table itself keeps the keys. Where several entries hold equal keys, the first in the table is found, as
// a scan from the first entry would.
#pragma once

#include <array>
#include <cstdint>

class SMF_HashChains {
  public:
    static constexpr unsigned Most = 128;

    SMF_HashChains() { clear(); }
    void clear() noexcept { heads_.fill(None); }
    // The first entry of this hash for which same(entry) holds, or -1.
    template <class Same>
    int find(uint32_t hash, Same&& same) const {
        for (uint8_t entry = heads_[hash % Buckets]; entry != None; entry = next_[entry])
            if (hashes_[entry] == hash && same(entry)) return entry;
        return -1;
    }
    void insert(uint8_t entry, uint32_t hash) noexcept {
        uint8_t* link = &heads_[hash % Buckets];
        while (*link < entry) link = &next_[*link];  // None is above all
        next_[entry] = *link;
        *link = entry;
        hashes_[entry] = hash;
    }
    // Of an entry that was inserted.
    void remove(uint8_t entry) noexcept {
        uint8_t* link = &heads_[hashes_[entry] % Buckets];
        while (*link != entry) link = &next_[*link];
        *link = next_[entry];
    }

  private:
    static constexpr uint8_t None = 0xFF;
    static constexpr uint32_t Buckets = 256;
    std::array<uint8_t, Buckets> heads_;
    std::array<uint8_t, Most> next_;
    std::array<uint32_t, Most> hashes_;
};
