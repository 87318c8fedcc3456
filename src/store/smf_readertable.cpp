// Cursors over tables.
//
// The older layout lays records out by rows: all decoders of a table read one shared stream, so a step
// decodes every field, and a jump goes to a restart point of the whole table.
#include "store/smf_readertable.h"

#include <algorithm>

#include "ipe/values/ipe_dicttype.h"
#include "runtime/epa_shutdown.h"
#include "store/smf_decoderstream.h"
#include "store/smf_error.h"
#include "store/smf_file.h"

SMF_ReaderTable::SMF_ReaderTable() = default;
SMF_ReaderTable::~SMF_ReaderTable() = default;

void SMF_ReaderTable::error(const char* type, std::string_view message) const {
    SMF_Fail(type, message, reader_ ? std::string_view(reader_->name()) : "");
}

void SMF_ReaderTable::disconnect(SMF_Reader& reader) {
    data_.fields.clear();
    data_.meta = nullptr;
    data_.row = data_.loadRow = position_ = rows_ = 0;
    decoders_.clear();
    jumps105_.reset();
    data104_.reset();
    declared_ = false;
    reader_ = &reader;
    store_ = reader.store();
}

void SMF_ReaderTable::connectDeclared(SMF_Reader& reader, std::shared_ptr<SMF_RecordMeta> meta,
                                      int64_t rows) {
    disconnect(reader);
    currentLayout_ = true;
    declared_ = true;
    rows_ = rows;
    data_.meta = std::move(meta);
}

void SMF_ReaderTable::connect(SMF_Reader& reader, std::string_view name) {
    disconnect(reader);
    const auto& store = store_;
    int64_t at = reader.location(name);
    if (at == -1)
        SMF_Fail(SMF_Runtime, "Unable to determine internal table location $table", reader.name(),
                 {{"table", name}});
    SMF_HeaderReader header;
    reader.readHeader(header, at);
    currentLayout_ = store->mainStream != nullptr;
    auto meta = std::make_shared<SMF_RecordMeta>(reader.name());
    meta->setName(name);
    data_.meta = meta;
    try {
        if (currentLayout_) {
            meta->options = header.dictionary(SMF_TableOptions);
            meta->load(header, store);
            rows_ = meta->rows;
        } else {
            connectOld(header);
        }
        meta->complete = true;
        rebuild();
    } catch (...) {
        data_.fields.clear();
        data_.meta = nullptr;
        throw;
    }
}

void SMF_ReaderTable::connectOld(const SMF_HeaderReader& header) {
    const auto& store = store_;
    SMF_File& file = *store->file;
    SMF_RecordMeta& meta = *data_.meta;
    for (const auto& [key, value] : header.chain(SMF_OldOptions, file, nullptr))
        meta.setOption(key, IPE_String(value));
    rows_ = meta.rows = header.number64(SMF_OldRows);
    if (rows_ < 0) SMF_CorruptHeader(file.name());
    auto openStream = [&](int code, const char* what) -> std::unique_ptr<SMF_DecoderStream> {
        int32_t at = header.number(code);
        if (at == -1) return nullptr;
        SMF_HeaderReader stream;
        stream.read(file, at);
        return std::make_unique<SMF_DecoderStream>(file, stream, what);
    };
    data104_ = openStream(SMF_OldDataStream, "the records");
    if (data104_) meta.blockSize = static_cast<uint32_t>(data104_->blockSize());
    jumps105_ = openStream(SMF_OldJumpStream, "the jumps");
    zero_ = header.number(SMF_ZeroInterval);
    if (zero_ < 0) SMF_CorruptHeader(file.name());
    meta.zero = static_cast<uint32_t>(zero_);

    int32_t count = header.number(SMF_OldFieldCount);
    SMF_HeaderReader record;
    int32_t at = header.number(SMF_OldField);
    for (int32_t i = 0; i < count && at != -1; ++i, at = record.number(SMF_OldField)) {
        if (meta.fields.size() >= SMF_MaxFields)
            SMF_Fail(SMF_Corruption, "Record reader has detected > 128 fields", file.name());
        record.read(file, at);
        int32_t type = SMF_CheckedType(record.number(SMF_FieldType), file.name());
        IPE_Object tags = IPE_NewDict();
        for (const auto& [key, value] : record.chain(SMF_OldTags, file, nullptr))
            tags.as<IPE_DictType>()->setText(key, IPE_String(value));
        int32_t index = meta.addField(type, record.string(SMF_FieldName), tags);
        SMF_FieldMeta& field = *meta.fields[static_cast<size_t>(index)];
        std::string key = record.string(SMF_CodecKey);
        if (!SMF_DecodesType(key, type) || !data104_) SMF_IllegalData(file.name());
        field.decoder = SMF_CreateDecoder(key);
        field.decoder->attach(store, field, *data104_);
        field.decoder->restart();
        decoders_.push_back(field.decoder);
    }
}

