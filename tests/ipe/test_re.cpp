// The regular-expression module: options, option blocks, groups, limits, and use by several threads.
#include <gtest/gtest.h>

#include <thread>

#include "ipe/engines/ipe_re.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

const std::string Mark = "\xF4\x8F\xBF\xB9";

class Regex : public testing::Test {
  protected:
    XPK_ThreadScope thread{true};

    static IPE_Object make(const std::string& pattern, std::initializer_list<const char*> keywords = {}) {
        IPE_Object names;
        if (keywords.size() > 0) {
            names = IPE_NewDict();
            for (const char* name : keywords) IPE_Dict_Set(names, name, IPE_Int(0));
        }
        IPE_Object source = IPE_String(pattern);
        IPE_Object object = IPE_New<IPE_RE>(source, IPE_Arguments(&source, 1, names));
        object.as<IPE_RE>()->requireCompiled();
        object->__bind__();
        return object;
    }
    static bool search(const std::string& pattern, const std::string& text,
                       std::initializer_list<const char*> keywords = {}) {
        return make(pattern, keywords).as<IPE_RE>()->search(text);
    }
    // The groups joined by '|', or "None".
    static std::string groups(const std::string& pattern, const std::string& text) {
        IPE_Object found = make(pattern).as<IPE_RE>()->findall(text);
        return found ? std::string(found.as<IPE_ListType>()->join("|")->c_str()) : "None";
    }
    template <class Function>
    static std::string error(Function&& function) {
        try {
            function();
        } catch (const XPK_Exception& exception) {
            return exception.type() + ": " + exception.message();
        }
        return "";
    }
};

const char* const Unexpected =
    "RuntimeError: An unexpected error occured whilst evaluating regular expression";

TEST_F(Regex, EachKeywordCountsByPresence) {
    EXPECT_FALSE(search("abc", "xABCx"));
    EXPECT_TRUE(search("abc", "xABCx", {"PCRE_CASELESS"}));  // its value is 0
    EXPECT_FALSE(search("b", "ab", {"PCRE_ANCHORED"}));
    EXPECT_TRUE(search("a$", "a\n"));
    EXPECT_FALSE(search("a$", "a\n", {"PCRE_DOLLAR_ENDONLY"}));
    EXPECT_FALSE(search("a.b", "a\nb"));
    EXPECT_TRUE(search("a.b", "a\nb", {"PCRE_DOTALL"}));
    EXPECT_TRUE(search("a b # c", "ab", {"PCRE_EXTENDED"}));
    EXPECT_FALSE(search("^b", "a\nb"));
    EXPECT_TRUE(search("^b", "a\nb", {"PCRE_MULTILINE"}));
    EXPECT_FALSE(search("b", "a\nb", {"PCRE_FIRSTLINE"}));
    EXPECT_TRUE(search("a", "a", {"PCRE_NO_UTF8_CHECK", "PCRE_AUTO_CALLOUT"}));
    IPE_Object ungreedy = make("<(.+)>", {"PCRE_UNGREEDY"}).as<IPE_RE>()->findall("<a><b>");
    EXPECT_STREQ(IPE_List(ungreedy)[1]->c_str(), "a");
    IPE_Object plain = make("(a)(?<n>b)", {"PCRE_NO_AUTO_CAPTURE"}).as<IPE_RE>()->findall("ab");
    EXPECT_EQ(IPE_List(plain).count(), 2);
}

TEST_F(Regex, UnknownEscapesAreLettersUnlessExtraIsAsked) {
    EXPECT_TRUE(search("\\yes", "yes"));
    EXPECT_NE(error([] { make("\\yes", {"PCRE_EXTRA"}); }), "");
}

TEST_F(Regex, TextIsUtf8) {
    EXPECT_TRUE(search("^.$", "\xC3\xA9"));
    EXPECT_TRUE(search("\xC3\x89", "\xC3\xA9", {"PCRE_CASELESS"}));
    EXPECT_FALSE(search("a", "a\xC3"));  // a text that is not UTF-8 matches nothing
    EXPECT_EQ(groups("a", "a\xC3"), "None");
    EXPECT_TRUE(search("^a$", std::string("a\0b", 3)));  // a text ends at its first NUL
}

TEST_F(Regex, OptionBlocks) {
    EXPECT_TRUE(search(Mark + "N}abc", "xyz"));
    EXPECT_FALSE(search(Mark + "N}abc", "abc"));
    EXPECT_EQ(groups(Mark + "N}abc", "xyz"), "None");
    EXPECT_EQ(groups(Mark + "N}abc", "abc"), "abc");
    EXPECT_TRUE(search("a" + Mark + "zzz}b" + Mark + "}c", "abc"));  // other texts are dropped
    EXPECT_TRUE(search("a" + Mark + "bcd", "a"));                    // no brace: all of it is the option
    EXPECT_FALSE(search("a" + Mark + "N", "a"));
    EXPECT_TRUE(search(Mark + "n}abc", "abc"));
    EXPECT_TRUE(search("a{2}", "aa"));
}

