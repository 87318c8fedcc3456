// EPA_StringBuffer: the mutable companion of EPA_String, for building text.
//
// The text is always terminated. Capacity stays below 0x40000000 bytes; reaching it is an assertion. When an
// append needs room, the new capacity is the needed size times 3, halved, plus 32. A buffer belongs to one
// thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "runtime/epa_string.h"

class EPA_StringBuffer {
  public:
    static constexpr size_t CapacityLimit = 0x40000000;

    explicit EPA_StringBuffer(size_t capacity = 128);
    explicit EPA_StringBuffer(std::string_view text);
    EPA_StringBuffer(const EPA_StringBuffer&) = delete;
    EPA_StringBuffer& operator=(const EPA_StringBuffer&) = delete;
    ~EPA_StringBuffer();

    void append(char byte) {
        if (length_ + 1 >= capacity_) [[unlikely]]
            grow(length_ + 2);
        data_[length_++] = byte;
        data_[length_] = 0;
    }
    void append(std::string_view text);
    void append(int32_t number);
    void appendNumber(int64_t number);
    void assign(std::string_view text) {
        truncate(0);
        append(text);
    }
    // Makes room for `size` bytes in all; a negative size is an assertion.
    void reserve(int64_t size);
    // Puts the end at `position`; at or past the capacity it raises RuntimeError "Attempt to set buffer out
    // of bounds".
    void truncate(size_t position);
    bool equals(std::string_view text) const noexcept { return view() == text; }
    void toUpper();  // in the user's locale
    void toLower();
    // XML escapes: bytes equal to keep1 or keep2 (0 for none) stay as they are.
    void xmlEncode(std::string_view text, char keep1 = 0, char keep2 = 0);
    void xmlDecode(std::string_view text);

    char* data() noexcept { return data_; }
    const char* c_str() const noexcept { return data_; }
    size_t length() const noexcept { return length_; }
    size_t capacity() const noexcept { return capacity_; }
    // For writers that fill data() themselves: the text now ends at `length`, which must be below the
    // capacity.
    void setLength(size_t length);
    std::string_view view() const noexcept { return {data_, length_}; }
    EPA_String string() const { return EPA_String(data_, length_); }

  private:
    void grow(size_t needed);

    char* data_;
    size_t length_ = 0;
    size_t capacity_;
};
