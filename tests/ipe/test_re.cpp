// The regular-expression module below scripts, whose program regex.py tells options, blocks and groups:
// limits, long and hostile texts, and use by several threads.
#include <gtest/gtest.h>

#include <thread>

#include "ipe/engines/ipe_re.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

class Regex : public testing::Test {
  protected:
    XPK_ThreadScope thread{true};

    static IPE_Object make(const std::string& pattern) {
        IPE_Object source = IPE_String(pattern);
        IPE_Object object = IPE_New<IPE_RE>(source, IPE_Arguments(&source, 1));
        object.as<IPE_RE>()->requireCompiled();
        object->__bind__();
        return object;
    }
    static bool search(const std::string& pattern, const std::string& text) {
        return make(pattern).as<IPE_RE>()->search(text);
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

TEST_F(Regex, TextThatIsNotUtf8MatchesNothing) {
    EXPECT_FALSE(search("a", "a\xC3"));
    EXPECT_EQ(groups("a", "a\xC3"), "None");
    EXPECT_TRUE(search("^a$", std::string("a\0b", 3)));  // a text ends at its first NUL
}

TEST_F(Regex, FindallHasRoomFor512Groups) {
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

}  // namespace
