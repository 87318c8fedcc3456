// A date as the date schemes write it: day, month, and the year in 2 bytes, low byte first. These are the
// bytes of an SMF_DateValue, so that dates are carried as words (SMF_DateValue::bits).
#pragma once

#include <bit>
#include <cstdint>

#include "store/smf_values.h"

static_assert(std::endian::native == std::endian::little);

inline constexpr uint32_t SMF_LastYear = 9999;

// The word of a date as a decoder finds it.
inline bool SMF_IsDate(uint32_t word) noexcept {
    return ((word & 0xFF) <= 31) & ((word >> 8 & 0xFF) <= 12) & (word >> 16 <= SMF_LastYear);
}
// What a decoder says of a word that is no date.
inline const char* SMF_DateFault(uint32_t word) noexcept {
    if ((word & 0xFF) > 31) return "Date decoder has detected illegal day data";
    if ((word >> 8 & 0xFF) > 12) return "Date decoder has detected illegal month data";
    return "Date decoder has detected illegal year data";
}
// What is stored of a date: zero for what no decoder takes.
inline uint32_t SMF_StoredDate(const SMF_DateValue& date) noexcept {
    return SMF_IsDate(date.bits()) ? date.bits() : 0;
}
