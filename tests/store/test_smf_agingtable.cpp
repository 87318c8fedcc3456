// The dictionary of the encoders, held against the scan that it stands for.
#include "store/codecs/smf_agingtable.h"

#include <gtest/gtest.h>

#include <random>

#include "aging_scan.h"

namespace {

struct OneBucket {
    uint32_t operator()(std::string_view) const noexcept { return 5; }
};

template <class Table>
void compare(size_t first, size_t last, int distinct) {
    Table table;
    std::mt19937 random(static_cast<unsigned>(distinct));
    for (int round = 0; round < 6; ++round) {
        AgingScan scan(first, last);
        table.clear();
        for (int i = 0; i < 1 << (2 * round + 3); ++i) {
            // Some keys come often, as in real columns.
            int value = static_cast<int>(random() % static_cast<unsigned>(1 + random() % distinct));
            std::string key = std::to_string(value);
            auto place = table.touch(std::string_view(key));
            ASSERT_EQ(std::make_pair(int{place.index}, place.known), scan.touch(key)) << round << ' ' << i;
            ASSERT_EQ(table.find(std::string_view(key)), place.index);
            ASSERT_EQ(table.at(place.index), key);
        }
    }
}

}  // namespace

TEST(AgingTable, FindsTheEntryOfTheScan) {
    for (int distinct : {1, 2, 127, 128, 129, 200, 1000}) {
        SCOPED_TRACE(distinct);
        compare<SMF_AgingTable<std::string>>(0, 127, distinct);
        compare<SMF_AgingTable<std::string, 1>>(1, 127, distinct);
        compare<SMF_AgingTable<std::string, 120, 127, OneBucket>>(120, 127, distinct);
        compare<SMF_AgingTable<std::string, 7, 7>>(7, 7, distinct);
    }
}

TEST(AgingTable, StepsAgeOnTheirOwn) {
    SMF_AgingTable<uint32_t, 0, 2> table;
    for (uint32_t key : {10u, 11u, 12u}) table.insert(key);
    EXPECT_EQ(table.find(10u), 0);  // leaves it the oldest
    EXPECT_EQ(table.insert(13u), 0);
    table.refresh(1);
    EXPECT_EQ(table.insert(14u), 2);
    EXPECT_EQ(table.find(12u), -1);
    EXPECT_EQ(table.size(), 3u);
}
