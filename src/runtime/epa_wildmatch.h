// Case-insensitive wildcard match of a whole UTF-8 text: `?` takes one code point, `*` any run, also none.
//
// The pattern is held in upper and lower case (the user's locale) and the text compared against both at each
// place. O(text * pattern) in the worst case, whatever the number of stars. Bytes that are not UTF-8 match
// only themselves.
#pragma once

#include <string_view>

bool EPA_WildMatch(std::string_view text, std::string_view pattern);
