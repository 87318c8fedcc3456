// Streams, written.
#include "store/smf_encoderstream.h"

#include <algorithm>

#include "store/smf_compression.h"
#include "store/smf_error.h"
#include "store/smf_file.h"

namespace {

void putLittle(std::vector<uint8_t>& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> 8 * i));
}

// Bytes of a length in groups of 7 bits.
size_t groups(size_t value) {
    size_t count = 1;
    while (value >>= 7) ++count;
    return count;
}

// A table of many columns with few rows, as an index has one for each depth of a tree, must not cost two
// whole blocks for every stream.
constexpr int64_t LeastRoom = 512;

uint32_t checkedBlockSize(uint32_t size, const SMF_File& file) {
    if (size > SMF_MaxBlockSize) SMF_Fail(SMF_Runtime, "Block size is too large", file.name());
    return std::max(size, SMF_LeastBlockSize);
}

}  // namespace

SMF_EncoderStream::SMF_EncoderStream(SMF_File& file, SMF_EncoderStream* mainStream, bool zlib,
                                     uint32_t blockSize)
    : file_(file),
      zlib_(zlib),
      blockSize_(checkedBlockSize(blockSize, file)),
      header_(mainStream ? SMF_HeaderWriter(*mainStream) : SMF_HeaderWriter(file)) {
    makeRoom(LeastRoom);
    header_.setNumber(SMF_StreamMode, zlib ? SMF_ModeZlib : SMF_ModeLz4);
    header_.setNumber(SMF_BlockSize, static_cast<int32_t>(blockSize_));
    header_.setNumber(SMF_BlockCount, 0);
    header_.setNumber64(SMF_StreamLength, 0);
    header_.setNumber64(SMF_Table64, 0);
    header_.append();
}

size_t SMF_EncoderStream::copyOverlap(const uint8_t* bytes, size_t size, int64_t position) {
    size_t copied = 0;
    int64_t end = position + static_cast<int64_t>(size) - base_;
    if (end > room_ && position < base_ + blockSize_) makeRoom(end);
    auto into = [&](std::vector<uint8_t>& block, int64_t base) {
        int64_t from = std::max(position, base);
        int64_t to = std::min(position + static_cast<int64_t>(size), base + blockSize_);
        if (base < 0 || from >= to) return;
        std::memcpy(block.data() + (from - base), bytes + (from - position), static_cast<size_t>(to - from));
        copied += static_cast<size_t>(to - from);
    };
    into(previous_, previousBase_);
    into(current_, base_);
    return copied;
}

void SMF_EncoderStream::makeRoom(int64_t used) {
    room_ = std::min(std::max(used, 2 * room_), blockSize_);
    current_.resize(static_cast<size_t>(room_) + 1);
}

void SMF_EncoderStream::beginBlock() {
    makeRoom(blockSize_);
    if (previousBase_ != -1) flushBlock(previous_, previousBase_, static_cast<size_t>(blockSize_));
    std::swap(previous_, current_);
    current_.resize(static_cast<size_t>(blockSize_) + 1);
    previousBase_ = base_;
    base_ += blockSize_;
}

void SMF_EncoderStream::writeSlow(const uint8_t* bytes, size_t size) {
    size_t done = copyOverlap(bytes, size, position_);
    if (done < size) {
        int64_t rest = position_ + static_cast<int64_t>(size) - (base_ + 2 * blockSize_);
        if (rest > 0 || position_ + static_cast<int64_t>(done) != base_ + blockSize_)
            SMF_Fail(nullptr, "String length is larger than 2x block", file_.name());
        beginBlock();
        copyOverlap(bytes, size, position_);
    }
    position_ += static_cast<int64_t>(size);
}

void SMF_EncoderStream::writeLongText(std::string_view text) {
    uint8_t length[10];
    size_t n = 0;
    for (size_t value = text.size();;) {
        bool more = value >= 0x80;
        length[n++] = static_cast<uint8_t>((value & 0x7F) | (more ? 0x80 : 0));
        if (!more) break;
        value >>= 7;
    }
    write(length, n);
    write(text.data(), text.size());
}

bool SMF_EncoderStream::fits(size_t size, size_t before) const noexcept {
    if (size >= SMF_TextLimit) return false;
    int64_t at = position_ + static_cast<int64_t>(before + groups(size));
    int64_t base = at > base_ ? at - (at - base_ - 1) % blockSize_ - 1 : base_;
    return at + static_cast<int64_t>(size) <= base + 2 * blockSize_;
}

void SMF_EncoderStream::rewrite(int64_t at, const void* bytes, size_t size) {
    if (at < 0 || at + static_cast<int64_t>(size) > position_ ||
        copyOverlap(static_cast<const uint8_t*>(bytes), size, at) < size)
        SMF_Fail(nullptr, "String length is larger than 2x block", file_.name());
}

void SMF_EncoderStream::fillPage(uint32_t page) {
    static constexpr uint8_t Zeros[64] = {};
    auto used = static_cast<size_t>(position_ % page);
    for (size_t rest = used ? page - used : 0; rest > 0;) {
        size_t n = std::min(rest, sizeof Zeros);
        write(Zeros, n);
        rest -= n;
    }
}

void SMF_EncoderStream::flushBlock(const std::vector<uint8_t>& block, int64_t base, size_t size) {
    thread_local std::vector<uint8_t> made;
    auto length = static_cast<uint32_t>(SMF_Compress(zlib_, block.data(), size, made, sizeof(uint32_t)));
    std::memcpy(made.data(), &length, sizeof length);
    XPK_Assert(static_cast<int64_t>(table_.size()) == base / blockSize_);
    int64_t at = file_.size();
    file_.write(at, made.data(), sizeof length + length);
    table_.push_back(at);
}

void SMF_EncoderStream::finish() {
    if (previousBase_ != -1) flushBlock(previous_, previousBase_, static_cast<size_t>(blockSize_));
    // One byte more than the data, a zero: readers of this format expect it.
    current_[static_cast<size_t>(position_ - base_)] = 0;
    flushBlock(current_, base_, static_cast<size_t>(position_ - base_ + 1));
    std::vector<uint8_t> bytes;
    bytes.reserve(table_.size() * 8);
    for (int64_t entry : table_) putLittle(bytes, static_cast<uint64_t>(entry), 8);
    int64_t at = file_.size();
    file_.write(at, bytes.data(), bytes.size());
    header_.setNumber64(SMF_StreamLength, position_);
    header_.setNumber(SMF_BlockCount, static_cast<int32_t>(table_.size()));
    header_.setNumber64(SMF_Table64, at);
    header_.update();
}
