#include <cstring>
#include <random>

#include "../ipe/values_testing.h"
#include "runtime/epa_digest.h"
#include "runtime/epa_string.h"
#include "runtime/epa_stringbuffer.h"
#include "runtime/epa_stringheap.h"
#include "runtime/epa_wildmatch.h"
#include "runtime/epa_xmltext.h"

namespace {

// The definition, without any care for time, of ASCII; the program builtins.py tells the other characters.
bool slowMatch(std::string_view text, std::string_view pattern) {
    if (pattern.empty()) return text.empty();
    if (pattern[0] == '*') {
        for (size_t n = 0; n <= text.size(); ++n)
            if (slowMatch(text.substr(n), pattern.substr(1))) return true;
        return false;
    }
    return !text.empty() && (pattern[0] == '?' || toupper(pattern[0]) == toupper(text[0])) &&
           slowMatch(text.substr(1), pattern.substr(1));
}

TEST(WildMatch, AgreesWithTheDefinition) {
    std::mt19937 random(3);
    for (int round = 0; round < 30000; ++round) {
        std::string text, pattern;
        for (size_t n = random() % 8; n--;) text += "abAB"[random() % 4];
        for (size_t n = random() % 7; n--;) pattern += "ab*?B*"[random() % 6];
        ASSERT_EQ(EPA_WildMatch(text, pattern), slowMatch(text, pattern)) << text << " " << pattern;
    }
}

TEST(WildMatch, HostilePatternsEnd) {
    EXPECT_TRUE(EPA_WildPattern(U"A*", U"a*").matches(U"alpha"));
    std::string pattern;
    for (int i = 0; i < 2000; ++i) pattern += "*a";
    EXPECT_FALSE(EPA_WildMatch(std::string(20000, 'a'), pattern + "b"));
    EXPECT_TRUE(EPA_WildMatch(std::string(20000, 'a'), pattern));
}

// Single references and their faults: the program builtins.py.
TEST(Xml, EncodeAndDecode) {
    std::string all, out, back;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    EPA_XmlEncode(out, all);
    EPA_XmlDecode(back, out);
    EXPECT_EQ(back, all);

    EPA_StringBuffer buffer;
    buffer.xmlEncode("<ü>", '>');
    buffer.xmlDecode("&#8364;&amp;amp;&unknown;&&#128512;&");
    EXPECT_EQ(buffer.view(), "&lt;ü>€&amp;&unknown;&\U0001F600&");
}

// The script programs digest "abc"; this is the published vector of many blocks, in pieces.
TEST(Digest, ManyBlocks) {
    EXPECT_EQ(EPA_Md5Hex(""), "D41D8CD98F00B204E9800998ECF8427E");
    EPA_Digest pieces(EPA_Digest::Kind::Sha1);
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 1000; ++i) pieces.update(std::string(1000, 'a'));
        EXPECT_EQ(EPA_HexText(pieces.finish(), true), "34AA973CD4C4DAA4F61EEB2BDBAD27316534016F");
    }
}

TEST(StringHeap, BlocksAndReuse) {
    EPA_StringHeap heap(16);
    char *a = nullptr, *b = nullptr, *c = nullptr;
    heap.copy("seven..", a);
    heap.copy("six....", b);  // would fill the block to the last byte, so it begins the next
    EXPECT_NE(b, a + 8);
    EXPECT_STREQ(a, "seven..");
    heap.allocate(16, c);
    memset(c, 'x', 16);
    EXPECT_STREQ(b, "six....");
    EXPECT_EQ(heap.total(), 32u);
    EXPECT_THROW(heap.allocate(17, c), XPK_AssertException);
    EXPECT_THROW(heap.copy("sixteen and more", c), XPK_AssertException);
    EXPECT_THROW(heap.copy(nullptr, c), XPK_AssertException);
    heap.reset();
    EXPECT_EQ(heap.total(), 0u);
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 5; ++i) heap.allocate(10, c);
        heap.reset();
    }
}

TEST(StringBuffer, GrowthAndLimits) {
    EXPECT_STREQ(EPA_String(static_cast<const char*>(nullptr)).c_str(), "");
    EPA_StringBuffer buffer(100);
    buffer.append(std::string(99, 'a'));
    EXPECT_EQ(buffer.capacity(), 100u);
    buffer.append('b');
    EXPECT_GE(buffer.capacity(), 182u - 1);
    EXPECT_LE(buffer.capacity(), 184u);
    EXPECT_EQ(buffer.view(), std::string(99, 'a') + "b");
    EXPECT_THROW(buffer.reserve(0x40000000), XPK_AssertException);
    EXPECT_THROW(buffer.reserve(-1), XPK_AssertException);
    EXPECT_EQ(raised([&] { buffer.truncate(buffer.capacity()); }),
              "RuntimeError: Attempt to set buffer out of bounds");
}

}  // namespace
