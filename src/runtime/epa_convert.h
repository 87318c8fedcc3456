// Conversion between UTF-8, UTF-16 and UTF-32, piece by piece.
//
// Each function converts from *source to sourceEnd into *target up to targetEnd, moves both pointers behind
// what it has done, and never splits an item: on a result other than Done, *source stands at the item that
// could not be converted. Strict: a surrogate outside a pair, a UTF-8 form that is not the shortest or not
// well-formed, and a value above 0x10FFFF are illegal. Lenient: each such unit (in UTF-8 each byte), and what
// is cut off at the end, becomes
// "?"; then only the target can be exhausted. Results and their order of precedence are those of the
// reference routines that the Unicode Consortium published with its standard: a UTF-8 lead byte that asks for
// more bytes than there are is "exhausted" even if the bytes that are there are wrong. No state, any thread.
#pragma once

#include <string>
#include <string_view>

enum class EPA_ConvertResult { Done = 0, SourceExhausted = 1, TargetExhausted = 2, SourceIllegal = 3 };

template <typename From, typename To>
EPA_ConvertResult EPA_Convert(const From** source, const From* sourceEnd, To** target, To* targetEnd,
                              bool lenient);

// A whole text; `out` is replaced, on failure as well (then it holds what came before the offending item).
template <typename From, typename To>
EPA_ConvertResult EPA_ConvertText(std::basic_string_view<From> text, bool lenient,
                                  std::basic_string<To>& out);

// Appends the UTF-8 form of one code point; false (nothing appended) for a surrogate or a value above
// 0x10FFFF.
bool EPA_AppendUtf8(std::string& out, char32_t code);

// Reads one well-formed UTF-8 sequence at `position` (below text.size()) and moves past it. A byte that
// starts none gives 0x110000 + byte, a value outside Unicode, and moves by one.
char32_t EPA_NextCodePoint(std::string_view text, size_t& position) noexcept;
