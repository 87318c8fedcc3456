// Numbers are formatted on their decimal text and not through a double or ICU's formatter: a text of any
// length is rounded exactly, and what is written agrees character by character with the locale items that
// scripts read (the separator by which integers are cut, above all).
#include "platform/pf_localetext.h"

#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include <algorithm>
#include <cerrno>

#include "platform/pf_localeformats.h"

namespace platform {

namespace {

constexpr int NumberDecimals = 2;
constexpr size_t LongestText = 254;

struct Decimal {
    bool negative = false;
    std::string whole, fraction;
};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

int parse(std::string_view text, Decimal& out) {
    out.negative = text.starts_with('-');
    if (out.negative) text.remove_prefix(1);
    size_t point = std::min(text.find('.'), text.size());
    out.whole = text.substr(0, point);
    out.fraction = point < text.size() ? text.substr(point + 1) : "";
    if (out.whole.empty() && out.fraction.empty()) return EINVAL;
    bool digits = std::all_of(out.whole.begin(), out.whole.end(), isDigit) &&
                  std::all_of(out.fraction.begin(), out.fraction.end(), isDigit);
    return digits ? 0 : EINVAL;
}

void roundTo(Decimal& number, size_t decimals) {
    bool up = number.fraction.size() > decimals && number.fraction[decimals] >= '5';
    number.fraction.resize(decimals, '0');
    std::string digits = "0" + number.whole + number.fraction;
    for (size_t i = digits.size(); up && i-- > 0;) {
        up = digits[i] == '9';
        digits[i] = up ? '0' : static_cast<char>(digits[i] + 1);
    }
    number.fraction = digits.substr(digits.size() - decimals);
    digits.resize(digits.size() - decimals);
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    number.whole = std::move(digits);
    if (number.whole == "0" && number.fraction.find_first_not_of('0') == std::string::npos)
        number.negative = false;
}

std::string grouped(const std::string& digits, Grouping grouping, const std::string& separator) {
    if (grouping.first == 0 || digits.size() <= static_cast<size_t>(grouping.first)) return digits;
    const size_t first = digits.size() - static_cast<size_t>(grouping.first);
    const size_t rest = static_cast<size_t>(grouping.rest);
    std::string result;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && i <= first && (first - i) % rest == 0) result += separator;
        result += digits[i];
    }
    return result;
}

// Exact or an overestimate: UTF-8 never has fewer bytes than UTF-16 has units, so short texts need no count.
int checked(std::string text, std::string& out) {
    if (text.size() > LongestText) {
        size_t units = 0;
        for (unsigned char c : text) units += (c & 0xC0) == 0x80 ? 0 : c >= 0xF0 ? 2 : 1;
        if (units > LongestText) return ENOBUFS;
    }
    out = std::move(text);
    return 0;
}

int plainNumber(LocaleId id, std::string_view decimal, const LocaleFormats*& formats, std::string& text) {
    int error = 0;
    if (!(formats = localeFormats(id, error))) return error;
    Decimal number;
    if ((error = parse(decimal, number))) return error;
    roundTo(number, NumberDecimals);
    std::string body =
        grouped(number.whole, formats->grouping, formats->group) + formats->decimal + number.fraction;
    if (number.negative) body = formats->negativeOrder == 3 ? body + formats->minus : formats->minus + body;
    return checked(std::move(body), text);
}

// Puts the parts of a money text in order; `order` counts as negative orders do.
std::string moneyIn(int order, const std::string& n, const std::string& s, const std::string& m,
                    const std::string& b) {
    switch (order) {
        case 0: return "(" + s + n + ")";
        case 1: return m + s + n;
        case 2: return s + m + n;
        case 3: return s + n + m;
        case 4: return "(" + n + s + ")";
        case 5: return m + n + s;
        case 6: return n + m + s;
        case 7: return n + s + m;
        case 8: return m + n + b + s;
        case 9: return m + s + b + n;
        case 10: return n + b + s + m;
        case 11: return s + b + n + m;
        case 12: return s + b + m + n;
        case 13: return n + m + b + s;
        case 14: return "(" + s + b + n + ")";
        default: return "(" + n + b + s + ")";
    }
}

// ICU's time of the fields in a Gregorian calendar without a zone.
int instantOf(const std::tm& local, UDate& instant) {
    const int year = local.tm_year + 1900;
    if (year < 1601 || year > 30827) return EINVAL;
    UErrorCode status = U_ZERO_ERROR;
    icu::GregorianCalendar calendar(*icu::TimeZone::getGMT(), icu::Locale::getRoot(), status);
    calendar.setLenient(false);
    calendar.set(year, local.tm_mon, local.tm_mday, local.tm_hour, local.tm_min, std::min(local.tm_sec, 59));
    calendar.set(UCAL_MILLISECOND, 0);
    instant = calendar.getTime(status);
    return U_SUCCESS(status) ? 0 : EINVAL;
}

int formatted(const LocaleFormats& formats, const DatePattern& pattern, const std::tm& local,
              std::string& out) {
    UDate instant = 0;
    if (int error = instantOf(local, instant)) return error;
    if (!pattern.format) {
        UErrorCode status = U_ZERO_ERROR;
        auto made = std::make_unique<icu::SimpleDateFormat>(pattern.icu, formats.locale, status);
        if (U_FAILURE(status)) return EINVAL;
        made->setTimeZone(*icu::TimeZone::getGMT());
        pattern.format = std::move(made);
    }
    icu::UnicodeString text;
    return checked(toUtf8(pattern.format->format(instant, text)), out);
}

}  // namespace

int numberText(LocaleId id, std::string_view decimal, std::string& out) {
    const LocaleFormats* formats = nullptr;
    return plainNumber(id, decimal, formats, out);
}

int integerText(LocaleId id, std::string_view decimal, std::string& out) {
    const LocaleFormats* formats = nullptr;
    std::string text;
    if (int error = plainNumber(id, decimal, formats, text)) return error;
    out = text.substr(0, text.find(formats->decimal));
    return 0;
}

int currencyText(LocaleId id, std::string_view decimal, std::string& out) {
    int error = 0;
    const LocaleFormats* formats = localeFormats(id, error);
    if (!formats) return error;
    Decimal number;
    if ((error = parse(decimal, number))) return error;
    roundTo(number, static_cast<size_t>(formats->currencyDigits));
    std::string body = grouped(number.whole, formats->currencyGrouping, formats->currencyGroup);
    if (formats->currencyDigits > 0) body += formats->currencyDecimal + number.fraction;
    static constexpr int Unsigned[] = {1, 5, 9, 8};
    int order = number.negative ? formats->negativeCurrencyOrder : Unsigned[formats->currencyOrder];
    return checked(moneyIn(order, body, formats->currency, number.negative ? formats->minus : "",
                           formats->currencySpace),
                   out);
}

int dateText(LocaleId id, const std::tm& local, bool longForm, std::string& out) {
    int error = 0;
    const LocaleFormats* formats = localeFormats(id, error);
    return formats ? formatted(*formats, longForm ? formats->longDate : formats->shortDate, local, out)
                   : error;
}

int timeText(LocaleId id, const std::tm& local, std::string& out) {
    int error = 0;
    const LocaleFormats* formats = localeFormats(id, error);
    return formats ? formatted(*formats, formats->time, local, out) : error;
}

}  // namespace platform
