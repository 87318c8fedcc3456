// Field descriptions.
#include "store/smf_fieldmeta.h"

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

SMF_FieldMeta::SMF_FieldMeta(int32_t type, std::string_view name, int32_t index)
    : type(type), index(index), name(name), tags(IPE_NewDict()) {}

void SMF_FieldMeta::setTag(std::string_view key, const IPE_Object& value) {
    if (key == "Default") {
        defaultWide = value->__int__();
        defaultNumber = static_cast<int32_t>(defaultWide);
    } else if (key == "API") {
        api = value;
    } else if (key == "Fixed") {
        fixedValue = value;
    } else if (key == "Transform") {
        std::string text = IPE_Object_Text(value);
        transform = text == "FileName"   ? SMF_Transform::FileName
                    : text == "PathName" ? SMF_Transform::PathName
                    : text == "Fixed"    ? SMF_Transform::Fixed
                                         : SMF_Transform::None;
    }
    tags.as<IPE_DictType>()->setText(key, value);
}

void SMF_FieldMeta::setTags(const IPE_Object& dictionary) {
    auto* dict = PyDict_SafeCast(dictionary);
    for (uint32_t i = 0; i < dict->slots(); ++i)
        if (IPE_Type* key = dict->keyAt(i))
            setTag(IPE_Object_Text(IPE_Object(key)), IPE_Object(dict->valueAt(i)));
}

std::string SMF_FieldMeta::tagText(std::string_view key, std::string_view absent) const {
    IPE_Type* value = tags.as<IPE_DictType>()->findText(key);
    return value ? IPE_Object_Text(IPE_Object(value)) : std::string(absent);
}

bool SMF_FieldMeta::hasTag(std::string_view key) const {
    return tags.as<IPE_DictType>()->findText(key) != nullptr;
}

void SMF_FieldMeta::exportTo(IPE_DictType& dictionary) const {
    dictionary.setText("name", IPE_String(name));
    dictionary.setText("type", IPE_String(SMF_TypeName(type)));
    if (data) data->exportTo(dictionary);
}

bool SMF_DecodesType(std::string_view key, int32_t type) {
    return !SMF_TypeName(type).empty() && !key.empty() && SMF_SameType(key[0] - 'A', type);
}

std::string_view SMF_TypeName(int32_t type) {
    switch (type) {
        case SMF_TypeString:
        case SMF_TypeString10: return "String";
        case SMF_TypeI32: return "I32";
        case SMF_TypeI64: return "I64";
        case SMF_TypeDate: return "Date";
        case SMF_TypeTime: return "Time";
        case SMF_TypeFlag: return "Flag";
        case SMF_TypeTree: return "Tree";
        case SMF_TypeDateTime: return "DateTime";
        default: return {};
    }
}
