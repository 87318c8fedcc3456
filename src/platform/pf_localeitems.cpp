// Locale items: one row for each key or run of keys, with the number of the first and the function that gives
// it.
//
// The functions read the formats that number and date texts use, so an item and a text never disagree.
// Languages and regions that the id leaves out are filled in by likely subtags ("de" is German of Germany).
// Names of languages and regions that are to be read by the user are in the user's own locale.
#include "platform/pf_localeitems.h"

#include <unicode/calendar.h>
#include <unicode/dtfmtsym.h>
#include <unicode/numsys.h>
#include <unicode/ucal.h>
#include <unicode/ucurr.h>
#include <unicode/uenum.h>
#include <unicode/uloc.h>
#include <unicode/ulocdata.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "platform/pf_localeformats.h"
#include "platform/pf_localetables.h"

namespace platform {

namespace {

// What an item's function works on. `status` is ICU's and is checked by the caller.
struct Query {
    const LocaleFormats& formats;
    icu::Locale full;  // language, script and region all present
    int index;         // place in a run of keys, from 0
    UErrorCode status = U_ZERO_ERROR;

    const char* name() const { return formats.locale.getName(); }
};

using Getter = std::string (*)(Query&);

std::string number(int value) { return std::to_string(value); }

icu::Locale reader() { return icu::Locale(userLocaleName().c_str()); }

std::string hexId(const Query& q) {
    LocaleId id = q.formats.id & 0xFFFF;
    if (id == 0 || id == 0x400 || id == 0x800) id = userLocaleId();
    char text[8];
    snprintf(text, sizeof text, "%04x", id);
    return text;
}

// Names.

std::string languageName(const Query& q, const icu::Locale& in, bool withRegion) {
    icu::UnicodeString text;
    icu::Locale bare(q.formats.locale.getBaseName());
    withRegion ? bare.getDisplayName(in, text) : bare.getDisplayLanguage(in, text);
    return toUtf8(text);
}

std::string regionName(const Query& q, const icu::Locale& in) {
    icu::UnicodeString text;
    return toUtf8(q.full.getDisplayCountry(in, text));
}

std::string abbreviatedLanguage(Query& q) {
    std::string text = languageAbbreviation(q.full.getLanguage(), q.full.getScript(), q.full.getCountry());
    if (text.empty())
        for (const char* c = q.full.getISO3Language(); *c; ++c) text += static_cast<char>(*c - ('a' - 'A'));
    return text;
}

std::string currencyName(Query& q, const char* in) {
    char16_t code[4] = {};
    icu::UnicodeString::fromUTF8(q.formats.currencyCode).extract(code, 4, q.status);
    int32_t length = 0;
    const char16_t* text = ucurr_getName(code, in, UCURR_LONG_NAME, nullptr, &length, &q.status);
    return U_SUCCESS(q.status) ? toUtf8(icu::UnicodeString(text, length)) : "";
}

template <CodePageKind Kind>
std::string codePage(Query& q) {
    return number(static_cast<int>(localeCodePage(q.formats.id, Kind)));
}

// Measures, numbers.

std::string measure(Query& q) {
    return ulocdata_getMeasurementSystem(q.full.getName(), &q.status) == UMS_US ? "1" : "0";
}

std::string paperSize(Query& q) {
    int32_t height = 0, width = 0;
    ulocdata_getPaperSize(q.full.getName(), &height, &width, &q.status);
    return width == 216 ? "1" : "9";  // letter or A4
}

std::string nativeDigits(Query& q) {
    icu::Locale native(q.formats.locale.getBaseName());
    native.setKeywordValue("numbers", "native", q.status);
    std::unique_ptr<icu::NumberingSystem> system(icu::NumberingSystem::createInstance(native, q.status));
    if (U_FAILURE(q.status)) return "";
    return system->isAlgorithmic() ? "0123456789" : toUtf8(system->getDescription());
}

// 1: digits are never substituted; 0: by the text before them; 2: always the national ones.
std::string digitSubstitution(Query& q) {
    std::unique_ptr<icu::NumberingSystem> system(
        icu::NumberingSystem::createInstance(icu::Locale(q.formats.locale.getBaseName()), q.status));
    if (U_FAILURE(q.status)) return "";
    if (std::string_view(q.full.getLanguage()) == "ar") return "0";
    return std::string_view(system->getName()) == "latn" ? "1" : "2";
}

// Money. For each order: where the sign stands (0 in brackets, 1 before all, 2 after all, 3 right before the
// symbol, 4 right after it), whether the symbol comes first, whether a blank parts it from the number.
struct Order {
    char sign, symbolFirst, blank;
};
constexpr Order Negative[] = {{0, 1, 0}, {3, 1, 0}, {4, 1, 0}, {2, 1, 0}, {0, 0, 0}, {1, 0, 0},
                              {3, 0, 0}, {4, 0, 0}, {1, 0, 1}, {3, 1, 1}, {4, 0, 1}, {2, 1, 1},
                              {4, 1, 1}, {3, 0, 1}, {0, 1, 1}, {0, 0, 1}};
constexpr Order Positive[] = {{3, 1, 0}, {1, 0, 0}, {3, 1, 1}, {1, 0, 1}};

const Order& negative(const Query& q) { return Negative[q.formats.negativeCurrencyOrder]; }
const Order& positive(const Query& q) { return Positive[q.formats.currencyOrder]; }

// Dates.

// What lies between the first two fields of a picture, without blanks on the way.
std::string separatorOf(const std::string& picture) {
    size_t field = picture.find_first_of("dMyHhmst");
    size_t end = field == std::string::npos ? field : picture.find_first_not_of(picture[field], field);
    if (end == std::string::npos) return "";
    size_t next = picture.find_first_of("dMyHhmst", end);
    return picture.substr(end, next == std::string::npos ? next : next - end);
}

// 0 month, day, year; 1 day, month, year; 2 year, month, day.
std::string orderOfDate(const std::string& picture) {
    size_t day = picture.find('d'), month = picture.find('M'), year = picture.find('y');
    // A weekday in front is not the day of the month.
    if (size_t name = picture.find("ddd"); name != std::string::npos)
        day = picture.find('d', picture.find_first_not_of('d', name));
    return year < month ? "2" : day < month ? "1" : "0";
}

std::string has(const std::string& picture, const char* field) {
    return picture.find(field) == std::string::npos ? "0" : "1";
}

int calendarNumber(std::string_view type) {
    if (type == "japanese") return 3;
    if (type == "roc") return 4;
    if (type.starts_with("islamic")) return type == "islamic-umalqura" ? 23 : 6;
    if (type == "buddhist") return 7;
    if (type == "hebrew") return 8;
    if (type == "persian") return 22;
    return 1;
}

std::string calendarType(Query& q) {
    std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(q.formats.locale, q.status));
    return U_SUCCESS(q.status) ? number(calendarNumber(calendar->getType())) : "";
}

std::string optionalCalendar(Query& q) {
    std::unique_ptr<UEnumeration, decltype(&uenum_close)> types(
        ucal_getKeywordValuesForLocale("calendar", q.full.getName(), true, &q.status), uenum_close);
    int first = 0;
    while (const char* type = uenum_next(types.get(), nullptr, &q.status)) {
        int kind = calendarNumber(type);
        if (first && kind != first) return number(kind);
        if (!first) first = kind;
    }
    return "0";
}

std::string firstDay(Query& q) {
    std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(q.full, q.status));
    if (U_FAILURE(q.status)) return "";
    return number((calendar->getFirstDayOfWeek(q.status) + 5) % 7);  // from Sunday = 1 to Monday = 0
}

