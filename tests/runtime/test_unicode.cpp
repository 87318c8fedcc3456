#include "runtime/epa_unicode.h"

#include <unicode/ustring.h>

#include <random>

#include "../ipe/values_testing.h"
#include "runtime/epa_convert.h"
#include "runtime/epa_pathname.h"
#include "runtime/epa_stringtokenizer.h"

namespace {

EPA_Unicode utf8(std::string_view text, uint32_t flags = 0) {
    EPA_Unicode object;
    object.setFlags(flags);
    object.setUtf8(text);
    return object;
}

EPA_Unicode utf16(std::u16string_view text, uint32_t flags = 0) {
    EPA_Unicode object(text);
    object.setFlags(flags);
    return object;
}

EPA_Unicode utf32(std::u32string_view text, uint32_t flags = 0) {
    EPA_Unicode object(text);
    object.setFlags(flags);
    return object;
}

const std::string M = "\U0010FFF0";
const std::u16string LoneHigh = {u'a', char16_t{0xD800}};
const std::u16string HighInside = {char16_t{0xD800}, u'a'};
const std::u16string LoneLow = {char16_t{0xDC00}};

TEST(Convert, AgreesWithIcuOnRandomText) {
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
        std::u32string codes;
        for (size_t n = random() % 40; n--;) {
            char32_t code = random() % 4 ? random() % 128 : random() % 0x110000;
            if (code < 0xD800 || code > 0xDFFF) codes += code;
        }
        std::u16string wide(codes.size() * 2, 0);
        std::string narrow(codes.size() * 4, 0);
        UErrorCode status = U_ZERO_ERROR;
        int32_t length = 0;
        u_strFromUTF32(wide.data(), static_cast<int32_t>(wide.size()), &length,
                       reinterpret_cast<const UChar32*>(codes.data()), static_cast<int32_t>(codes.size()),
                       &status);
        wide.resize(static_cast<size_t>(length));
        u_strToUTF8(narrow.data(), static_cast<int32_t>(narrow.size()), &length, wide.data(),
                    static_cast<int32_t>(wide.size()), &status);
        narrow.resize(static_cast<size_t>(length));
        for (EPA_Unicode text : {utf8(narrow), utf16(wide), utf32(codes)}) {
            EXPECT_EQ(text.utf8(), narrow);
            EXPECT_EQ(text.utf16(), wide);
            EXPECT_EQ(text.utf32(), codes);
            EXPECT_EQ(text.utf8(), narrow);
            EXPECT_EQ(text.utf32(), codes);
            EXPECT_EQ(text.utf16(), wide);
        }
    }
}

// Any bytes: valid exactly when ICU says so, and lenient conversion always ends.
TEST(Convert, JudgesRandomBytesAsIcuDoes) {
    std::mt19937 random(2);
    const unsigned char likely[] = {0x41, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0,
                                    0xE1, 0xED, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF8, 0xFC, 0xFE, 0xFF};
    for (int round = 0; round < 20000; ++round) {
        std::string bytes;
        for (size_t n = 1 + random() % 6; n--;) bytes += static_cast<char>(likely[random() % sizeof likely]);
        UErrorCode status = U_ZERO_ERROR;
        int32_t length = 0;
        char16_t room[16];
        u_strFromUTF8(room, 16, &length, bytes.data(), static_cast<int32_t>(bytes.size()), &status);
        std::u16string wide, lenient;
        std::u32string codes;
        bool valid = EPA_ConvertText(std::string_view(bytes), false, wide) == EPA_ConvertResult::Done;
        ASSERT_EQ(valid, U_SUCCESS(status));
        ASSERT_EQ(EPA_ConvertText(std::string_view(bytes), false, codes) == EPA_ConvertResult::Done, valid);
        ASSERT_EQ(EPA_ConvertText(std::string_view(bytes), true, lenient), EPA_ConvertResult::Done);
        ASSERT_TRUE(!valid || lenient == wide);

        EPA_Unicode text = utf8(bytes);
        text.sanitise();
        ASSERT_EQ(text.form(), EPA_Unicode::Form::Utf8);
        if (valid) {
            ASSERT_EQ(text.utf8(), bytes);
        }
        ASSERT_EQ(raised([&] { text.toUtf32(); }), "nothing");
    }
}

