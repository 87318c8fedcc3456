// Handles, connected.
#include "store/smf_fieldhandle.h"

#include "ipe/values/ipe_dicttype.h"
#include "store/smf_error.h"

namespace {
const SMF_RecordData& nowhere() {
    static const SMF_RecordData none;
    return none;
}
}  // namespace

SMF_FieldHandle::SMF_FieldHandle() : data_(&nowhere()) {}

void SMF_FieldHandle::connect(SMF_Record& record, std::string_view name, std::string_view format) {
    disconnect();
    SMF_RecordMeta& meta = record.meta();
    if (record.isWriter() && !name.empty()) {
        if (typeNumber() == SMF_TypeGeneric)
            record.error(nullptr, "Cannot use generic fields to create a table");
        IPE_Object tags = IPE_NewDict();
        tags.as<IPE_DictType>()->setText("Format", IPE_String(format));
        index_ = record.addField(name, typeNumber(), tags);
        meta_ = meta.fields[static_cast<size_t>(index_)];
        data_ = &record.data();
        return;
    }
    std::shared_ptr<SMF_FieldMeta> found = meta.findField(name);
    if (!found) return;
    if (typeNumber() != SMF_TypeGeneric && !SMF_SameType(typeNumber(), found->type))
        SMF_Fail(nullptr, "Incorrect field type, expecting $expecting, actual $actual", meta.fileName,
                 {{"expecting", SMF_TypeName(typeNumber())}, {"actual", SMF_TypeName(found->type)}});
    index_ = found->index;
    meta_ = std::move(found);
    data_ = &record.data();
    attached();
}

void SMF_FieldHandle::disconnect() {
    data_ = &nowhere();
    meta_ = nullptr;
    index_ = -1;
    attached();
}

void SMF_FieldHandle::unconnected() const { SMF_Fail(SMF_Runtime, "Field is not connected to a table", ""); }

const SMF_FieldMeta& SMF_FieldHandle::meta() const {
    if (!meta_) unconnected();
    return *meta_;
}

SMF_Field& SMF_FieldHandle::field() const {
    if (!meta_) unconnected();
    SMF_Field& field = data_->field(index_);
    // The record may have been connected to another table since.
    if (&field.meta() != meta_.get()) unconnected();
    return field;
}

SMF_FieldDecoder* SMF_FieldHandle::plainDecoder() const noexcept {
    return meta_ && !meta_->isFixed() ? meta_->decoder.get() : nullptr;
}
