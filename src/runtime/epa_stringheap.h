// EPA_StringHeap: a pool for many small strings that die together.
//
// Memory comes in blocks of one size, handed out from front to back. Pointers stay valid until reset() or the
// end of the heap; there is no way to give back one string. Memory is aligned for bytes only. For one thread
// at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class EPA_StringHeap {
  public:
    explicit EPA_StringHeap(size_t blockSize);

    // A size above the block size is an assertion.
    void allocate(size_t size, char*& out);
    // Copies a text with its terminator; null is an assertion.
    void copy(const char* text, char*& out);
    // Makes all blocks free for new strings and the total 0.
    void reset();

    // Bytes handed out since the start or the last reset.
    uint64_t total() const noexcept { return total_; }
    size_t blockSize() const noexcept { return blockSize_; }

  private:
    struct Release {
        void operator()(char* block) const noexcept;
    };
    using Block = std::unique_ptr<char, Release>;

    void takeBlock();

    std::vector<Block> used_, free_;
    size_t blockSize_;
    char* cursor_ = nullptr;
    size_t remaining_ = 0;
    uint64_t total_ = 0;
};