TEST(Convert, StopsAtTheOffendingItemAndAtTheEndOfTheRoom) {
    const std::string text = "a\xC3\xA4\xE2\x82";
    const char* from = text.data();
    char16_t room[8];
    char16_t* to = room;
    EXPECT_EQ(EPA_Convert(&from, text.data() + text.size(), &to, room + 8, false),
              EPA_ConvertResult::SourceExhausted);
    EXPECT_EQ(from - text.data(), 3);
    EXPECT_EQ(to - room, 2);

    const std::u32string codes = U"a\U0001F600";
    const char32_t* code = codes.data();
    to = room;
    EXPECT_EQ(EPA_Convert(&code, codes.data() + 2, &to, room + 2, false), EPA_ConvertResult::TargetExhausted);
    EXPECT_EQ(code - codes.data(), 1);
    EXPECT_EQ(to - room, 1);
}

TEST(Unicode, StrictFailuresNameTheDirectionAndLeaveTheText) {
    using Form = EPA_Unicode::Form;
    const struct {
        EPA_Unicode text;
        Form to;
        const char* code;
    } rows[] = {{utf16(LoneHigh), Form::Utf8, "2 - 1"},
                {utf16(HighInside), Form::Utf8, "2 - 3"},
                {utf16(LoneLow), Form::Utf8, "2 - 3"},
                {utf32(std::u32string{0x110000}), Form::Utf8, "3"},
                {utf8("a\xC3"), Form::Utf16, "4"},
                {utf32(std::u32string{0xD800}), Form::Utf16, "5"},
                {utf8("a\xED\xA0\x80"), Form::Utf32, "6A (a\xED\xA0\x80)"},
                {utf16(LoneLow), Form::Utf32, "7"}};
    for (auto& row : rows) {
        EPA_Unicode text = row.text;
        EXPECT_EQ(raised([&] {
                      if (row.to == Form::Utf8) text.toUtf8();
                      if (row.to == Form::Utf16) text.toUtf16();
                      if (row.to == Form::Utf32) text.toUtf32();
                  }),
                  std::string("UnicodeError: Illegal Unicode ") + row.code);
        EXPECT_EQ(text.form(), row.text.form());
    }
}

TEST(Unicode, LenientText) {
    for (uint32_t flags : {1U, 2U, 3U}) {
        EXPECT_EQ(utf16(LoneHigh, flags).utf8(), "a?");
        EXPECT_EQ(utf16(HighInside, flags).utf8(), "?a");
        EXPECT_EQ(utf8("\xED\xA0\x80", flags).utf16(), u"???");
        EXPECT_EQ(utf32(std::u32string{0x200000, 'b', 0xDFFF}, flags).utf8(), "?b?");
    }
    // On the way to UTF-32 bit 0 sanitises.
    EXPECT_EQ(utf8("a\xC3(", 2).utf32(), U"a?(");
    EXPECT_EQ(utf8("a\xC3(", 1).utf32(), U"a\U0010FFF02C3(");
    EXPECT_EQ(utf16(LoneHigh, 2).utf32(), U"a?");
    EXPECT_EQ(utf16(LoneHigh, 3).utf32(), U"a\U0010FFF04D800");
    EXPECT_EQ(utf8("ä\U0010FFF0", 1).utf32(), U"ä\U0010FFF0");

    EPA_Unicode before(EPA_String("\xFF"));
    EPA_UnicodeDefaultFlags = 2;
    EPA_Unicode after(EPA_String("\xFF"));
    EPA_UnicodeDefaultFlags = 0;
    EXPECT_NE(raised([&] { before.toUtf16(); }), "nothing") << "the default counts at construction";
    EXPECT_EQ(after.utf16(), u"?");
}

