// Strings: storage, indexing by code point, methods, writers, secrets and translation.
#include <thread>

#include "ipe/values/ipe_secrettype.h"
#include "ipe/values/ipe_translate.h"
#include "values_testing.h"

namespace {

using Strings = ValuesTest;

const std::string Wide = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a, a-umlaut, euro, a smiley, z

std::string pieces(std::string_view text, std::initializer_list<IPE_Object> arguments) {
    return repr(call(S(text), "split", arguments));
}

TEST_F(Strings, IndexesAndSlicesGoByCodePoint) {
    IPE_Object abc = S("abc"), wide = S(Wide);
    EXPECT_EQ(str(abc->__getitem__(I(-3))), "a");
    for (int64_t bad : {-4, 3}) {
        EXPECT_EQ(raised([&] { abc->__getitem__(I(bad)); }), "IndexError: string index out of range");
    }
    EXPECT_EQ(raised([&] { abc->__getitem__(S("0")); }).substr(0, 14), "AssertionError");
    EXPECT_EQ(wide->__len__(), 5);
    EXPECT_EQ(str(wide->__getitem__(I(3))), "\xF0\x9F\x98\x80");
    EXPECT_EQ(str(wide->__getslice__(1, 3)), "\xC3\xA4\xE2\x82\xAC");
    EXPECT_EQ(str(wide->__getslice__(-2, 99)), "\xF0\x9F\x98\x80z");
    EXPECT_EQ(str(abc->__getslice__(-99, -1)), "ab");
    EXPECT_EQ(str(abc->__getslice__(2, 1)) + str(abc->__getslice__(3, 9)) + str(abc->__getslice__(0, -9)),
              "");
    EXPECT_EQ(call(wide, "find", {S("z")})->__int__(), 4);
    EXPECT_EQ(call(abc, "find", {S("")})->__int__(), -1);
    EXPECT_EQ(call(S(""), "find", {S("a")})->__int__(), -1);
}

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

TEST_F(Strings, SplitKeepsInnerPiecesAndDropsTheLastEmptyOne) {
    EXPECT_EQ(pieces("a  b", {}), "['a', '', 'b']");
    EXPECT_EQ(pieces("a,b;c", {S(",;")}), "['a', 'b', 'c']");
    EXPECT_EQ(pieces("a,b,c", {S(","), I(1)}), "['a', 'b,c']");
    EXPECT_EQ(pieces("a,", {S(","), I(1)}), "['a']");
    EXPECT_EQ(pieces("a,b,c", {S(","), I(0)}), "['a,b,c']");
    EXPECT_EQ(pieces("a,b,c", {S(","), I(-5)}), "['a', 'b', 'c']");
    EXPECT_EQ(pieces(",a,,b,", {S(",")}), "['', 'a', '', 'b']");
    EXPECT_EQ(pieces(",", {S(",")}), "['']");
    EXPECT_EQ(pieces("", {S(",")}) + pieces("", {S("")}), "[][]");
    EXPECT_EQ(pieces(Wide, {S("")}), "['a', '\xC3\xA4', '\xE2\x82\xAC', '\xF0\x9F\x98\x80', 'z']");
    EXPECT_EQ(pieces(Wide, {S("\xE2\x82\xAC-")}), "['a\xC3\xA4', '\xF0\x9F\x98\x80z']");
    EXPECT_EQ(raised([] { pieces("a", {I(1)}); }),
              "TypeError: Index 0 requires StringType arguments, IntType given");
}

TEST_F(Strings, NumbersAreReadAsFarAsTheyGo) {
    auto number = [](std::string_view text) { return call(S(text), "integer")->__int__(); };
    EXPECT_EQ(number("007x"), 7);
    EXPECT_EQ(number("-0012"), -12);
    EXPECT_EQ(number("x12") + number(" 5") + number("+5") + number("") + number("--5"), 0);
    EXPECT_EQ(number("-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(number("18446744073709551617"), 1);
    EXPECT_EQ(call(S("2.5e1kg"), "float")->__float__(), 25.0);
    EXPECT_EQ(call(S("kg"), "float")->__float__(), 0.0);
}

TEST_F(Strings, StripReplaceAndCase) {
    EXPECT_EQ(str(call(S(" \t\r\nx \n"), "strip")), "x");
    EXPECT_EQ(str(call(S("\vx"), "lstrip")), "\vx");
    EXPECT_EQ(str(call(S("xxabxx"), "rstrip", {S("x")})) + str(call(S("xx"), "strip", {S("x")})), "xxab");
    EXPECT_EQ(str(call(S("aaa"), "replace", {S("aa"), S("b")})), "ba");
    EXPECT_EQ(str(call(S("a-b-"), "replace", {S("-"), S("")})), "ab");
    EXPECT_EQ(str(call(S("a-b"), "replace", {S("-"), S(Wide)})), "a" + Wide + "b");
    EXPECT_EQ(str(call(S("abc"), "replace", {S(""), S("x")})), "abc");
    EXPECT_EQ(str(call(S("a[Z`{"), "upper")) + str(call(S("A[z@"), "lower")), "A[Z`{a[z@");
    EXPECT_EQ(str(call(S("\xC3\xA4x"), "upper")), "\xC3\x84X");
    EXPECT_EQ(raised([] { call(S("a"), "title"); }),
              "AttributeNotFoundException: The StringType does not have an attribute named title");
}

TEST_F(Strings, MatchIgnoresCase) {
    auto match = [](const char* text, const char* pattern) {
        return call(S(text), "match", {S(pattern)})->__nonzero__();
    };
    EXPECT_TRUE(match("ABC", "a*") && match("abc", "A?C") && match("ab", "*") && match("ab", "a?"));
    EXPECT_FALSE(match("ABC", "ab?d") || match("a", "a?") || match("ab", "a") || match("", "?"));
    EXPECT_EQ(call(S("a"), "match", {S("a"), I(1)}), IPE_True());
}

TEST_F(Strings, OperatorsAndComparison) {
    EXPECT_EQ(str(S("a")->__add__(I(5))), "a5");
    EXPECT_EQ(str(S("ab")->__mul__(I(3))), "ababab");
    EXPECT_EQ(str(S("ab")->__mul__(I(0))) + str(S("ab")->__mul__(I(-1))), "");
    EXPECT_EQ(raised([] { S("ab")->__mul__(I(INT64_MAX)); }).substr(0, 14), "AssertionError");
    EXPECT_EQ(S("5")->__cmp__(I(5)), 1);
    EXPECT_EQ(S("a")->__cmp__(S("b")), -1);
    EXPECT_EQ(S("\xC3\xA4")->__cmp__(S("z")), 1);
    EXPECT_EQ(S("ab")->__cmp__(S("a")), 1);
    EXPECT_EQ(S("B")->__cmp__(S("a")), -1);
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
    EXPECT_EQ(repr(S("it's")), "\"it's\"");
    EXPECT_EQ(repr(S("it's \"x\"")), "'it\\'s \"x\"'");
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
    EXPECT_EQ(call(triple, "is_triquote"), IPE_True());
    EXPECT_EQ(call(S("x"), "is_triquote"), IPE_False());
    EXPECT_EQ(str(L({S("a\"b")})), "[\"a\"b\"]");
}

TEST_F(Strings, SecretsShowNothing) {
    IPE_Object secret = call(S("p\xC3\xA4ss"), "secret");
    EXPECT_EQ(str(secret) + repr(secret) + repr(secret, true), "---secret---''\"\"");
    EXPECT_EQ(str(call(secret, "string")), "p\xC3\xA4ss");
    EXPECT_STREQ(secret->c_str(), "p\xC3\xA4ss");
    EXPECT_EQ(secret->__len__(), 4);
    EXPECT_EQ(str(S("x")->__add__(secret)), "x---secret---");
    EXPECT_EQ(raised([&] { call(secret, "upper"); }),
              "AttributeNotFoundException: The SecretType does not have an attribute named upper");
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
