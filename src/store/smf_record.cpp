// Records.
#include "store/smf_record.h"

#include "store/smf_error.h"

SMF_Record::~SMF_Record() = default;

SMF_RecordMeta& SMF_Record::meta() const {
    if (!data_.meta) error(SMF_Runtime, "Not connected");
    return *data_.meta;
}

int32_t SMF_Record::addField(std::string_view name, int32_t type, const IPE_Object& tags) {
    int32_t index = meta().addField(type, name, tags);
    if (!data_.fields.empty() || data_.meta->complete) rebuild();
    return index;
}

int32_t SMF_Record::fieldIndex(std::string_view name) const { return meta().indexOf(name, true); }
bool SMF_Record::hasField(std::string_view name) const { return meta().findField(name) != nullptr; }

IPE_Object SMF_Record::asObject(int64_t index) const {
    meta();
    return data_.field(index).asObject();
}

void SMF_Record::assignObject(int64_t index, const IPE_Object& value) {
    meta();
    data_.field(index).assignObject(value);
}

void SMF_Record::rebuild() {
    meta();
    data_.fields.clear();
    data_.fields.reserve(data_.meta->fields.size());
    for (const auto& field : data_.meta->fields) {
        data_.fields.push_back(SMF_MakeField(field, data_));
        data_.fields.back()->reset();
    }
}
