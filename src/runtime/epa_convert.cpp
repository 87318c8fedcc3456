// One decoder and one encoder for each form, and one loop that joins them. ASCII runs are taken eight bytes
// at a time before the general step, since nearly all text is ASCII. A whole text starts with room for as
// many units as the source has and goes on from where the room ended, so nothing is converted twice.
#include "runtime/epa_convert.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>

#include "runtime/xpk_exception.h"

namespace {

using Result = EPA_ConvertResult;

constexpr char32_t Limit = 0x110000;

bool isSurrogate(char32_t code) { return (code & 0xFFFFF800) == 0xD800; }

int trailingBytes(unsigned char lead) {
    return lead < 0xC0 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : lead < 0xF8 ? 3 : lead < 0xFC ? 4 : 5;
}

bool isLegal(const unsigned char* at, int length) {
    unsigned char lead = at[0];
    if (length == 1) return lead < 0x80;
    if (length > 4 || lead < 0xC2 || lead > 0xF4) return false;
    unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (at[1] < low || at[1] > high) return false;
    for (int i = 2; i < length; ++i)
        if ((at[i] & 0xC0) != 0x80) return false;
    return true;
}

// Reads one item; `used` is set on Done only.
Result decode(const char* source, const char* end, char32_t& code, int& used) {
    const auto* at = reinterpret_cast<const unsigned char*>(source);
    int extra = trailingBytes(*at);
    if (end - source <= extra) return Result::SourceExhausted;
    if (!isLegal(at, extra + 1)) return Result::SourceIllegal;
    code = extra == 0 ? *at : *at & (0x3FU >> extra);
    for (int i = 1; i <= extra; ++i) code = code << 6 | (at[i] & 0x3FU);
    used = extra + 1;
    return Result::Done;
}

Result decode(const char16_t* source, const char16_t* end, char32_t& code, int& used) {
    code = *source;
    used = 1;
    if (!isSurrogate(code)) return Result::Done;
    if (code >= 0xDC00) return Result::SourceIllegal;
    if (end - source < 2) return Result::SourceExhausted;
    if ((source[1] & 0xFC00) != 0xDC00) return Result::SourceIllegal;
    code = 0x10000 + ((code - 0xD800) << 10) + (source[1] - 0xDC00U);
    used = 2;
    return Result::Done;
}

Result decode(const char32_t* source, const char32_t*, char32_t& code, int& used) {
    code = *source;
    used = 1;
    return code >= Limit || isSurrogate(code) ? Result::SourceIllegal : Result::Done;
}

// Writes one code point; false if there is no room for it.
bool encode(char32_t code, char*& target, const char* end) {
    int length = code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
    if (end - target < length) return false;
    static constexpr unsigned char Lead[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (int i = length - 1; i > 0; --i, code >>= 6) target[i] = static_cast<char>(0x80 | (code & 0x3F));
    target[0] = static_cast<char>(Lead[length] | code);
    target += length;
    return true;
}

bool encode(char32_t code, char16_t*& target, const char16_t* end) {
    if (code < 0x10000) {
        if (target == end) return false;
        *target++ = static_cast<char16_t>(code);
        return true;
    }
    if (end - target < 2) return false;
    *target++ = static_cast<char16_t>(0xD7C0 + (code >> 10));
    *target++ = static_cast<char16_t>(0xDC00 | (code & 0x3FF));
    return true;
}

bool encode(char32_t code, char32_t*& target, const char32_t* end) {
    if (target == end) return false;
    *target++ = code;
    return true;
}

template <typename To>
void copyAscii(const char*& from, const char* end, To*& to, const To* toEnd) {
    for (; end - from >= 8 && toEnd - to >= 8; from += 8, to += 8) {
        uint64_t word;
        memcpy(&word, from, 8);
        if (word & 0x8080808080808080U) return;
        for (int i = 0; i < 8; ++i) to[i] = static_cast<To>(from[i]);
    }
}

template <typename From, typename To>
void copyAscii(const From*& from, const From* end, To*& to, const To* toEnd) {
    for (; end - from >= 8 && toEnd - to >= 8; from += 8, to += 8) {
        uint32_t all = 0;
        for (int i = 0; i < 8; ++i) all |= static_cast<uint32_t>(from[i]);
        if (all >= 0x80) return;
        for (int i = 0; i < 8; ++i) to[i] = static_cast<To>(from[i]);
    }
}

template <typename String>
void resize(String& text, size_t size) {
    try {
        text.resize(size);
    } catch (const std::bad_alloc&) {
        throw XPK_MemoryException(__FILE__, __LINE__);
    } catch (const std::length_error&) {
        throw XPK_MemoryException(__FILE__, __LINE__);
    }
}

}  // namespace

template <typename From, typename To>
EPA_ConvertResult EPA_Convert(const From** source, const From* sourceEnd, To** target, To* targetEnd,
                              bool lenient) {
    const From* from = *source;
    To* to = *target;
    Result result = Result::Done;
    while (from < sourceEnd) {
        copyAscii(from, sourceEnd, to, targetEnd);
        if (from == sourceEnd) break;
        char32_t code = 0;
        int used = 0;
        result = decode(from, sourceEnd, code, used);
        if (result != Result::Done) {
            if (!lenient) break;
            code = '?';
            used = 1;
            result = Result::Done;
        }
        if (!encode(code, to, targetEnd)) {
            result = Result::TargetExhausted;
            break;
        }
        from += used;
    }
    *source = from;
    *target = to;
    return result;
}

template <typename From, typename To>
EPA_ConvertResult EPA_ConvertText(std::basic_string_view<From> text, bool lenient,
                                  std::basic_string<To>& out) {
    const From* from = text.data();
    const From* end = from + text.size();
    resize(out, text.size());
    size_t done = 0;
    for (;;) {
        To* to = out.data() + done;
        Result result = EPA_Convert(&from, end, &to, out.data() + out.size(), lenient);
        done = static_cast<size_t>(to - out.data());
        if (result != Result::TargetExhausted) {
            out.resize(done);
            return result;
        }
        resize(out, out.size() + static_cast<size_t>(end - from) + 8);
    }
}

#define EPA_CONVERSIONS(From, To)                                            \
    template Result EPA_Convert(const From**, const From*, To**, To*, bool); \
    template Result EPA_ConvertText(std::basic_string_view<From>, bool, std::basic_string<To>&);
EPA_CONVERSIONS(char, char16_t)
EPA_CONVERSIONS(char, char32_t)
EPA_CONVERSIONS(char16_t, char)
EPA_CONVERSIONS(char16_t, char32_t)
EPA_CONVERSIONS(char32_t, char)
EPA_CONVERSIONS(char32_t, char16_t)
#undef EPA_CONVERSIONS

bool EPA_AppendUtf8(std::string& out, char32_t code) {
    if (code >= Limit || isSurrogate(code)) return false;
    char bytes[4];
    char* end = bytes;
    encode(code, end, bytes + sizeof bytes);
    out.append(bytes, static_cast<size_t>(end - bytes));
    return true;
}

char32_t EPA_NextCodePoint(std::string_view text, size_t& position) noexcept {
    const char* at = text.data() + position;
    char32_t code = 0;
    int used = 1;
    if (decode(at, text.data() + text.size(), code, used) != Result::Done) {
        code = Limit + static_cast<unsigned char>(*at);
        used = 1;
    }
    position += static_cast<size_t>(used);
    return code;
}