// The code pages themselves are tested with the platform.
TEST(Unicode, NativeText) {
    EPA_Unicode text;
    text.setCodePage(1252);
    text.setNative("\x80\xE4");
    EXPECT_EQ(text.utf8(), "€ä");
    EXPECT_EQ(text.native(), "\x80\xE4");
    EXPECT_EQ(text.utf32(), U"€ä");
    text.setCodePage(932);
    text.setNative("\x93");
    EXPECT_EQ(raised([&] { text.toUtf8(); }).substr(0, 34), "RuntimeError: MultiByteToWideChar ");
    EXPECT_EQ(text.form(), EPA_Unicode::Form::Native);
    text.setCodePage(4711);
    text.setUtf8("a");
    EXPECT_NE(raised([&] { text.toNative(); }), "nothing");
    EXPECT_EQ(text.form(), EPA_Unicode::Form::Utf8);
}

TEST(Unicode, Sanitise) {
    const std::pair<EPA_Unicode, std::string> rows[] = {
        {utf8("ä\xC3("), "ä" + M + "2C3("},
        {utf8("x\xE2\x82"), "x" + M + "2E2" + M + "282"},
        {utf8("\xF8\x88\x80\x80\x80"), M + "2F8" + M + "288" + M + "280" + M + "280" + M + "280"},
        {utf8("a\U0010FFF0b\U0010FFFDc\U0010FFFE"), "a" + M + "80010FFF0b" + M + "80010FFFDc\U0010FFFE"},
        {utf16(HighInside), M + "4D800a"},
        {utf16(u"ä" + LoneHigh), "äa" + M + "4D800"},
        {utf16(u"\uF02C\U0010FFF1"), "\uF02C" + M + "80010FFF1"},
        {EPA_Unicode(), ""}};
    for (auto [text, want] : rows) {
        text.sanitise();
        EXPECT_EQ(text.utf8(), want);
    }

    EPA_Unicode kept = utf16(u"ä\U0010FFF0");
    kept.sanitise();
    EXPECT_EQ(kept.form(), EPA_Unicode::Form::Utf16);
    EXPECT_EQ(raised([] { utf32(U"a").sanitise(); }),
              "RuntimeError: Sanitize not implemented for UTF32 strings");
}

TEST(Unicode, FormsAndPointers) {
    EPA_Unicode text;
    EXPECT_EQ(text.form(), EPA_Unicode::Form::Empty);
    EXPECT_STREQ(text.toUtf8(), "");
    EXPECT_EQ(text.form(), EPA_Unicode::Form::Utf8);
    text.setUtf8(std::string_view("a\0ä", 4));
    const char* before = text.toUtf8();
    EXPECT_EQ(text.utf16(), std::u16string_view(u"a\0ä", 3));
    EXPECT_STREQ(before + 2, "ä");  // still there until the next conversion
    EXPECT_EQ(text.length(), 3u);
    EXPECT_EQ(text.utf8(), std::string_view("a\0ä", 4));
    EXPECT_EQ(text.toUtf8(), text.toUtf8());
}

TEST(Unicode, AppendHashCaseCompare) {
    EPA_Unicode text = utf8("ä");
    text.append(utf16(u"ö"));
    text.append(text);
    EXPECT_EQ(text.utf8(), "äöäö");
    EPA_Unicode wide = utf16(u"a");
    wide.append(utf32(U"\U0001F600"));
    EXPECT_EQ(wide.utf16(), u"a\U0001F600");
    EXPECT_EQ(raised([] { utf32(U"a").append(utf8("b")); }),
              "UnicodeError: Append in UTF32 not implemented yet...");

    EXPECT_EQ(EPA_Unicode().hash(), 5381u);
    EXPECT_EQ(utf16(u"a").hash(), 5381u * 33 + 'a');
    EXPECT_EQ(utf8("\xC3\xA4").hash(), (5381u * 33 - 61) * 33 - 92);

    text.toUpper();
    EXPECT_EQ(text.utf8(), "ÄÖÄÖ");
    EPA_Unicode small = utf8("b"), capital = utf8("B"), before = utf8("A");
    EXPECT_EQ(small.compare(capital, true), -1);
    EXPECT_EQ(small.compare(capital, false), 0);
    EXPECT_EQ(small.compare(before, false), 1);
}

