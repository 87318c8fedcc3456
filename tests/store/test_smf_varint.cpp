// The readers of numbers of every width agree with the plain one, on any bytes and any pieces.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "runtime/xpk_exception.h"
#include "store/codecs/smf_varint.h"

namespace {

// Bytes in pieces of these sizes, each behind padding of its own.
class Pieces final : public SMF_ByteCursor {
  public:
    Pieces(std::vector<uint8_t> bytes, size_t piece) : bytes_(std::move(bytes)), piece_(piece) {}
    SMF_BlockRef hold() const override { return {}; }
    int64_t remaining() const noexcept override { return 0; }
    size_t consumed() const { return taken_ - static_cast<size_t>(limit() - cursor()); }

  protected:
    void refill() override {
        if (taken_ == bytes_.size()) throw XPK_AssertException(__FILE__, __LINE__);
        size_t n = std::min(piece_, bytes_.size() - taken_);
        room_.assign(n + Padding, 0xA5);
        std::copy_n(bytes_.begin() + static_cast<ptrdiff_t>(taken_), n, room_.begin());
        cursor_ = room_.data();
        limit_ = cursor_ + n;
        taken_ += n;
    }

  private:
    [[noreturn]] void tooShort() const override { throw XPK_AssertException(__FILE__, __LINE__); }
    std::vector<uint8_t> bytes_, room_;
    size_t piece_, taken_ = 0;
};

template <class Number>
void agree(const std::vector<uint8_t>& bytes, size_t piece, uint32_t count) {
    struct Result {
        std::vector<Number> numbers;
        uint32_t done = 0;
        size_t consumed = 0;
        bool ended = false;
        bool operator==(const Result&) const = default;
    };
    auto read = [&](SMF_Width width) {
        Pieces in(bytes, piece);
        Result result;
        result.numbers.resize(count);
        try {
            SMF_GetSignedRun(in, result.numbers.data(), count, result.done, width);
        } catch (const XPK_AssertException&) {
            result.ended = true;
        }
        result.numbers.resize(result.done);
        result.consumed = in.consumed();
        return result;
    };
    Result plain = read(SMF_Width::Scalar);
    for (SMF_Width width : {SMF_Width::Avx2, SMF_Width::Avx512})
        if (width <= SMF_BestWidth()) {
            ASSERT_EQ(read(width), plain)
                << static_cast<int>(width) << " piece " << piece << " count " << count;
        }
}

}  // namespace

TEST(Varint, WideReadersAgreeWithThePlainOne) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 300; ++round) {
        // From mostly one byte to numbers beyond 64 bits.
        std::vector<uint8_t> bytes(200 + random() % 3000);
        unsigned more = static_cast<unsigned>(random() % 10);
        for (uint8_t& byte : bytes)
            byte = static_cast<uint8_t>((random() & 0x7F) | (random() % 10 < more ? 0x80 : 0));
        for (size_t piece : {bytes.size(), size_t{1}, size_t{31}, size_t{64}, size_t{65}, size_t{1000}}) {
            auto count = static_cast<uint32_t>(1 + random() % 2048);
            agree<int64_t>(bytes, piece, count);
            agree<int32_t>(bytes, piece, count);
        }
    }
}

TEST(Varint, ExtremesComeBack) {
    std::vector<int64_t> numbers = {0,         -1,        63,         64,        -64,
                                    INT64_MAX, INT64_MIN, -INT64_MAX, INT32_MIN, INT32_MAX};
    for (int bit = 0; bit < 63; ++bit)
        for (int64_t delta : {-1, 0, 1})
            numbers.insert(numbers.end(), {(int64_t{1} << bit) + delta, -(int64_t{1} << bit) + delta});
    std::vector<uint8_t> bytes;
    for (int64_t number : numbers) {
        uint8_t room[SMF_LongestNumber];
        bytes.insert(bytes.end(), room, room + SMF_PutSigned(number, room));
    }
    for (SMF_Width width : {SMF_Width::Scalar, SMF_Width::Avx2, SMF_Width::Avx512}) {
        if (width > SMF_BestWidth()) continue;
        Pieces in(bytes, bytes.size());
        std::vector<int64_t> got(numbers.size());
        uint32_t done = 0;
        SMF_GetSignedRun(in, got.data(), static_cast<uint32_t>(got.size()), done, width);
        EXPECT_EQ(got, numbers);
    }
}
