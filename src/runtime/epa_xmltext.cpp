// The escapes go further than XML asks: the characters that file names may not hold are escaped as well, so
// that an encoded name can itself serve as one.
#include "runtime/epa_xmltext.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "runtime/epa_convert.h"
#include "runtime/xpk_exception.h"

namespace {

struct Entity {
    char character;
    std::string_view text;
};
constexpr Entity Entities[] = {
    {'"', "&quot;"}, {'&', "&amp;"}, {'\'', "&apos;"}, {'<', "&lt;"}, {'>', "&gt;"}};
constexpr std::string_view Numbered = "*,/:;?\\|~";
constexpr size_t LongestNumber = 32;

struct Escape {
    char text[8];
    unsigned char length;
};

constexpr auto Escapes = [] {
    std::array<Escape, 256> table{};
    const auto put = [](Escape& row, std::string_view text) {
        for (char c : text) row.text[row.length++] = c;
    };
    for (const Entity& entity : Entities)
        put(table[static_cast<unsigned char>(entity.character)], entity.text);
    for (unsigned c = 1; c < 128; ++c) {
        if (c >= 32 && Numbered.find(static_cast<char>(c)) == std::string_view::npos) continue;
        put(table[c], "&#");
        for (unsigned unit : {100U, 10U, 1U})
            if (c >= unit) table[c].text[table[c].length++] = static_cast<char>('0' + c / unit % 10);
        put(table[c], ";");
    }
    return table;
}();

// Decimal up to the first other character; values too great for a code point stay too great.
int64_t valueOf(std::string_view digits) {
    bool negative = digits.starts_with('-');
    int64_t value = 0;
    for (char c : digits.substr(negative ? 1 : 0)) {
        if (c < '0' || c > '9') break;
        value = std::min<int64_t>(value * 10 + (c - '0'), 0x7FFFFFFF);
    }
    return negative ? -value : value;
}

}  // namespace

std::string_view EPA_XmlEscape(unsigned char byte) noexcept {
    return {Escapes[byte].text, Escapes[byte].length};
}

size_t EPA_XmlReference(std::string_view text, char (&out)[4], size_t& length) {
    if (text.starts_with("&#")) {
        size_t end = text.substr(2, LongestNumber + 1).find(';');
        if (end == std::string_view::npos) XPK_Raise("RuntimeError", "Malformed character reference").raise();
        int64_t value = valueOf(text.substr(2, end));
        if (value < 1) XPK_Raise("RuntimeError", "Illegal value").raise();
        std::string bytes;
        if (!EPA_AppendUtf8(bytes, static_cast<char32_t>(value)))
            XPK_Raise("UnicodeError", "Illegal Unicode 1").raise();
        length = bytes.size();
        memcpy(out, bytes.data(), length);
        return end + 3;
    }
    for (const Entity& entity : Entities) {
        if (!text.starts_with(entity.text)) continue;
        out[0] = entity.character;
        length = 1;
        return entity.text.size();
    }
    return 0;
}
