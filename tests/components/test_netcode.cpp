#include <gtest/gtest.h>

#include <random>

#include "components/netcode.h"

namespace {

int decode(int format, std::string_view text, std::string& out) { return NetCode_Decode(format, text, out); }

// The vectors of RFC 4648 section 10, then random bytes.
TEST(NetCode, RoundTripsAlsoBrokenIntoLines) {
    const char* coded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (size_t n = 0; n <= 6; ++n)
        EXPECT_EQ(NetCode_Encode(NetCodeBase64, std::string_view("foobar", n)), coded[n]);
    std::mt19937 random(4);
    for (size_t n = 0; n < 400; ++n) {
        std::string bytes(n, 0), back;
        for (char& c : bytes) c = static_cast<char>(random());
        for (NetCodeFormat format : {NetCodeBase64, NetCodeUrl}) {
            std::string text = NetCode_Encode(format, bytes);
            ASSERT_EQ(decode(format, text, back), NetCodeOk);
            ASSERT_EQ(back, bytes);
        }
        std::string text = NetCode_Encode(NetCodeBase64, bytes), broken;
        for (char c : text) {
            if (random() % 5 == 0) broken += "\r\n \t"[random() % 4];
            broken += c;
        }
        ASSERT_EQ(decode(NetCodeBase64, broken + "\r\n", back), NetCodeOk) << broken;
        ASSERT_EQ(back, bytes);
        while (text.ends_with('=')) text.pop_back();
        ASSERT_EQ(decode(NetCodeBase64, text, back), NetCodeOk);
        ASSERT_EQ(back, bytes);
    }
}

TEST(NetCode, MalformedInputIsAnErrorAndLeavesTheResult) {
    std::string out = "kept";
    for (const char* text : {"Z", "Zm9vZ", "Zm9*", "Zm9vZm9*", "Zg=", "Zg===", "Zg==Zg==", "=",
                             "Zm9v=", "Zm\xC3\xA9", "Zg=*", "Zm-_"})
        EXPECT_EQ(decode(NetCodeBase64, text, out), NetCodeBadInput) << text;
    EXPECT_EQ(decode(NetCodeBase64, std::string_view("Zm\0v", 4), out), NetCodeBadInput);
    for (const char* text : {"%", "a%4", "%4", "%zz", "%4g", "%%41"})
        EXPECT_EQ(decode(NetCodeUrl, text, out), NetCodeBadInput) << text;
    EXPECT_EQ(decode(2, "Zg==", out), NetCodeBadFormat);
    EXPECT_EQ(out, "kept");
}

TEST(NetCode, UrlKeepsTheUnreservedCharactersAlone) {
    EXPECT_EQ(NetCode_Encode(NetCodeUrl, "aZ09-._~ +/?&=%\xC3\xA4*"),
              "aZ09-._~%20%2B%2F%3F%26%3D%25%C3%A4%2A");
    std::string out;
    EXPECT_EQ(decode(NetCodeUrl, "a+b%20c%c3%A4%00d", out), NetCodeOk);
    EXPECT_EQ(out, std::string("a b c\xC3\xA4\0d", 9));
}

TEST(NetCode, CallsWithAHandle) {
    NetCode_Handle code = NetCode_Create(nullptr, nullptr);
    ASSERT_NE(code, nullptr);
    const std::string bytes("\0\xFF\0x", 4);
    EXPECT_EQ(NetCode_Set(code, 1, 0, reinterpret_cast<intptr_t>(bytes.data()), bytes.size()), 0);
    EXPECT_EQ(NetCode_Do(code, 4, 0, nullptr, nullptr), 0);
    size_t length = 0;
    EXPECT_STREQ(reinterpret_cast<const char*>(NetCode_Get(code, 3, 0, &length)), "AP8AeA==");
    EXPECT_EQ(length, 8u);
    EXPECT_EQ(NetCode_Set(code, 1, 0, 0, 0), 0);
    EXPECT_EQ(NetCode_Do(code, 3, 0, nullptr, nullptr), 0);
    const char* back = reinterpret_cast<const char*>(NetCode_Get(code, 1, 0, &length));
    EXPECT_EQ(std::string(back, length), bytes);

    EXPECT_NE(NetCode_Set(code, 7, 0, 2, 0), 0);
    EXPECT_EQ(NetCode_GetLastErrorCode(code), NetCodeBadFormat);
    EXPECT_EQ(NetCode_Do(code, 5, 0, nullptr, nullptr), NetCodeBadMethod);
    EXPECT_EQ(NetCode_Set(code, 4, 0, 0, 0), NetCodeBadProperty);
    EXPECT_EQ(NetCode_Get(code, 4, 0, &length), 0);
    EXPECT_EQ(NetCode_GetLastErrorCode(code), NetCodeBadProperty);
    EXPECT_EQ(NetCode_Set(code, 3, 0, reinterpret_cast<intptr_t>("!"), 1), 0);
    EXPECT_EQ(NetCode_Do(code, 3, 0, nullptr, nullptr), NetCodeBadInput);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(NetCode_Get(code, 1, 0, &length)), 4), bytes);
    NetCode_Destroy(code);
}

}  // namespace
