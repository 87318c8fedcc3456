// I32 run (DRAE, DRAD): runs of numbers that are not negative, in pages of 32 bytes.
//
// Layout: a count byte from 1 to 250, then the value as an unsigned number of variable length; runs follow
// each other without gap and cross pages. A restart point begins a new page and a new run.
#include "store/codecs/smf_runs.h"
#include "store/codecs/smf_varint.h"
#include "store/fields/smf_i32field.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

class Encoder final : public SMF_EncoderFor<SMF_I32Field> {
  public:
    void check(SMF_Field& field) override { check(static_cast<SMF_I32Field&>(field).stored()); }

  private:
    void check(int32_t value) const {
        if (value < 0) SMF_Fail(SMF_Runtime, "The encoder does not support negative numbers", fileName());
    }
    void reset() override {
        run_.end(out());
        out().fillPage(SMF_NumberPage);
    }
    void encodeRows(std::span<const int32_t> values) override {
        for (;;) {
            values = values.subspan(run_.take(values, value_));
            if (values.empty()) return;
            check(values.front());
            run_.end(out());
            value_ = values.front();
            begin(static_cast<uint32_t>(value_));
            values = values.subspan(1);
        }
    }
    void begin(uint32_t value) {
        if (value < 0x80) return run_.begin(value, 1);
        uint8_t bytes[SMF_LongestNumber] = {};
        size_t size = SMF_PutUnsigned(value, bytes);
        uint64_t word;
        std::memcpy(&word, bytes, sizeof word);
        run_.begin(word, size);
    }
    SMF_OpenRun run_;
    int32_t value_ = 0;
};

// The 7-bit groups of a number's first 5 bytes, low group first, put together.
uint64_t joinGroups(uint64_t groups) {
    groups &= 0x7F7F7F7F7Full;
    groups = (groups & 0x7F007F007Full) | (groups & 0x7F007F00ull) >> 1;
    groups = (groups & 0x7F00003FFFull) | (groups & 0x3FFF0000ull) >> 2;
    return (groups & 0xFFFFFFFull) | (groups & 0x7F00000000ull) >> 4;
}

class Decoder final : public SMF_I32Decoder {
    static constexpr unsigned LongestValue = 5;

    void reset() override { run_.left = 0; }
    uint32_t pageSize() const noexcept override { return SMF_NumberPage; }

    void decodeRows(uint32_t rows) override {
        uint32_t done = run_.fill(array(), 0, rows);
        while (done < rows) {
            done = decodeAtHand(done, rows);
            batch_.count = done;
            if (done == rows) break;
            uint8_t count = in().readByte();
            if (count == 0) SMF_IllegalData(fileName());
            run_.word = static_cast<uint32_t>(SMF_GetUnsigned(in()));
            run_.left = count;
            done = run_.fill(array(), done, rows);
        }
        batch_.count = done;
    }

    // As far as whole runs lie at hand; stops in front of one that cannot be.
    uint32_t decodeAtHand(uint32_t done, uint32_t rows) {
        const uint8_t* at = in().cursor();
        const uint8_t* limit = in().limit();
        SMF_RunRest run;
        while (done < rows && static_cast<size_t>(limit - at) >= 1 + LongestValue) {
            uint64_t word;
            std::memcpy(&word, at + 1, 8);  // within the padding at least
            uint64_t ends = ~word & 0x8080808080ull;
            if (at[0] == 0 || ends == 0) [[unlikely]]
                break;
            // All bits up to the last byte's top one, which is clear.
            word &= ends ^ (ends - 1);
            run.left = at[0];
            run.word = static_cast<uint32_t>(joinGroups(word));
            at += 2 + std::countr_zero(ends) / 8;
            done = run.fill(array(), done, rows);
        }
        if (run.left > 0) run_ = run;
        in().advanceTo(at);
        return done;
    }

    SMF_RunRest run_;
};

const SMF_EncoderRegistration encoder("DRAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("DRAD", SMF_MakeDecoder<Decoder>);

}  // namespace
