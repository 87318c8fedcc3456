// Both walks go by bytes and look closer only at the lead bytes of the reserved ranges, EF 80 and F4 8F BF,
// so plain text is copied in runs.
#include "ipe/values/ipe_textmarks.h"

#include <algorithm>

#include "ipe/values/ipe_codepoints.h"

namespace {

// Length of the sequence at `p` by its lead byte, within the text; a stray byte counts as one.
size_t sequenceLength(std::string_view text, size_t p) {
    auto lead = static_cast<unsigned char>(text[p]);
    size_t length = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    return std::min(length, text.size() - p);
}

bool startsWith(std::string_view text, size_t p, std::string_view bytes) {
    return text.compare(p, bytes.size(), bytes) == 0;
}

// What U+F000 + low folds to, or 0.
char foldOf(unsigned low) {
    if (low >= 1 && low <= 0x1F && low != 0x10) return static_cast<char>(low);
    constexpr char Specials[] = "\"*/<>?\\| .\0:,;~";
    return low >= 0x20 && low <= 0x2E ? Specials[low - 0x20] : '\0';
}

// U+10FFF0 + n as n, or -1.
int markAt(std::string_view text, size_t p) {
    if (!startsWith(text, p, "\xF4\x8F\xBF") || p + 3 >= text.size()) return -1;
    int low = static_cast<unsigned char>(text[p + 3]) - 0xB0;
    return low >= 0 && low < 16 ? low : -1;
}

void appendEscaped(EPA_StringBuffer& out, std::string_view sequence) {
    if (sequence == "&")
        out.append("&amp;");
    else if (sequence == "<")
        out.append("&lt;");
    else if (sequence == ">")
        out.append("&gt;");
    else
        out.append(sequence);
}

bool isLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Writes the damaged sequence whose digit stands at `p` and gives the position behind it.
size_t appendDamaged(EPA_StringBuffer& out, std::string_view text, size_t p, bool strike) {
    char digit = text[p];
    size_t left = digit == '2' || digit == '4' || digit == '8' ? static_cast<size_t>(digit - '0') : 0;
    p += sequenceLength(text, p);
    if (left == 0 || p >= text.size()) return p;
    out.append(strike ? "<strike>" : "<b>[</b><i><font color=\"red\">");
    for (; left > 0 && p < text.size(); --left) {
        size_t length = sequenceLength(text, p);
        appendEscaped(out, text.substr(p, length));
        p += length;
    }
    out.append(strike ? "</strike>" : "</font></i><b>]</b>");
    return p;
}

}  // namespace

void IPE_AppendFolded(EPA_StringBuffer& out, std::string_view text, bool unmark) {
    size_t run = 0, p = 0;
    auto flush = [&] { out.append(text.substr(run, p - run)); };
    while (p < text.size()) {
        auto lead = static_cast<unsigned char>(text[p]);
        if (lead == 0xEF && startsWith(text, p, "\xEF\x80") && p + 2 < text.size()) {
            char plain = foldOf(static_cast<unsigned char>(text[p + 2]) - 0x80u);
            if (plain) {
                flush();
                out.append(plain);
                run = p += 3;
                continue;
            }
        } else if (lead == 0xF4 && unmark) {
            int mark = markAt(text, p);
            if (mark == 2 || mark == 3) {
                flush();
                p += 4;
                if (p < text.size()) p += sequenceLength(text, p);
                run = p;
                continue;
            }
        }
        ++p;
    }
    flush();
}

size_t IPE_AppendHtml(EPA_StringBuffer& out, std::string_view text, bool strike, bool breaks) {
    size_t hints = 0;
    for (size_t p = 0; p < text.size();) {
        size_t length = sequenceLength(text, p);
        int mark = markAt(text, p);
        if (mark == 0) {
            p += length;
            if (p >= text.size()) break;
            p = appendDamaged(out, text, p, strike);
            continue;
        }
        if (mark == 2 || mark == 3) {
            p += length;
            if (p >= text.size()) break;
            char kind = text[p];
            p += sequenceLength(text, p);
            if (kind != 'C' && kind != 'V') continue;
            out.append(mark == 3     ? "</span>"
                       : kind == 'C' ? "<span class=\"ctag\">"
                                     : "<span class=\"vtag\">");
            continue;
        }
        char c = text[p];
        if (breaks && !strike && static_cast<signed char>(c) >= 0 && !isLetterOrDigit(c)) {
            out.append("<wbr />");
            hints += 7;
        }
        appendEscaped(out, text.substr(p, length));
        p += length;
    }
    return hints;
}
