// Flag straight (HSAE, HSAD): the bytes of each value as they stand.
//
// Layout: as many bytes a value as the field's flags take, low bit first. No pages, no state.
#include "store/fields/smf_flagfield.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

class Encoder final : public SMF_EncoderFor<SMF_FlagField> {
    void connect(const SMF_EncoderContext& context, const SMF_FieldMeta& field) override {
        bytes_ = static_cast<size_t>(SMF_FlagData(field).bytes);
        SMF_EncoderFor::connect(context, field);
    }
    void encodeRows(std::span<const SMF_FlagValue> values) override {
        for (const SMF_FlagValue& value : values) out().write(value.bytes, bytes_);
    }

    size_t bytes_ = 1;
};

class Decoder final : public SMF_FlagDecoder {
    void connect(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                 const SMF_HeaderReader& header, int64_t rows) override {
        bytes_ = static_cast<size_t>(SMF_FlagData(field).bytes);
        SMF_FlagDecoder::connect(std::move(store), field, header, rows);
    }
    void attach(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                SMF_DecoderStream& shared) override {
        bytes_ = static_cast<size_t>(SMF_FlagData(field).bytes);
        SMF_FlagDecoder::attach(std::move(store), field, shared);
    }
    void reset() override {}
    void decodeRows(uint32_t rows) override {
        for (uint32_t n = 0; n < rows; batch_.count = ++n) in().read(array()[n].bytes, bytes_);
    }

    size_t bytes_ = 1;
};

const SMF_EncoderRegistration encoder("HSAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("HSAD", SMF_MakeDecoder<Decoder>);

}  // namespace
