// Paths between scripts and the system.
//
// Linux names are bytes and may hold anything but '/' and NUL; the upper floors think in UTF-16 with two
// separators. Escaping through lone low surrogates keeps valid names readable and costs nothing for them.
// What makes it safe is that only the canonical spelling is accepted on the way down: after escapes were
// turned back, the bytes are spelled again and must give the units that came in. Without this a program could
// hand in a text that looks like one name, passes a check as that name, and opens another.

#include "platform/pf_paths.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace platform {

namespace {

constexpr char16_t kEscape = 0xDC00;

bool isHigh(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLow(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
bool isEscape(char16_t unit) {
    return unit == kEscape + '\\' || (unit >= kEscape + 0x80 && unit <= kEscape + 0xFF);
}

void appendUnits(std::u16string& out, char32_t code) {
    if (code < 0x10000) {
        out.push_back(static_cast<char16_t>(code));
        return;
    }
    code -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
}

}  // namespace

int decodeUtf8(std::string_view text, size_t& position) {
    auto byte = [&](size_t at) { return static_cast<uint8_t>(text[at]); };
    uint8_t first = byte(position);
    if (first < 0x80) {
        ++position;
        return first;
    }
    size_t length = first >= 0xC2 && first <= 0xDF ? 2 : first >= 0xE0 && first <= 0xEF ? 3 : 4;
    if (first < 0xC2 || first > 0xF4 || text.size() - position < length) return -1;
    uint8_t low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    uint8_t high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    uint8_t second = byte(position + 1);
    if (second < low || second > high) return -1;
    int code = first & (0x7F >> length);
    code = code << 6 | (second & 0x3F);
    for (size_t i = 2; i < length; ++i) {
        uint8_t next = byte(position + i);
        if ((next & 0xC0) != 0x80) return -1;
        code = code << 6 | (next & 0x3F);
    }
    position += length;
    return code;
}

void appendUtf8(std::string& out, char32_t code) {
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
        return;
    }
    if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | code >> 6));
    } else {
        if (code < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | code >> 12));
        } else {
            out.push_back(static_cast<char>(0xF0 | code >> 18));
            out.push_back(static_cast<char>(0x80 | (code >> 12 & 0x3F)));
        }
        out.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3F)));
    }
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
}

int pathToBytes(std::u16string_view path, std::string& bytes) {
    bytes.clear();
    bytes.reserve(path.size());
    bool escaped = false;
    for (size_t i = 0; i < path.size(); ++i) {
        char16_t unit = path[i];
        if (unit == 0) return EINVAL;
        if (isHigh(unit)) {
            if (i + 1 >= path.size() || !isLow(path[i + 1])) return EILSEQ;
            appendUtf8(bytes, 0x10000 + ((unit & 0x3FFu) << 10) + (path[++i] & 0x3FFu));
        } else if (isLow(unit)) {
            if (!isEscape(unit)) return EILSEQ;
            bytes.push_back(static_cast<char>(unit - kEscape));
            escaped = true;
        } else {
            appendUtf8(bytes, unit == u'\\' ? U'/' : unit);
        }
    }
    if (!escaped) return 0;
    std::u16string canonical = pathToUnits(bytes);
    bool same =
        std::equal(canonical.begin(), canonical.end(), path.begin(), path.end(),
                   [](char16_t left, char16_t right) { return left == (right == u'\\' ? u'/' : right); });
    return same ? 0 : EILSEQ;
}

int textToBytes(std::string_view path, std::string& bytes) {
    for (size_t i = 0; i < path.size();) {
        int code = decodeUtf8(path, i);
        if (code < 0) return EILSEQ;
        if (code == 0) return EINVAL;
    }
    bytes.assign(path);
    std::replace(bytes.begin(), bytes.end(), '\\', '/');
    return 0;
}

std::u16string pathToUnits(std::string_view bytes) {
    std::u16string units;
    units.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size();) {
        int code = decodeUtf8(bytes, i);
        if (code < 0) {
            units.push_back(static_cast<char16_t>(kEscape + static_cast<uint8_t>(bytes[i++])));
        } else {
            appendUnits(units, code == '\\' ? kEscape + U'\\' : static_cast<char32_t>(code));
        }
    }
    return units;
}

bool nameIsPlain(std::string_view name) {
    for (size_t i = 0; i < name.size();) {
        int code = decodeUtf8(name, i);
        if (code < 0 || code == '\\') return false;
    }
    return true;
}

size_t lastSeparator(std::u16string_view path) { return path.find_last_of(u"\\/"); }

size_t lastSeparator(std::string_view path) { return path.find_last_of("\\/"); }

}  // namespace platform
