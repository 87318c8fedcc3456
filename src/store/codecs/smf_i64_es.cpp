// I64 straight (ESAE, ESAD): signed numbers of variable length, in pages of 32 bytes.
//
// Layout: the numbers follow each other without gap and cross pages; a restart point begins a new page. There
// is no other state.
#include "store/codecs/smf_numberrun.h"
#include "store/codecs/smf_varint.h"
#include "store/fields/smf_i64field.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

class Encoder final : public SMF_EncoderFor<SMF_I64Field> {
    void reset() override { out().fillPage(SMF_NumberPage); }
    void encodeRows(std::span<const int64_t> values) override { SMF_PutSignedRun(values, out()); }
};

class Decoder final : public SMF_I64Decoder {
    void reset() override {}
    uint32_t pageSize() const noexcept override { return SMF_NumberPage; }
    void decodeRows(uint32_t rows) override { SMF_GetSignedRun(in(), array(), rows, batch_.count); }
};

const SMF_EncoderRegistration encoder("ESAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("ESAD", SMF_MakeDecoder<Decoder>);

}  // namespace
