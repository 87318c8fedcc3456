#include <gtest/gtest.h>
#include <unicode/ucol.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "platform/pf_codepages.h"
#include "platform/pf_collation.h"
#include "platform/pf_locale.h"
#include "platform/pf_localeitems.h"
#include "platform/pf_localetext.h"

using namespace platform;

namespace {

constexpr LocaleId English = 0x409, German = 0x407, French = 0x40C, Turkish = 0x41F, Hindi = 0x439,
                   Czech = 0x405, Japanese = 0x411, SwissGerman = 0x807, Lithuanian = 0x427, Danish = 0x406,
                   Hungarian = 0x40E, Thai = 0x41E, Greek = 0x408, British = 0x809;
constexpr LocaleId Unknown = 0x3FF;

template <typename Call, typename... Arguments>
std::string textOf(Call call, const Arguments&... arguments) {
    std::string out = "untouched";
    int error = call(arguments..., out);
    return error ? "error " + std::to_string(error) : out;
}

std::string item(LocaleId id, const char* key) {
    std::string out;
    int error = localeItem(id, localeItemNumber(key), out);
    return error ? "error " + std::to_string(error) : out;
}

std::string upper(LocaleId id, std::string_view text) {
    std::string out;
    EXPECT_EQ(toUpper(id, text, out), 0);
    return out;
}

std::string lower(LocaleId id, std::string_view text) {
    std::string out;
    EXPECT_EQ(toLower(id, text, out), 0);
    return out;
}

int order(LocaleId id, std::string_view a, std::string_view b, unsigned flags = 0) {
    int result = 9;
    EXPECT_EQ(collate(id, a, b, flags, result), 0);
    return result;
}

TEST(Locale, DefaultsComeFromTheEnvironment) {
    EXPECT_EQ(localeNameFor(nullptr, nullptr, nullptr), "en_US");
    EXPECT_EQ(localeNameFor("", "C", "de_DE"), "en_US");
    EXPECT_EQ(localeNameFor("POSIX", "de_DE", nullptr), "en_US");
    EXPECT_EQ(localeNameFor("C.UTF-8", nullptr, nullptr), "en_US");
    EXPECT_EQ(localeNameFor(nullptr, nullptr, "de_AT.ISO-8859-15@euro"), "de_AT");
    EXPECT_EQ(localeNameFor(nullptr, nullptr, "sr_RS@latin"), "sr_Latn_RS");
    EXPECT_EQ(localeNameFor("../../etc/passwd", nullptr, nullptr), "en_US");
    EXPECT_EQ(localeNameFor(std::string(5000, 'x').c_str(), nullptr, nullptr), "en_US");
    EXPECT_EQ(codePageFor(nullptr, nullptr, "de_DE.UTF-8"), 65001u);
    EXPECT_EQ(codePageFor(nullptr, nullptr, "de_DE.ISO-8859-15@euro"), 28605u);
    EXPECT_EQ(codePageFor(nullptr, nullptr, "ru_RU.KOI8-R"), 20866u);
    EXPECT_EQ(codePageFor(nullptr, nullptr, "ja_JP.eucJP"), 20932u);
    EXPECT_EQ(codePageFor(nullptr, nullptr, "de_DE.nonsense"), 65001u);
    EXPECT_EQ(codePageFor("C", nullptr, nullptr), 65001u);
}

TEST(Locale, IdsAndNames) {
    std::string name;
    for (auto [id, text] :
         {std::pair<LocaleId, std::string>{German, "de_DE"}, {0x12340407, "de_DE"}, {0, userLocaleName()}}) {
        EXPECT_EQ(localeOfId(id, name), 0);
        EXPECT_EQ(name, text);
    }
    EXPECT_EQ(localeOfId(Unknown, name), EINVAL);
    EXPECT_EQ(idOfLocale("de_CH"), SwissGerman);
    EXPECT_EQ(idOfLocale("en_DE"), 0x1000u);
}

TEST(Locale, CaseMappingFollowsTheLanguage) {
    EXPECT_EQ(upper(German, "straße"), "STRASSE");
    EXPECT_EQ(upper(Turkish, "title"), "TİTLE");
    EXPECT_EQ(lower(Turkish, "TITLE"), "tıtle");
    EXPECT_EQ(lower(Greek, "ΟΔΟΣ"), "οδος");
    EXPECT_EQ(upper(English, "a\xFFz"), "A\xFFZ");
    EXPECT_EQ(lower(English, std::string_view("A\0B", 3)), std::string_view("a\0b", 3));
    std::u16string wide;
    EXPECT_EQ(toUpper(English, u"a\xD800ß", wide), 0);
    EXPECT_EQ(wide, u"A\xD800SS");
    std::u32string codes = U"straße ǆ";
    codes += {0xD800, 0x110000};
    EXPECT_EQ(toUpper(German, codes), 0);
    EXPECT_EQ(codes.substr(0, 8), U"STRAßE Ǆ");
    EXPECT_EQ(codes[8], char32_t{0xD800});
    EXPECT_EQ(codes[9], char32_t{0x110000});
    std::u32string i = U"i";
    EXPECT_EQ(toUpper(Turkish, i), 0);
    EXPECT_EQ(i, U"İ");
    EXPECT_EQ(toUpper(Unknown, i), EINVAL);
}

TEST(Locale, CollationIsThatOfTheLanguage) {
    EXPECT_EQ(order(English, "a", "A"), -1);
    EXPECT_EQ(order(English, "e", "é", CollateIgnoreCase), -1);
    EXPECT_EQ(order(English, "ÀB", "àb", CollateIgnoreCase), 0);
    EXPECT_EQ(order(Danish, "Å", "Z"), 1);
    int result = 0;
    EXPECT_EQ(collate(Unknown, "a", "b", 0, result), EINVAL);
}

// The table for ASCII against ICU itself, over texts that come close to each other and hold awkward
// characters.
TEST(Locale, CollationAgreesWithIcu) {
    const char* pieces[] = {"a", "A",       "b",      "c", "h", "C",  "H",  "l",         "z",
                            "1", "2",       " ",      "-", "_", "'",  "\t", "\x01",      "\x7F",
                            "á", "a\u0301", "\u0306", "·", "ß", "ch", "dz", "\U0001F600"};
    std::mt19937 random(7);
    for (LocaleId id : {English, German, French, Czech, Hungarian, Lithuanian, Danish, Thai, Japanese}) {
        std::string name;
        ASSERT_EQ(localeOfId(id, name), 0);
        for (unsigned flags : {0U, CollateIgnoreCase}) {
            UErrorCode status = U_ZERO_ERROR;
            UCollator* collator = ucol_open(name.c_str(), &status);
            if (flags) ucol_setStrength(collator, UCOL_SECONDARY);
            for (int round = 0; round < 4000; ++round) {
                std::string a, b;
                for (size_t n = random() % 6; n--;) a += pieces[random() % std::size(pieces)];
                if (random() % 2) b = a;
                for (size_t n = random() % 4; n--;)
                    b += pieces[random() % (random() % 3 ? 16 : std::size(pieces))];
                if (!a.empty() && random() % 3 == 0) std::swap(a, b);
                auto wideA = icu::UnicodeString::fromUTF8(a), wideB = icu::UnicodeString::fromUTF8(b);
                int expected = ucol_strcoll(collator, wideA.getBuffer(), wideA.length(), wideB.getBuffer(),
                                            wideB.length());
                ASSERT_EQ(order(id, a, b, flags), expected) << name << " '" << a << "' '" << b << "'";
                int wide = 9;
                ASSERT_EQ(
                    collate(id, std::u16string_view(wideA.getBuffer(), static_cast<size_t>(wideA.length())),
                            std::u16string_view(wideB.getBuffer(), static_cast<size_t>(wideB.length())),
                            flags, wide),
                    0);
                ASSERT_EQ(wide, expected);
            }
            ucol_close(collator);
        }
    }
}

TEST(Locale, ThreadsAndMoreLocalesThanTheCacheHolds) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int round = 0; round < 5; ++round)
                for (LocaleId id : {English, German, Czech, Danish, French, Hindi}) {
                    EXPECT_EQ(order(id, "ch", "cz"), id == Czech ? 1 : -1);
                    EXPECT_EQ(textOf(numberText, id, "1.5"), id == English || id == Hindi ? "1.50" : "1,50");
                }
        });
    for (auto& thread : threads) thread.join();
}

