// The built-in functions on values, texts, codecs, time, the machine and objects, called through their rows.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "builtin_calls.h"
#include "ipe/language/ipe_exceptiontype.h"
#include "ipe/values/ipe_secrettype.h"
#include "platform/pf_process.h"

namespace {

class Builtins : public BuiltinCalls {};

// --- Conversion.

TEST_F(Builtins, CodePoints) {
    EXPECT_EQ(show("chr", {I(65)}), "'A'");
    EXPECT_EQ(show("chr", {I(0x20AC)}), "'\xE2\x82\xAC'");
    EXPECT_EQ(show("chr", {I(0x10FFFF)}), "'\xF4\x8F\xBF\xBF'");
    EXPECT_EQ(show("chr", {I(0)}), "''");
    EXPECT_EQ(errorType("chr", {S("A")}), "AssertionError");
    for (int64_t bad : {int64_t(-1), int64_t(0xD800), int64_t(0x110000), int64_t(1) << 32})
        EXPECT_EQ(errorType("chr", {I(bad)}), "UnicodeError") << bad;
    EXPECT_EQ(show("ord", {S("\xE2\x82\xAC"
                             "b")}),
              "8364");
    EXPECT_EQ(show("ord", {S("")}), "0");
    EXPECT_EQ(errorType("ord", {S("\xFF")}), "UnicodeError");
}

TEST_F(Builtins, ScalarConversions) {
    EXPECT_EQ(show("len", {S("a\xC3\xA9")}), "2");
    EXPECT_EQ(errorType("len", {I(1)}), "TypeError");
    EXPECT_EQ(show("long", {S("-0012x")}), "-12");
    EXPECT_EQ(show("long", {F(-7.9)}), "-7");
    EXPECT_EQ(call("float", {S("2.5kg")})->__float__(), 2.5);
    EXPECT_EQ(show("str", {L({I(1), S("a")})}), "'[1, \"a\"]'");
    EXPECT_EQ(show("type", {L({})}), "'ListType'");
    EXPECT_EQ(show("type", {IPE_None()}), "'NoneType'");
    EXPECT_EQ(call("sqrt", {I(2)})->__float__(), 1.4142135623730951);
    EXPECT_EQ(show("abs", {I(-5)}), "5");
    EXPECT_EQ(show("abs", {I(INT64_MAX)}), "9223372036854775807L");
    EXPECT_EQ(errorType("abs", {I(INT64_MIN)}), "SafeIntArithmeticOverflow");
    EXPECT_EQ(show("bits", {I(0)}), "[]");
    EXPECT_EQ(show("bits", {I(-1)}).size(), show("bits", {I(0xFFFFFFFF)}).size());
    EXPECT_EQ(show("bits", {I(0x80000005)}), "[1, 4, 2147483648L]");
    EXPECT_EQ(show("byteswap_U32", {I(0x01020304)}), "67305985");
    EXPECT_EQ(show("byteswap_U32", {I(0xFF)}), "4278190080L");
    EXPECT_EQ(show("byteswap_U32", {I(int64_t(7) << 32)}), "0");
}

TEST_F(Builtins, ReprAndEval) {
    IPE_Object value = L({IPE_True(), IPE_None(), S("a\"b"), T({I(1)})});
    EXPECT_EQ(show("repr", {value}), IPE_Object_ToString(S("[True, None, 'a\"b', (1)]")));
    EXPECT_EQ(text("repr", {value}, {{"json", IPE_True()}}), "[true,null,\"a\\\"b\",[1]]");
    EXPECT_EQ(text("repr", {value}, {{"json", I(0)}}), text("repr", {value}));  // the value counts
    EXPECT_EQ(text("repr", {IPE_True()}, {{"booleans_as_integers", I(1)}, {"json", I(1)}}), "1");
    std::string packed = text("repr", {value}, {{"zlib", I(1)}});
    EXPECT_NE(packed.find("A"), std::string::npos);
    EXPECT_EQ(show("eval", {S(packed)}, {{"zlib", I(1)}}), text("repr", {value}));
    EXPECT_EQ(show("eval", {S("~" + packed)}), text("repr", {value}));
    EXPECT_EQ(show("eval", {S("{\"a\": [true, null, -1.5e1]}")}, {{"json", I(1)}}),
              "{'a': [True, None, -15.00000000000000000]}");
    EXPECT_EQ(errorType("eval", {S("~!!!")}), "AssertionError");
    EXPECT_EQ(errorType("eval", {S("len('a')")}), "IPESyntaxException");
    EXPECT_EQ(errorType("eval", {S("")}), "IPESyntaxException");
}

TEST_F(Builtins, Sequences) {
    IPE_Object dict = IPE_NewDict();
    IPE_Dict_Set(dict, "k", I(7));
    EXPECT_EQ(show("list", {T({I(1), I(2)})}), "[1, 2]");
    EXPECT_EQ(show("tuple", {L({I(1), I(2)})}), "(1, 2)");
    EXPECT_EQ(show("list", {dict}), "[('k', 7)]");
    EXPECT_EQ(show("tuple", {S("a\xC3\xA9")}), "('a', '\xC3\xA9')");
    EXPECT_EQ(show("list", {S("")}), "[]");
    EXPECT_EQ(error("list", {I(1)}), "ValueError: tuple() argument must be a sequence");
    EXPECT_EQ(error("tuple", {IPE_None()}), "ValueError: tuple() argument must be a sequence");
    IPE_Object list = L({I(1)});
    EXPECT_NE(call("list", {list}), list);

    EXPECT_EQ(show("range", {I(2), I(5)}), "[2, 3, 4]");
    EXPECT_EQ(show("range", {I(0), I(7), I(3)}), "[0, 3, 6]");
    EXPECT_EQ(show("range", {I(0), I(6), I(3)}), "[0, 3]");
    EXPECT_EQ(show("range", {I(5), I(5)}), "[]");
    EXPECT_EQ(show("range", {I(6), I(5), I(-1)}), "[]");
    EXPECT_EQ(show("range", {I(INT64_MAX - 1), I(INT64_MAX)}), "[9223372036854775806L]");
    EXPECT_EQ(show("range", {I(INT64_MIN), I(INT64_MAX), I(INT64_MAX)}),
              "[-9223372036854775808L, -1, 9223372036854775806L]");
    for (int64_t step : {0, -1}) EXPECT_EQ(errorType("range", {I(0), I(5), I(step)}), "ValueError");
    EXPECT_EQ(errorType("range", {I(INT64_MIN), I(INT64_MAX)}), "MemoryAllocError");
}

TEST_F(Builtins, StringMethodsAsFunctions) {
    EXPECT_EQ(show("lower", {S("\xC3\x84"
                               "B")}),
              "'\xC3\xA4"
              "b'");
    EXPECT_EQ(show("upper", {S("ab")}), "'AB'");
    EXPECT_EQ(show("split", {S("a,b;c"), S(",;")}), "['a', 'b', 'c']");
    EXPECT_EQ(show("split", {S("a,b,c"), S(","), I(1)}), "['a', 'b,c']");
    EXPECT_EQ(show("split", {S("a b")}), "['a', 'b']");
    EXPECT_EQ(show("join", {L({I(1), S("b")}), S("-")}), "'1-b'");
    EXPECT_EQ(show("find", {S("h\xC3\xA9llo"), S("l")}), "2");
    EXPECT_EQ(show("find", {S("a"), S("")}), "-1");
    EXPECT_EQ(show("wildmatch", {S("a*C"), S("ABC")}), "True");  // the pattern comes first
    EXPECT_EQ(show("wildmatch", {S("ABC"), S("a*C")}), "False");
    EXPECT_EQ(show("translate", {L({S("x\xF4\x8F\xBF\xBA"
                                      "key,plain] y"),
                                    I(1)})}),
              "['xplain y', 1]");
}

// --- Codecs.

TEST_F(Builtins, Digests) {
    EXPECT_EQ(text("md5", {S("")}), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(text("md5", {S("message digest")}), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(text("sha1", {S("")}), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(text("sha1", {S("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")}),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(text("metaphone", {S("Knight")}), "NT");
    EXPECT_EQ(text("metaphone", {S("Thompson")}), "0MPSN");
    EXPECT_EQ(text("metaphone", {S("12")}), "");
}

TEST_F(Builtins, Uudecode) {
    EXPECT_EQ(text("uudecode", {S("0V%T")}), "Cat");
    EXPECT_EQ(text("uudecode", {S(" \t 0V%T0V%T\nrest")}), "CatCat");  // ends at the first foreign character
    EXPECT_EQ(text("uudecode", {S("0V%T0V%T"), I(4)}), "CatC");
    EXPECT_EQ(text("uudecode", {S("0V%T"), I(0)}), "");
    EXPECT_EQ(text("uudecode", {S("0V%")}), "Ca");
    EXPECT_EQ(text("uudecode", {S("0V")}), "C");
    EXPECT_EQ(text("uudecode", {S("0")}), "");
    EXPECT_EQ(text("uudecode", {S("80``80``")}),
              "a");  // a grave accent is the zero; a text ends at its first NUL
    EXPECT_EQ(text("uudecode", {S("")}), "");
    EXPECT_EQ(text("uudecode", {S("{}")}), "");
}

TEST_F(Builtins, Base64AndUrl) {
    const char* pairs[][2] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}};
    for (auto& [plain, encoded] : pairs) {
        EXPECT_EQ(text("base64_encode", {S(plain)}), encoded);
        EXPECT_EQ(text("base64_decode", {S(encoded)}), plain);
    }
    EXPECT_EQ(text("base64_encode", {I(12)}), "MTI=");
    EXPECT_EQ(text("base64_encode", {IPE_New<IPE_SecretType>("foo")}), "Zm9v");
    EXPECT_EQ(error("base64_encode", {}), "IndexError: tuple index out of range");
    EXPECT_EQ(text("url_encode", {S("AZaz09-._~")}), "AZaz09-._~");
    EXPECT_EQ(text("url_encode", {S("a b/\xC3\xA9+%")}), "a%20b%2F%C3%A9%2B%25");
    EXPECT_EQ(text("url_decode", {S("a%20b+c%2f%C3%A9")}), "a b c/\xC3\xA9");
    EXPECT_EQ(error("url_decode", {}), "IndexError: tuple index out of range");
    for (const char* bad : {"Zg=!", "Z", "Zm9v\xC3\xA9"})
        EXPECT_EQ(errorType("base64_decode", {S(bad)}), "ValueError");
    for (const char* bad : {"%", "%4", "%zz"}) EXPECT_EQ(errorType("url_decode", {S(bad)}), "ValueError");
}

TEST_F(Builtins, Rsa) {
    // p = 61, q = 53: n = 3233 (ca1), e = 17 (11), d = 2753 (ac1).
    EXPECT_EQ(text("rsa", {S("eh"), S("41"), S("11"), S("ca1")}), "ae6");
    EXPECT_EQ(text("rsa", {S("dh"), S("AE6"), S("ac1"), S("CA1")}), "41");
    EXPECT_EQ(text("rsa", {S("e"), S("A"), S("11"), S("ca1")}), "ae6");
    EXPECT_EQ(text("rsa", {S("d"), S("ae6"), S("ac1"), S("ca1")}), "A");
    EXPECT_EQ(text("rsa", {S("eh"), S("0"), S("11"), S("ca1")}), "0");
    EXPECT_EQ(text("rsa", {S("eh"), S("0005"), S("0"), S("ca1")}), "1");
    EXPECT_EQ(text("rsa", {S("eh"), S("5"), S("3"), S("64")}), "19");  // an even modulus
    std::string wide = "8" + std::string(255, '0');
    EXPECT_EQ(text("rsa", {S("eh"), S(wide), S("1"), S("9" + std::string(255, '0'))}), wide);
    EXPECT_EQ(text("rsa", {S("eh"), S("2"), S("3ff"), S("f" + std::string(255, 'f'))}), wide);
    EXPECT_EQ(errorType("rsa", {S("eh"), S("1" + wide), S("1"), S("3")}), "ValueError");
    EXPECT_EQ(text("rsa", {S("eh"), S("00000" + wide), S("1"), S("3")}), "2");  // leading zeros do not count
    EXPECT_EQ(errorType("rsa", {S("e"), S(std::string(129, 'x')), S("1"), S("3")}), "ValueError");
    EXPECT_EQ(error("rsa", {S("eh"), S("1"), S("1"), S("0")}), "NumericError: Divide by Zero");
    EXPECT_EQ(errorType("rsa", {S("eh"), S("1g"), S("1"), S("3")}), "ValueError");
    EXPECT_EQ(errorType("rsa", {S("eh"), S("-1"), S("1"), S("3")}), "ValueError");
    EXPECT_EQ(errorType("rsa", {S("x"), S("1"), S("1"), S("3")}), "ValueError");
}

TEST_F(Builtins, UnicodeForms) {
    EXPECT_EQ(show("unicode_utf8", {S("a\xE2\x82\xAC")}), "[97, 226, 130, 172]");
    EXPECT_EQ(show("unicode_utf16", {S("a\xF0\x9F\x98\x80")}), "[97, 55357, 56832]");
    EXPECT_EQ(show("unicode_utf32", {S("a\xF0\x9F\x98\x80")}), "[97, 128512]");
    for (const char* name : {"unicode_utf8", "unicode_utf16", "unicode_utf32"})
        EXPECT_EQ(show(name, {S("")}), "[]");
    EXPECT_EQ(errorType("unicode_utf32", {S("\xC3(")}), "UnicodeError");
    EXPECT_EQ(text("unicode_sanitize", {S("\xC3(")}),
              "\xF4\x8F\xBF\xB0"
              "2C3(");
    EXPECT_EQ(text("unicode_sanitize", {S("\xC3\xA9")}), "\xC3\xA9");
    EXPECT_EQ(text("unicode_native", {S("abc")}), "abc");
    EXPECT_EQ(show("unicode_flags", {}), "0");
    call("unicode_flags", {I(1)});
    EXPECT_EQ(show("unicode_flags", {}), "1");
    EXPECT_EQ(show("unicode_utf32", {S("\xC3(")}), "[1114096, 50, 67, 51, 40]");  // now sanitised
    call("unicode_flags", {I(0)});
}

TEST_F(Builtins, FileNameMappingAndXml) {
    std::string mapped = text("uep", {S("a:b?c/d\\e. ")});
    EXPECT_EQ(mapped,
              "a:b\xEF\x80\xA5"
              "c\xEF\x80\xA2"
              "d\xEF\x80\xA6"
              "e.\xEF\x80\xA8");
    EXPECT_EQ(text("udp", {S(mapped)}), "a:b?c/d\\e. ");
    EXPECT_EQ(text("udp", {S("\xEF\x80\xAB\xEF\x80\xAE")}), ":~");  // colon and tilde fold back only
    IPE_Object number = I(5000);
    EXPECT_EQ(call("udp", {number}), number);

    EXPECT_EQ(text("xep", {S("<a href=\"x\">&'")}), "&lt;a href=&quot;x&quot;&gt;&amp;&apos;");
    EXPECT_EQ(errorType("xep", {I(12)}), "TypeError");
    EXPECT_EQ(text("xep", {S("a/b"), S("/"), S("-")}), "a-b");
    EXPECT_EQ(text("xep", {S("abc"), S("ab"), S("<")}), "&lt;bc");  // no counterpart: it stays
    EXPECT_EQ(text("xep", {S("\xC3\xA9x"), S("\xC3\xA9"), S("\xE2\x82\xAC")}), "\xE2\x82\xACx");
    for (const char* plain : {"<&>\"'", "a*b,c/d:e;f?g\\h|i~", "tab\tline\n", "\xE2\x82\xAC", ""})
        EXPECT_EQ(text("xdp", {S(text("xep", {S(plain)}))}), plain);
    EXPECT_EQ(text("xdp", {S("&#8364;&nbsp;")}), "\xE2\x82\xAC&nbsp;");
    EXPECT_EQ(error("xdp", {S("&#12")}), "RuntimeError: Malformed character reference");
    EXPECT_EQ(error("xdp", {S("&#0;")}), "RuntimeError: Illegal value");
}

// --- Time.

TEST_F(Builtins, Maketime) {
    IPE_Object packed = call("maketime", {S("20240229123456")});
    EXPECT_GT(packed->__int__(), 1700000000);
    EXPECT_TRUE(IPE_Object_Equal(packed, call("maketime", {S("2024-02-29 12:34:56")})));
    EXPECT_TRUE(IPE_Object_Equal(packed, call("maketime", {S("2024-02-29 12:34:56.789")})));
    EXPECT_TRUE(IPE_Object_Equal(packed, call("maketime", {T({I(2024), I(2), I(29), I(12), I(34), I(56)})})));
    EXPECT_TRUE(
        IPE_Object_Equal(call("maketime", {S("20240229")}), call("maketime", {L({I(2024), I(2), I(29)})})));
    EXPECT_TRUE(
        IPE_Object_Equal(call("maketime", {S("2024-02-01")}), call("maketime", {T({I(2024), I(2)})})));
    EXPECT_EQ(show("maketime", {S("")}), "0");
    EXPECT_EQ(show("maketime", {IPE_None()}), "0");
    EXPECT_EQ(show("maketime", {I(-5)}), "-5");
    EXPECT_EQ(error("maketime", {S("202402291")}),
              "ValueError: Packed date passed to maketime() is not in a known format");
    EXPECT_EQ(error("maketime", {IPE_True()}).rfind("RuntimeException: maketime failed to convert", 0), 0u);
}

TEST_F(Builtins, LocaltimeAndStrftime) {
    IPE_Object seconds = call("maketime", {S("20240229123456")});
    EXPECT_EQ(show("localtime", {seconds}), "(2024, 2, 29, 12, 34, 56)");
    EXPECT_EQ(show("localtime", {I(0)}), "(0, 0, 0, 0, 0, 0)");
    EXPECT_EQ(show("localtime", {I(-1)}), "(0, 0, 0, 0, 0, 0)");
    EXPECT_GE(IPE_Tuple(call("localtime", {I(32535244798)}))[0]->__int__(), 3000);
    EXPECT_EQ(error("localtime", {I(32535244799)}),
              "RuntimeError: The value passed to localtime exceeds the maximum allowed!");
    EXPECT_GT(IPE_Tuple(call("localtime", {}))[0]->__int__(), 2020);
    EXPECT_EQ(text("strftime", {seconds}), "2024-02-29 12:34:56");
    EXPECT_EQ(text("strftime", {S("20240229"), S("%d/%m")}), "29/02");
    EXPECT_EQ(text("strftime", {I(0)}), "");
    EXPECT_EQ(text("strftime", {seconds, S(std::string(200, 'x'))}), "");  // above 128 bytes
    EXPECT_EQ(text("strftime", {seconds, S("%900000000d")}), "");
    EXPECT_EQ(errorType("strftime", {I(INT64_MAX)}), "RuntimeError");
}

TEST_F(Builtins, WeekdayAgreesWithTheCalendar) {
    EXPECT_EQ(show("weekday", {I(2000), I(1), I(1)}), "6");
    EXPECT_EQ(show("weekday", {T({I(2024), I(2), I(29)})}), "4");
    for (int64_t day = -200000; day < 400000; day += 97) {
        time_t seconds = day * 86400;
        tm fields{};
        gmtime_r(&seconds, &fields);
        ASSERT_EQ(
            call("weekday", {I(fields.tm_year + 1900), I(fields.tm_mon + 1), I(fields.tm_mday)})->__int__(),
            fields.tm_wday)
            << fields.tm_year + 1900 << '-' << fields.tm_mon + 1 << '-' << fields.tm_mday;
    }
    // Months and days beyond their range run on into the next.
    EXPECT_EQ(show("weekday", {L({I(2000), I(13), I(1)})}), show("weekday", {I(2001), I(1), I(1)}));
    EXPECT_EQ(show("weekday", {I(2001), I(0), I(1)}), show("weekday", {I(2000), I(12), I(1)}));
    EXPECT_EQ(show("weekday", {I(2000), I(1), I(-6)}), "6");
    EXPECT_LT(call("weekday", {})->__int__(), 7);
    EXPECT_EQ(errorType("weekday", {L({I(2000), I(1)})}), "IndexError");
    EXPECT_EQ(errorType("weekday", {I(2000)}), "TypeError");
    EXPECT_EQ(errorType("weekday", {I(2000), I(1)}), "TypeError");
    EXPECT_EQ(errorType("weekday", {I(INT64_MIN), I(1), I(1)}), "ValueError");
}

TEST_F(Builtins, TimersRunForward) {
    IPE_Object before = call("timer", {});
    double elapsed = call("timer", {before})->__float__();
    EXPECT_GE(elapsed, 0.0);
    EXPECT_LT(elapsed, 3600.0);
    IPE_Object later = I(before->__int__() - 5'000'000'000);
    EXPECT_GE(call("timer", {later})->__float__(), 5.0);
    EXPECT_LT(call("timer", {I(INT64_MAX)})->__float__(), 0.0);
    IPE_Object timeout = call("timeout", {});
    IPE_Object sleep = timeout->__getattr__(S("sleep"), 0);
    IPE_Object zero = I(0);
    sleep->__call__(IPE_Arguments(&zero, 1));
    EXPECT_EQ(errorType("timeout", {I(1)}), "TypeError");
}

// --- The machine.

TEST_F(Builtins, Machine) {
    char name[256] = {};
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
    EXPECT_EQ(text("hostos", {S("name")}), name);
    EXPECT_NE(text("hostos", {S("domain")}), "");
    EXPECT_NE(text("hostos", {S("version")}).find("Linux"), std::string::npos);
    EXPECT_EQ(text("hostos", {}), text("hostos", {S("version")}));
    IPE_Object memory = call("hostos", {S("memory")});
    EXPECT_GT(IPE_Dict_GetInt64(memory, "capacity"), IPE_Dict_GetInt64(memory, "available"));
    EXPECT_GT(IPE_Dict_GetInt64(memory, "available"), 0);
    EXPECT_EQ(errorType("hostos", {S("colour")}), "RuntimeError");

    IPE_List drives(call("drive_list", {}));
    for (int32_t i = 0; i < drives.count(); ++i) EXPECT_EQ(drives[i]->c_str()[0], '/');
    IPE_Object size = call("drive_size", {S("/")});
    EXPECT_GE(IPE_Dict_GetInt64(size, "capacity"), IPE_Dict_GetInt64(size, "available"));
    EXPECT_GT(IPE_Dict_GetInt64(size, "capacity"), 0);
    EXPECT_EQ(error("drive_size", {S("/no such place")}).rfind("RuntimeError: GetDiskFreeSpaceEx (2)", 0),
              0u);

    EXPECT_EQ(call("threadid", {})->__int__(), platform::threadId());
    call("system_gc", {});
    EXPECT_EQ(errorType("system_gc", {I(1)}), "TypeError");
}

TEST_F(Builtins, Chance) {
    for (int i = 0; i < 50; ++i) {
        std::string token = text("rtoken8", {});
        ASSERT_EQ(token.size(), 8u);
        ASSERT_EQ(token.find_first_not_of("0123456789"), std::string::npos);
    }
    bool seen[3] = {};
    for (int i = 0; i < 500; ++i) seen[call("rchoice", {L({I(0), I(1), I(2)})})->__int__()] = true;
    EXPECT_TRUE(seen[0] && seen[1] && seen[2]);
    EXPECT_EQ(show("rchoice", {S("x")}), "'x'");
    EXPECT_EQ(errorType("rchoice", {L({})}), "IndexError");
}

TEST_F(Builtins, LocaleOfTheThread) {
    EXPECT_EQ(show("_system", {S("getlanguage")}), "0");
    call("_system", {S("setlanguage"), I(0x407)});
    EXPECT_EQ(show("_system", {S("getlanguage")}), "1031");
    EXPECT_EQ(text("localeinfo", {S("SENGLANGUAGE")}), "German");
    EXPECT_EQ(text("localeinfo", {S("SDECIMAL")}), ",");
    EXPECT_EQ(text("localeinfo", {S("SMONTHNAME3")}), "M\xC3\xA4rz");
    EXPECT_EQ(text("localeinfo", {S("SDAYNAME7")}), "Sonntag");
    call("_system", {S("setlanguage"), I(0x409)});
    EXPECT_EQ(text("localeinfo", {S("SDECIMAL")}), ".");
    EXPECT_EQ(text("localeinfo", {S("SISO639LANGNAME")}), "en");
    EXPECT_EQ(text("localeinfo", {S("ILANGUAGE")}), "0409");
    call("_system", {S("setlanguage"), I(0)});
    EXPECT_EQ(errorType("localeinfo", {S("NOSUCHKEY")}), "KeyError");
    EXPECT_GT(call("_system", {S("getansicodepage")})->__int__(), 0);
    EXPECT_GT(call("_system", {S("getsystemlanguage")})->__int__(), 0);
    EXPECT_EQ(errorType("_system", {S("setlanguage")}), "TypeError");
    EXPECT_EQ(errorType("_system", {S("shout")}), "RuntimeError");
}

TEST_F(Builtins, MessageBoxesShowExceptions) {
    testing::internal::CaptureStderr();
    call("messagebox", {S("hello"), S("Caption")});
    std::string shown = testing::internal::GetCapturedStderr();
    EXPECT_NE(shown.find("Caption: hello"), std::string::npos);
    IPE_Object exception;
    try {
        XPK_Raise("RuntimeError", "broken $part").string("part", "wheel").raise();
    } catch (const XPK_Exception& raised) {
        exception = IPE_New<IPE_ExceptionType>(raised);
    }
    IPE_Dict_Set(exception.as<IPE_ExceptionType>()->details(), "line", I(7));
    testing::internal::CaptureStderr();
    call("messagebox", {exception, S("Error")});
    shown = testing::internal::GetCapturedStderr();
    EXPECT_NE(shown.find("Error: broken wheel\n\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find(" ( 7 )\n"), std::string::npos) << shown;
}

// --- Objects.

TEST_F(Builtins, Attributes) {
    IPE_Object object = IPE_New<IPE_OldClassType>(S("m.C"));
    call("setattr", {object, S("colour"), S("red")});
    EXPECT_EQ(show("getattr", {object, S("colour")}), "'red'");
    call("delattr", {object, S("colour")});
    EXPECT_EQ(show("getattr", {object, S("colour"), I(5)}), "5");
    EXPECT_EQ(error("getattr", {object, S("colour")}),
              "RuntimeError: The object does not contain the requested method");
    EXPECT_EQ(show("getattr", {I(1), S("colour"), I(5)}), "5");
    EXPECT_EQ(errorType("getattr", {I(1), S("colour")}), "AttributeNotFoundException");
    IPE_Object space = IPE_New<IPE_ModuleShared>();
    EXPECT_EQ(show("getattr", {space, S("none"), IPE_None()}), "None");
    EXPECT_EQ(errorType("getattr", {space, S("none")}), "AttributeError");
    EXPECT_EQ(errorType("setattr", {I(1), S("a"), I(1)}), "TypeError");

    EXPECT_EQ(error("super", {I(1)}), "RuntimeError: A class instance must be passed to super, not IntType");
    EXPECT_EQ(error("super", {object}), "RuntimeError: The class does not have a super");
}

TEST_F(Builtins, CopiesAndStrips) {
    IPE_Object inner = L({I(1)});
    IPE_Object list = L({inner, IPE_New<IPE_OldClassType>(S("m.C")), S("x")});
    IPE_Object copy = call("clone", {list});
    EXPECT_EQ(IPE_Object_ToString(copy), "[[1], 'x']");
    EXPECT_NE(IPE_List(copy)[0], inner);
    EXPECT_EQ(show("objectstrip", {list}), "[[1], 'x']");
    EXPECT_TRUE(call("objectstrip", {IPE_New<IPE_OldClassType>(S("m.C"))}).isNull());
    EXPECT_EQ(show("lang", {S("any"), I(1)}), "None");
    EXPECT_EQ(show("tag", {}), "None");
}

TEST_F(Builtins, SpecsStandGuard) {
    EXPECT_EQ(error("find", {S("a")}), "TypeError: find requires 2 arguments, 1 given");
    EXPECT_EQ(error("find", {S("a"), I(1)}),
              "TypeError: Index 1 requires StringType arguments, IntType given");
    EXPECT_EQ(error("drive_list", {I(1)}), "TypeError: drive_list requires 0 arguments, 1 given");
    EXPECT_EQ(errorType("join", {T({}), S("")}), "TypeError");
}

}  // namespace
