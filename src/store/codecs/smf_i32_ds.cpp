// I32 straight (DSAE, DSAD): 4 bytes each, low byte first.
//
// Layout: no pages and no state; a restart point is any multiple of 4.
#include "store/codecs/smf_runs.h"
#include "store/fields/smf_i32field.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

class Encoder final : public SMF_EncoderFor<SMF_I32Field> {
    void encodeRows(std::span<const int32_t> values) override {
        for (int32_t value : values) out().writeLittle32(static_cast<uint32_t>(value));
    }
};

class Decoder final : public SMF_I32Decoder {
    void reset() override {}
    void decodeRows(uint32_t rows) override {
        for (uint32_t done = 0; done < rows; batch_.count = done) {
            const uint8_t* at = in().cursor();
            int32_t* out = array();
            auto whole = static_cast<uint32_t>(in().limit() - at) / 4;
            for (uint32_t end = done + std::min(whole, rows - done); done < end; ++done, at += 4)
                out[done] = static_cast<int32_t>(SMF_LoadWord(at));
            in().advanceTo(at);
            batch_.count = done;
            if (done < rows) out[done++] = static_cast<int32_t>(in().readLittle(4));
        }
    }
};

const SMF_EncoderRegistration encoder("DSAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("DSAD", SMF_MakeDecoder<Decoder>);

}  // namespace
