// Runs: a count byte from 1 to 250 and, behind it, a value that stands for so many rows.
//
// An encoder holds the open run back until it ends, so that its count is final when it is written. A decoder
// fills its batch run by run; what a batch has no room for continues in the next one.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "store/smf_encoderstream.h"

inline constexpr uint8_t SMF_LongestRun = 250;

// The run of an encoder that is not written yet.
class SMF_OpenRun {
  public:
    // True when a run is open and takes one more.
    bool hasRoom() const noexcept { return size_ > 0 && bytes_[0] < SMF_LongestRun; }
    void lengthen() noexcept { ++bytes_[0]; }
    // Opens a run of one whose value is `size` bytes, at most Room, the previous one having ended.
    void begin(const uint8_t* value, size_t size) noexcept {
        bytes_[0] = 1;
        std::memcpy(bytes_ + 1, value, size);
        size_ = size + 1;
    }
    // Writes the run, if one is open.
    void end(SMF_EncoderStream& out) {
        if (size_ > 0) out.write(bytes_, size_);
        size_ = 0;
    }
    static constexpr size_t Room = 15;

  private:
    uint8_t bytes_[Room + 1];
    size_t size_ = 0;
};

// Values of 4 bytes are carried as words. A word on disk has its low byte first; so has one in memory here.
static_assert(std::endian::native == std::endian::little);
inline uint32_t SMF_LoadWord(const uint8_t* at) noexcept {
    uint32_t word;
    std::memcpy(&word, at, 4);
    return word;
}

// What is left of a decoder's run.
struct SMF_RunRest {
    uint32_t left = 0;
    uint32_t word = 0;

    // Fills `out` from `done` on with as much of the run as fits below `rows`; the new `done`. Up to
    // SMF_FieldDecoder::SpareRows values behind what counts may be written over: most runs are short, and two
    // wide stores cost less than a loop.
    template <class Value>
    uint32_t fill(Value* out, uint32_t done, uint32_t rows) noexcept {
        static_assert(sizeof(Value) == 4);
        uint32_t count = std::min(left, rows - done);
        left -= count;
        if (count <= 8) [[likely]] {
            using Words = uint32_t __attribute__((vector_size(16)));
            Words four = {word, word, word, word};
            std::memcpy(reinterpret_cast<unsigned char*>(out + done), &four, 16);
            std::memcpy(reinterpret_cast<unsigned char*>(out + done + 4), &four, 16);
        } else {
            std::fill_n(out + done, count, std::bit_cast<Value>(word));
        }
        return done + count;
    }
};
