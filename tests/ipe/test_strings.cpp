// Strings below scripts, whose program strings.py tells the methods: storage, order, writers and translation.
#include <thread>

#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_translate.h"
#include "values_testing.h"

namespace {

using Strings = ValuesTest;

const std::string Wide = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a, a-umlaut, euro, a smiley, z

TEST_F(Strings, TextThatIsNotUtf8RaisesWhereCodePointsAreNeeded) {
    for (const char* bad : {"\x80", "a\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82",
                            "\xFC\x84\x80\x80\x80\x80"})
        EXPECT_EQ(raised([&] { S(bad)->__len__(); }), "UnicodeError: Conversion Failue") << bad;
    EXPECT_EQ(str(S("\x80")->__add__(S("x"))), "\x80x");
}

TEST_F(Strings, FactoriesCutAtNul) {
    EXPECT_EQ(S(std::string_view("ab\0c", 4)).as<IPE_StringType>()->bytes(), 2u);
    EXPECT_EQ(str(S(std::string_view("\0c", 2))), "");
    EXPECT_TRUE(IPE_StringType::intern("name") == IPE_StringType::intern(std::string_view("name\0x", 6)));
}

TEST_F(Strings, CollationIsNotTheOrderOfBytes) {
    EXPECT_EQ(raised([] { S("ab")->__mul__(I(INT64_MAX)); }).substr(0, 14), "AssertionError");
    EXPECT_EQ(S("B")->__collate__(S("a")), 1);
    EXPECT_EQ(IPE_CollateText("Abc", "aBC", true), 0);
    EXPECT_NE(IPE_CollateText("Abc", "aBC", false), 0);
}

TEST_F(Strings, HashRunsOverBytes) {
    EXPECT_EQ(S("")->__hash__(), 5381u);
    for (const std::string& text : {std::string("abcdefg"), Wide, std::string("x")}) {
        uint32_t h = 5381;
        for (unsigned char c : text) h = h * 33 + c;
        EXPECT_EQ(S(text)->__hash__(), h);
        EXPECT_EQ(IPE_StringType::intern(text)->hash(), h);
    }
}

TEST_F(Strings, Representations) {
    EXPECT_EQ(repr(S("\n\r\t\\\x01\x0F\x10\x1F")), "'\\n\\r\\t\\\\\\001\\017\x10\x1F'");
    EXPECT_EQ(repr(S("\b\t\n\f\r\"/\\\x01" + Wide), true),
              "\"\\b\\t\\n\\f\\r\\\"\\/\\\\\\u0001" + Wide + "\"");
    EXPECT_EQ(raised([] { repr(S("\xFF"), true); }), "UnicodeError: Conversion Failue");
    IPE_Object triple = IPE_StringType::make("a\n\"b\"\t", true);
    EXPECT_EQ(repr(triple), "\"\"\"a\n\\\"b\\\"\\t\"\"\"");
    EPA_StringBuffer out;
    IPE_PrintContext context{out, false, true};
    IPE_StackList stack;
    triple->__repr__(context, stack);
    EXPECT_EQ(out.view(), "\"a\\n\\\"b\\\"\\t\"");
}

TEST_F(Strings, OnlyTextsExpand) {
    EXPECT_EQ(raised([] { IPE_ExpandFormat(I(1), I(1)); }), "RuntimeError: Must pass a string to expand");
    EXPECT_EQ(raised([] { IPE_ExpandDollar(I(1), D({}), false); }),
              "RuntimeError: Must pass a string to substitute");
    EXPECT_EQ(IPE_TimeOf({}), 0);
}

IPE_Object notedKey, notedText;

TEST_F(Strings, MarksAreTranslated) {
    const std::string mark = "\xF4\x8F\xBF\xBA";
    auto translate = [](const std::string& text) {
        IPE_StackList stack;
        return str(S(text)->translate(stack));
    };
    EXPECT_EQ(translate("x" + mark + "hello,Hi]!"), "xHi!");
    EXPECT_EQ(translate(mark + "hello,]" + mark + "yes]" + mark), "helloyes");
    EXPECT_EQ(translate(mark + "open"), "open");
    IPE_TranslationSource source;
    source.lookup = [](const IPE_Object& key) {
        if (key->is_text("bad")) return I(5);
        return key->is_text("hello") ? S("Hallo") : IPE_None();
    };
    source.missing = [](const IPE_Object& key, const IPE_Object& text) { notedKey = key, notedText = text; };
    IPE_SetTranslationSource(source);
    EXPECT_EQ(translate("<" + mark + "hello,Hi]>"), "<Hallo>");
    EXPECT_EQ(translate(mark + "12,34]"), "34");
    EXPECT_EQ(translate(mark + "k\xC3\xA4,x]"), "x");
    EXPECT_TRUE(notedKey.isNull());
    EXPECT_EQ(translate(mark + "bye,Tsch\xC2\x80]"), "Tsch\xC2\x80");
    EXPECT_EQ(str(notedKey) + "=" + str(notedText), "bye=Tsch\xC2\x80");
    EXPECT_EQ(raised([&] { translate(mark + "bad]"); }),
              "TypeError: Require a 'StringType' but given a 'IntType'");
    IPE_SetTranslationSource({});
    notedKey = notedText = nullptr;
}

TEST_F(Strings, LazyPartsAreBuiltSafelyByTwoThreads) {
    for (int round = 0; round < 200; ++round) {
        IPE_Object text = S(Wide + std::to_string(round));
        text.counted()->markShared();
        auto read = [text] {
            auto* string = text.as<IPE_StringType>();
            return string->codePoints()[1] == 0xE4 &&
                   string->hash() == IPE_StringType::hashOf(string->view()) && !string->isAscii();
        };
        bool other = false;
        std::thread thread([&] { other = read(); });
        EXPECT_TRUE(read());
        thread.join();
        EXPECT_TRUE(other);
    }
}

}  // namespace
