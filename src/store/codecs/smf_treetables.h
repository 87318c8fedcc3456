// The dictionaries of the tree encoder: strings, and branches as rows of string numbers.
//
// On disk both are told as scans from the first entry. These find the same entries by hashes. Nothing here
// ages: a string keeps its entry until the table is cleared, and a hit makes no branch younger.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "store/codecs/smf_agingtable.h"
#include "store/codecs/smf_hashchains.h"

inline constexpr size_t SMF_TreeEntries = 128;
inline constexpr size_t SMF_MostComponents = 64;

// The ids of a branch's components.
struct SMF_BranchIds {
    uint8_t count = 0;
    std::array<uint8_t, SMF_MostComponents> ids;
    std::string_view view() const noexcept { return {reinterpret_cast<const char*>(ids.data()), count}; }
    void add(uint8_t id) noexcept { ids[count++] = id; }
};

// Texts below 64 bytes in entries 1 to 119, longer ones in 120 to 127, none replaced; entry 0 for one text
// that found its zone full.
class SMF_TreeStrings {
  public:
    void clear() noexcept {
        chains_.clear();
        overflowing_ = false;
        nextShort_ = FirstShort;
        nextLong_ = FirstLong;
    }
    int find(std::string_view text) const { return find(text, SMF_KeyHash()(text)); }
    // The entry of a text. `isNew`: it has just been given the text.
    uint8_t place(std::string_view text, bool& isNew) {
        uint32_t hash = SMF_KeyHash()(text);
        // A text in entry 0 is no hit: only its zone is searched. Its zone is full then, and entry 0 is
        // written again.
        int known = find(text, hash);
        isNew = known <= 0;
        if (!isNew) return static_cast<uint8_t>(known);
        uint8_t entry = 0;
        if (text.size() < LongText) {
            if (nextShort_ <= LastShort) entry = nextShort_++;
        } else if (nextLong_ <= LastLong) {
            entry = nextLong_++;
        }
        if (entry == 0) {
            if (overflowing_) chains_.remove(0);
            overflowing_ = true;
        }
        texts_[entry] = text;
        chains_.insert(entry, hash);
        return entry;
    }

  private:
    static constexpr size_t LongText = 64;
    static constexpr uint8_t FirstShort = 1, LastShort = 0x77, FirstLong = 0x78, LastLong = 0x7F;
    int find(std::string_view text, uint32_t hash) const {
        return chains_.find(hash, [&](uint8_t entry) { return texts_[entry] == text; });
    }
    SMF_HashChains chains_;
    std::array<std::string, SMF_TreeEntries> texts_;
    bool overflowing_ = false;
    uint8_t nextShort_ = FirstShort, nextLong_ = FirstLong;
};

// Branches, which give way in the order in which they were filled.
class SMF_TreeBranches {
  public:
    void clear() noexcept {
        chains_.clear();
        filled_ = next_ = 0;
    }
    int find(const SMF_BranchIds& wanted) const {
        return chains_.find(hashOf(wanted),
                            [&](uint8_t entry) { return branches_[entry].view() == wanted.view(); });
    }
    // The entry that the next new branch takes.
    uint8_t next() const noexcept { return next_; }
    void fillNext(const SMF_BranchIds& branch) {
        if (filled_ == SMF_TreeEntries)
            chains_.remove(next_);
        else
            ++filled_;
        branches_[next_] = branch;
        chains_.insert(next_, hashOf(branch));
        next_ = static_cast<uint8_t>((next_ + 1) % SMF_TreeEntries);
    }

  private:
    static uint32_t hashOf(const SMF_BranchIds& branch) { return SMF_KeyHash()(branch.view()); }
    SMF_HashChains chains_;
    std::array<SMF_BranchIds, SMF_TreeEntries> branches_;
    size_t filled_ = 0;
    uint8_t next_ = 0;
};