TEST(Locale, Numbers) {
    EXPECT_EQ(textOf(numberText, English, "1234567.895"), "1,234,567.90");
    EXPECT_EQ(textOf(numberText, German, "-1234567.894"), "-1.234.567,89");
    EXPECT_EQ(textOf(numberText, Hindi, "123456789"), "12,34,56,789.00");
    EXPECT_EQ(textOf(numberText, French, "1234"), "1\u202F234,00");
    EXPECT_EQ(textOf(numberText, English, "999.995"), "1,000.00");
    EXPECT_EQ(textOf(numberText, English, "-0.004"), "0.00");
    EXPECT_EQ(textOf(numberText, English, "0007"), "7.00");
    EXPECT_EQ(textOf(numberText, English, ".5"), "0.50");
    EXPECT_EQ(textOf(integerText, German, "-9223372036854775808"), "-9.223.372.036.854.775.808");
    for (const char* bad : {"", "-", ".", "1e5", "+1", " 1", "inf", "--1", "1.2.3"})
        EXPECT_EQ(textOf(numberText, English, bad), "error " + std::to_string(EINVAL)) << bad;
    EXPECT_EQ(textOf(numberText, English, std::string(300, '9')), "error " + std::to_string(ENOBUFS));
    EXPECT_EQ(textOf(numberText, Unknown, "1"), "error " + std::to_string(EINVAL));
}

