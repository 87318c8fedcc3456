// Growth is geometric by half, so building a text of n bytes copies O(n) bytes. Length is kept beside the
// terminator: writers never search for the end.
#include "runtime/epa_stringbuffer.h"

#include <cstring>

#include "runtime/epa_unicode.h"
#include "runtime/epa_xmltext.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_memory.h"

EPA_StringBuffer::EPA_StringBuffer(size_t capacity) : data_(nullptr), capacity_(capacity < 1 ? 1 : capacity) {
    XPK_Assert(capacity_ < CapacityLimit);
    data_ = static_cast<char*>(XPK_Allocate(capacity_));
    data_[0] = 0;
}

EPA_StringBuffer::EPA_StringBuffer(std::string_view text) : EPA_StringBuffer(text.size() + 1) {
    append(text);
}

EPA_StringBuffer::~EPA_StringBuffer() { XPK_Free(data_); }

void EPA_StringBuffer::grow(size_t needed) {
    size_t capacity = (needed - 1) * 3 / 2 + 32;  // `needed` counts the terminator, the rule does not
    XPK_Assert(needed < CapacityLimit);
    if (capacity >= CapacityLimit) capacity = CapacityLimit - 1;
    char* data = static_cast<char*>(XPK_Allocate(capacity));
    memcpy(data, data_, length_ + 1);
    XPK_Free(data_);
    data_ = data;
    capacity_ = capacity;
}

void EPA_StringBuffer::append(std::string_view text) {
    XPK_Assert(text.size() < CapacityLimit);
    if (length_ + text.size() >= capacity_) grow(length_ + text.size() + 1);
    memcpy(data_ + length_, text.data(), text.size());
    length_ += text.size();
    data_[length_] = 0;
}

void EPA_StringBuffer::append(int32_t number) { appendNumber(number); }

void EPA_StringBuffer::appendNumber(int64_t number) {
    char digits[24];
    char* end = digits + sizeof digits;
    char* p = end;
    uint64_t magnitude = number < 0 ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number);
    do {
        *--p = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    if (number < 0) *--p = '-';
    append(std::string_view(p, static_cast<size_t>(end - p)));
}

void EPA_StringBuffer::reserve(int64_t size) {
    XPK_Assert(size >= 0);
    if (static_cast<size_t>(size) >= capacity_) grow(static_cast<size_t>(size) + 1);
}

void EPA_StringBuffer::truncate(size_t position) {
    if (position >= capacity_) XPK_Raise("RuntimeError", "Attempt to set buffer out of bounds").raise();
    data_[position] = 0;
    length_ = position < length_ ? position : strlen(data_);
}

void EPA_StringBuffer::setLength(size_t length) {
    XPK_Assert(length < capacity_);
    length_ = length;
    data_[length] = 0;
}

void EPA_StringBuffer::toUpper() {
    EPA_Unicode text{EPA_String(view())};
    text.toUpper();
    assign(text.toUtf8());
}

void EPA_StringBuffer::toLower() {
    EPA_Unicode text{EPA_String(view())};
    text.toLower();
    assign(text.toUtf8());
}

void EPA_StringBuffer::xmlEncode(std::string_view text, char keep1, char keep2) {
    EPA_XmlEncode(*this, text, keep1, keep2);
}

void EPA_StringBuffer::xmlDecode(std::string_view text) { EPA_XmlDecode(*this, text); }