void SMF_ReaderTable::addShadow(std::string_view name, std::string_view source, const IPE_Object& tags) {
    if (meta().findField(name)) return;
    std::shared_ptr<SMF_FieldMeta> from = meta().findField(source);
    if (!from)
        SMF_Fail(SMF_Runtime, "The shadow field $field does not exist", meta().fileName, {{"field", source}});
    meta().addField(from->type, name, tags.isNull() ? from->tags : tags);
    std::shared_ptr<SMF_FieldMeta> added = meta().findField(name);
    if (!added) error(SMF_Runtime, "Unable to add the shadow field");
    added->decoder = from->decoder;
    meta().complete = true;
    rebuild();
}

void SMF_ReaderTable::top() {
    meta();
    data_.row = data_.loadRow = position_ = 0;
    if (currentLayout_) return;
    restartDecoders();
    if (data104_ && data104_->length() > 0) data104_->seek(0);
}

void SMF_ReaderTable::stopCheck() const {
    if (position_ % StopCheckRows == 0 && !XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
}

void SMF_ReaderTable::nextSlow() {
    meta();
    if (position_ >= rows_) {
        position_ = rows_ + 1;
        data_.loadRow = 0;
        if (declared_) return;
        for (const auto& field : data_.fields) field->reset();
        return;
    }
    if (data_.fields.size() != data_.meta->fields.size()) rebuild();
    stopCheck();
    data_.row = data_.loadRow = position_ + 1;
    if (!currentLayout_) decodeRow();
    ++position_;
}

void SMF_ReaderTable::decodeRow() {
    if (zero_ && position_ % zero_ == 0)
        for (const auto& decoder : decoders_) decoder->restart();
    for (const auto& decoder : decoders_) decoder->decodeNext(position_ + 1);
}

void SMF_ReaderTable::restartDecoders() {
    for (const auto& decoder : decoders_) decoder->restart();
}

void SMF_ReaderTable::seek(int64_t row) {
    meta();
    if (row > rows_) error(SMF_Runtime, "Seek past end of table");
    if (row < 0) row = 0;
    if (!currentLayout_) return seekOld(row);
    data_.row = data_.loadRow = position_ = row;
}

void SMF_ReaderTable::seekOld(int64_t row) {
    if (row == 0) return top();
    if (row == position_) return;
    data_.row = row;
    int64_t target = row - 1;
    if (row == 1) {
        top();
        return next();
    }
    if (position_ == target) return next();
    if (decoders_.empty()) {
        position_ = target;
    } else if (zero_ && jumps105_) {
        int64_t bucket = target / zero_;
        XPK_Assert(bucket <= jumps105_->length() / 4);  // the product could overflow
        jumps105_->seek(bucket * 4);
        auto at = static_cast<int64_t>(jumps105_->readLittle(4));
        data104_->seek(at);
        restartDecoders();
        position_ = zero_ * bucket;
    } else if (target < position_) {
        top();
    }
    while (position_ < target) {
        stopCheck();
        decodeRow();
        ++position_;
    }
    next();
}
