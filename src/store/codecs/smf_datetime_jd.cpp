// DateTime (JDAE, JDAD): a date part and a time part, each a field of its own.
//
// Layout: the parts are written by FDAE and GSAE with headers and streams of their own, in this order, before
// the field's own header. That header's extra dictionary holds the positions of the two as "Dates" and
// "Times"; the field's own streams stay empty. The headers of the parts carry the field's name and tags and
// stand outside the table's chain of fields.
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/fields/smf_datetimefield.h"
#include "store/smf_decoderstream.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"
#include "store/smf_headerreader.h"

namespace {

template <class Value, int32_t Type>
struct EncodedPart {
    explicit EncodedPart(std::string_view key)
        : encoder(std::static_pointer_cast<SMF_EncoderOf<Value>>(SMF_CreateEncoder(key))) {}
    // The position of the part's header.
    int64_t connect(const SMF_EncoderContext& context, const SMF_FieldMeta& whole) {
        auto meta = std::make_shared<SMF_FieldMeta>(Type, whole.name, whole.index);
        meta->tags = whole.tags;
        encoder->connect(context, *meta);
        return encoder->header().home();
    }
    std::shared_ptr<SMF_EncoderOf<Value>> encoder;
};

class Encoder final : public SMF_EncoderFor<SMF_DateTimeField> {
  public:
    void connect(const SMF_EncoderContext& context, const SMF_FieldMeta& field) override {
        extra_ = IPE_NewDict();
        auto* positions = extra_.as<IPE_DictType>();
        positions->setText("Dates", IPE_Int(dates_.connect(context, field)));
        positions->setText("Times", IPE_Int(times_.connect(context, field)));
        SMF_FieldEncoder::connect(context, field);
    }
    // The parts have restart points of their own.
    void store(SMF_Field& value) override {
        storeRows({&static_cast<SMF_DateTimeField&>(value).stored(), 1});
    }
    void storeRows(std::span<const SMF_DateTimeValue> values) override {
        encodeRows(values);
        countRows(values.size());
    }
    void close() override {
        dates_.encoder->close();
        times_.encoder->close();
        SMF_FieldEncoder::close();
    }

  private:
    void encodeRows(std::span<const SMF_DateTimeValue> values) override {
        constexpr size_t Piece = 256;
        SMF_DateValue dates[Piece];
        SMF_TimeValue times[Piece];
        while (!values.empty()) {
            size_t count = std::min(values.size(), Piece);
            for (size_t i = 0; i < count; ++i) {
                dates[i] = values[i].date;
                times[i] = values[i].time;
            }
            dates_.encoder->storeRows({dates, count});
            times_.encoder->storeRows({times, count});
            values = values.subspan(count);
        }
    }
    EncodedPart<SMF_DateValue, SMF_TypeDate> dates_{"FDAE"};
    EncodedPart<SMF_TimeValue, SMF_TypeTime> times_{"GSAE"};
};

class Decoder final : public SMF_DateTimeDecoder {
  public:
    Decoder()
        : dates_(std::static_pointer_cast<SMF_DateDecoder>(SMF_CreateDecoder("FDAD"))),
          times_(std::static_pointer_cast<SMF_TimeDecoder>(SMF_CreateDecoder("GSAD"))) {}
    SMF_DateDecoder& dates() noexcept override { return *dates_; }
    SMF_TimeDecoder& times() noexcept override { return *times_; }

    void connect(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                 const SMF_HeaderReader& header, int64_t rows) override {
        SMF_FieldDecoder::connect(store, field, header, rows);
        connectPart(*dates_, "Dates", store, field, rows);
        connectPart(*times_, "Times", store, field, rows);
    }
    void attach(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                SMF_DecoderStream& shared) override {
        SMF_FieldDecoder::attach(store, field, shared);
        dates_->attach(store, field, shared);
        times_->attach(store, field, shared);
    }
    void load(int64_t row) override {
        dates_->load(row);
        times_->load(row);
    }
    void decodeNext(int64_t row) override {
        dates_->decodeNext(row);
        times_->decodeNext(row);
    }
    void restart() override {
        dates_->restart();
        times_->restart();
    }

  private:
    void connectPart(SMF_FieldDecoder& part, std::string_view name,
                     const std::shared_ptr<SMF_StoreFile>& store, const SMF_FieldMeta& field, int64_t rows) {
        IPE_Object position(extra().isNull() ? nullptr : extra().as<IPE_DictType>()->findText(name));
        if (!position.is<IPE_IntType>()) SMF_CorruptHeader(fileName());
        SMF_HeaderReader header;
        header.read(*store->mainStream, position.as<IPE_IntType>()->value);
        part.connect(store, field, header, rows);
    }
    // The parts decode for themselves; the composite has no bytes of its own.
    void reset() override { restart(); }
    void decodeRows(uint32_t) override { SMF_IllegalData(fileName()); }

    std::shared_ptr<SMF_DateDecoder> dates_;
    std::shared_ptr<SMF_TimeDecoder> times_;
};

const SMF_EncoderRegistration encoder("JDAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("JDAD", SMF_MakeDecoder<Decoder>);

}  // namespace
