// Streams, read.
//
// The numbers of a stream's header may be hostile. Whatever they claim, the memory taken is bounded: the
// block table must lie in the file, and a block takes no more than its compressed bytes can make; the rest of
// a block that claims more is untouched zero memory of the system.
#include "store/smf_decoderstream.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "store/smf_compression.h"
#include "store/smf_error.h"
#include "store/smf_file.h"
#include "store/smf_headerreader.h"

namespace {

constexpr size_t FirstGuess = 16384;     // bytes read together with a block's length
constexpr size_t MostScratch = 4 << 20;  // kept between two blocks

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
    wide_ = header.has(SMF_StreamLength);
    bool wide = wide_;
    int64_t at = wide ? header.number64(SMF_Table64) : static_cast<uint32_t>(header.number(SMF_Table32));
    int64_t entry = wide ? 8 : 4;
    if (blockSize_ <= 0 || blockSize_ > SMF_MaxBlockSize || count < 0 || at < 0 ||
        at > file.size() - count * entry)
        SMF_CorruptHeader(file.name());
    length_ = wide ? header.number64(SMF_StreamLength) : blockSize_ * count;
    // Blocks that a table names again and again could make a stream of any length; the last block of an older
    // stream may count for more than it holds.
    bool zlib = mode_ & SMF_ModeZlib, compressed = zlib || (mode_ & SMF_ModeLz4);
    auto inFile = static_cast<size_t>(file.size());
    auto most = static_cast<int64_t>(compressed ? SMF_MostDecompressed(zlib, inFile) : inFile);
    if (length_ < 0 || length_ > blockSize_ * count || length_ > most + 64 * count + blockSize_)
        SMF_CorruptHeader(file.name());
    std::vector<uint8_t> bytes(static_cast<size_t>(count * entry));
    if (file.read(at, bytes.data(), bytes.size()) != bytes.size()) SMF_CorruptHeader(file.name());
    table_.reserve(static_cast<size_t>(count));
    for (int64_t i = 0; i < count; ++i)
        table_.push_back(static_cast<int64_t>(little(bytes.data() + i * entry, static_cast<int>(entry))));
}

int64_t SMF_DecoderStream::sizeOf(int64_t number) const noexcept {
    return std::min(blockSize_, length_ - number * blockSize_);
}

// The bytes of a block as the file has them, without the length in front; `fault` tells what is wrong with
// them.
std::span<const uint8_t> SMF_DecoderStream::readRaw(int64_t at, size_t wanted, bool compressed,
                                                    const char*& fault) {
    std::vector<uint8_t>& input = scratch();
    if (at < 0) {
        fault = "lies outside the file";
        return {};
    }
    // What the file does not hold is not asked for.
    auto within = [&](size_t size) {
        return static_cast<size_t>(std::clamp<int64_t>(file_.size() - at, 0, static_cast<int64_t>(size)));
    };
    size_t first = compressed ? std::max(FirstGuess, lastCompressed_ + lastCompressed_ / 8) : within(wanted);
    if (input.size() < first) input.resize(first);
    size_t have = file_.read(at, input.data(), first);
    if (!compressed) {
        if (have < wanted) fault = "ends too early";
        return {input.data(), have};
    }
    if (have < 4) {
        fault = "lies outside the file";
        return {};
    }
    auto length = static_cast<int32_t>(little(input.data(), 4));
    XPK_Assert(length >= 0);
    size_t whole = static_cast<size_t>(length) + 4;
    if (whole > have) {
        size_t there = within(whole);
        if (input.size() < there) input.resize(there);
        if (there > have)
            have += file_.read(at + static_cast<int64_t>(have), input.data() + have, there - have);
    }
    if (have < whole) {
        fault = "ends too early";
        return {};
    }
    lastCompressed_ = whole;
    return {input.data() + 4, whole - 4};
}

// Memory for a block: that of the block which leaves the cache next, if nobody else looks at it, else new
// zero memory. Pages of new memory that nobody touches cost nothing, so a block that only claims to be large
// is cheap.
std::shared_ptr<SMF_Block> SMF_DecoderStream::makeBlock(size_t room, bool mayReuse) {
    auto& last = cache_.back();
    if (mayReuse && last && last.use_count() == 1 && last->room == room) {
        std::shared_ptr<SMF_Block> block = std::move(last);
        return block;
    }
    auto block = std::make_shared<SMF_Block>();
    block->bytes = {static_cast<uint8_t*>(std::calloc(room + Padding, 1)), std::free};
    if (!block->bytes) throw XPK_MemoryException(__FILE__, __LINE__);
    block->room = room;
    return block;
}

std::shared_ptr<SMF_Block> SMF_DecoderStream::decode(int64_t number) {
    auto wanted = static_cast<size_t>(sizeOf(number));
    bool zlib = mode_ & SMF_ModeZlib, compressed = zlib || (mode_ & SMF_ModeLz4);
    const char* fault = nullptr;
    std::span<const uint8_t> raw = readRaw(table_[static_cast<size_t>(number)], wanted, compressed, fault);

    // One byte more than counts: the last block of a stream has it.
    size_t room = wanted + 1;
    std::shared_ptr<SMF_Block> block = makeBlock(room, !fault);
    int64_t made = 0;
    if (!compressed)
        std::copy(raw.begin(), raw.end(), block->bytes.get());
    else if (!fault)
        made = SMF_Decompress(zlib, raw.data(), raw.size(), block->bytes.get(),
                              std::min(room, SMF_MostDecompressed(zlib, raw.size())));
    if (compressed && !fault && made < static_cast<int64_t>(wanted)) {
        // The older layout tells no length: its last block ends where the data ends.
        bool mayEnd = !wide_ && number + 1 == blockCount();
        if (made < 0 || !mayEnd) fault = made < 0 ? "does not decompress" : "is too short";
        std::shared_ptr<SMF_Block> partial = std::exchange(block, makeBlock(room, false));
        if (made > 0) std::memcpy(block->bytes.get(), partial->bytes.get(), static_cast<size_t>(made));
    }
    block->number = number;
    block->size = wanted;
    if (fault) file_.noteDamage(name_, number, fault);
    std::vector<uint8_t>& input = scratch();
    if (input.capacity() > MostScratch) std::vector<uint8_t>().swap(input);
    return block;
}

SMF_BlockRef SMF_DecoderStream::fetch(int64_t number) {
    for (size_t i = 0; i < CacheSize; ++i) {
        if (!cache_[i] || cache_[i]->number != number) continue;
        std::shared_ptr<SMF_Block> found = cache_[i];
        std::rotate(cache_.begin(), cache_.begin() + static_cast<ptrdiff_t>(i),
                    cache_.begin() + static_cast<ptrdiff_t>(i) + 1);
        return found;
    }
    std::shared_ptr<SMF_Block> block = decode(number);
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
