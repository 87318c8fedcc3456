// The format and the dollar language, HTML marks, and the time rule.
#include <cmath>
#include <ctime>

#include "ipe/values/ipe_expansion.h"
#include "values_testing.h"

namespace {

class Expansion : public ValuesTest {
  protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

std::string format(std::string_view control, const IPE_Object& parameter) {
    return str(S(control)->__format__(parameter));
}
std::string formatError(std::string_view control, const IPE_Object& parameter) {
    return raised([&] { format(control, parameter); });
}

TEST_F(Expansion, ValuesAreChosenByTheParametersType) {
    EXPECT_EQ(format("%s-%i", L({S("a"), I(5)})) + format("%s", T({L({I(1)})})), "a-5[1]");
    EXPECT_EQ(format("%(a)s %(missing)s %(a)s", D({{S("a"), I(1)}})), "1 missing 1");
    EXPECT_EQ(format("100%% of %s", S("x")), "100% of x");
    EXPECT_EQ(format("none", L({I(1)})), "none");
    EXPECT_EQ(formatError("%(a)s", I(1)), "ValueError: attempt to do dict lookup on non dict param");
    EXPECT_EQ(formatError("%(a", D({})), "ValueError: missing the ) on string replacement with dict");
    EXPECT_EQ(formatError("%s", D({})), "ValueError: attempt to do indexed lookup in dict param");
    EXPECT_EQ(formatError("%s%s", L({I(1)})), "ValueError: ran out of string params");
    EXPECT_EQ(formatError("%s%s", I(1)), "ValueError: string replacement requires multiple list param");
    EXPECT_EQ(raised([] { IPE_ExpandFormat(I(1), I(1)); }), "RuntimeError: Must pass a string to expand");
}

TEST_F(Expansion, UnknownCodesNameTheirPlace) {
    EXPECT_EQ(formatError("ab%", I(1)), "ValueError: unknown format code at position 3 in ab%");
    EXPECT_EQ(formatError("%d", I(1)), "ValueError: unknown format code at position 1 in %d");
    EXPECT_EQ(formatError("%d", L({})), "ValueError: ran out of string params");  // the value comes first
    EXPECT_EQ(formatError("\xE2\x82\xAC%05.2u", I(1)),
              "ValueError: unknown format code at position 6 in \xE2\x82\xAC%05.2u");
    EXPECT_EQ(formatError("%-,i", I(1)), "ValueError: unknown format code at position 2 in %-,i");
    EXPECT_EQ(formatError("%z%z", I(1)).substr(0, 30), "ValueError: unknown format cod");
}

TEST_F(Expansion, WidthAndPaddingDifferByFamily) {
    EXPECT_EQ(format("[%5s][%-5s][%2s]", L({S("ab"), S("ab"), S("abc")})), "[ab   ][   ab][abc]");
    EXPECT_EQ(format("[%4s]", S("\xE2\x82\xAC")), "[\xE2\x82\xAC ]");
    EXPECT_EQ(format("[%5i][%-5i][%05i][%-05i]", L({I(42), I(42), I(42), I(42)})),
              "[   42][   42][00042][   42]");
    EXPECT_EQ(format("[%5f][%-5f][%05f][%-05f]", L({I(42), I(42), I(42), I(42)})),
              "[   42][42   ][00042][42   ]");
    EXPECT_EQ(format("[%6r][%-4q]", L({S("a"), S("\"")})), "['a'   ][&quot;]");
}

TEST_F(Expansion, Numbers) {
    EXPECT_EQ(format("%,i %,i %,i %,i", L({I(1234567), I(-1234), I(123), I(-123456)})),
              "1,234,567 -1,234 123 -123,456");
    EXPECT_EQ(format("%,.2f %,x", L({F(1234567.891), I(0xABCDEF)})), "1,234,567.89 abc,def");
    EXPECT_EQ(format("%f %.1f %.3f", L({F(2.5), F(0.25), F(-1)})), "2 0.2 -1.000");
    EXPECT_EQ(format("%x %x", L({I(0x1FFFFFFFF), I(-1)})), "ffffffff ffffffff");
    EXPECT_EQ(format("%i", S("12abc")), "12");
    EXPECT_EQ(format("%08x|%,12i|%6.1f|%-6.1f|%06.1f", L({I(48879), I(1234567), F(2.25), F(2.5), F(2.5)})),
              "0000beef|   1,234,567|   2.2|2.5   |0002.5");
    EXPECT_EQ(format("%.99999999999f", F(0.1)).size(), 1102u);
    EXPECT_EQ(format("%99999999999999999999s", S("x")).size(), 1000000u);
    EXPECT_EQ(format("%,.1f", F(1e308)).size(), 64u + 21u);
}

TEST_F(Expansion, LocaleCodesFollowTheThreadsLocale) {
    XPK_ThreadState* state = XPK_CurrentThread();
    auto all = [] {
        return format("%I|%F|%C", L({I(-1234567), F(1234.5), F(2.25)})) +
               format("|%D|%!D|%T", L({I(1709210096), I(1709210096), I(1709210096)}));
    };
    state->locale = 0x409;
    EXPECT_EQ(all(), "-1,234,567|1,234.50|$2.25|2/29/2024|Thursday, February 29, 2024|12:34:56 PM");
    state->locale = 0x10407;  // the low half alone names the locale
    std::string german = all();
    EXPECT_EQ(german.substr(0, 20), "-1.234.567|1.234,50|");
    EXPECT_NE(german.find("|29.02.2024|"), std::string::npos);
    EXPECT_NE(german.find("|12:34:56"), std::string::npos);
    EXPECT_EQ(format("[%D%T]", L({I(0), IPE_None()})), "[]");
    EXPECT_TRUE(formatError("%F", F(NAN)).starts_with("RuntimeError: GetNumberFormat ("));
    EXPECT_TRUE(formatError("%C", F(INFINITY)).starts_with("RuntimeError: GetCurrencyFormat ("));
}

TEST_F(Expansion, FoldAndUnmark) {
    const std::string text =
        "\xEF\x80\x81\xEF\x80\x90\xEF\x80\xA2\xEF\x80\xAA\xEF\x80\xAE\xF4\x8F\xBF\xB2"
        "Cx\xF4\x8F\xBF\xB3"
        "C";
    EXPECT_EQ(format("%s", S(text)), "\x01\xEF\x80\x90/\xEF\x80\xAA~x");
    EXPECT_EQ(format("%q", S(text)), text);
    EXPECT_EQ(format("%-3s|%s", L({S("\xEF\x80\xA2"), S("\xF4\x8F\xBF\xB2")})), "  /|");
    EXPECT_EQ(str(call(S("${a}"), "substitute", {D({{S("a"), S(text)}})})),
              "\x01\xEF\x80\x90/\xEF\x80\xAA~\xF4\x8F\xBF\xB2"
              "Cx\xF4\x8F\xBF\xB3"
              "C");
}

TEST_F(Expansion, Html) {
    const std::string damage = "\xF4\x8F\xBF\xB0", open = "\xF4\x8F\xBF\xB2", close = "\xF4\x8F\xBF\xB3";
    EXPECT_EQ(format("%h", S("a<b>&\"")), "a&lt;b&gt;&amp;\"");
    EXPECT_EQ(format("%h", S("\xEF\x80\xA3script\xEF\x80\xA4")), "&lt;script&gt;");
    EXPECT_EQ(format("%,h", S("a.b<")), "a<wbr />.b<wbr />&lt;");
    EXPECT_EQ(format("%,-h", S("a.b")), "a.b");
    EXPECT_EQ(format("%h", S(damage + "2C3(")), "<b>[</b><i><font color=\"red\">C3</font></i><b>]</b>(");
    EXPECT_EQ(format("%-h", S(damage + "2C3(")), "<strike>C3</strike>(");
    EXPECT_EQ(format("%-h", S(damage + "2<")), "<strike>&lt;</strike>");
    EXPECT_EQ(format("%h", S("x" + damage)) + format("%h", S(damage + "2")) + format("%h", S(damage + "9y")),
              "xy");
    EXPECT_EQ(format("%h", S(open + "Ca" + close + "C" + open + "Vb" + close + "V" + open + "Xc" + open)),
              "<span class=\"ctag\">a</span><span class=\"vtag\">b</span>c");
    EXPECT_EQ(format("[%6h][%-4h][%,9h]", L({S("<>"), S("<"), S(".")})),
              "[&lt;&gt;    ][   &lt;][<wbr />. ]");
}

TEST_F(Expansion, Dollars) {
    IPE_Object a = D({{S("a"), I(1)}, {S("a b"), S("two")}, {S("0"), S("zero")}});
    auto substitute = [&](std::string_view text, bool exact = false) {
        IPE_Object keywords = exact ? D({{S("exact"), IPE_True()}}) : IPE_Object();
        return str(call(S(text), "substitute", {a}, keywords));
    };
    EXPECT_EQ(substitute("$a$$b ${a b} ${0}$0"), "1$b two zerozero");
    EXPECT_EQ(substitute("$ x$"), " x");
    EXPECT_EQ(substitute("$ x$", true), "$ x$");
    EXPECT_EQ(substitute("$none ${no ne}!"), "none no ne!");
    EXPECT_EQ(substitute("$none ${no ne}!", true), "$none $no ne!");
    EXPECT_EQ(raised([&] { substitute("${a"); }), "ValueError: missing the } on string substitute");
    EXPECT_EQ(raised([&] { IPE_ExpandDollar(I(1), a, false); }),
              "RuntimeError: Must pass a string to substitute");
    EXPECT_EQ(raised([&] { IPE_ExpandDollar(S("$x"), IPE_None(), false); }),
              "ItemNotFoundException: The NoneType does not have an key x");
}

TEST_F(Expansion, TimeRule) {
    constexpr int64_t Moment = 1709210096;  // 2024-02-29 12:34:56
    EXPECT_EQ(IPE_TimeOf(S("20240229123456")), Moment);
    EXPECT_EQ(IPE_TimeOf(S("2024-02-29 12:34:56.789")), Moment);
    EXPECT_EQ(IPE_TimeOf(T({I(2024), I(2), I(29), I(12), I(34), I(56)})), Moment);
    EXPECT_EQ(IPE_TimeOf(S("20240229")), 1709164800);
    EXPECT_EQ(IPE_TimeOf(S("2024-02-29")), 1709164800);
    EXPECT_EQ(IPE_TimeOf(L({I(2024), I(2)})), 1706745600);
    EXPECT_EQ(IPE_TimeOf(IPE_None()) + IPE_TimeOf({}) + IPE_TimeOf(S("")) + IPE_TimeOf(S(".5")), 0);
    EXPECT_EQ(IPE_TimeOf(I(-5)), -5);
    EXPECT_EQ(IPE_TimeOf(T({I(INT64_MAX), I(1)})), 0);
    EXPECT_EQ(raised([] { IPE_TimeOf(S("123456789")); }),
              "ValueError: Packed date passed to maketime() is not in a known format");
    EXPECT_EQ(raised([] { IPE_TimeOf(D({})); }), "RuntimeException: maketime failed to convert {}");
    EXPECT_EQ(raised([] { IPE_TimeOf(T({I(2024)})); }),
              "RuntimeException: maketime failed to convert (2024)");
}

}  // namespace
