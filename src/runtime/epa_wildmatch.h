// Case-insensitive wildcard match of a whole UTF-8 text: `?` takes one code point, `*` any run, also none.
//
// The pattern is held in upper and lower case (the user's locale, code point by code point) and the text
// compared against both at each place. O(text * pattern) in the worst case, whatever the number of stars.
// Bytes that are not UTF-8 match only themselves.
#pragma once

#include <string>
#include <string_view>

bool EPA_WildMatch(std::string_view text, std::string_view pattern);

// A pattern that is matched against many texts. Immutable, any thread.
class EPA_WildPattern {
  public:
    explicit EPA_WildPattern(std::string_view pattern);
    // The two forms of a pattern, of equal length.
    EPA_WildPattern(std::u32string upper, std::u32string lower);

    bool matches(std::string_view text) const;
    bool matches(std::u32string_view text) const;

  private:
    template <typename Text>
    bool match(Text text) const;

    std::u32string upper_, lower_;
};
