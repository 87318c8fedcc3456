// Reads that cross blocks, and the page cursor.
#include "store/smf_bytecursor.h"

#include <algorithm>

#include "runtime/xpk_exception.h"

void SMF_ByteCursor::readSlow(uint8_t* out, size_t size) {
    while (size > 0) {
        require();
        size_t n = std::min(size, static_cast<size_t>(limit_ - cursor_));
        std::memcpy(out, cursor_, n);
        cursor_ += n;
        out += n;
        size -= n;
    }
}

uint64_t SMF_ByteCursor::readLittle(int bytes) {
    uint8_t raw[8];
    read(raw, static_cast<size_t>(bytes));
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= uint64_t{raw[i]} << 8 * i;
    return value;
}

uint32_t SMF_ByteCursor::readTextLength() {
    uint64_t length = 0;
    for (int shift = 0;; shift += 7) {
        XPK_Assert(shift < 35);
        uint8_t byte = readByte();
        length |= uint64_t{byte & 0x7Fu} << shift;
        if (byte < 0x80) break;
    }
    XPK_Assert(length < 0x40000000);
    return static_cast<uint32_t>(length);
}

void SMF_ByteCursor::readText(std::string& out) {
    uint32_t length = readTextLength();
    if (length > remaining()) tooShort();
    out.resize(length);
    read(out.data(), length);
}

SMF_PageCursor::SMF_PageCursor(SMF_ByteCursor& shared, uint32_t pageSize)
    : shared_(shared), pageSize_(pageSize), page_(std::make_unique<uint8_t[]>(pageSize + Padding)) {
    drop();
}

void SMF_PageCursor::refill() {
    drop();
    shared_.read(page_.get(), pageSize_);
    limit_ = page_.get() + pageSize_;
}

// The shared stream knows the file's name.
void SMF_PageCursor::tooShort() const {
    for (;;) shared_.tooShort();  // does not return
}