TEST(Locale, Money) {
    EXPECT_EQ(textOf(currencyText, English, "-1234.5"), "-$1,234.50");
    EXPECT_EQ(textOf(currencyText, German, "-1234.5"), "-1.234,50\u00A0€");
    EXPECT_EQ(textOf(currencyText, Japanese, "1234.5"), "￥1,235");
    EXPECT_EQ(textOf(currencyText, SwissGerman, "-1234.5").find("CHF"), 0u);
}

TEST(Locale, DatesAndTimes) {
    std::tm when{};
    when.tm_year = 124;
    when.tm_mon = 1;
    when.tm_mday = 9;
    when.tm_hour = 15;
    when.tm_min = 4;
    when.tm_sec = 5;
    EXPECT_EQ(textOf(dateText, English, when, false), "2/9/2024");
    EXPECT_EQ(textOf(dateText, German, when, true), "Freitag, 9. Februar 2024");
    EXPECT_EQ(textOf(timeText, English, when), "3:04:05 PM");
    EXPECT_EQ(textOf(timeText, German, when), "15:04:05");
    EXPECT_EQ(textOf(dateText, German, when, false), "09.02.2024");
    EXPECT_EQ(textOf(dateText, English, when, true), "Friday, February 9, 2024");
    EXPECT_EQ(textOf(dateText, Thai, when, false), "9/2/2567");
    for (auto [year, day] : {std::pair{124, 30}, {-400, 1}}) {
        when.tm_year = year;
        when.tm_mday = day;
        EXPECT_EQ(textOf(dateText, English, when, false), "error " + std::to_string(EINVAL)) << year;
    }
}

TEST(Locale, Items) {
    auto items = [](LocaleId id, const char* keys) {
        std::istringstream words(keys);
        std::string texts;
        for (std::string key; words >> key;) texts += (texts.empty() ? "" : "|") + item(id, key.c_str());
        return texts;
    };
    EXPECT_EQ(items(English,
                    "ILANGUAGE SABBREVLANGNAME ICOUNTRY IDEFAULTCODEPAGE IDEFAULTEBCDICCODEPAGE "
                    "IMEASURE SGROUPING INEGCURR INEGSIGNPOSN SLONGDATE STIMEFORMAT IDATE ITIME "
                    "IFIRSTDAYOFWEEK SDAYNAME7 SMONTHNAME13 ICALENDARTYPE SENGLANGUAGE SENGCOUNTRY "
                    "SABBREVCTRYNAME SISO639LANGNAME SISO3166CTRYNAME IPAPERSIZE SNATIVEDIGITS "
                    "IDIGITSUBSTITUTION SINTLSYMBOL SENGCURRNAME SDATE STIME SYEARMONTH S1159 "
                    "SMONTHNAME12 SABBREVMONTHNAME1"),
              "0409|ENU|1|437|37|1|3;0|1|3|dddd, MMMM d, yyyy|h:mm:ss tt|0|0|6|Sunday||1|English|United"
              " States|USA|en|US|1|0123456789|1|USD|US Dollar|/|:|MMMM yyyy|AM|December|Jan");
    EXPECT_EQ(items(British, "SABBREVLANGNAME"), "ENG");
    EXPECT_EQ(items(Japanese, "IDEFAULTANSICODEPAGE IDATE"), "932|2");
    EXPECT_EQ(items(Hindi, "SGROUPING"), "3;2;0");
    EXPECT_EQ(items(German,
                    "INEGCURR ICURRENCY IPOSSEPBYSPACE SSHORTDATE ILDATE ITLZERO IDAYLZERO "
                    "IFIRSTWEEKOFYEAR SNATIVELANGNAME SNATIVECTRYNAME SLIST SDECIMAL SABBREVDAYNAME1"),
              "8|3|1|dd.MM.yyyy|1|1|1|2|Deutsch|Deutschland|;|,|Mo");
    EXPECT_EQ(items(Thai, "ICALENDARTYPE"), "7");
    EXPECT_EQ(item(English, "FONTSIGNATURE"), "error " + std::to_string(ENOTSUP));
    EXPECT_EQ(item(Unknown, "SDATE"), "error " + std::to_string(EINVAL));
    for (const char* key :
         {"", "SDAYNAME", "SDAYNAME0", "SDAYNAME8", "SMONTHNAME14", "sdate", "SDATE1", "SDAYNAME01"})
        EXPECT_EQ(localeItemNumber(key), 0u) << key;
    EXPECT_EQ(localeItemNumber("SMONTHNAME13"), 0x100Eu);
    EXPECT_EQ(localeItemNumber("SABBREVMONTHNAME12"), 0x4Fu);
}

