// UTF-8 by single code points, for code that walks text without an EPA_Unicode.
//
// Strict: overlong forms, surrogates, values above U+10FFFF and stray bytes are illegal (Unicode, table 3-7).
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

// True when every byte is below 0x80.
inline bool IPE_IsAscii(std::string_view text) noexcept {
    const char* p = text.data();
    size_t left = text.size();
    for (; left >= 8; p += 8, left -= 8) {
        uint64_t word;
        memcpy(&word, p, 8);
        if (word & 0x8080808080808080u) return false;
    }
    for (; left > 0; ++p, --left)
        if (static_cast<signed char>(*p) < 0) return false;
    return true;
}

// Reads the code point at `p` and moves past it; false, leaving `p`, when the bytes are illegal or end early.
// `p` must be below `end`.
inline bool IPE_ReadCodePoint(const char*& p, const char* end, char32_t& point) noexcept {
    auto byte = [&](int i) { return static_cast<unsigned char>(p[i]); };
    auto tail = [&](int i) { return (byte(i) & 0xC0) == 0x80; };
    unsigned char lead = byte(0);
    if (lead < 0x80) {
        point = lead;
        ++p;
        return true;
    }
    if (lead >= 0xC2 && lead < 0xE0 && end - p >= 2 && tail(1)) {
        point = static_cast<char32_t>((lead & 0x1F) << 6 | (byte(1) & 0x3F));
        p += 2;
        return true;
    }
    if (lead >= 0xE0 && lead < 0xF0 && end - p >= 3 && tail(1) && tail(2)) {
        auto value = static_cast<char32_t>((lead & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F));
        if (value < 0x800 || (value >= 0xD800 && value < 0xE000)) return false;
        point = value;
        p += 3;
        return true;
    }
    if (lead >= 0xF0 && lead < 0xF5 && end - p >= 4 && tail(1) && tail(2) && tail(3)) {
        auto value = static_cast<char32_t>((lead & 0x07) << 18 | (byte(1) & 0x3F) << 12 |
                                           (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F));
        if (value < 0x10000 || value > 0x10FFFF) return false;
        point = value;
        p += 4;
        return true;
    }
    return false;
}

// Writes the UTF-8 form of a code point below 0x110000 and gives its length, 1 to 4.
inline int IPE_WriteCodePoint(char32_t point, char* out) noexcept {
    if (point < 0x80) {
        out[0] = static_cast<char>(point);
        return 1;
    }
    if (point < 0x800) {
        out[0] = static_cast<char>(0xC0 | point >> 6);
        out[1] = static_cast<char>(0x80 | (point & 0x3F));
        return 2;
    }
    if (point < 0x10000) {
        out[0] = static_cast<char>(0xE0 | point >> 12);
        out[1] = static_cast<char>(0x80 | (point >> 6 & 0x3F));
        out[2] = static_cast<char>(0x80 | (point & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | point >> 18);
    out[1] = static_cast<char>(0x80 | (point >> 12 & 0x3F));
    out[2] = static_cast<char>(0x80 | (point >> 6 & 0x3F));
    out[3] = static_cast<char>(0x80 | (point & 0x3F));
    return 4;
}

// Code points in a text: its bytes without the continuation bytes.
inline size_t IPE_CountCodePoints(std::string_view text) noexcept {
    size_t count = 0;
    for (char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return count;
}
