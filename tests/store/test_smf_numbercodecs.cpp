// The codecs of numbers, dates and times.
#include "codec_contract.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_i64field.h"

using namespace codec_contract;

namespace {
const Case cases[] = {
    {"DMAE", "M", SMF_TypeI32, [](int p, int64_t i) { return IPE_Int(static_cast<int32_t>(number(p, i))); }},
    {"ESAE", "", SMF_TypeI64, [](int p, int64_t i) { return IPE_Int(number(p, i)); }},
};
}  // namespace

TEST(NumberCodecs, EveryPatternReadsBack) { checkEveryPattern(cases); }
TEST(NumberCodecs, EveryTruncationEndsInAnError) { checkEveryTruncation(cases); }

TEST(NumberCodecs, HandlesAndSpansAgreeWithObjects) {
    auto bytes = makeStore([&](SMF_Writer& writer) {
        SMF_WriterTable table("memory.smf");
        SMF_I64 wide;
        SMF_I32 narrow;
        wide.connect(table, "Wide", "");
        narrow.connect(table, "Narrow", "M");
        table.create("T", writer, 4096, 1000);
        for (int64_t i = 0; i < 10000; ++i) {
            wide.set(number(Random, i));
            narrow.set(static_cast<int32_t>(number(Random, i)));
            table.commit();
        }
    });
    OpenTable open(bytes, "T");
    SMF_I64 wide;
    SMF_I32 narrow;
    wide.connect(open.table, "wide");
    narrow.connect(open.table, "NARROW");
    for (int64_t row = 1; row <= open.table.rows();) {
        open.table.seek(row);
        auto values = wide.span();
        ASSERT_GT(values.size(), 0u);
        for (size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(values[i], number(Random, row - 1 + static_cast<int64_t>(i)));
        ASSERT_EQ(narrow.get(), static_cast<int32_t>(wide.get()));
        row += static_cast<int64_t>(values.size());
    }
    EXPECT_EQ(faultOf([&] { narrow.connect(open.table, "Wide"); }),
              "DatabaseError: Incorrect field type, expecting I32, actual I64");
}
