// Runs: a count byte from 1 to 250 and, behind it, a value that stands for so many rows.
//
// An encoder holds the open run back until it ends, so that its count is final when it is written. A decoder
// fills its batch run by run; what a batch has no room for continues in the next one.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <span>

#include "store/smf_encoderstream.h"

inline constexpr uint8_t SMF_LongestRun = 250;

// Values of 4 bytes are carried as words. A word on disk has its low byte first; so has one in memory here.
static_assert(std::endian::native == std::endian::little);
inline uint32_t SMF_LoadWord(const uint8_t* at) noexcept {
    uint32_t word;
    std::memcpy(&word, at, 4);
    return word;
}

// The run of an encoder that is not written yet: one word, the count in its low byte.
class SMF_OpenRun {
  public:
    // True when a run is open and takes one more.
    bool hasRoom() const noexcept { return size_ > 0 && (word_ & 0xFF) < SMF_LongestRun; }
    void lengthen() noexcept { ++word_; }
    // Takes the values from the front that equal `value`, that of the run, as far as there is room. How many.
    template <class Value>
    size_t take(std::span<const Value> values, const Value& value) noexcept {
        size_t most = size_ > 0 ? std::min<size_t>(SMF_LongestRun - (word_ & 0xFF), values.size()) : 0;
        size_t count = 0;
        while (count < most && values[count] == value) ++count;
        word_ += count;
        return count;
    }
    // Opens a run of one whose value is the low `size` bytes of a word, at most 7, the previous one having
    // ended.
    void begin(uint64_t value, size_t size) noexcept {
        word_ = value << 8 | 1;
        size_ = size + 1;
    }
    // Writes the run, if one is open.
    void end(SMF_EncoderStream& out) {
        if (uint8_t* room = out.reserve(sizeof word_)) [[likely]] {
            std::memcpy(room, &word_, sizeof word_);
            out.advance(size_);
        } else if (size_ > 0) {
            out.write(&word_, size_);
        }
        size_ = 0;
    }

  private:
    uint64_t word_ = 0;
    size_t size_ = 0;
};

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