TEST(PathName, StandInsAndFold) {
    const std::pair<std::u32string, std::u32string_view> rows[] = {
        {U"a. ", U"a.\uF028"},
        {U"a .", U"a \uF029"},
        {U"\"*/<>?\\|:,;~", U"\uF020\uF021\uF022\uF023\uF024\uF025\uF026\uF027:,;~"},
        {U"\x01\x0F\x10\x11\x1F\uF010", U"\uF001\uF00F\x10\uF011\uF01F\uF010"},
        {std::u32string{0xFFFFFFF0}, U"\uF02A"}};
    for (auto& [text, encoded] : rows) {
        EPA_Unicode object(text);
        object.encodePathName();
        EXPECT_EQ(object.utf32(), encoded);
    }
    for (char32_t code = 1; code < 0x80; ++code) {
        std::string name = "é" + std::string(1, static_cast<char>(code));
        EPA_Unicode object = utf8(name);
        object.encodePathName();
        EXPECT_EQ(object.utf8(), EPA_EncodePathName(name));
        EXPECT_EQ(EPA_Fold(object.utf8()), name);
        object.decodePathName();
        EXPECT_EQ(object.utf8(), name);
    }
    EXPECT_EQ(EPA_Fold("\uF000\uF010\uF02A\uF02B\uF02C\uF02D\uF02E\uF02F"), "\uF000\uF010\uF02A:,;~\uF02F");
    EXPECT_EQ(EPA_Fold("\uF028x\xEF\x80"), " x\xEF\x80");
    EXPECT_EQ(EPA_Fold("\xEF\xEF\x80\xAF\xEF\x80\x81"), "\xEF\xEF\x80\xAF\x01");
}

TEST(PathName, Markers) {
    for (auto [marked, plain] : std::initializer_list<std::pair<std::string_view, std::string_view>>{
             {"a\U0010FFF2Cb\U0010FFF3Vc", "abc"},
             {"\U0010FFF2ä\U0010FFF3", ""},
             {"x\U0010FFF2\U0010FFF3Cy", "xCy"},
             {"\U0010FFF0\U0010FFF1", "\U0010FFF0\U0010FFF1"},
             {"none", "none"}}) {
        EPA_Unicode object = utf8(marked);
        object.stripMarkers();
        EXPECT_EQ(object.utf8(), plain);
        EXPECT_EQ(EPA_StripMarkers(marked), plain);
    }
}

TEST(Tokenizer, Tokens) {
    const std::tuple<const char*, char32_t, const char*> rows[] = {
        {"a/b/", '/', "[a][b][]"}, {"", '/', "[]"}, {"//ä", '/', "[][][ä]"}, {"a→b/c", U'→', "[a][b/c]"}};
    for (auto [text, separator, tokens] : rows) {
        EPA_StringTokenizer tokenizer(EPA_String(text), separator);
        std::string all;
        EPA_Unicode token;
        while (tokenizer.hasMore()) {
            tokenizer.nextToken(token);
            all += "[" + std::string(token.utf8()) + "]";
        }
        EXPECT_EQ(all, tokens);
        EXPECT_EQ(raised([&] { tokenizer.nextToken(token); }),
                  "RuntimeError: EPA_StringTokenizer::nextToken called with no more tokens");
    }
    EXPECT_EQ(raised([] { EPA_StringTokenizer bad(EPA_String("\xFF")); }),
              "UnicodeError: Illegal Unicode 6A (\xFF)");
    EPA_StringTokenizer wide(U"x/y");
    EPA_String first;
    wide.nextToken(first);
    EXPECT_EQ(first.view(), "x");
}

}  // namespace
