#pragma once

// Locales: the user's default, the numeric ids, case mapping.
//
// A locale travels as a `LocaleId`. 0 is the user's default; other values are the numeric ids of the Windows
// world (language in the low ten bits), of which only the low 16 bits count; 0x400 is the user's default and
// 0x800 the system's, which here is the same. An id that names no locale is EINVAL. Functions give 0 or an
// errno, are safe on any thread and hold no lock on the way: what is costly to open is kept per thread.

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

using LocaleId = std::uint32_t;

// The user's default as ICU spells it ("de_DE"). It comes from the first of LC_ALL, LC_CTYPE and LANG that is
// set and not empty; "C", "POSIX", a name that ICU cannot read and none at all give "en_US". Read once per
// process.
const std::string& userLocaleName();

// What `userLocaleName` and `defaultCodePage` would give for these three settings (null: not set).
std::string localeNameFor(const char* lcAll, const char* lcCtype, const char* lang);
std::uint32_t codePageFor(const char* lcAll, const char* lcCtype, const char* lang);

// The id of the user's default; 0x1000 where the locale has none of its own.
LocaleId userLocaleId();

// The system's default language id: the low 16 bits of the user's default.
std::uint16_t systemLanguageId();

// Both directions between an id and ICU's name. `idOfLocale` gives 0x1000 for a locale without an id.
int localeOfId(LocaleId id, std::string& name);
LocaleId idOfLocale(const std::string& name);

// Case mapping in full: language rules (dotted i), context (final sigma), results of another length (ß).
// Bytes that are not UTF-8 stay, and so do unpaired surrogates.
int toUpper(LocaleId id, std::string_view text, std::string& out);
int toLower(LocaleId id, std::string_view text, std::string& out);
int toUpper(LocaleId id, std::u16string_view text, std::u16string& out);
int toLower(LocaleId id, std::u16string_view text, std::u16string& out);

// Case mapping of each code point by itself, in place and of equal length: the locale's mapping where it is
// one code point, the simple one elsewhere. Values that are no code points stay.
int toUpper(LocaleId id, std::u32string& text);
int toLower(LocaleId id, std::u32string& text);

}  // namespace platform
