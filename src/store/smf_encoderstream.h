// SMF_EncoderStream: a logical stream of bytes, written in blocks that are compressed one by one.
//
// The stream's header record is appended at creation; finish() fills in its counts. The last two blocks stay
// open, so that headers and pages can be rewritten in place; a write that reaches beyond them raises
// DatabaseError "String length is larger than 2x block". Memory: what is written, up to two blocks.
#pragma once

#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "store/smf_headerwriter.h"

static_assert(std::endian::native == std::endian::little);

// Copies a text of a few bytes, as names are, faster than a call or a repeated instruction does.
inline void SMF_CopyShort(void* to, const void* from, size_t size) noexcept {
    auto* out = static_cast<char*>(to);
    auto* in = static_cast<const char*>(from);
    if (size >= 16) {
        for (size_t at = 0; at < size - 16; at += 16) std::memcpy(out + at, in + at, 16);
        std::memcpy(out + size - 16, in + size - 16, 16);
    } else if (size >= 8) {
        std::memcpy(out, in, 8);
        std::memcpy(out + size - 8, in + size - 8, 8);
    } else if (size >= 4) {
        std::memcpy(out, in, 4);
        std::memcpy(out + size - 4, in + size - 4, 4);
    } else if (size > 0) {
        out[0] = in[0];
        out[size / 2] = in[size / 2];
        out[size - 1] = in[size - 1];
    }
}

class SMF_EncoderStream {
  public:
    // The header goes into `mainStream`, or, when that is null, raw into the file: this is the main stream
    // then. Block sizes below 4,096 are raised to it; above SMF_MaxBlockSize, DatabaseError "Block size is
    // too large".
    SMF_EncoderStream(SMF_File& file, SMF_EncoderStream* mainStream, bool zlib, uint32_t blockSize);
    SMF_EncoderStream(const SMF_EncoderStream&) = delete;
    SMF_EncoderStream& operator=(const SMF_EncoderStream&) = delete;

    void write(const void* bytes, size_t size) {
        if (size == 0) return;  // the pointer may be null
        int64_t at = position_ - base_;
        if (at >= 0 && at + static_cast<int64_t>(size) <= room_) [[likely]] {
            std::memcpy(current_.data() + at, bytes, size);
            position_ += static_cast<int64_t>(size);
        } else {
            writeSlow(static_cast<const uint8_t*>(bytes), size);
        }
    }
    void writeByte(uint8_t byte) { write(&byte, 1); }
    // Room for `size` bytes where the next ones go, to be filled in place and then counted with advance(), of
    // which at most `size` may be used; null when they cannot lie in one piece.
    uint8_t* reserve(size_t size) noexcept {
        int64_t at = position_ - base_;
        return at >= 0 && at + static_cast<int64_t>(size) <= room_ ? current_.data() + at : nullptr;
    }
    void advance(size_t used) noexcept { position_ += static_cast<int64_t>(used); }
    void writeLittle32(uint32_t value) { write(&value, 4); }
    void writeLittle64(uint64_t value) { write(&value, 8); }
    // Length in groups of 7 bits, low group first, then the bytes.
    void writeText(std::string_view text) {
        uint8_t* room = text.size() < 0x80 ? reserve(1 + text.size()) : nullptr;
        if (!room) return writeLongText(text);
        *room = static_cast<uint8_t>(text.size());
        SMF_CopyShort(room + 1, text.data(), text.size());
        advance(1 + text.size());
    }
    // True when writeText() of a text of this size, `before` bytes further on, stays within the open blocks.
    bool fits(size_t size, size_t before = 0) const noexcept;

    // Writes over bytes in the last two blocks; the position stays. reaches() tells whether a byte written
    // earlier still lies there.
    bool reaches(int64_t at) const noexcept { return at >= (previousBase_ < 0 ? base_ : previousBase_); }
    void rewrite(int64_t at, const void* bytes, size_t size);
    int64_t position() const noexcept { return position_; }
    // Pads with zeros to a multiple of `page`.
    void fillPage(uint32_t page);

    // Flushes everything, writes the block table and updates the header. Nothing may be written behind it.
    void finish();

    SMF_File& file() const noexcept { return file_; }
    uint32_t blockSize() const noexcept { return static_cast<uint32_t>(blockSize_); }
    SMF_HeaderWriter& header() noexcept { return header_; }

  private:
    void writeSlow(const uint8_t* bytes, size_t size);
    void writeLongText(std::string_view text);
    // Copies what of [position, position + size) lies in the open blocks; the number of bytes copied.
    size_t copyOverlap(const uint8_t* bytes, size_t size, int64_t position);
    void beginBlock();
    void makeRoom(int64_t used);
    void flushBlock(const std::vector<uint8_t>& block, int64_t base, size_t size);

    SMF_File& file_;
    bool zlib_;
    int64_t blockSize_;
    SMF_HeaderWriter header_;
    // One byte longer than a block; the current one is as long as it needs to be.
    std::vector<uint8_t> previous_, current_;
    int64_t room_ = 0;  // bytes of the block that current_ holds
    int64_t previousBase_ = -1, base_ = 0;
    int64_t position_ = 0;  // the end of what is written
    std::vector<int64_t> table_;
};
