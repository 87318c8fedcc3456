#pragma once

// Numbers, money, dates and times in the conventions of a locale. Texts are UTF-8 with the digits 0 to 9.
//
// Errors: EINVAL (no such locale, not a number, no such date), ENOBUFS (254 UTF-16 units are the longest
// text). `out` is set only on success. Any thread.

#include <ctime>
#include <string>
#include <string_view>

#include "platform/pf_locale.h"

namespace platform {

// `decimal` is an optional '-', digits, and optionally '.' and digits, at least one digit in all. The result
// is rounded (half away from zero) to the locale's number of decimals, and grouped; zero has no sign.
int numberText(LocaleId id, std::string_view decimal, std::string& out);
// The same, cut at the locale's decimal separator.
int integerText(LocaleId id, std::string_view decimal, std::string& out);
int currencyText(LocaleId id, std::string_view decimal, std::string& out);

// The fields of `local` are taken as they are, without a time zone; years 1601 to 30827.
int dateText(LocaleId id, const std::tm& local, bool longForm, std::string& out);
int timeText(LocaleId id, const std::tm& local, std::string& out);

}  // namespace platform
