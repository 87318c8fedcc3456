// Matching over batches gives what the engine gives for each value alone.
#include <random>

#include "store/filters/smf_patternliteral.h"
#include "store/filters/smf_textmatcher.h"
#include "store_support.h"

namespace {

using Random = std::minstd_rand;

std::string pieceOf(Random& random, const std::vector<const char*>& pieces, size_t least, size_t most) {
    std::string text;
    for (size_t n = least + random() % (most - least + 1); n > 0; --n)
        text += pieces[random() % pieces.size()];
    return text;
}

// Few letters, so that the needles are found and almost found; among them the relatives of k and s, a lone
// continuation byte and a cut-off sequence.
const std::vector<const char*> NamePieces = {
    "a",        "b",    "A",        "k",  "K",        "s",        "S",
    ".",        ".",    "ab",       "ka", "\xC3\xA9", "\xC3\x89", "\xE2\x84\xAA",
    "\xC5\xBF", "\x80", "\xE2\x84", "1"};
const std::vector<const char*> PlainPieces = {"a", "b", "A", "B", "k", ".", "ab", "s", "1"};
const std::vector<const char*> PatternPieces = {
    "a",   "b",        "A",     "k",    "s",     "\\.",   ".",     "ab", "\xC3\xA9", "+",
    "*",   "?",        "{2}",   "{0,}", "[ab.]", "(a|b)", "$",     "^",  "|",        "\\d",
    "(b)", "\\Qa.\\E", "[^]k]", "\\b",  "(?:k)", "++",    "\\x61", "]",  "}"};

void compare(const char* format, const std::vector<const char*>& pieces, uint32_t seed, int patterns) {
    Random random(seed);
    std::vector<std::string> texts;
    for (int i = 0; i < 3000; ++i)
        texts.push_back(pieceOf(random, pieces, 0, 6) +
                        (random() % 3 ? "" : "." + pieceOf(random, pieces, 1, 3)));
    std::vector<IPE_Object> values;
    for (const std::string& text : texts) values.push_back(IPE_String(text));
    OpenTable open(columnStore(SMF_TypeString, format, values, 5000), "T");
    SMF_String name;
    name.connect(open.table, "Value");
    int tried = 0, hits = 0;
    for (int i = 0; i < patterns; ++i) {
        bool ignoreCase = random() % 2;
        std::string pattern =
            i % 3 ? pieceOf(random, PatternPieces, 1, 5) : pieceOf(random, PlainPieces, 1, 4);
        std::unique_ptr<SMF_TextMatcher> batched, alone;
        try {
            batched = std::make_unique<SMF_TextMatcher>(pattern, ignoreCase);
            alone = std::make_unique<SMF_TextMatcher>(pattern, ignoreCase);
        } catch (const XPK_Exception&) {
            continue;
        }
        ++tried;
        open.table.top();
        if (i % 4 == 3) open.table.seek(static_cast<int64_t>(random() % 2900));
        for (open.table.next(); open.table.position() <= open.table.rows(); open.table.next()) {
            const std::string& text = texts[static_cast<size_t>(open.table.position() - 1)];
            bool expected = alone->matches(text);
            hits += expected;
            ASSERT_EQ(batched->matches(name), expected)
                << "'" << pattern << "' " << ignoreCase << " on '" << text << "' " << format;
        }
    }
    EXPECT_GT(tried, patterns / 2);
    EXPECT_GT(hits, tried * 10);
}

}  // namespace

TEST(TextMatcher, BatchesAgreeWithTheEngine) {
    for (uint32_t seed = 1; seed <= 3; ++seed) {
        for (const char* format : {"F", "", "D"}) {
            compare(format, NamePieces, seed, 60);
            compare(format, PlainPieces, seed + 100, 60);
        }
    }
}

