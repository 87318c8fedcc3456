// What value objects share, and their registry.
#include "store/smf_field.h"

#include <array>

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/smf_error.h"
#include "store/smf_recordmeta.h"

namespace {

constexpr int32_t TypeLimit = 11;
std::array<SMF_FieldFactory, TypeLimit>& factories() {
    static std::array<SMF_FieldFactory, TypeLimit> table{};
    return table;
}

}  // namespace

SMF_RecordData::SMF_RecordData() = default;
SMF_RecordData::~SMF_RecordData() = default;

SMF_Field& SMF_RecordData::field(int64_t index) const {
    if (index < 0 || index >= static_cast<int64_t>(fields.size()))
        SMF_Fail(SMF_Runtime, "Field index not in valid range", meta ? meta->fileName : "");
    return *fields[static_cast<size_t>(index)];
}

SMF_Field::SMF_Field(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record)
    : meta_(std::move(meta)), record_(record) {}
SMF_Field::~SMF_Field() = default;

SMF_Moment SMF_Field::asYMDHMS() {
    XPK_Raise("SystemError", "Virtual Method SMF_Field::asYMDHMS() Called").raise();
}

SMF_MomentMask SMF_Field::maskYMDHMS() {
    XPK_Raise("SystemError", "Virtual Method SMF_Field::maskYMDHMS() Called").raise();
}

std::string SMF_Field::asText() { return IPE_Object_Text(asObject()); }

void SMF_Field::reset() {
    clear();
    if (IPE_Type* value = meta_->tags.as<IPE_DictType>()->findText("IPEDefault")) {
        // In older files every tag is a text.
        if (value->typeName() == IPE_StringType::TypeName && typeNumber() != SMF_TypeTime)
            assignText(value->c_str());
        else
            assignObject(IPE_Object(value));
    }
}

const IPE_Object& SMF_Field::fixedValue() const noexcept {
    return meta_->fixedValue.isNull() ? IPE_None() : meta_->fixedValue;
}

const std::string& SMF_Field::fileName() const noexcept {
    static const std::string none;
    return record_.meta ? record_.meta->fileName : none;
}

SMF_FieldRegistration::SMF_FieldRegistration(int32_t type, SMF_FieldFactory factory) {
    factories()[static_cast<size_t>(type)] = factory;
}

std::unique_ptr<SMF_Field> SMF_MakeField(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record) {
    int32_t type = meta->type;
    if (type < 0 || type >= TypeLimit || !factories()[static_cast<size_t>(type)])
        SMF_Fail(SMF_Runtime, "Field index out of range", record.meta ? record.meta->fileName : "");
    return factories()[static_cast<size_t>(type)](std::move(meta), record);
}
