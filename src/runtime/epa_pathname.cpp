// The fold works on UTF-8 bytes: all stand-ins are three bytes that begin with EF 80, so text without that
// byte pair is copied in one piece. Likewise both highlight marks begin with F4 8F BF.
#include "runtime/epa_pathname.h"

#include "runtime/epa_convert.h"

namespace {

constexpr std::string_view StandIns = "\"*/<>?\\| .";  // from U+F020
constexpr std::string_view LateStandIns = ":,;~";      // from U+F02B, folded but never made

}  // namespace

char32_t EPA_EncodeNameCode(char32_t code, bool last) noexcept {
    if (code == 0xFFFFFFF0) return 0xF02A;
    if (code == 0 || code >= 0x80) return code;
    if (code < 0x20) return code == 16 ? code : 0xF000 + code;
    if ((code == ' ' || code == '.') && !last) return code;
    size_t at = StandIns.find(static_cast<char>(code));
    return at == std::string_view::npos ? code : static_cast<char32_t>(0xF020 + at);
}

char32_t EPA_FoldCode(char32_t code) noexcept {
    if (code <= 0xF000 || code > 0xF02E || code == 0xF010 || code == 0xF02A) return code;
    if (code < 0xF020) return code - 0xF000;
    return static_cast<unsigned char>(code < 0xF02A ? StandIns[code - 0xF020] : LateStandIns[code - 0xF02B]);
}

std::string EPA_EncodePathName(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8);
    for (size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        char32_t code = c < 0x80 ? EPA_EncodeNameCode(c, i + 1 == text.size()) : c;
        if (code == c)
            out += text[i];
        else
            EPA_AppendUtf8(out, code);
    }
    return out;
}

std::string EPA_Fold(std::string_view text) {
    std::string out;
    size_t from = 0;
    for (size_t at = text.find("\xEF\x80"); at != std::string_view::npos; at = text.find("\xEF\x80", at)) {
        if (at + 3 > text.size()) break;
        auto tail = static_cast<unsigned char>(text[at + 2]);
        char32_t code = 0xF000 + (tail & 0x3FU);
        char32_t folded = (tail & 0xC0) == 0x80 ? EPA_FoldCode(code) : code;
        if (folded != code) {
            out.append(text, from, at - from);
            out += static_cast<char>(folded);
            from = at + 3;
        }
        at += 3;
    }
    return out.append(text.substr(from));
}

std::string EPA_StripMarkers(std::string_view text) {
    std::string out;
    size_t from = 0;
    for (size_t at = text.find("\xF4\x8F\xBF"); at != std::string_view::npos;
         at = text.find("\xF4\x8F\xBF", at)) {
        size_t end = at;
        char32_t code = EPA_NextCodePoint(text, end);
        if (code == EPA_OpenMark || code == EPA_CloseMark) {
            if (end < text.size()) EPA_NextCodePoint(text, end);
            out.append(text, from, at - from);
            from = end;
        }
        at = end;
    }
    return out.append(text.substr(from));
}