TEST(TextMatcher, LiteralsAreDemandedWithCare) {
    struct Case {
        const char *pattern, *literal;
        bool whole, ignoreCase;
    };
    const Case cases[] = {
        {"report", "report", true, false},
        {"Report", "report", true, true},
        {"\\.iso$", ".iso", false, false},
        {"\\Qa.b*\\E", "a.b*", true, false},
        {"\\Qa.b\\E?c", "a.", false, false},
        {"abc*def", "def", false, false},
        {"abc+de", "abc", false, false},
        {"abc{2,3}d", "ab", false, false},
        {"abc{,3}", "ab", false, false},
        {"x[abc]longer", "longer", false, false},
        {"x[]a|b]yz", "yz", false, false},
        {"x(abcdef|g)yz(h)", "yz", false, false},
        {"ab\xC3\xA9*", "ab", false, false},
        {"ab\xC3\xA9xyz", "xyz", false, true},
        {"a|bcd", "", false, false},
        {"(?i)abc", "", false, false},
        {"abc(?#x)", "", false, false},
        {"(*UTF)abc", "", false, false},
        {"[[:alpha:]]abc", "", false, false},
        {"abc\\x41", "", false, false},
        {"abc{x", "", false, false},
        {"abc\\", "", false, false},
        {"(abc", "", false, false},
        {"a\xEF\xBF\xBD", "", false, false},
        {"", "", false, false},
    };
    for (const Case& c : cases) {
        SMF_PatternLiteral literal = SMF_RequiredLiteral(c.pattern, c.ignoreCase);
        EXPECT_EQ(literal.text, c.literal) << c.pattern;
        EXPECT_EQ(literal.whole, c.whole) << c.pattern;
    }
}

TEST(TextMatcher, LongAndBrokenTextsEnd) {
    std::string mass(300000, 'a');
    EXPECT_TRUE(SMF_TextMatcher("a$", false).matches(mass));
    EXPECT_FALSE(SMF_TextMatcher("b", false).matches(mass));
    EXPECT_TRUE(SMF_TextMatcher("\\Aa+\\z", false).matches(mass));
    EXPECT_TRUE(SMF_TextMatcher("(?<=\\x{E9}a)b", false)
                    .matches(std::string(600, 'x') + "\xC3\xA9"
                                                     "ab"));
    EXPECT_EQ(faultOf([&] { SMF_TextMatcher("(a+a+)+[bc]", false).matches(std::string(60, 'a')); }),
              "RuntimeException: The PCRE engine returned an error");
    EXPECT_TRUE(SMF_TextMatcher("^a.c$", false)
                    .matches("a\xFF"
                             "c"));
    EXPECT_TRUE(SMF_TextMatcher("^a..c$", false)
                    .matches("a\xE2\x84"
                             "c"));
    EXPECT_TRUE(SMF_TextMatcher("\xF4\x8F\xBF\xB9N}a", false).isInverted());
    EXPECT_FALSE(SMF_TextMatcher("\xF4\x8F\xBF\xB9N}a", false, true).isInverted());
}

TEST(TextMatcher, SearchAgreesWithItsPlainTwin) {
    Random random(9);
    for (int round = 0; round < 3000; ++round) {
        std::string text(random() % 90, ' '), needle(1 + random() % (round % 5 ? 4 : 40), 'a');
        for (char& c : text) c = static_cast<char>('a' + random() % 3 % 2);
        for (char& c : needle) c = static_cast<char>('a' + random() % 3 % 2);
        ASSERT_EQ(SMF_FindBytes(text.data(), text.size(), needle),
                  SMF_FindBytesPlain(text.data(), text.size(), needle))
            << text << " " << needle;
    }
}

TEST(TextMatcher, LowerCaseAgreesWithItsPlainTwin) {
    Random random(5);
    for (int round = 0; round < 300; ++round) {
        std::string text(random() % 70, ' ');
        for (char& c : text) c = static_cast<char>(random() % (round % 2 ? 128 : 256));
        std::string fast(text.size(), '?'), plain(text.size(), '!');
        EXPECT_EQ(SMF_LowerBytes(text.data(), text.size(), fast.data()),
                  SMF_LowerBytesPlain(text.data(), text.size(), plain.data()));
        ASSERT_EQ(fast, plain);
    }
}
