// Numbers and constants below scripts, whose program numbers.py tells the rest: sharing, floats, hashes,
// nulls.
#include <cmath>
#include <limits>

#include "values_testing.h"

namespace {

using Numbers = ValuesTest;

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

}  // namespace
