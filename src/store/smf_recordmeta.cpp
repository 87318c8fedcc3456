// Table descriptions.
//
// On disk the fields of a table form a chain: the table header names the first field header, each field
// header the next.
#include "store/smf_recordmeta.h"

#include <unordered_set>

#include "ipe/values/ipe_dicttype.h"
#include "store/smf_decoderstream.h"
#include "store/smf_error.h"
#include "store/smf_field.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"
#include "store/smf_file.h"
#include "store/smf_headerreader.h"

SMF_RecordMeta::SMF_RecordMeta(std::string_view fileName) : fileName(fileName), options(IPE_NewDict()) {}
SMF_RecordMeta::~SMF_RecordMeta() = default;

int32_t SMF_CheckedType(int32_t type, std::string_view fileName) {
    if (type < 0 || type > 128) SMF_IllegalData(fileName);
    return type;
}

void SMF_RecordMeta::setName(std::string_view name) {
    tableName = name;
    names_.clear();
}

int32_t SMF_RecordMeta::addField(int32_t type, std::string_view name, const IPE_Object& tags) {
    if (fields.size() >= SMF_MaxFields) SMF_Fail(SMF_Runtime, "Too many fields", fileName);
    auto index = static_cast<int32_t>(fields.size());
    auto field = std::make_shared<SMF_FieldMeta>(type, name, index);
    if (!tags.isNull()) field->setTags(tags);
    fields.push_back(std::move(field));
    names_.clear();
    return index;
}

int32_t SMF_RecordMeta::indexOf(std::string_view name, bool required) {
    if (auto known = names_.find(std::string(name)); known != names_.end()) return known->second;
    for (const auto& field : fields) {
        if (field->name != name && IPE_CollateText(field->name, name, true) != 0) continue;
        names_.emplace(name, field->index);
        return field->index;
    }
    if (required)
        SMF_Fail(SMF_Runtime, "$field is not a property on $table objects.", fileName,
                 {{"field", name}, {"table", tableName}});
    return -1;
}

std::shared_ptr<SMF_FieldMeta> SMF_RecordMeta::findField(std::string_view name) {
    int32_t index = indexOf(name, false);
    return index < 0 ? nullptr : fields[static_cast<size_t>(index)];
}

const std::string& SMF_RecordMeta::nameOf(int64_t index) const {
    if (index < 0 || index >= static_cast<int64_t>(fields.size()))
        SMF_Fail(SMF_Runtime, "Field index out of range", fileName);
    return fields[static_cast<size_t>(index)]->name;
}

void SMF_RecordMeta::setOption(std::string_view key, const IPE_Object& value) {
    options.as<IPE_DictType>()->setText(key, value);
}

void SMF_RecordMeta::load(const SMF_HeaderReader& table, const std::shared_ptr<SMF_StoreFile>& store) {
    zlib = table.number(SMF_TableFlags) & 1;
    blockSize = static_cast<uint32_t>(table.number(SMF_TableBlockSize));
    zero = static_cast<uint32_t>(table.number(SMF_ZeroInterval));
    rows = table.number64(SMF_TableRows);
    if (rows < 0) SMF_CorruptHeader(fileName);
    std::unordered_set<int64_t> seen;
    SMF_HeaderReader header;
    for (int64_t at = table.number64(SMF_NextField); at != 0; at = header.number64(SMF_NextField)) {
        if (!seen.insert(at).second) SMF_CorruptHeader(fileName);
        if (fields.size() >= SMF_MaxFields)
            SMF_Fail(SMF_Corruption, "Record reader has detected > 128 fields", fileName);
        header.read(*store->mainStream, at);
        int32_t type = SMF_CheckedType(header.number(SMF_FieldType), fileName);
        int32_t index = addField(type, header.string(SMF_FieldName), header.dictionary(SMF_FieldTags));
        SMF_FieldMeta& field = *fields[static_cast<size_t>(index)];
        std::string key = header.string(SMF_CodecKey);
        // The value class of the type reads the decoder's batch, so the two must agree.
        if (!SMF_DecodesType(key, type)) SMF_IllegalData(fileName);
        field.decoder = SMF_CreateDecoder(key);
        field.decoder->connect(store, field, header, rows);
    }
}

void SMF_RecordMeta::chooseEncoders() {
    for (const auto& field : fields) field->encoder = SMF_ChooseEncoder(*field);
}

void SMF_RecordMeta::write(const SMF_EncoderContext& context) {
    auto table = std::make_unique<SMF_HeaderWriter>(context.mainStream);
    table->setString(SMF_TableName, tableName);
    table->setObject(SMF_TableOptions, options);
    table->setNumber(SMF_TableFlags, context.zlib);
    table->setNumber(SMF_ZeroInterval, static_cast<int32_t>(context.zero));
    table->setNumber(SMF_TableBlockSize, static_cast<int32_t>(context.blockSize));
    table->setNumber64(SMF_TableRows, 0);
    table->setNumber64(SMF_NextTable, 0);
    table->setNumber64(SMF_NextField, 0);
    SMF_HeaderWriter* previous = table.get();
    for (const auto& field : fields) {
        field->encoder->connect(context, *field);
        // A field header's own link stands in its reserved numbers; the update at close writes it.
        previous->setNumber64(SMF_NextField, field->encoder->header().home());
        previous = &field->encoder->header();
    }
    table->append();
    header = std::move(table);
}

// A field that was added after the headers were written has no encoder, and is not stored.
void SMF_RecordMeta::check(const SMF_RecordData& record) const {
    for (size_t i = 0; i < fields.size(); ++i)
        if (fields[i]->encoder) fields[i]->encoder->check(*record.fields[i]);
}

void SMF_RecordMeta::store(SMF_RecordData& record) {
    for (size_t i = 0; i < fields.size(); ++i)
        if (fields[i]->encoder) fields[i]->encoder->store(*record.fields[i]);
    record.row = ++rows;
}

void SMF_RecordMeta::storeRows(SMF_RecordData& record, std::span<SMF_ColumnValues* const> columns,
                               size_t count) {
    for (size_t i = 0; i < fields.size(); ++i)
        if (fields[i]->encoder) columns[i]->store(*fields[i]->encoder, count);
    record.row = rows += static_cast<int64_t>(count);
}

void SMF_RecordMeta::close() {
    if (!header) return;
    for (const auto& field : fields)
        if (field->encoder) field->encoder->close();
    header->setNumber64(SMF_TableRows, rows);
    header->update();
}