std::string firstWeek(Query& q) {
    std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(q.full, q.status));
    if (U_FAILURE(q.status)) return "";
    int days = calendar->getMinimalDaysInFirstWeek();
    return days == 7 ? "1" : days == 4 ? "2" : "0";
}

template <bool Month, icu::DateFormatSymbols::DtWidthType Width>
std::string dateName(Query& q) {
    icu::DateFormatSymbols symbols(q.formats.locale, q.status);
    if (U_FAILURE(q.status)) return "";
    int32_t count = 0;
    constexpr auto Alone = icu::DateFormatSymbols::STANDALONE;
    const icu::UnicodeString* names =
        Month ? symbols.getMonths(count, Alone, Width) : symbols.getWeekdays(count, Alone, Width);
    // Weekdays run from Sunday at 1; the keys from Monday.
    int at = Month ? q.index : (q.index + 1) % 7 + 1;
    return at < count ? toUtf8(names[at]) : "";
}

template <int Half>
std::string dayHalf(Query& q) {
    icu::DateFormatSymbols symbols(q.formats.locale, q.status);
    if (U_FAILURE(q.status)) return "";
    int32_t count = 0;
    const icu::UnicodeString* names = symbols.getAmPmStrings(count);
    return Half < count ? toUtf8(names[Half]) : "";
}

struct Item {
    std::uint32_t number;
    const char* key;
    Getter get;
    int run = 1;         // keys "KEY1" to "KEYn" with consecutive numbers
    int firstInRun = 0;  // place of the first key in a run that is split over two rows
};

constexpr auto Wide = icu::DateFormatSymbols::WIDE;
constexpr auto Short = icu::DateFormatSymbols::ABBREVIATED;

