// Saved values, object files and packed text: round trips, and every kind of damage.
#include <zlib.h>

#include <cmath>

#include "components/netcode.h"
#include "ipe/values/ipe_packed.h"
#include "ipe/values/ipe_savedreader.h"
#include "values_testing.h"

namespace {

using Saved = ValuesTest;

std::string save(const IPE_Object& value) {
    MemorySink sink;
    EPA_DataOutput out(sink);
    value->save(out);
    return sink.bytes;
}
IPE_Object load(std::string_view bytes) {
    MemorySource source(bytes);
    EPA_DataInput in(source);
    return IPE_ReadSaved(in);
}

IPE_Object everything() {
    return D({{S("ints"), L({I(0), I(-1), I(INT64_MIN), I(INT64_MAX)})},
              {L({I(1), S("k")}), T({IPE_None(), IPE_True(), IPE_False()})},
              {S(""), F(-2.5)},
              {S("deep"), L({D({}), L({}), T({}), T({T({S("\xE2\x82\xAC")})})})}});
}

TEST_F(Saved, BytesAreTheFormatsOwn) {
    EXPECT_EQ(save(I(258)), std::string("\x07\0\0\0\0\0\0\x01\x02", 9));
    EXPECT_EQ(save(S("ab")), std::string("\x06\0\0\0\x03"
                                         "ab\0",
                                         8));
    EXPECT_EQ(save(F(0.5)), std::string("\x08\0\x13"
                                        "0.50000000000000000",
                                        22));
    EXPECT_EQ(save(L({IPE_None(), T({IPE_True()})})), "\x22\x09\x26\x1E\x0A\x1F\x23");
    EXPECT_EQ(save(D({{IPE_None(), IPE_False()}})), "\x20\x09\x25\x0B\x21");
    EXPECT_EQ(raised([] { save(call(S("x"), "secret")); }), "TypeError: save is not supported");
}

TEST_F(Saved, RoundTrip) {
    IPE_Object value = everything();
    IPE_Object back = load(save(value));
    EXPECT_EQ(value->__cmp__(back), 0);
    EXPECT_EQ(load(save(F(1e300)))->__float__(), 1e300);
    EXPECT_TRUE(std::isinf(load(save(F(-INFINITY)))->__float__()));
    EXPECT_EQ(repr(load("\x22\x09\x26\x23")), "[None]");
    EXPECT_EQ(load(std::string("\x67\x07\0\0\0\0\0\0\0\x05", 10))->__int__(), -5);
    std::string big(300000, 'x');
    EXPECT_EQ(str(load(save(S(big)))), big);
}

TEST_F(Saved, TruncationAtEveryByteIsAnEndOfStream) {
    std::string bytes = save(everything());
    for (size_t size = 0; size < bytes.size(); ++size)
        ASSERT_EQ(raised([&] { load(std::string_view(bytes).substr(0, size)); }), "IOError: stream eof")
            << size;
}

TEST_F(Saved, FlippedBytesEndInNamedErrors) {
    std::string bytes = save(everything());
    for (size_t i = 0; i < bytes.size(); ++i)
        for (int bit = 0; bit < 8; ++bit) {
            std::string bad = bytes;
            bad[i] = static_cast<char>(bad[i] ^ (1 << bit));
            std::string result = raised([&] { load(bad); });
            EXPECT_TRUE(result == "nothing" || result == "IOError: stream eof" ||
                        result.starts_with("IPESyntaxException: "))
                << result;
        }
}

TEST_F(Saved, ClaimsAreNotBelieved) {
    EXPECT_EQ(raised([] {
                  load(
                      std::string("\x06\x3F\xFF\xFF\xFE"
                                  "0123456789",
                                  15));
              }),
              "IOError: stream eof");
    EXPECT_EQ(raised([] { load("\x06\x7F\xFF\xFF\xFF"); }),
              "IPESyntaxException: Illegal length in saved data\nat offset 4");
    EXPECT_EQ(raised([] { load("\x06\xFF\xFF\xFF\xFF"); }).substr(0, 18), "IPESyntaxException");
    EXPECT_EQ(raised([] { load("\x22\x23\x23"); }), "nothing");
    EXPECT_EQ(raised([] { load("\x22\x26\x23"); }),
              "IPESyntaxException: Unexpected token in saved data\nat offset 1");
    EXPECT_EQ(raised([] { load("\x20\x09\x26\x09\x21"); }), "IPESyntaxException: Expecting :\nat offset 2");
    EXPECT_EQ(raised([] { load("\x67\x09"); }).substr(0, 18), "IPESyntaxException");
    for (char bracket : {'\x22', '\x1E'})
        EXPECT_EQ(raised([&] { load(std::string(1000000, bracket)); }),
                  "RuntimeError: Maximum stack depth exceded");
    std::string deepest = std::string(500, '\x22') + std::string(500, '\x23');
    EXPECT_EQ(save(load(deepest)), deepest);
}

TEST_F(Saved, ObjectFile) {
    MemorySink sink;
    EPA_DataOutput out(sink);
    IPE_WriteObjectFile(out, L({I(1)}));
    IPE_WriteObjectFile(out, S("second"));
    EXPECT_EQ(sink.bytes.substr(0, 13), std::string("\x49\x42\x46\x1A\0\0\0\x02\0\0\0\0\x22", 13));
    MemorySource source(sink.bytes);
    EPA_DataInput in(source);
    EXPECT_EQ(repr(IPE_ReadObjectFile(in)), "[1]");
    EXPECT_EQ(repr(IPE_ReadObjectFile(in)), "'second'");
    auto read = [](std::string bytes) {
        MemorySource file(bytes);
        EPA_DataInput input(file);
        return raised([&] { IPE_ReadObjectFile(input); });
    };
    EXPECT_EQ(read("\x49\x42\x47\x1A").substr(0, 14), "AssertionError");
    EXPECT_EQ(read("\x4A").substr(0, 14), "AssertionError");
    EXPECT_EQ(read(sink.bytes.substr(0, 9)), "IOError: stream eof");
    EXPECT_EQ(read(std::string("\x49\x42\x46\x1A\0\0\0\x02\0\0\0\0\x09\x09", 14)),
              "IPESyntaxException: Expecting the end of the object\nat offset 1");
}

// --- Packed text

std::string blockOf(std::string_view content, uint32_t length) {
    std::string block(5, '\0');
    for (size_t i = 0; i < 4; ++i) block[1 + i] = static_cast<char>(length >> (8 * i));
    uLongf size = compressBound(content.size());
    std::string stream(size, '\0');
    compress2(reinterpret_cast<Bytef*>(stream.data()), &size, reinterpret_cast<const Bytef*>(content.data()),
              content.size(), 9);
    return block + stream.substr(0, size);
}

TEST_F(Saved, PackedTextIsABlockInBase64) {
    EXPECT_EQ(IPE_PackText("abc", true), "~" + IPE_PackText("abc"));
    EXPECT_EQ(IPE_Unpack(IPE_PackText("abc", true)), "abc");
    std::string block;
    ASSERT_EQ(NetCode_Decode(NetCodeBase64, IPE_PackText("abc"), block), NetCodeOk);
    EXPECT_EQ(block.substr(0, 5), std::string("\0\x04\0\0\0", 5));
    EXPECT_EQ(IPE_UnpackBlock(block), std::string("abc\0", 4));
}

TEST_F(Saved, PackedReaderTakesBothLengthsAndNothingMore) {
    const std::string with("abc\0", 4);
    EXPECT_EQ(IPE_Unpack(NetCode_Encode(NetCodeBase64, blockOf("abc", 3))), "abc");
    EXPECT_EQ(IPE_Unpack(NetCode_Encode(NetCodeBase64, blockOf(with, 3))), "abc");
    EXPECT_EQ(IPE_Unpack(NetCode_Encode(NetCodeBase64, blockOf("abc", 4))), "abc");
    auto refused = [](const std::string& block) {
        return raised([&] { IPE_Unpack(NetCode_Encode(NetCodeBase64, block)); })
            .starts_with("AssertionError");
    };
    EXPECT_TRUE(refused(blockOf(std::string(100000, 'x'), 10)));
    EXPECT_TRUE(refused(blockOf("abc", 0x40000001)));
    EXPECT_TRUE(refused(blockOf("abc", 3).substr(0, 5)));
    EXPECT_TRUE(refused(""));
    std::string block = blockOf("some text", 10);
    for (size_t size = 0; size < block.size(); ++size) EXPECT_TRUE(refused(block.substr(0, size))) << size;
    EXPECT_TRUE(raised([] { IPE_Unpack("~***"); }).starts_with("AssertionError"));
}

}  // namespace
