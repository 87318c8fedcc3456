// Reading a locale's conventions out of ICU.
//
// Numbers are always written with the digits 0 to 9: the callers parse and cut these texts, and a change of
// digits is a matter of display there as well. Dates use the locale's own calendar. Two things of ICU's
// patterns are levelled: years get four digits, and the invisible direction marks and the narrow spaces of
// time patterns go, because the texts end in logs, tables and file names.
#include "platform/pf_localeformats.h"

#include <unicode/dcfmtsym.h>
#include <unicode/decimfmt.h>
#include <unicode/dtptngen.h>
#include <unicode/ucurr.h>

#include <array>
#include <cerrno>

namespace platform {

namespace {

bool isDirectionMark(char16_t c) { return c == 0x200E || c == 0x200F || c == 0x061C; }
bool isSpace(char16_t c) { return c == ' ' || c == 0xA0 || c == 0x202F || c == 0x2009; }
bool isLetter(char16_t c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

icu::UnicodeString withoutMarks(const icu::UnicodeString& text) {
    icu::UnicodeString kept;
    for (int32_t i = 0; i < text.length(); ++i)
        if (!isDirectionMark(text[i])) kept.append(text[i]);
    return kept;
}

// Four-digit years, plain spaces, no direction marks.
icu::UnicodeString levelled(const icu::UnicodeString& pattern) {
    icu::UnicodeString result;
    bool quoted = false;
    for (int32_t i = 0; i < pattern.length(); ++i) {
        char16_t c = pattern[i];
        if (c == '\'') quoted = !quoted;
        if (isDirectionMark(c)) continue;
        if (c == 'y' && !quoted) {
            while (i + 1 < pattern.length() && pattern[i + 1] == 'y') ++i;
            result.append(u"yyyy", 4);
        } else {
            result.append(c == 0x202F || c == 0x2009 ? u' ' : c);
        }
    }
    return result;
}

// The field of a picture for `count` times the pattern letter `letter`.
std::string pictureField(char16_t letter, int count) {
    const auto repeated = [](char c, int times) { return std::string(static_cast<size_t>(times), c); };
    switch (letter) {
        case 'y':
        case 'u':
        case 'r': return "yyyy";
        case 'M':
        case 'L': return repeated('M', count <= 4 ? count : 1);
        case 'd': return repeated('d', count <= 2 ? count : 2);
        case 'E':
        case 'c':
        case 'e': return count == 4 ? "dddd" : "ddd";
        case 'G': return "gg";
        case 'h':
        case 'K': return repeated('h', count <= 2 ? count : 2);
        case 'H':
        case 'k': return repeated('H', count <= 2 ? count : 2);
        case 'm': return repeated('m', count <= 2 ? count : 2);
        case 's': return repeated('s', count <= 2 ? count : 2);
        case 'a':
        case 'b':
        case 'B': return "tt";
        default: return "";
    }
}

std::string pictureOf(const icu::UnicodeString& pattern) {
    std::string picture;
    for (int32_t i = 0; i < pattern.length();) {
        char16_t c = pattern[i];
        if (isLetter(c)) {
            int count = 1;
            while (i + count < pattern.length() && pattern[i + count] == c) ++count;
            picture += pictureField(c, count);
            i += count;
        } else {
            icu::UnicodeString(pattern, i, pattern.getChar32Limit(i + 1) - i).toUTF8String(picture);
            i = pattern.getChar32Limit(i + 1);
            if (c != '\'') continue;
            // Quoted text is written the same way in both worlds.
            int32_t end = pattern.indexOf(u'\'', i);
            if (end < 0) end = pattern.length() - 1;
            icu::UnicodeString(pattern, i, end + 1 - i).toUTF8String(picture);
            i = end + 1;
        }
    }
    return picture;
}

Grouping groupingOf(const icu::DecimalFormat& format) {
    if (!format.isGroupingUsed() || format.getGroupingSize() <= 0) return {};
    int first = format.getGroupingSize(), rest = format.getSecondaryGroupingSize();
    return {first, rest > 0 ? rest : first};
}

void readNumbers(LocaleFormats& formats, UErrorCode& status) {
    std::unique_ptr<icu::NumberFormat> made(icu::NumberFormat::createInstance(formats.locale, status));
    auto* format = dynamic_cast<icu::DecimalFormat*>(made.get());
    icu::DecimalFormatSymbols symbols(formats.locale, status);
    if (U_FAILURE(status)) return;
    if (!format) {
        status = U_UNSUPPORTED_ERROR;
        return;
    }
    using Symbols = icu::DecimalFormatSymbols;
    const auto symbol = [&](Symbols::ENumberFormatSymbol which) {
        return toUtf8(withoutMarks(symbols.getSymbol(which)));
    };
    formats.decimal = symbol(Symbols::kDecimalSeparatorSymbol);
    formats.group = symbol(Symbols::kGroupingSeparatorSymbol);
    formats.minus = symbol(Symbols::kMinusSignSymbol);
    formats.currencyDecimal = symbol(Symbols::kMonetarySeparatorSymbol);
    formats.currencyGroup = symbol(Symbols::kMonetaryGroupingSeparatorSymbol);
    formats.grouping = groupingOf(*format);
    icu::UnicodeString suffix;
    formats.negativeOrder = format->getNegativeSuffix(suffix).isEmpty() ? 1 : 3;
}

// Where symbol, sign and number stand in a currency pattern's half ("-¤ #,##0.00" as "-¤ n").
icu::UnicodeString outline(const icu::UnicodeString& pattern) {
    icu::UnicodeString shape;
    bool number = false;
    for (int32_t i = 0; i < pattern.length(); ++i) {
        char16_t c = pattern[i];
        if (c == '#' || c == '0' || c == ',' || c == '.') {
            if (!number) shape.append(u'n');
            number = true;
        } else if (isSpace(c)) {
            shape.append(u' ');
        } else if (c == 0xA4 || c == '-' || c == '(' || c == ')') {
            if (c != 0xA4 || !shape.endsWith(icu::UnicodeString(u'\u00A4'))) shape.append(c);
        }
    }
    return shape.trim();
}

int orderOf(const icu::UnicodeString& shape, const char16_t* const* orders, int count, int otherwise) {
    for (int i = 0; i < count; ++i)
        if (shape == icu::UnicodeString(orders[i])) return i;
    return otherwise;
}

void readCurrency(LocaleFormats& formats, UErrorCode& status) {
    static constexpr const char16_t* Positive[] = {u"\u00A4n", u"n\u00A4", u"\u00A4 n", u"n \u00A4"};
    static constexpr const char16_t* Negative[] = {u"(\u00A4n)", u"-\u00A4n",  u"\u00A4-n",   u"\u00A4n-",
                                                   u"(n\u00A4)", u"-n\u00A4",  u"n-\u00A4",   u"n\u00A4-",
                                                   u"-n \u00A4", u"-\u00A4 n", u"n \u00A4-",  u"\u00A4 n-",
                                                   u"\u00A4 -n", u"n- \u00A4", u"(\u00A4 n)", u"(n \u00A4)"};
    static constexpr int Plain[] = {1, 5, 9, 8};
    std::unique_ptr<icu::NumberFormat> made(
        icu::NumberFormat::createCurrencyInstance(formats.locale, status));
    if (U_FAILURE(status)) return;
    auto* format = dynamic_cast<icu::DecimalFormat*>(made.get());
    if (!format) {
        status = U_UNSUPPORTED_ERROR;
        return;
    }
    char16_t code[4] = u"XXX";
    UErrorCode none = U_ZERO_ERROR;
    ucurr_forLocale(formats.locale.getName(), code, 4, &none);  // a locale without a region has no currency
    if (U_FAILURE(none) || !*code) icu::UnicodeString(u"XXX").extract(code, 4, none);
    formats.currencyCode = toUtf8(icu::UnicodeString(code, 3));
    int32_t length = 0;
    const char16_t* name =
        ucurr_getName(code, formats.locale.getName(), UCURR_SYMBOL_NAME, nullptr, &length, &status);
    formats.currency = toUtf8(withoutMarks(icu::UnicodeString(name, length)));
    formats.currencyDigits = ucurr_getDefaultFractionDigits(code, &status);
    formats.currencyGrouping = groupingOf(*format);

    icu::UnicodeString pattern;
    format->toPattern(pattern);
    int32_t half = pattern.indexOf(u';');
    icu::UnicodeString positive = outline(half < 0 ? pattern : pattern.tempSubString(0, half));
    formats.currencyOrder = orderOf(positive, Positive, 4, 0);
    formats.negativeCurrencyOrder = Plain[formats.currencyOrder];
    if (half >= 0)
        formats.negativeCurrencyOrder =
            orderOf(outline(pattern.tempSubString(half + 1)), Negative, 16, formats.negativeCurrencyOrder);
    formats.currencySpace = "\u00A0";
}

void readPattern(DatePattern& pattern, const icu::DateFormat* format, UErrorCode& status) {
    const auto* simple = dynamic_cast<const icu::SimpleDateFormat*>(format);
    if (!simple) {
        status = U_UNSUPPORTED_ERROR;
        return;
    }
    icu::UnicodeString text;
    pattern.icu = levelled(simple->toPattern(text));
    pattern.picture = pictureOf(pattern.icu);
}

void readDates(LocaleFormats& formats, UErrorCode& status) {
    using icu::DateFormat;
    using Handle = std::unique_ptr<DateFormat>;
    readPattern(formats.shortDate,
                Handle(DateFormat::createDateInstance(DateFormat::kShort, formats.locale)).get(), status);
    readPattern(formats.longDate,
                Handle(DateFormat::createDateInstance(DateFormat::kFull, formats.locale)).get(), status);
    readPattern(formats.time,
                Handle(DateFormat::createTimeInstance(DateFormat::kMedium, formats.locale)).get(), status);
    std::unique_ptr<icu::DateTimePatternGenerator> generator(
        icu::DateTimePatternGenerator::createInstance(formats.locale, status));
    if (U_FAILURE(status)) return;
    formats.yearMonth.icu = levelled(generator->getBestPattern(u"yMMMM", status));
    formats.yearMonth.picture = pictureOf(formats.yearMonth.icu);
}

int read(LocaleFormats& formats, LocaleId id) {
    std::string name;
    if (int error = localeOfId(id, name)) return error;
    UErrorCode status = U_ZERO_ERROR;
    formats.id = id;
    formats.locale = icu::Locale(name.c_str());
    formats.locale.setKeywordValue("numbers", "latn", status);
    readNumbers(formats, status);
    readCurrency(formats, status);
    readDates(formats, status);
    return U_SUCCESS(status) ? 0 : status == U_MEMORY_ALLOCATION_ERROR ? ENOMEM : EINVAL;
}

}  // namespace

std::string toUtf8(const icu::UnicodeString& text) {
    std::string bytes;
    text.toUTF8String(bytes);
    return bytes;
}

std::string Grouping::text() const {
    if (first == 0) return "0";
    std::string sizes = std::to_string(first);
    if (rest != first) sizes += ";" + std::to_string(rest);
    return sizes + ";0";
}

const LocaleFormats* localeFormats(LocaleId id, int& error) {
    thread_local std::array<std::unique_ptr<LocaleFormats>, 4> cache;
    thread_local size_t next = 0;
    error = 0;
    for (const auto& entry : cache)
        if (entry && entry->id == id) return entry.get();
    auto formats = std::make_unique<LocaleFormats>();
    if ((error = read(*formats, id))) return nullptr;
    auto& place = cache[next++ % cache.size()];
    place = std::move(formats);
    return place.get();
}

}  // namespace platform
