// EPA_String keeps length, count and text in one block of the pools, so that a copy is one increment.
#include "runtime/epa_string.h"

#include <cstring>
#include <new>

#include "runtime/epa_wildmatch.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_memory.h"

EPA_String::EPA_String(const char* text) : EPA_String(text, text ? strlen(text) : 0) {}

EPA_String::EPA_String(const char* text, size_t length) {
    if (length == 0) return;
    XPK_Assert(length < UINT32_MAX);
    block_ = new (XPK_Allocate(sizeof(Block) + length + 1)) Block{static_cast<uint32_t>(length), 1};
    memcpy(block_->text(), text, length);
    block_->text()[length] = 0;
}

EPA_String::EPA_String(int64_t number) : EPA_String(std::to_string(number)) {}

EPA_String::EPA_String(const EPA_String& other) noexcept : block_(other.block_) {
    if (block_) block_->refs.fetch_add(1, std::memory_order_relaxed);
}

EPA_String::~EPA_String() {
    if (block_ && block_->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) XPK_Free(block_);
}

int64_t EPA_String::toInt() const noexcept {
    const char* p = c_str();
    bool negative = *p == '-';
    if (negative) ++p;
    uint64_t value = 0;
    for (; *p >= '0' && *p <= '9'; ++p) value = value * 10 + static_cast<uint64_t>(*p - '0');
    return static_cast<int64_t>(negative ? 0 - value : value);
}

bool EPA_String::wildMatch(std::string_view pattern) const { return EPA_WildMatch(view(), pattern); }
