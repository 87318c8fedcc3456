// Date straight (FSAE, FSAD): 4 bytes each.
//
// Layout: day, month, year in 2 bytes; no pages and no state.
#include "store/codecs/smf_datebytes.h"
#include "store/codecs/smf_runs.h"
#include "store/fields/smf_datefield.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

class Encoder final : public SMF_EncoderFor<SMF_DateField> {
    void encodeRows(std::span<const SMF_DateValue> values) override {
        for (const SMF_DateValue& value : values) out().writeLittle32(SMF_StoredDate(value));
    }
};

class Decoder final : public SMF_DateDecoder {
    void reset() override {}
    void decodeRows(uint32_t rows) override {
        uint32_t done = 0;
        while (done < rows) {
            done = decodeAtHand(done, rows);
            batch_.count = done;
            if (done == rows) break;
            auto word = static_cast<uint32_t>(in().readLittle(4));
            if (!SMF_IsDate(word)) corrupt(SMF_DateFault(word));
            array()[done++] = std::bit_cast<SMF_DateValue>(word);
        }
        batch_.count = done;
    }

    // As far as whole dates lie at hand; stops in front of one that cannot be.
    uint32_t decodeAtHand(uint32_t done, uint32_t rows) {
        const uint8_t* at = in().cursor();
        SMF_DateValue* out = array();
        auto whole = static_cast<uint32_t>((in().limit() - at) / 4);
        for (uint32_t end = done + std::min(whole, rows - done); done < end; ++done, at += 4) {
            uint32_t word = SMF_LoadWord(at);
            if (!SMF_IsDate(word)) [[unlikely]]
                break;
            out[done] = std::bit_cast<SMF_DateValue>(word);
        }
        in().advanceTo(at);
        return done;
    }
};

const SMF_EncoderRegistration encoder("FSAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("FSAD", SMF_MakeDecoder<Decoder>);

}  // namespace
