// The label table: texts that the flag names of old files refer to by number.
//
// The blocks of the table each begin at a base number and go upward without a gap. Any thread.
#pragma once

#include <cstdint>
#include <string_view>

// The text of an identifier; empty for one outside the table.
std::string_view SMF_LabelText(uint32_t identifier) noexcept;

// The identifier that a tag value names, in one of three forms (h a hexadecimal digit, d a decimal one):
//   hhhhdddd, hhhhdddddd    (hhhh << 16) + d...
//   hhhh.dd:d...            ((hhhh * 64 + dd) << 10) + d...
//   hhhh:dd.dddd            the same; 12 characters, any character at the dot
// Anything else is 0. Digits are read up to the first character that is none.
uint32_t SMF_LabelIdentifier(std::string_view text) noexcept;
