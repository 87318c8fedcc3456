#pragma once

// Locale items by the numbers and key names of the Windows world, as UTF-8 text in the form that is usual
// there
// ("3;0" for groups, "M/d/yyyy" for a date picture, "0409" for a language). Any thread.

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/pf_locale.h"

namespace platform {

// The number of an item by its key, in capitals and without prefix ("SDECIMAL" is 14); 0 for an unknown key.
std::uint32_t localeItemNumber(std::string_view key);

// The text of an item. EINVAL: no such locale or item; ENOTSUP: the item cannot exist here (FONTSIGNATURE, a
// bit set of the installed fonts' code pages).
int localeItem(LocaleId id, std::uint32_t item, std::string& out);

enum class CodePageKind { Ansi, Oem, Mac, Ebcdic };

// The code page that the Windows world gives a locale; 0 for a script that has none, and for an unknown
// locale.
std::uint32_t localeCodePage(LocaleId id, CodePageKind kind);

}  // namespace platform