constexpr Item Items[] = {
    {0x1, "ILANGUAGE", [](Query& q) { return hexId(q); }},
    {0x2, "SLANGUAGE", [](Query& q) { return languageName(q, reader(), true); }},
    {0x3, "SABBREVLANGNAME", abbreviatedLanguage},
    {0x4, "SNATIVELANGNAME", [](Query& q) { return languageName(q, q.formats.locale, false); }},
    {0x5, "ICOUNTRY", [](Query& q) { return number(diallingPrefix(q.full.getCountry())); }},
    {0x6, "SCOUNTRY", [](Query& q) { return regionName(q, reader()); }},
    {0x7, "SABBREVCTRYNAME", [](Query& q) { return std::string(q.full.getISO3Country()); }},
    {0x8, "SNATIVECTRYNAME", [](Query& q) { return regionName(q, q.formats.locale); }},
    {0x9, "IDEFAULTLANGUAGE", [](Query& q) { return hexId(q); }},
    {0xA, "IDEFAULTCOUNTRY", [](Query& q) { return number(diallingPrefix(q.full.getCountry())); }},
    {0xB, "IDEFAULTCODEPAGE", codePage<CodePageKind::Oem>},
    {0xC, "SLIST", [](Query& q) { return std::string(q.formats.decimal == "," ? ";" : ","); }},
    {0xD, "IMEASURE", measure},
    {0xE, "SDECIMAL", [](Query& q) { return q.formats.decimal; }},
    {0xF, "STHOUSAND", [](Query& q) { return q.formats.group; }},
    {0x10, "SGROUPING", [](Query& q) { return q.formats.grouping.text(); }},
    {0x11, "IDIGITS", [](Query&) { return number(2); }},
    {0x12, "ILZERO", [](Query&) { return number(1); }},
    {0x13, "SNATIVEDIGITS", nativeDigits},
    {0x14, "SCURRENCY", [](Query& q) { return q.formats.currency; }},
    {0x15, "SINTLSYMBOL", [](Query& q) { return q.formats.currencyCode; }},
    {0x16, "SMONDECIMALSEP", [](Query& q) { return q.formats.currencyDecimal; }},
    {0x17, "SMONTHOUSANDSEP", [](Query& q) { return q.formats.currencyGroup; }},
    {0x18, "SMONGROUPING", [](Query& q) { return q.formats.currencyGrouping.text(); }},
    {0x19, "ICURRDIGITS", [](Query& q) { return number(q.formats.currencyDigits); }},
    {0x1A, "IINTLCURRDIGITS", [](Query& q) { return number(q.formats.currencyDigits); }},
    {0x1B, "ICURRENCY", [](Query& q) { return number(q.formats.currencyOrder); }},
    {0x1C, "INEGCURR", [](Query& q) { return number(q.formats.negativeCurrencyOrder); }},
    {0x1D, "SDATE", [](Query& q) { return separatorOf(q.formats.shortDate.picture); }},
    {0x1E, "STIME", [](Query& q) { return separatorOf(q.formats.time.picture); }},
    {0x1F, "SSHORTDATE", [](Query& q) { return q.formats.shortDate.picture; }},
    {0x20, "SLONGDATE", [](Query& q) { return q.formats.longDate.picture; }},
    {0x21, "IDATE", [](Query& q) { return orderOfDate(q.formats.shortDate.picture); }},
    {0x22, "ILDATE", [](Query& q) { return orderOfDate(q.formats.longDate.picture); }},
    {0x23, "ITIME", [](Query& q) { return has(q.formats.time.picture, "H"); }},
    {0x24, "ICENTURY", [](Query& q) { return has(q.formats.shortDate.picture, "yyyy"); }},
    {0x25, "ITLZERO",
     [](Query& q) {
         return number(has(q.formats.time.picture, "hh") == "1" || has(q.formats.time.picture, "HH") == "1");
     }},
    {0x26, "IDAYLZERO", [](Query& q) { return has(q.formats.shortDate.picture, "dd"); }},
    {0x27, "IMONLZERO", [](Query& q) { return has(q.formats.shortDate.picture, "MM"); }},
    {0x28, "S1159", dayHalf<0>},
    {0x29, "S2359", dayHalf<1>},
    {0x2A, "SDAYNAME", dateName<false, Wide>, 7},
    {0x31, "SABBREVDAYNAME", dateName<false, Short>, 7},
    {0x38, "SMONTHNAME", dateName<true, Wide>, 12},
    {0x44, "SABBREVMONTHNAME", dateName<true, Short>, 12},
    {0x50, "SPOSITIVESIGN", [](Query& q) { return q.formats.plus; }},
    {0x51, "SNEGATIVESIGN", [](Query& q) { return q.formats.minus; }},
    {0x52, "IPOSSIGNPOSN", [](Query& q) { return number(positive(q).sign); }},
    {0x53, "INEGSIGNPOSN", [](Query& q) { return number(negative(q).sign); }},
    {0x54, "IPOSSYMPRECEDES", [](Query& q) { return number(positive(q).symbolFirst); }},
    {0x55, "IPOSSEPBYSPACE", [](Query& q) { return number(positive(q).blank); }},
    {0x56, "INEGSYMPRECEDES", [](Query& q) { return number(negative(q).symbolFirst); }},
    {0x57, "INEGSEPBYSPACE", [](Query& q) { return number(negative(q).blank); }},
    {0x58, "FONTSIGNATURE",
     [](Query& q) {
         q.status = U_UNSUPPORTED_ERROR;
         return std::string();
     }},
    {0x59, "SISO639LANGNAME", [](Query& q) { return std::string(q.full.getLanguage()); }},
    {0x5A, "SISO3166CTRYNAME", [](Query& q) { return std::string(q.full.getCountry()); }},
    {0x1001, "SENGLANGUAGE", [](Query& q) { return languageName(q, icu::Locale::getEnglish(), false); }},
    {0x1002, "SENGCOUNTRY", [](Query& q) { return regionName(q, icu::Locale::getEnglish()); }},
    {0x1003, "STIMEFORMAT", [](Query& q) { return q.formats.time.picture; }},
    {0x1004, "IDEFAULTANSICODEPAGE", codePage<CodePageKind::Ansi>},
    {0x1005, "ITIMEMARKPOSN", [](Query& q) { return number(q.formats.time.picture.starts_with("tt")); }},
    {0x1006, "SYEARMONTH", [](Query& q) { return q.formats.yearMonth.picture; }},
    {0x1007, "SENGCURRNAME", [](Query& q) { return currencyName(q, "en"); }},
    {0x1008, "SNATIVECURRNAME", [](Query& q) { return currencyName(q, q.name()); }},
    {0x1009, "ICALENDARTYPE", calendarType},
    {0x100A, "IPAPERSIZE", paperSize},
    {0x100B, "IOPTIONALCALENDAR", optionalCalendar},
    {0x100C, "IFIRSTDAYOFWEEK", firstDay},
    {0x100D, "IFIRSTWEEKOFYEAR", firstWeek},
    {0x100E, "SMONTHNAME13", dateName<true, Wide>, 1, 12},
    {0x100F, "SABBREVMONTHNAME13", dateName<true, Short>, 1, 12},
    {0x1010, "INEGNUMBER", [](Query& q) { return number(q.formats.negativeOrder); }},
    {0x1011, "IDEFAULTMACCODEPAGE", codePage<CodePageKind::Mac>},
    {0x1012, "IDEFAULTEBCDICCODEPAGE", codePage<CodePageKind::Ebcdic>},
    {0x1013, "SSORTNAME", [](Query&) { return std::string("Default"); }},
    {0x1014, "IDIGITSUBSTITUTION", digitSubstitution},
};

