// Metaphone: a key for words that sound alike in English (after L. Philips, Computer Language 7/12, 1990,
// with this system's own rules for some letter groups).
#pragma once

#include <string>
#include <string_view>

// At most 127 capitals (and "0" for the sound of "th"). Only the letters A to Z of the input count, the first
// 511 of them; without any the key is empty.
std::string EPA_Metaphone(std::string_view input);
inline void EPA_Metaphone(std::string_view input, std::string& out) { out = EPA_Metaphone(input); }
