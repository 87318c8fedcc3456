// Streams, read.
//
// The numbers of a stream's header may be hostile. Whatever they claim, the memory taken is bounded: the
// block table must lie in the file, and a block takes no more than its compressed bytes can make; the rest of
// a block that claims more is untouched zero memory of the system.
#include "store/smf_decoderstream.h"

#include <algorithm>
#include <cstdlib>

#include "store/smf_compression.h"
#include "store/smf_error.h"
#include "store/smf_file.h"
#include "store/smf_headerreader.h"

namespace {

constexpr size_t FirstGuess = 16384;  // bytes read together with a block's length

uint64_t little(const uint8_t* bytes, int count) {
    uint64_t value = 0;
    for (int i = 0; i < count; ++i) value |= uint64_t{bytes[i]} << 8 * i;
    return value;
}

std::vector<uint8_t>& scratch() {
    thread_local std::vector<uint8_t> bytes;
    return bytes;
}

}  // namespace

SMF_DecoderStream::SMF_DecoderStream(SMF_File& file, const SMF_HeaderReader& header, std::string name)
    : file_(file), name_(std::move(name)) {
    mode_ = header.number(SMF_StreamMode);
    blockSize_ = header.number(SMF_BlockSize);
    int64_t count = header.number(SMF_BlockCount);
    bool wide = header.has(SMF_StreamLength);
    int64_t at = wide ? header.number64(SMF_Table64) : static_cast<uint32_t>(header.number(SMF_Table32));
    int64_t entry = wide ? 8 : 4;
    if (blockSize_ <= 0 || blockSize_ > SMF_MaxBlockSize || count < 0 || at < 0 ||
        at > file.size() - count * entry)
        SMF_CorruptHeader(file.name());
    length_ = wide ? header.number64(SMF_StreamLength) : blockSize_ * count;
    if (length_ < 0 || length_ > blockSize_ * count) SMF_CorruptHeader(file.name());
    std::vector<uint8_t> bytes(static_cast<size_t>(count * entry));
    if (file.read(at, bytes.data(), bytes.size()) != bytes.size()) SMF_CorruptHeader(file.name());
    table_.reserve(static_cast<size_t>(count));
    for (int64_t i = 0; i < count; ++i)
        table_.push_back(static_cast<int64_t>(little(bytes.data() + i * entry, static_cast<int>(entry))));
}

int64_t SMF_DecoderStream::sizeOf(int64_t number) const noexcept {
    return std::min(blockSize_, length_ - number * blockSize_);
}

std::shared_ptr<SMF_Block> SMF_DecoderStream::decode(int64_t number) {
    auto wanted = static_cast<size_t>(sizeOf(number));
    int64_t at = table_[static_cast<size_t>(number)];
    bool zlib = mode_ & SMF_ModeZlib, compressed = zlib || (mode_ & SMF_ModeLz4);
    std::vector<uint8_t>& input = scratch();
    const char* fault = nullptr;

    // The compressed bytes, or the plain ones.
    size_t have = 0, skip = compressed ? 4 : 0;
    if (at < 0) {
        fault = "lies outside the file";
    } else {
        size_t first = compressed ? std::max(FirstGuess, lastCompressed_ + lastCompressed_ / 8) : wanted;
        if (!compressed)
            first = static_cast<size_t>(std::clamp<int64_t>(file_.size() - at, 0, int64_t(first)));
        if (input.size() < first) input.resize(first);
        have = file_.read(at, input.data(), first);
        if (compressed && have >= 4) {
            auto length = static_cast<int32_t>(little(input.data(), 4));
            XPK_Assert(length >= 0);
            size_t whole = static_cast<size_t>(length) + 4;
            if (whole > have) {
                // What the file does not hold is not asked for.
                whole = static_cast<size_t>(
                    std::min<int64_t>(static_cast<int64_t>(whole), std::max<int64_t>(file_.size() - at, 0)));
                if (whole > have) {
                    if (input.size() < whole) input.resize(whole);
                    have += file_.read(at + static_cast<int64_t>(have), input.data() + have, whole - have);
                }
            }
            lastCompressed_ = whole;
            if (have < static_cast<size_t>(length) + 4) fault = "ends too early";
            have = std::min(have, static_cast<size_t>(length) + 4);
        } else if (compressed) {
            fault = "lies outside the file";
        }
    }

    // One byte more than counts: the last block of a stream has it. Untouched pages of calloc cost nothing.
    size_t capacity = wanted + 1;
    auto block = std::make_shared<SMF_Block>();
    block->number = number;
    block->size = wanted;
    block->bytes = {static_cast<uint8_t*>(std::calloc(capacity + Padding, 1)), std::free};
    if (!block->bytes) throw XPK_MemoryException(__FILE__, __LINE__);
    if (!compressed) {
        std::memcpy(block->bytes.get(), input.data(), std::min(have, wanted));
        if (have < wanted) fault = "ends too early";
    } else if (!fault) {
        size_t room = std::min(capacity, SMF_MostDecompressed(zlib, have - skip));
        int64_t made = SMF_Decompress(zlib, input.data() + skip, have - skip, block->bytes.get(), room);
        if (made < 0) {
            std::memset(block->bytes.get(), 0, room);
            fault = "does not decompress";
        } else if (static_cast<size_t>(made) < wanted) {
            std::memset(block->bytes.get() + made, 0, std::min(room, capacity) - static_cast<size_t>(made));
            fault = "is too short";
        }
    }
    if (fault) file_.noteDamage(name_, number, fault);
    if (input.capacity() > (size_t{4} << 20)) std::vector<uint8_t>().swap(input);
    return block;
}

