// Numbers and constants: checked arithmetic, comparison across types, hashes and text forms.
#include <cmath>
#include <limits>

#include "values_testing.h"

namespace {

constexpr int64_t Low = INT64_MIN, High = INT64_MAX;

using Numbers = ValuesTest;

int64_t value(const IPE_Object& object) { return object.as<IPE_IntType>()->value; }

TEST_F(Numbers, OverflowAndZeroDivisorsRaiseBareNames) {
    EXPECT_EQ(raised([] { I(High)->__add__(I(1)); }), "SafeIntArithmeticOverflow: ");
    EXPECT_EQ(raised([] { I(Low)->__sub__(I(1)); }), "SafeIntArithmeticOverflow: ");
    EXPECT_EQ(raised([] { I(High)->__sub__(I(-1)); }), "SafeIntArithmeticOverflow: ");
    EXPECT_EQ(raised([] { I(Low)->__div__(I(-1)); }), "SafeIntArithmeticOverflow: ");
    EXPECT_EQ(raised([] { I(Low)->__mul__(I(-1)); }), "SafeIntArithmeticOverflow: ");
    EXPECT_EQ(raised([] { I(4294967296)->__mul__(I(2147483648)); }), "SafeIntArithmeticOverflow: ");
    EXPECT_EQ(value(I(4294967296)->__mul__(I(-2147483648))), Low);
    EXPECT_EQ(value(I(Low)->__add__(I(High))), -1);
    EXPECT_EQ(raised([] { I(0)->__div__(I(0)); }), "SafeIntDivideByZero: ");
    EXPECT_EQ(raised([] { I(5)->__format__(I(0)); }), "NumericError: Divide by Zero");
    EXPECT_EQ(raised([] { F(5)->__div__(I(0)); }), "NumericError: Divide by Zero");
    EXPECT_EQ(value(I(5)->__format__(I(-1))), 0);
    EXPECT_EQ(value(I(Low)->__format__(I(-1))), 0);
    EXPECT_EQ(value(I(-7)->__div__(I(2))), -3);
    EXPECT_EQ(value(I(-7)->__format__(I(2))), -1);
}

TEST_F(Numbers, RightOperandIsConverted) {
    EXPECT_EQ(value(I(7)->__add__(F(2.5))), 9);
    EXPECT_EQ(value(I(5)->__add__(S("37x"))), 42);
    EXPECT_EQ(value(I(5)->__add__(IPE_Object())), 5);
    EXPECT_EQ(value(I(5)->__add__(IPE_True())), 6);
    EXPECT_EQ(raised([] { I(5)->__add__(IPE_None()); }), "TypeError: __int__ is not supported");
    EXPECT_EQ(F(2.5)->__mul__(S("2"))->__float__(), 5.0);
    EXPECT_EQ(raised([] { F(5)->__add__(IPE_True()); }), "TypeError: __float__ is not supported");
}

TEST_F(Numbers, ComparisonIsTheLeftOperands) {
    EXPECT_EQ(I(2)->__cmp__(F(2.7)), 0);
    EXPECT_EQ(F(2.7)->__cmp__(I(2)), 1);
    EXPECT_EQ(F(1.5)->__cmp__(I(2)), -1);
    EXPECT_EQ(I(1)->__cmp__(S("1")), 1);
    EXPECT_EQ(IPE_True()->__cmp__(I(5)), 0);
    EXPECT_EQ(I(5)->__cmp__(IPE_True()), 1);
    EXPECT_EQ(IPE_False()->__cmp__(I(0)), 0);
    EXPECT_EQ(IPE_False()->__cmp__(IPE_True()), 1);
    EXPECT_EQ(IPE_None()->__cmp__(IPE_False()), 1);
    EXPECT_EQ(IPE_None()->__cmp__(IPE_Object()), 1);
}

TEST_F(Numbers, SmallIntegersAreShared) {
    EXPECT_TRUE(I(-99) == I(-99));
    EXPECT_TRUE(I(99) == I(99));
    EXPECT_FALSE(I(100) == I(100));
    EXPECT_FALSE(I(-100) == I(-100));
    EXPECT_EQ(I(-99).counted()->life(), EPA_Counted::Immortal);
}

TEST_F(Numbers, LongSuffixBelongsToTheRepresentationAlone) {
    EXPECT_EQ(repr(I(2147483647)), "2147483647");
    EXPECT_EQ(repr(I(2147483648)), "2147483648L");
    EXPECT_EQ(repr(I(-2147483647)), "-2147483647");
    EXPECT_EQ(repr(I(-2147483648)), "-2147483648L");
    EXPECT_EQ(repr(I(2147483648), true), "2147483648");
    EXPECT_EQ(str(I(Low)), "-9223372036854775808");
}

TEST_F(Numbers, FloatsWriteSeventeenPlacesAndNeverLoseDigits) {
    EXPECT_EQ(str(F(2.5)), "2.50000000000000000");
    EXPECT_EQ(str(F(-0.1)), "-0.10000000000000001");
    EXPECT_EQ(str(F(1e22)), "10000000000000000000000.00000000000000000");
    EXPECT_EQ(str(F(std::numeric_limits<double>::max())).size(), 309u + 18u);
    EXPECT_EQ(str(F(INFINITY)) + str(F(-INFINITY)) + str(F(-NAN)), "inf-infnan");
    EXPECT_EQ(F(1e300)->__int__(), High);
    EXPECT_EQ(F(-1e300)->__int__(), Low);
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

TEST_F(Numbers, ConstantsInTheirThreeModes) {
    auto mode = [](bool json, bool integers) {
        EPA_StringBuffer out;
        IPE_PrintContext context{out, json, false, integers};
        IPE_StackList stack;
        for (const IPE_Object& o : {IPE_None(), IPE_True(), IPE_False()}) {
            o->__repr__(context, stack);
            o->__str__(context, stack);
        }
        return std::string(out.view());
    };
    EXPECT_EQ(mode(false, false), "NoneNoneTrueTrueFalseFalse");
    EXPECT_EQ(mode(true, false), "nullnulltruetruefalsefalse");
    EXPECT_EQ(mode(true, true), "nullnull1100");
    EXPECT_EQ(raised([] { IPE_None()->__int__(); }), "TypeError: __int__ is not supported");
    EXPECT_FALSE(IPE_None()->__nonzero__() || IPE_False()->__nonzero__() || I(0)->__nonzero__() ||
                 F(0)->__nonzero__());
    EXPECT_EQ(str(F(1)->__getname__()) + str(IPE_True()->__getname__()), "FloatTypeTrueType");
}

}  // namespace
