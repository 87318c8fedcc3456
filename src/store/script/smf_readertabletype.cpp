// Tables, read by scripts.
#include "store/script/smf_readertabletype.h"

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/script/smf_readertype.h"
#include "store/script/smf_schema.h"
#include "store/smf_error.h"

const char SMF_ReaderTableType::TypeName[] = "SMF_ReaderTableType";

void SMF_ReaderTableType::connect(const IPE_Object& reader, std::string_view name, bool restricted) {
    table_.connect(reader.as<SMF_ReaderType>()->reader(), name);
    reader_ = reader;
    restricted_ = restricted;
    fields_ = SMF_FieldIndices(table_);
}

void SMF_ReaderTableType::requireFree() const {
    table_.meta();
    if (restricted_) XPK_Raise("SecurityException", "Access to this table is restricted").raise();
}

IPE_Object SMF_ReaderTableType::get(const IPE_Object& key) {
    requireFree();
    int64_t index = key.is<IPE_StringType>() ? IPE_Dict_GetInt64(fields_, PyString_SafeCast(key)->view())
                                             : key->__int__();
    table_.meta().nameOf(index);  // "Field index out of range"
    return table_.asObject(index);
}

IPE_Object SMF_ReaderTableType::record() {
    requireFree();
    IPE_Object values = IPE_NewList();
    size_t count = table_.meta().fields.size();
    for (size_t i = 0; i < count; ++i)
        values.as<IPE_ListType>()->append(table_.asObject(static_cast<int64_t>(i)));
    return values;
}

namespace {
enum {
    MethodGet,
    MethodHeader,
    MethodMore,
    MethodNext,
    MethodRecord,
    MethodSeek,
    MethodTop,
    MethodSchema,
    MethodFields,
    MethodRows
};
}

void SMF_ReaderTableType::__bind__() {
    bindMethods({{"get", MethodGet},
                 {"header", MethodHeader},
                 {"more", MethodMore},
                 {"next", MethodNext},
                 {"record", MethodRecord},
                 {"seek", MethodSeek},
                 {"top", MethodTop},
                 {"schema", MethodSchema},
                 {"fields", MethodFields},
                 {"rows", MethodRows}});
}

IPE_Object SMF_ReaderTableType::__callmethod__(int method, const IPE_Arguments& arguments) {
    constexpr struct {
        const char *name, *spec;
    } Specs[] = {{"get", "o"},  {"header", "s"}, {"more", ""},   {"next", ""},   {"record", ""},
                 {"seek", "i"}, {"top", ""},     {"schema", ""}, {"fields", ""}, {"rows", ""}};
    arguments.check(Specs[method].spec, Specs[method].name);
    table_.meta();
    switch (method) {
        case MethodGet: return get(arguments[0]);
        case MethodHeader: return {};
        case MethodMore: return IPE_Bool(table_.position() <= table_.rows());
        case MethodNext: table_.next(); return {};
        case MethodRecord: return record();
        case MethodSeek:
            table_.seek(arguments.integer(0));
            table_.next();
            return {};
        case MethodTop:
            table_.top();
            table_.next();
            return {};
        case MethodSchema: return SMF_SchemaOf(table_);
        case MethodFields: return SMF_FieldIndices(table_);
        case MethodRows: return IPE_Int(table_.rows());
    }
    return {};
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("", "create");
    IPE_Object object = IPE_New<SMF_ReaderTableType>();
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("smf.reader.table", "create", create, "IPE_Globals");

}  // namespace
