// Schemas as script values.
#include "store/script/smf_schema.h"

#include <string>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

// The schema belongs to the script, which may change it; the table's own dictionaries stay as they are.
IPE_Object copyOf(const IPE_Object& dictionary) {
    IPE_Object copy = IPE_NewDict();
    auto* from = dictionary.as<IPE_DictType>();
    for (uint32_t i = 0; i < from->slots(); ++i)
        if (IPE_Type* key = from->keyAt(i))
            copy.as<IPE_DictType>()->set(IPE_Object(key), IPE_Object_Strip(IPE_Object(from->valueAt(i))));
    return copy;
}

IPE_Object fieldEntry(const SMF_FieldMeta& field) {
    if (field.type == SMF_TypeTime) XPK_Raise("SystemError", "Invalid database field type").raise();
    IPE_Object tags = copyOf(field.tags);
    field.exportTo(*tags.as<IPE_DictType>());
    IPE_Object entry = IPE_NewDict();
    IPE_Dict_Set(entry, "type", IPE_Int(field.type));
    IPE_Dict_Set(entry, "name", IPE_String(field.name));
    IPE_Dict_Set(entry, "tags", std::move(tags));
    return entry;
}

}  // namespace

IPE_Object SMF_SchemaOf(const SMF_Record& record) {
    const SMF_RecordMeta& meta = record.meta();
    IPE_Object table = IPE_NewDict(), fields = IPE_NewList();
    IPE_Dict_Set(table, "size", IPE_Int(meta.blockSize));
    IPE_Dict_Set(table, "zero", IPE_Int(meta.zero));
    if (meta.options.as<IPE_DictType>()->count() > 0) IPE_Dict_Set(table, "tags", copyOf(meta.options));
    for (const auto& field : meta.fields) fields.as<IPE_ListType>()->append(fieldEntry(*field));
    return IPE_TupleOf({table, fields});
}

IPE_Object SMF_FieldNames(const SMF_Record& record) {
    IPE_Object names = IPE_NewList();
    for (const auto& field : record.meta().fields) names.as<IPE_ListType>()->append(IPE_String(field->name));
    return names;
}

IPE_Object SMF_FieldIndices(const SMF_Record& record) {
    IPE_Object indices = IPE_NewDict();
    for (const auto& field : record.meta().fields) IPE_Dict_Set(indices, field->name, IPE_Int(field->index));
    return indices;
}

EPA_FileName SMF_PathArgument(const IPE_Arguments& arguments, const char* spec, const char* name) {
    const IPE_Object& path = arguments.at(0);
    bool plain = path.isNull() || path.is<IPE_StringType>() || path.is<IPE_IntType>() ||
                 path.is<IPE_NoneType>() || path.is<IPE_DictType>();
    std::string wanted(spec);
    if (!plain) wanted[0] = 'o';
    arguments.check(wanted.c_str(), name);
    return EPA_FileNameOf(path);
}
