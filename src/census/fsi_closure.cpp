// What schema scripts call.
//
// Value objects take what they need out of the tags when they are made (the names of a flag, the separator of
// a tree), so a change of tags drops that and builds them anew.
#include "census/fsi_closure.h"

#include "census/fsi_lists.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/smf_error.h"

const char FSI_ReaderTable_Closure::TypeName[] = "FSI_ReaderTable_Closure";

const char FSI_SchemaPrelude[] = R"(
function toboolean(v)
    if type(v) == 'boolean' then return v end
    if type(v) == 'number' then return v ~= 0 end
    return v == 'true'
end
function hasField(...) return table('hasField', ...) end
function setFieldName(...) return table('setFieldName', ...) end
function setFieldStyle(...) return table('setFieldStyle', ...) end
function setFieldTags(...) return table('setFieldTags', ...) end
function getFieldTags(...) return table('getFieldTags', ...) end
function addFieldDefault(...) return table('addFieldDefault', ...) end
function addFieldShadow(...) return table('addFieldShadow', ...) end
function fieldSetIPE(...) return table('fieldSetIPE', ...) end
)";

namespace {

bool isNothing(const IPE_Object& value) { return value.isNull() || value.is<IPE_NoneType>(); }

// An argument as text; what is missing is empty.
std::string textAt(const IPE_Arguments& arguments, int index) {
    const IPE_Object& value = arguments.at(index);
    return isNothing(value) ? std::string() : IPE_Object_Text(value);
}

int32_t typeNamed(std::string_view name) {
    for (int32_t type :
         {SMF_TypeString, SMF_TypeI32, SMF_TypeI64, SMF_TypeTree, SMF_TypeFlag, SMF_TypeDateTime})
        if (SMF_TypeName(type) == name) return type;
    XPK_Raise("DevelopmentError", "Unsupported column type").string("type", name).raise();
}

}  // namespace

IPE_Object FSI_ReaderTable_Closure::__call__(const IPE_Arguments& arguments) {
    if (!table_ || !table_->isConnected() || arguments.size() == 0) return {};
    return apply(textAt(arguments, 0), arguments.from(1));
}

IPE_Object FSI_ReaderTable_Closure::apply(std::string_view function, const IPE_Arguments& arguments) {
    std::string name = textAt(arguments, 0);
    if (function == "hasField") return IPE_Bool(table_->hasField(name));
    if (function == "setFieldName") {
        rename(name, textAt(arguments, 1));
    } else if (function == "setFieldStyle") {
        IPE_Object tags = IPE_NewDict();
        IPE_Dict_Set(tags, "style", isNothing(arguments.at(1)) ? IPE_String("") : arguments[1]);
        changeTags(name, tags);
    } else if (function == "setFieldTags") {
        if (!isNothing(arguments.at(1))) changeTags(name, arguments[1]);
    } else if (function == "getFieldTags") {
        auto field = table_->meta().findField(name);
        return field ? field->tags : IPE_Object();
    } else if (function == "addFieldDefault") {
        addDefault(name, textAt(arguments, 1), arguments.at(2));
    } else if (function == "addFieldShadow") {
        const IPE_Object& tags = arguments.at(2);
        if (!isNothing(tags)) PyDict_SafeCast(tags);
        table_->addShadow(name, textAt(arguments, 1), isNothing(tags) ? IPE_Object() : tags);
    } else if (function == "fieldSetIPE") {
        assign(arguments.at(0), arguments.at(1));
    }
    return {};
}

void FSI_ReaderTable_Closure::rename(std::string_view name, std::string_view newName) {
    SMF_RecordMeta& meta = table_->meta();
    auto field = meta.findField(name);
    if (!field) return;
    field->name = newName;
    meta.setName(std::string(meta.tableName));  // forgets where names were found
}

void FSI_ReaderTable_Closure::changeTags(std::string_view name, const IPE_Object& tags) {
    PyDict_SafeCast(tags);
    auto field = table_->meta().findField(name);
    if (!field) return;
    field->setTags(tags);
    field->data = nullptr;
    if (!table_->data().fields.empty()) table_->rebuild();
}

// The store reads `Default` as a number; what is none is kept all the same.
void FSI_ReaderTable_Closure::addDefault(std::string_view name, std::string_view type,
                                         const IPE_Object& value) {
    SMF_RecordMeta& meta = table_->meta();
    if (meta.findField(name)) return;
    int32_t number = typeNamed(type);
    IPE_Object tags = IPE_NewDict();
    bool plain =
        isNothing(value) || value.is<IPE_DictType>() || value.is<IPE_ListType>() || value.is<IPE_TupleType>();
    IPE_Dict_Set(tags, "Default", plain ? IPE_Int(0) : value);
    table_->addField(name, number, tags);
    auto added = meta.findField(name);
    if (!added) SMF_Fail(SMF_Runtime, "Unable to add the shadow field", meta.fileName);
    if (plain && !isNothing(value)) IPE_Dict_Set(added->tags, "Default", value);
}

// Lua's lists come as dictionaries. A name is no index; taken for a number it would be that of the first
// field.
void FSI_ReaderTable_Closure::assign(const IPE_Object& index, const IPE_Object& value) {
    if (isNothing(index)) return;
    if (auto* text = index.tryAs<IPE_StringType>())
        if (text->view().empty() || text->view().find_first_not_of("0123456789") != std::string_view::npos)
            return;
    IPE_Object given = isNothing(value) ? IPE_None() : value;
    if (given.is<IPE_DictType>()) {
        IPE_Object list = IPE_NewList();
        for (IPE_Object& item : FSI_ItemsOf(given, "values")) list.as<IPE_ListType>()->append(item);
        given = list;
    }
    table_->assignObject(index->__int__(), given);
}
