#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "platform/pf_anchor.h"
#include "platform/pf_paths.h"

using namespace platform;

TEST(Paths, EveryNameOfTwoBytesTravelsAndReturns) {
    for (int first = 1; first < 256; ++first) {
        for (int second = 1; second < 256; ++second) {
            if (first == '/' || second == '/') continue;
            for (const char* tail : {"", "\xA9", "\x80\x80"}) {
                std::string name = {static_cast<char>(first), static_cast<char>(second)};
                name += tail;
                std::string back;
                std::u16string units = pathToUnits(name);
                ASSERT_EQ(pathToBytes(units, back), 0) << first << " " << second;
                ASSERT_EQ(back, name);
                ASSERT_EQ(units.find(u'\\'), std::u16string::npos);
                bool escaped = false;
                for (size_t i = 0; i < units.size(); ++i) {
                    bool pair = (units[i] & 0xFC00) == 0xD800;
                    escaped = escaped || (!pair && (units[i] & 0xFC00) == 0xDC00);
                    i += pair;
                }
                ASSERT_EQ(nameIsPlain(name), !escaped) << first << " " << second;
            }
        }
    }
}

// Sequences that are no UTF-8 would not survive the round trip above.
TEST(Paths, Utf8Edges) {
    const std::pair<const char*, char32_t> rows[] = {{"\u0080", 0x80},         {"\u0800", 0x800},
                                                     {"\xED\x9F\xBF", 0xD7FF}, {"\uE000", 0xE000},
                                                     {"\U00010000", 0x10000},  {"\U0010FFFF", 0x10FFFF}};
    for (auto [bytes, code] : rows) {
        size_t at = 0;
        EXPECT_EQ(static_cast<char32_t>(decodeUtf8(bytes, at)), code);
        EXPECT_EQ(at, strlen(bytes));
    }
}

TEST(Paths, SeparatorsAndForgeries) {
    std::string out;
    EXPECT_EQ(pathToBytes(u"C:\\dir/file", out), 0);
    EXPECT_EQ(out, "C:/dir/file");
    EXPECT_EQ(pathToBytes(u"a\xDC5C"
                          u"b\\c\xDCFF",
                          out),
              0);
    EXPECT_EQ(out, "a\\b/c\xFF");
    // The bytes of "é" one by one, an escaped separator, an escaped NUL, an escaped letter, lone high halves.
    for (std::u16string bad :
         {u"\xDCC3\xDCA9",
          u"a\xDC2F"
          u"b",
          u"\xDC00", u"\xDC41", u"\xD800", u"\xD800x", u"\xDFFF", u"\xDCF0\xDC9F\xDC98\xDC80"}) {
        EXPECT_EQ(pathToBytes(bad, out), EILSEQ);
    }
    EXPECT_EQ(pathToBytes(u"\xDCC3\\\xDCA9", out), 0) << "two names cannot join into one sequence";
    EXPECT_EQ(pathToBytes(std::u16string_view(u"a\0b", 3), out), EINVAL);
    EXPECT_EQ(pathToBytes(u"\xD83D\xDE00", out), 0);
    EXPECT_EQ(out, "\xF0\x9F\x98\x80");
    EXPECT_EQ(textToBytes("x\\y", out), 0);
    EXPECT_EQ(out, "x/y");
    EXPECT_EQ(textToBytes("x\xFF", out), EILSEQ);
    EXPECT_EQ(textToBytes(std::string_view("a\0b", 3), out), EINVAL);
}

TEST(Paths, LastParts) {
    using Pair = std::pair<std::string, std::string>;
    EXPECT_EQ(splitLast("/a/b"), Pair("/a", "b"));
    EXPECT_EQ(splitLast("/a//b//"), Pair("/a", "b"));
    EXPECT_EQ(splitLast("/a"), Pair("/", "a"));
    EXPECT_EQ(splitLast("a"), Pair(".", "a"));
    EXPECT_EQ(splitLast("//"), Pair("/", ""));
    EXPECT_EQ(lastSeparator(u"a/b\\c"), 3u);
}
