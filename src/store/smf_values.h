// The values of fields, as codecs and handles carry them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

struct SMF_DateValue {
    int8_t day = 0, month = 0;
    int16_t year = 0;
    bool operator==(const SMF_DateValue&) const = default;
    // One number for the whole value, for tables of values.
    uint32_t bits() const noexcept {
        uint32_t out;
        std::memcpy(&out, this, 4);
        return out;
    }
};

struct SMF_TimeValue {
    int8_t hour = 0, minute = 0, second = 0, pad = 0;
    bool operator==(const SMF_TimeValue&) const = default;
};

struct SMF_FlagValue {
    uint8_t bytes[16] = {};
    bool operator==(const SMF_FlagValue& other) const noexcept {
        return std::memcmp(bytes, other.bytes, sizeof bytes) == 0;
    }
    bool bit(int i) const noexcept { return bytes[i / 8] >> i % 8 & 1; }
    void set(int i) noexcept { bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] | 1 << i % 8); }
};

// A text as its decoder holds it: bytes of its own and, behind them, a text that it shares with other rows
// (an extension, an entry of a dictionary). Symbol 0 is the empty text; the decoder tells the others.
struct SMF_TextValue {
    const char* base = nullptr;
    uint32_t length = 0;
    uint32_t symbol = 0;
    std::string_view own() const noexcept { return {base, length}; }
};

// A tree value: its components, in the order in which they are stored, as views into the decoder.
struct SMF_TreeValue {
    const std::string_view* parts = nullptr;
    uint32_t count = 0;
};

// Local time as a number of seconds: mktime of the value, 0 outside the years that the format's numbers cover
// (a date 1970 to 2030, a date with a time 1975 to 2030). Any thread; each remembers the days it has met, so
// that mktime is called once a day and not once a value.
int64_t SMF_TimeOfDate(const SMF_DateValue& date);
int64_t SMF_TimeOfDateTime(const SMF_DateValue& date, const SMF_TimeValue& time);
// The other way: localtime of a number of seconds, for the years 0 to 9999. False for others, with nothing
// changed.
bool SMF_LocalMoment(int64_t seconds, SMF_DateValue& date, SMF_TimeValue& time);
