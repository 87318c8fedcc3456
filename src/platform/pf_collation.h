#pragma once

// Comparison of texts by the rules of a locale (the Unicode Collation Algorithm with the locale's tailoring).
//
// The result is -1, 0 or 1, in `order`. With `IgnoreCase` letters that differ in case alone are equal,
// accents still count. Text that is not well-formed compares as if U+FFFD stood there. 0 or an errno: EINVAL
// for an id without a locale. Any thread; collators are kept per thread, so that a sort of millions of texts
// opens one.

#include <string_view>

#include "platform/pf_locale.h"

namespace platform {

constexpr unsigned CollateIgnoreCase = 1;

int collate(LocaleId id, std::string_view left, std::string_view right, unsigned flags, int& order);
int collate(LocaleId id, std::u16string_view left, std::u16string_view right, unsigned flags, int& order);

}  // namespace platform
