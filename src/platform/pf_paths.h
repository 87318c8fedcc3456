#pragma once

// Path conversion at the boundary to the operating system.
//
// Above this line a path is a sequence of UTF-16 code units (or UTF-8 text) in which both '\' and '/'
// separate. Below it a path is a sequence of bytes in which only '/' separates. A byte of a name that has no
// place in the upper form travels as a lone low surrogate U+DC00 + byte:
//   - a backslash inside a name (U+DC5C),
//   - each byte from 0x80 up that is not part of a well-formed UTF-8 sequence (U+DC80 to U+DCFF).
//
// The mapping is one to one: `nameToUnits` gives exactly one spelling for every name, and `pathToBytes`
// accepts no other. So U+DCC3 U+DCA9 does not smuggle in the name "é" and U+DC2F does not smuggle in a
// separator: both are EILSEQ. Any thread may call these functions; they hold no state.

#include <string>
#include <string_view>

namespace platform {

// Reads one well-formed UTF-8 sequence of `text` at `position` and advances past it. Gives the code point, or
// -1 (position unchanged) where no well-formed sequence starts: overlong forms, surrogates, values above
// U+10FFFF and cut-off sequences are none (Unicode 15, table 3-7). `position` must be below `text.size()`.
int decodeUtf8(std::string_view text, size_t& position);

// Appends the UTF-8 form of `code` (any code point, 0 to 0x10FFFF).
void appendUtf8(std::string& out, char32_t code);

// System spelling of a path of UTF-16 units. Errors: EINVAL (a NUL inside), EILSEQ (a surrogate that stands
// for no byte, or a spelling that `pathToUnits` would not give).
int pathToBytes(std::u16string_view path, std::string& bytes);

// The same for UTF-8 text. Errors: EINVAL (a NUL inside), EILSEQ (not well-formed).
int textToBytes(std::string_view path, std::string& bytes);

// The one spelling of a system path or of a single name in UTF-16 units; total and reversible. '/' stays '/'.
std::u16string pathToUnits(std::string_view bytes);

// True if the name needs no escape: well-formed UTF-8 and no backslash. Then the bytes are its text.
bool nameIsPlain(std::string_view name);

// Position of the last separator of either kind in a path, npos if there is none.
size_t lastSeparator(std::u16string_view path);
size_t lastSeparator(std::string_view path);

}  // namespace platform
