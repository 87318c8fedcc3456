// Private-use code points inside text: stand-ins for characters that names may not hold, and marks.
//
// Characters that a foreign file system allows and the host's does not travel as U+F001 to U+F02E; the fold
// brings them back. U+10FFF0 begins a mark for a damaged sequence, U+10FFF2 and U+10FFF3 (with the code point
// behind them) begin and end a highlight. The functions on UTF-8 leave bytes that are not UTF-8 as they are,
// take time in proportion to the text, and cost little more than a search where there is nothing to do. Any
// thread.
#pragma once

#include <string>
#include <string_view>

constexpr char32_t EPA_EscapeMark = 0x10FFF0;
constexpr char32_t EPA_LastMark = 0x10FFFD;  // U+10FFF0 to here are escaped when a text is sanitised
constexpr char32_t EPA_OpenMark = 0x10FFF2;
constexpr char32_t EPA_CloseMark = 0x10FFF3;

// The stand-in for a code point, or the code point itself. `last`: it ends the text (only there a blank and a
// full stop have one).
char32_t EPA_EncodeNameCode(char32_t code, bool last) noexcept;
// The fold of one code point. U+F010 and U+F02A stay.
char32_t EPA_FoldCode(char32_t code) noexcept;

std::string EPA_EncodePathName(std::string_view text);
std::string EPA_Fold(std::string_view text);
// Removes U+10FFF2 and U+10FFF3, each with the code point behind it.
std::string EPA_StripMarkers(std::string_view text);
