// EPA_StringTokenizer: the runs of a text between separators.
//
// A token goes up to the next separator or the end, and the separator is consumed; after a token that ended
// at the end of the text there are no more. So "a/b/" gives "a", "b" and an empty token, and an empty text
// gives one empty token. The cursor stands in the UTF-32 form, which is made at construction and raises what
// that conversion raises.
#pragma once

#include <string_view>

#include "runtime/epa_unicode.h"

class EPA_StringTokenizer : public EPA_Unicode {
  public:
    explicit EPA_StringTokenizer(const EPA_String& text, char32_t separator = '/');
    explicit EPA_StringTokenizer(std::u32string_view text, char32_t separator = '/');

    bool hasMore() const noexcept { return more_; }
    // Raise RuntimeError "EPA_StringTokenizer::nextToken called with no more tokens" when none is left.
    void nextToken(EPA_Unicode& out);
    void nextToken(EPA_String& out);

  private:
    std::u32string_view next();

    char32_t separator_;
    size_t cursor_ = 0;
    bool more_ = true;
};
