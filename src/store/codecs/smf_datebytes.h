// A date as the date schemes write it: day, month, and the year in 2 bytes, low byte first.
#pragma once

#include <cstdint>

#include "store/smf_values.h"

inline constexpr int SMF_LastYear = 9999;

// What cannot be a date is stored as zero: no decoder takes it.
inline SMF_DateValue SMF_StoredDate(const SMF_DateValue& date) noexcept {
    bool possible = date.day >= 0 && date.day <= 31 && date.month >= 0 && date.month <= 12 &&
                    date.year >= 0 && date.year <= SMF_LastYear;
    return possible ? date : SMF_DateValue();
}

inline void SMF_PutDate(const SMF_DateValue& date, uint8_t* out) noexcept {
    out[0] = static_cast<uint8_t>(date.day);
    out[1] = static_cast<uint8_t>(date.month);
    out[2] = static_cast<uint8_t>(date.year);
    out[3] = static_cast<uint8_t>(date.year >> 8);
}

inline SMF_DateValue SMF_GetDate(const uint8_t* at) noexcept {
    return {static_cast<int8_t>(at[0]), static_cast<int8_t>(at[1]), static_cast<int16_t>(at[2] | at[3] << 8)};
}

// What a decoder says of a date; null when it takes it.
inline const char* SMF_DateFault(const SMF_DateValue& date) noexcept {
    if (static_cast<uint8_t>(date.day) > 31) return "Date decoder has detected illegal day data";
    if (static_cast<uint8_t>(date.month) > 12) return "Date decoder has detected illegal month data";
    if (static_cast<uint16_t>(date.year) > SMF_LastYear) return "Date decoder has detected illegal year data";
    return nullptr;
}