SMF_BlockRef SMF_DecoderStream::fetch(int64_t number) {
    for (size_t i = 0; i < CacheSize; ++i) {
        if (!cache_[i] || cache_[i]->number != number) continue;
        SMF_BlockRef found = cache_[i];
        std::rotate(cache_.begin(), cache_.begin() + static_cast<ptrdiff_t>(i),
                    cache_.begin() + static_cast<ptrdiff_t>(i) + 1);
        return found;
    }
    SMF_BlockRef block = decode(number);
    std::rotate(cache_.begin(), cache_.end() - 1, cache_.end());
    cache_[0] = block;
    if (number == lastFetched_ + 1 && number + 1 < blockCount() &&
        table_[static_cast<size_t>(number) + 1] >= 0)
        file_.willNeed(table_[static_cast<size_t>(number) + 1], lastCompressed_ + lastCompressed_ / 8 + 4);
    lastFetched_ = number;
    return block;
}

void SMF_DecoderStream::enter(int64_t number, size_t offset) {
    if (!current_ || current_->number != number) current_ = fetch(number);
    start_ = current_->bytes.get();
    base_ = number * blockSize_;
    cursor_ = start_ + offset;
    limit_ = start_ + current_->size;
}

void SMF_DecoderStream::seek(int64_t position) {
    XPK_Assert(position >= 0 && position < length_);
    if (start_ && position >= base_ && position < base_ + (limit_ - start_)) {
        cursor_ = start_ + (position - base_);
        return;
    }
    enter(position / blockSize_, static_cast<size_t>(position % blockSize_));
}

void SMF_DecoderStream::refill() {
    int64_t at = position();
    if (at >= length_) tooShort();
    enter(at / blockSize_, static_cast<size_t>(at % blockSize_));
}

void SMF_DecoderStream::tooShort() const { SMF_IllegalData(file_.name()); }

int64_t SMF_DecoderStream::bytesInFile() {
    bool compressed = mode_ & (SMF_ModeZlib | SMF_ModeLz4);
    int64_t sum = 0;
    for (int64_t i = 0; i < blockCount(); ++i) {
        uint8_t length[4];
        int64_t at = table_[static_cast<size_t>(i)];
        if (!compressed)
            sum += std::max<int64_t>(sizeOf(i), 0);
        else if (at >= 0 && file_.read(at, length, 4) == 4)
            sum += 4 + static_cast<int64_t>(little(length, 4));
    }
    return sum;
}

bool SMF_DecoderStream::verify() {
    int64_t before = file_.damage().count;
    for (int64_t i = 0; i < blockCount(); ++i)
        if (sizeOf(i) > 0) decode(i);
    return file_.damage().count == before;
}