// Language, script and region, the likely ones where the locale leaves them out.
icu::Locale filled(const icu::Locale& locale) {
    icu::Locale full(locale.getBaseName());
    UErrorCode status = U_ZERO_ERROR;
    full.addLikelySubtags(status);
    return full;
}

}  // namespace

std::uint32_t localeItemNumber(std::string_view key) {
    for (const Item& item : Items) {
        if (item.run == 1 && key == item.key) return item.number;
        std::string_view stem = item.key;
        if (item.run == 1 || !key.starts_with(stem)) continue;
        std::string_view tail = key.substr(stem.size());
        for (int i = 0; i < item.run; ++i)
            if (tail == std::to_string(i + 1)) return item.number + static_cast<std::uint32_t>(i);
    }
    return 0;
}

int localeItem(LocaleId id, std::uint32_t number, std::string& out) {
    for (const Item& item : Items) {
        if (number < item.number || number - item.number >= static_cast<std::uint32_t>(item.run)) continue;
        int error = 0;
        const LocaleFormats* formats = localeFormats(id, error);
        if (!formats) return error;
        Query query{*formats, filled(formats->locale),
                    static_cast<int>(number - item.number) + item.firstInRun};
        std::string text = item.get(query);
        if (U_FAILURE(query.status)) return query.status == U_UNSUPPORTED_ERROR ? ENOTSUP : EINVAL;
        out = std::move(text);
        return 0;
    }
    return EINVAL;
}

std::uint32_t localeCodePage(LocaleId id, CodePageKind kind) {
    std::string name;
    if (localeOfId(id, name)) return 0;
    icu::Locale full = filled(icu::Locale(name.c_str()));
    LanguageCodePages pages = codePagesOf(full.getLanguage(), full.getScript(), full.getCountry());
    switch (kind) {
        case CodePageKind::Ansi: return pages.ansi;
        case CodePageKind::Oem: return pages.oem;
        case CodePageKind::Mac: return pages.mac;
        default: return pages.ebcdic;
    }
}

}  // namespace platform