TEST(Locale, EveryItemOfManyLocalesHasATextOfLimitedLength) {
    for (LocaleId id = 1; id <= 0x78; ++id) {
        std::string name;
        if (localeOfId(id | 0x400, name)) continue;
        std::set<std::uint32_t> numbers;
        for (std::uint32_t number = 1; number <= 0x1014; ++number) {
            std::string text;
            int error = localeItem(id | 0x400, number, text);
            if (error == EINVAL && (number > 0x5A && number < 0x1001)) continue;
            ASSERT_EQ(error, number == 0x58 ? ENOTSUP : 0) << name << " " << number;
            EXPECT_LT(text.size(), 256u);
            numbers.insert(number);
        }
        EXPECT_EQ(numbers.size(), 0x5Au + 0x14u);
    }
}

TEST(CodePages, BothDirections) {
    const struct {
        std::uint32_t page;
        const char* bytes;
        bool strict;
        int error;
        std::u16string_view text;
    } rows[] = {{1252, "\x80\xE4", true, 0, u"€ä"},
                {437, "\x84", true, 0, u"ä"},
                {932, "\x93\xFA\x96\x7B", true, 0, u"日本"},
                {932, "\x93", true, EILSEQ, u"日本"},
                {65001, "a\xC3(", true, EILSEQ, u"日本"},
                {65001, "a\xC3(", false, 0, u"a\xFFFD("},
                {20127, "a\x80", true, EILSEQ, u"a\xFFFD("},
                {4711, "a", true, EINVAL, u"a\xFFFD("},
                {1252, "", true, 0, u""}};
    std::u16string wide;
    for (auto& row : rows) {
        EXPECT_EQ(codePageToUtf16(row.page, row.bytes, row.strict, wide), row.error) << row.page;
        EXPECT_EQ(wide, row.text) << "a failure leaves the result";
    }
    std::string bytes;
    EXPECT_EQ(utf16ToCodePage(1252, u"€ä→x", bytes), 0);
    EXPECT_EQ(bytes, "\x80\xE4?x");
    EXPECT_EQ(utf16ToCodePage(65001, u"a\xD800\xE4", bytes), 0);
    EXPECT_EQ(bytes, "a\xEF\xBF\xBD\xC3\xA4");
    EXPECT_EQ(utf16ToCodePage(4711, u"a", bytes), EINVAL);
    std::u16string many(5000, u'日');
    EXPECT_EQ(utf16ToCodePage(54936, many, bytes), 0);
    EXPECT_EQ(codePageToUtf16(54936, bytes, true, wide), 0);
    EXPECT_EQ(wide, many);
}

// Every code page that the tables name has a converter, and defined bytes come back as they were.
TEST(CodePages, SingleBytePagesRoundTrip) {
    for (std::uint32_t page : {37U,    437U,   500U,   720U,   737U,   775U,   850U,   852U,   855U,   857U,
                               862U,   866U,   870U,   874U,   1250U,  1251U,  1252U,  1253U,  1254U,  1255U,
                               1256U,  1257U,  1258U,  10000U, 10006U, 10007U, 10029U, 10081U, 20273U, 20297U,
                               20866U, 21866U, 28591U, 28592U, 28595U, 28597U, 28599U, 28603U, 28605U}) {
        for (int c = 0; c < 256; ++c) {
            std::string one(1, static_cast<char>(c)), back;
            std::u16string wide;
            int error = codePageToUtf16(page, one, true, wide);
            ASSERT_TRUE(error == 0 || error == EILSEQ) << page;
            if (error) continue;
            ASSERT_EQ(utf16ToCodePage(page, wide, back), 0);
            EXPECT_EQ(back, one) << page << " " << c;
        }
    }
}

}  // namespace
