// The cursor is an offset, so that it survives whatever the base does with its buffers; the text is asked for
// anew at each token, which costs nothing while the form is UTF-32.
#include "runtime/epa_stringtokenizer.h"

#include "runtime/xpk_exception.h"

EPA_StringTokenizer::EPA_StringTokenizer(const EPA_String& text, char32_t separator)
    : EPA_Unicode(text), separator_(separator) {
    toUtf32();
}

EPA_StringTokenizer::EPA_StringTokenizer(std::u32string_view text, char32_t separator)
    : EPA_Unicode(text), separator_(separator) {}

std::u32string_view EPA_StringTokenizer::next() {
    if (!more_)
        XPK_Raise("RuntimeError", "EPA_StringTokenizer::nextToken called with no more tokens").raise();
    std::u32string_view rest = utf32().substr(cursor_);
    size_t end = rest.find(separator_);
    more_ = end != std::u32string_view::npos;
    if (more_) cursor_ += end + 1;
    return rest.substr(0, end);
}

void EPA_StringTokenizer::nextToken(EPA_Unicode& out) { out.setUtf32(next()); }

void EPA_StringTokenizer::nextToken(EPA_String& out) {
    EPA_Unicode token(next());
    token.setFlags(flags());
    out = token.string();
}
