// Censuses, read by scripts.
#include "census/script/fsi_readertype.h"

#include "census/script/fsi_readertabletype.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/script/smf_schema.h"

const char FSI_ReaderType::TypeName[] = "FSI_ReaderType";

IPE_Object FSI_ReaderType::tables() const {
    IPE_Object names = IPE_NewList();
    for (const auto& table : reader_.tables()) names.as<IPE_ListType>()->append(IPE_String(table.first));
    return names;
}

IPE_Object FSI_ReaderType::table(std::string_view name) {
    IPE_Object object = IPE_New<FSI_ReaderTableType>();
    object.as<FSI_ReaderTableType>()->connect(IPE_Object(this), name);
    object->__bind__();
    return object;
}

namespace {
enum { MethodOpen, MethodClose, MethodTables, MethodTable };
}

void FSI_ReaderType::__bind__() {
    bindMethods(
        {{"open", MethodOpen}, {"close", MethodClose}, {"tables", MethodTables}, {"table", MethodTable}});
}

IPE_Object FSI_ReaderType::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case MethodOpen:
            SMF_PathArgument(arguments, "s|o", "open");
            reader_.reopen(arguments[0]);
            return {};
        case MethodClose:
            arguments.check("s", "close");
            reader_.shut();
            return {};
        case MethodTables: arguments.check("", "tables"); return tables();
        case MethodTable: arguments.check("s", "table"); return table(arguments.text(0));
    }
    return {};
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("o|o", "create");
    IPE_Object object = IPE_New<FSI_ReaderType>(arguments[0], arguments.at(1));
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("fsi.reader", "create", create, "IPE_Globals");

}  // namespace
