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
    auto demanded = [](const char* pattern, bool ignoreCase = false) {
        SMF_PatternLiteral literal = SMF_RequiredLiteral(pattern, ignoreCase);
        return (literal.whole ? "all " : "") + std::string(literal.text);
    };
    EXPECT_EQ(demanded("Report", true), "all report");
    EXPECT_EQ(demanded("ab\xC3\xA9xyz", true), "xyz");
    const std::pair<const char*, const char*> rows[] = {
        {"report", "all report"},   {"\\.iso$", ".iso"}, {"\\Qa.b*\\E", "all a.b*"}, {"\\Qa.b\\E?c", "a."},
        {"abc*def", "def"},         {"abc+de", "abc"},   {"abc{2,3}d", "ab"},        {"abc{,3}", "ab"},
        {"x[abc]longer", "longer"}, {"x[]a|b]yz", "yz"}, {"x(abcdef|g)yz(h)", "yz"}, {"ab\xC3\xA9*", "ab"}};
    for (auto [pattern, literal] : rows) EXPECT_EQ(demanded(pattern), literal) << pattern;
    for (const char* none : {"a|bcd", "(?i)abc", "abc(?#x)", "(*UTF)abc", "[[:alpha:]]abc", "abc\\x41",
                             "abc{x", "abc\\", "(abc", "a\xEF\xBF\xBD", ""})
        EXPECT_EQ(demanded(none), "") << none;
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
