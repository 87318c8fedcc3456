// FSI_KeyIndex: small numbers for keys, 0, 1, 2 ... in the order in which the keys are first seen, so that
// sums over many rows stand in plain arrays.
//
// An open table with linear probes. Where a key goes depends on a number that differs from process to
// process, so that no file can be made to fall on one place. Belongs to one thread.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <ctime>
#include <vector>

class FSI_KeyIndex {
  public:
    FSI_KeyIndex() { clear(); }

    uint32_t idOf(uint64_t key) {
        for (uint64_t at = placeOf(key);; at = (at + 1) & mask_) {
            uint32_t id = ids_[at];
            if (id == Free) return add(key, at);
            if (keys_[id] == key) return id;
        }
    }
    // The keys by their numbers.
    const std::vector<uint64_t>& keys() const noexcept { return keys_; }
    void clear() {
        keys_.clear();
        ids_.assign(FirstSize, Free);
        mask_ = FirstSize - 1;
    }

  private:
    static constexpr uint32_t Free = UINT32_MAX;
    static constexpr size_t FirstSize = 1024;

    static uint64_t seed() {
        static const uint64_t number = static_cast<uint64_t>(::getpid()) * 0x9E3779B97F4A7C15 ^
                                       static_cast<uint64_t>(std::time(nullptr)) << 20 ^
                                       reinterpret_cast<uintptr_t>(&number);
        return number;
    }
    uint64_t placeOf(uint64_t key) const {
        key = (key ^ seed_) * 0xFF51AFD7ED558CCD;
        key = (key ^ key >> 32) * 0xC4CEB9FE1A85EC53;
        return (key ^ key >> 29) & mask_;
    }
    uint32_t add(uint64_t key, uint64_t at) {
        auto id = static_cast<uint32_t>(keys_.size());
        keys_.push_back(key);
        ids_[at] = id;
        if (keys_.size() * 2 > ids_.size()) grow();
        return id;
    }
    void grow() {
        ids_.assign(ids_.size() * 4, Free);
        mask_ = ids_.size() - 1;
        for (uint32_t id = 0; id < keys_.size(); ++id) {
            uint64_t at = placeOf(keys_[id]);
            while (ids_[at] != Free) at = (at + 1) & mask_;
            ids_[at] = id;
        }
    }

    uint64_t seed_ = seed(), mask_ = 0;
    std::vector<uint32_t> ids_;
    std::vector<uint64_t> keys_;
};
