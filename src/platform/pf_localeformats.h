#pragma once

// The conventions of one locale, read out of ICU once: what the locale items and the number, currency, date
// and time texts stand on. Internal to the locale group of this floor; texts are UTF-8.

#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>

#include <memory>
#include <string>

#include "platform/pf_locale.h"

namespace platform {

// Digits between group separators: `first` next to the decimal point, `rest` further left; 0 for no groups.
struct Grouping {
    int first = 0, rest = 0;
    // "3;0" groups by three for ever, "3;2;0" the Indian way, "0" not at all.
    std::string text() const;
};

// A date or time: how ICU writes it, and the same as a picture of the Windows world ("dddd, d. MMMM yyyy").
struct DatePattern {
    icu::UnicodeString icu;
    std::string picture;
    // Made on first use.
    mutable std::unique_ptr<icu::SimpleDateFormat> format;
};

struct LocaleFormats {
    LocaleId id = 0;
    icu::Locale locale;  // with the digits 0 to 9, whatever the locale's own
    std::string decimal, group, plus, minus;
    Grouping grouping;
    int negativeOrder = 1;  // 1: "-1.1", 3: "1.1-"

    std::string currency, currencyCode, currencyDecimal, currencyGroup, currencySpace;
    Grouping currencyGrouping;
    int currencyDigits = 2;
    int currencyOrder = 0;          // 0 "$1", 1 "1$", 2 "$ 1", 3 "1 $"
    int negativeCurrencyOrder = 1;  // 0 to 15, as the Windows world numbers them

    DatePattern shortDate, longDate, yearMonth, time;
};

// The formats of a locale, kept per thread; valid until the thread's next call. Null with `error` set on
// failure.
const LocaleFormats* localeFormats(LocaleId id, int& error);

std::string toUtf8(const icu::UnicodeString& text);

}  // namespace platform
