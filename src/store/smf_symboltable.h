// SMF_SymbolTable: numbers for texts, from 1 in the order in which they are first met; 0 is the empty text.
//
// The texts are copied and stay where they are for the life of the table. The hash is seeded for each
// process, so that a file cannot be made to collide. One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

class SMF_SymbolTable {
  public:
    SMF_SymbolTable();
    // The number of a text, new if it is not there.
    uint32_t idOf(std::string_view text);
    std::string_view text(uint32_t id) const noexcept { return texts_[id]; }
    size_t size() const noexcept { return texts_.size(); }  // with the empty text
    size_t bytes() const noexcept { return bytes_; }        // of all texts

  private:
    struct Slot {
        uint32_t hash, id;  // id 0: free
    };
    static constexpr size_t FirstSlots = 256;
    static constexpr size_t PieceSize = 4096;
    void grow();
    std::string_view copy(std::string_view text);

    std::vector<Slot> slots_;  // a power of two, at most half of them taken
    std::vector<std::string_view> texts_;
    std::vector<std::unique_ptr<char[]>> pieces_;
    char* next_ = nullptr;
    size_t left_ = 0, bytes_ = 0;
};