TEST_F(Regex, FindallGivesTheFirstMatchAndItsGroups) {
    EXPECT_EQ(groups("(a)(b)", "xab"), "ab|a|b");
    EXPECT_EQ(groups("(a)|(b)", "b"), "b||b");
    EXPECT_EQ(groups("(b)|(a)", "b"), "b|b");  // groups behind the last used one are not told
    EXPECT_EQ(groups("x*", "aaa"), "");
    EXPECT_EQ(groups("", ""), "");
    EXPECT_EQ(groups("z", "aaa"), "None");
    EXPECT_EQ(groups("(?=ab\\K)", "ab"), "");  // a start behind the end is no text
    std::string many, text;
    for (int i = 0; i < 511; ++i) many += "(a)";
    text.assign(600, 'a');
    EXPECT_EQ(IPE_List(make(many).as<IPE_RE>()->findall(text)).count(), 512);
    EXPECT_EQ(error([&] { make(many + "(a)").as<IPE_RE>()->findall(text); }),
              "RuntimeError: Number of matches exceeded internal limit (512)");
    EXPECT_TRUE(search(many + "(a)", text));
}

TEST_F(Regex, CompileErrorsCarryMessageAndOffset) {
    IPE_Object source = IPE_String("a(b");
    IPE_Object object = IPE_New<IPE_RE>(source, IPE_Arguments(&source, 1));
    for (int i = 0; i < 3; ++i) try {
            if (i == 0) object.as<IPE_RE>()->requireCompiled();
            if (i == 1) object.as<IPE_RE>()->search("b");
            if (i == 2) object.as<IPE_RE>()->findall("b");
            FAIL();
        } catch (const XPK_Exception& exception) {
            EXPECT_EQ(exception.type(), "RuntimeError");
            ASSERT_NE(exception.record().findNumber("pcre_erroroffset"), nullptr);
            EXPECT_EQ(*exception.record().findNumber("pcre_erroroffset"), 3);
            EXPECT_NE(exception.record().findString("pcre_errormsg"), nullptr);
            EXPECT_EQ(exception.message().rfind("Failed to compile expression: ", 0), 0u);
        }
}

// A match across the places where a long search pauses, and assertions that look behind them.
TEST_F(Regex, LongTextsMatchAsOnePiece) {
    for (size_t at : {0u, 511u, 512u, 513u, 1023u, 1024u, 5000u}) {
        std::string text(at, 'x');
        text += "ab";
        text.append(700, 'y');
        EXPECT_TRUE(search("ab", text)) << at;
        EXPECT_TRUE(search("(?<!q)ab(?=y)", text)) << at;
        EXPECT_EQ(search("^ab", text), at == 0);
        EXPECT_EQ(search("\\Gab", text), at == 0);
        EXPECT_EQ(groups("x*?(ab)(y+)$", text).size(), text.size() + 1 + 2 + 1 + 700) << at;
        // A verb that ends the search at its first failure must see the whole text as one.
        EXPECT_EQ(search("x(*COMMIT)ab", text), at == 1) << at;
    }
    std::string wide;
    for (int i = 0; i < 600; ++i) wide += "\xE2\x82\xAC";
    EXPECT_TRUE(search("\xE2\x82\xAC$", wide));
    EXPECT_TRUE(search("!", wide + "!"));
    EXPECT_FALSE(search("^$", wide));
    EXPECT_TRUE(search("$", std::string(512, 'x')));
    EXPECT_TRUE(search("$", std::string(1024, 'x')));
}

TEST_F(Regex, HostilePatternsEndInTheNamedError) {
    std::string text(40, 'a');
    text += "!";
    EXPECT_EQ(error([&] { search("^(a+)+$", text); }), Unexpected);
    EXPECT_EQ(error([&] { groups("(a|aa)+$", text); }), Unexpected);
    EXPECT_EQ(error([&] { search("(*NO_JIT)(a+)+$", text); }), Unexpected);
    EXPECT_NE(error([] { make("((a{0,200}){0,200}){0,200}"); }), "");
    EXPECT_NE(error([] { make(std::string(1000, '(') + std::string(1000, ')')); }), "");
    // A recursion without end is refused or stopped, never followed.
    std::string deep = error([] { search("(?R)?a(?1)?(b|(?R))*c", std::string(100000, 'a')); });
    EXPECT_TRUE(deep.empty() || deep == Unexpected || deep.find("Failed to compile") != std::string::npos)
        << deep;
    // The machine stack of the compiled code runs out here; the interpreter then has the word.
    std::string nested = error([] { search("^(?:(a)|b)*$", std::string(2'000'000, 'a')); });
    EXPECT_TRUE(nested.empty() || nested == Unexpected) << nested;
}

TEST_F(Regex, OnePatternServesSeveralThreads) {
    IPE_Object object = make("(\\d+)-(\\d+)");
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

TEST_F(Regex, MethodsCheckTheirArguments) {
    IPE_Object object = make("a");
    IPE_Object search = object->__getattr__(IPE_String("search"), 0);
    ASSERT_TRUE(search);
    object = nullptr;  // the method keeps the pattern
    IPE_Object text = IPE_String("ba");
    EXPECT_EQ(search->__call__(IPE_Arguments(&text, 1))->__int__(), 1);
    IPE_Object number = IPE_Int(1);
    EXPECT_EQ(error([&] { search->__call__(IPE_Arguments(&number, 1)); }).rfind("TypeError", 0), 0u);
}

}  // namespace
