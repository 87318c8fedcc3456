// One field with its codec, named by key and without a table around it: the bytes that an encoder makes, and
// what a decoder makes of any bytes.
#pragma once

#include "ipe/values/ipe_dicttype.h"
#include "store/smf_decoderstream.h"
#include "store/smf_encoderstream.h"
#include "store/smf_error.h"
#include "store/smf_field.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"
#include "store/smf_headerreader.h"
#include "store/smf_recordmeta.h"
#include "store_support.h"

class OneCodec {
  public:
    using Tags = std::vector<std::pair<const char*, IPE_Object>>;

    // Give values with put() and then close(), or the bytes of the stream with raw().
    OneCodec(std::string key, int32_t type, const Tags& tags = {}, uint32_t zero = 100000,
             uint32_t block = 4096)
        : key_(std::move(key)), file_(std::make_unique<SharedFile>(content_)), zero_(zero), block_(block) {
        data_.meta = std::make_shared<SMF_RecordMeta>("memory.smf");
        IPE_Object dictionary = IPE_NewDict();
        for (const auto& [name, value] : tags) dictionary.as<IPE_DictType>()->setText(name, value);
        data_.meta->addField(type, "Value", dictionary);
        field_ = SMF_MakeField(data_.meta->fields[0], data_);
        main_ = std::make_unique<SMF_EncoderStream>(*file_, nullptr, true, SMF_MainBlockSize);
        main_->writeByte(0);
    }
    void put(const IPE_Object& value) {
        if (!encoder_) connect(SMF_CreateEncoder(key_ + "E"));
        field_->assignObject(value);
        encoder_->check(*field_);
        encoder_->store(*field_);
    }
    void raw(std::string_view bytes, int64_t rows, const IPE_Object& extra = {}) {
        auto encoder = std::make_shared<Raw>(bytes, extra);
        encoder->setKey(key_ + "E");
        connect(encoder);
        encoder_->store(*field_);
        close(rows);
    }
    void close() { close(encoder_->rows()); }
    std::string bytes() {
        SMF_DecoderStream* stream = decoder_->dataStream();
        std::string out(static_cast<size_t>(stream->length()), 0);
        stream->seek(0);
        stream->read(out.data(), out.size());
        return out;
    }
    int64_t rows() const { return rows_; }
    IPE_Object value(int64_t row) {
        data_.loadRow = row;
        return field_->asObject();
    }
    SMF_Field& field() { return *field_; }
    // All values in order, or the fault that ends them.
    std::string all() {
        std::string out;
        try {
            for (int64_t row = 1; row <= rows_; ++row) out += IPE_Object_ToString(value(row)) + " ";
        } catch (const XPK_Exception& e) {
            out += "!" + e.message();
        }
        return out;
    }

  private:
    struct Raw final : SMF_FieldEncoder {
        Raw(std::string_view bytes, const IPE_Object& extra) : bytes(bytes) { extra_ = extra; }
        void encode(SMF_Field&) override {
            for (size_t i = 0; i < bytes.size(); i += 4096)
                out().write(bytes.data() + i, std::min<size_t>(4096, bytes.size() - i));
        }
        std::string bytes;
    };
    void connect(std::shared_ptr<SMF_FieldEncoder> encoder) {
        encoder_ = std::move(encoder);
        encoder_->connect({*file_, *main_, false, block_, zero_}, *data_.meta->fields[0]);
    }
    void close(int64_t rows) {
        rows_ = rows;
        int64_t at = encoder_->header().home();
        encoder_->close();
        main_->finish();
        store_ = std::make_shared<SMF_StoreFile>();
        store_->file = std::make_unique<SharedFile>(content_);
        SMF_HeaderReader header;
        header.read(*store_->file, main_->header().home());
        store_->mainStream = std::make_unique<SMF_DecoderStream>(*store_->file, header, "main");
        header.read(*store_->mainStream, at);
        decoder_ = SMF_CreateDecoder(header.string(SMF_CodecKey));
        decoder_->connect(store_, *data_.meta->fields[0], header, rows);
        data_.meta->fields[0]->decoder = decoder_;
    }

    std::string key_;
    std::shared_ptr<std::string> content_ = std::make_shared<std::string>();
    std::unique_ptr<SharedFile> file_;
    uint32_t zero_, block_;
    SMF_RecordData data_;
    std::unique_ptr<SMF_Field> field_;
    std::unique_ptr<SMF_EncoderStream> main_;
    std::shared_ptr<SMF_FieldEncoder> encoder_;
    std::shared_ptr<SMF_FieldDecoder> decoder_;
    std::shared_ptr<SMF_StoreFile> store_;
    int64_t rows_ = 0;
};

// A field on a stream that all fields of its table share, as the older layout has it.
struct SharedField {
    SharedField(const std::string& key, std::string_view bytes, const OneCodec::Tags& tags = {}) {
        SMF_EncoderStream out(file, nullptr, true, 4096);
        for (; !bytes.empty(); bytes.remove_prefix(std::min<size_t>(4096, bytes.size())))
            out.write(bytes.data(), std::min<size_t>(4096, bytes.size()));
        out.finish();
        SMF_HeaderReader header;
        header.read(file, 0);
        stream = std::make_unique<SMF_DecoderStream>(file, header, "the records");
        auto meta = std::make_shared<SMF_FieldMeta>(key[0] - 'A', "Old", 0);
        for (const auto& [name, value] : tags) meta->setTag(name, value);
        meta->decoder = decoder = SMF_CreateDecoder(key);
        decoder->attach(std::make_shared<SMF_StoreFile>(), *meta, *stream);
        decoder->restart();
        field = SMF_MakeField(meta, record);
    }
    std::string row(int64_t number) {
        record.loadRow = number;
        decoder->decodeNext(number);
        return IPE_Object_Text(field->asObject());
    }
    SMF_MemoryFile file{"old.smf"};
    std::unique_ptr<SMF_DecoderStream> stream;
    std::shared_ptr<SMF_FieldDecoder> decoder;
    SMF_RecordData record;
    std::unique_ptr<SMF_Field> field;
};
