// SMF_DecoderStream: a logical stream of bytes, read out of compressed blocks.
//
// Blocks are decoded on demand and the last few kept. A block that cannot be read or decompressed, or that
// gives too few bytes, is noted as damage of the file (SMF_File::noteDamage), and what is missing reads as
// zero: never as bytes of another block. Reading past the logical end raises Corruption "Record reader has
// detected illegal data".
#pragma once

#include <array>
#include <span>
#include <string>
#include <vector>

#include "store/smf_bytecursor.h"
#include "store/smf_format.h"

class SMF_File;
class SMF_HeaderReader;

class SMF_DecoderStream final : public SMF_ByteCursor {
  public:
    static constexpr size_t CacheSize = 3;

    // Takes the header that has been read. `name` tells the stream in messages. Raises the corrupt-header
    // error for numbers that cannot be: a block size of 0 or above SMF_MaxBlockSize, a block table that is
    // not in the file, a length that the blocks, or any blocks of this file, cannot hold.
    SMF_DecoderStream(SMF_File& file, const SMF_HeaderReader& header, std::string name);

    SMF_File& file() const noexcept { return file_; }
    const std::string& name() const noexcept { return name_; }
    int64_t length() const noexcept { return length_; }
    int64_t blockSize() const noexcept { return blockSize_; }
    int64_t blockCount() const noexcept { return static_cast<int64_t>(table_.size()); }
    int32_t mode() const noexcept { return mode_; }

    int64_t position() const noexcept { return base_ + (cursor_ - start_); }
    // Below 0, or to or past the length: AssertionError.
    void seek(int64_t position);

    SMF_BlockRef hold() const override { return current_; }
    int64_t remaining() const noexcept override { return length_ - position(); }

    // Bytes that the blocks take in the file, with the lengths before them; a block that lies outside counts
    // none. Reads each block's length.
    int64_t bytesInFile();
    // True when every block decompresses to its size; false notes the damage. Reads the whole stream.
    bool verify();

  protected:
    void refill() override;

  private:
    [[noreturn]] void tooShort() const override;
    void enter(int64_t number, size_t offset);
    SMF_BlockRef fetch(int64_t number);
    std::shared_ptr<SMF_Block> decode(int64_t number);
    std::span<const uint8_t> readRaw(int64_t at, size_t wanted, bool compressed, const char*& fault);
    std::shared_ptr<SMF_Block> makeBlock(size_t room, bool mayReuse);
    int64_t sizeOf(int64_t number) const noexcept;

    SMF_File& file_;
    std::string name_;
    int32_t mode_ = 0;
    bool wide_ = true;  // the current layout, which tells the length
    int64_t blockSize_ = 0;
    int64_t length_ = 0;
    std::vector<int64_t> table_;

    SMF_BlockRef current_;
    const uint8_t* start_ = nullptr;
    int64_t base_ = 0;

    std::array<std::shared_ptr<SMF_Block>, CacheSize> cache_;  // most recently used first
    int64_t lastFetched_ = -1;
    size_t lastCompressed_ = 0;
};
