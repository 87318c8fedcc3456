// Strings, numbers and patterns below scripts, whose programs strings.py, numbers.py and regex.py tell the
// rest: storage, order, hashes, nulls, translation, use by several threads.
#include <atomic>
#include <cmath>
#include <limits>
#include <thread>

#include "ipe/engines/ipe_re.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_translate.h"
#include "values_testing.h"

namespace {

using Strings = ValuesTest;
using Numbers = ValuesTest;
using Regex = ValuesTest;

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

TEST_F(Strings, TripleQuotesInOneLine) {
    EPA_StringBuffer out;
    IPE_PrintContext context{out, false, true};
    IPE_StackList stack;
    IPE_StringType::make("a\n\"b\"\t", true)->__repr__(context, stack);
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

TEST_F(Numbers, SmallIntegersAreSharedAndNullIsNoNumber) {
    EXPECT_TRUE(I(-99) == I(-99));
    EXPECT_TRUE(I(99) == I(99));
    EXPECT_FALSE(I(100) == I(100));
    EXPECT_FALSE(I(-100) == I(-100));
    EXPECT_EQ(I(-99).counted()->life(), EPA_Counted::Immortal);
    EXPECT_EQ(I(5)->__add__(IPE_Object())->__int__(), 5);
    EXPECT_EQ(IPE_None()->__cmp__(IPE_Object()), 1);
    EXPECT_EQ(str(F(1)->__getname__()) + str(IPE_True()->__getname__()), "FloatTypeTrueType");
}

TEST_F(Numbers, FloatsWriteSeventeenPlacesAndNeverLoseDigits) {
    EXPECT_EQ(str(F(1e22)), "10000000000000000000000.00000000000000000");
    EXPECT_EQ(str(F(std::numeric_limits<double>::max())).size(), 309u + 18u);
    EXPECT_EQ(str(F(INFINITY)) + str(F(-INFINITY)) + str(F(-NAN)), "inf-infnan");
    EXPECT_EQ(F(1e300)->__int__(), INT64_MAX);
    EXPECT_EQ(F(-1e300)->__int__(), INT64_MIN);
    EXPECT_EQ(F(NAN)->__int__(), 0);
    EXPECT_EQ(F(-2.9)->__int__(), -2);
    F(NAN)->__hash__();  // defined for every value
    F(-1e300)->__hash__();
}

// Reference values worked out by hand from the published steps.
TEST_F(Numbers, Hashes) {
    auto mix = [](uint32_t low, uint32_t high) {
        uint32_t m = 0x5BD1E995, h = 0x9E3779B9;
        for (uint32_t k : {low, high}) {
            k *= m;
            k ^= k >> 24;
            k *= m;
            h *= m;
            h ^= k;
        }
        h ^= h >> 13;
        h *= m;
        return h ^ h >> 15;
    };
    EXPECT_EQ(I(-1)->__hash__(), mix(0xFFFFFFFF, 0xFFFFFFFF));
    EXPECT_EQ(I(0x100000002)->__hash__(), mix(2, 1));
    EXPECT_EQ(F(3.25)->__hash__(), 3u + 2500000u);
    EXPECT_EQ(F(7)->__hash__(), 7u);
    EXPECT_EQ(IPE_None()->__hash__() + IPE_True()->__hash__() + IPE_False()->__hash__(), 0u);
}

TEST_F(Regex, OnePatternServesSeveralThreads) {
    IPE_Object source = S("(\\d+)-(\\d+)"), object = IPE_New<IPE_RE>(source, IPE_Arguments(&source, 1));
    object.as<IPE_RE>()->requireCompiled();
    object.counted()->markShared();
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            XPK_ThreadScope own(false);
            for (int i = 0; i < 500; ++i) {
                std::string text = "x " + std::to_string(t) + "-" + std::to_string(i);
                IPE_Object found = object.as<IPE_RE>()->findall(text);
                if (found && IPE_List(found)[2]->c_str() == std::to_string(i)) ++good;
                if (object.as<IPE_RE>()->search("none")) --good;
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(good, 2000);
}

}  // namespace
