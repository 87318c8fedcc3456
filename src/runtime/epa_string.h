// EPA_String: the runtime's shared, immutable byte string; one word in an object.
//
// The text is UTF-8 by convention. Null and a block with empty text are both the empty string. Blocks are
// counted atomically and may be shared between threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

class EPA_String {
  public:
    EPA_String() noexcept = default;
    EPA_String(const char* text);                 // terminated text; null gives the empty string
    EPA_String(const char* text, size_t length);  // a part of a text
    EPA_String(std::string_view text) : EPA_String(text.data(), text.size()) {}
    EPA_String(const std::string& text) : EPA_String(text.data(), text.size()) {}
    explicit EPA_String(int64_t number);  // in decimal
    EPA_String(const EPA_String& other) noexcept;
    EPA_String(EPA_String&& other) noexcept : block_(other.block_) { other.block_ = nullptr; }
    EPA_String& operator=(EPA_String other) noexcept {
        std::swap(block_, other.block_);
        return *this;
    }
    ~EPA_String();

    const char* c_str() const noexcept { return block_ ? block_->text() : ""; }
    uint32_t length() const noexcept { return block_ ? block_->length : 0; }
    bool empty() const noexcept { return length() == 0; }
    std::string_view view() const noexcept { return {c_str(), length()}; }
    operator std::string_view() const noexcept { return view(); }

    // Decimal with an optional leading '-'; stops at the first non-digit, wraps on overflow.
    int64_t toInt() const noexcept;
    // Byte-wise, case-sensitive.
    bool equals(std::string_view text) const noexcept { return view() == text; }
    bool operator==(const EPA_String& other) const noexcept { return view() == other.view(); }
    bool operator<(const EPA_String& other) const noexcept { return view() < other.view(); }
    // Case-insensitive match of the whole text: `?` takes one code point, `*` any run.
    bool wildMatch(std::string_view pattern) const;

  private:
    struct Block {
        uint32_t length;
        std::atomic<int32_t> refs;
        char* text() noexcept { return reinterpret_cast<char*>(this + 1); }
    };
    Block* block_ = nullptr;
};
