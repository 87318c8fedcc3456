// Stores, read by scripts.
#include "store/script/smf_readertype.h"

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/script/smf_readertabletype.h"
#include "store/script/smf_schema.h"

const char SMF_ReaderType::TypeName[] = "SMF_ReaderType";

IPE_Object SMF_TableNames(const SMF_Reader& reader) {
    reader.store();
    IPE_Object names = IPE_NewList();
    for (const auto& table : reader.tables()) names.as<IPE_ListType>()->append(IPE_String(table.first));
    return names;
}

IPE_Object SMF_ReaderType::table(std::string_view name) {
    bool restricted = restricted_ && (name == "File" || name == "Path");
    IPE_Object object = IPE_New<SMF_ReaderTableType>();
    object.as<SMF_ReaderTableType>()->connect(IPE_Object(this), name, restricted);
    object->__bind__();
    return object;
}

IPE_Object SMF_ReaderType::options() const {
    reader_.store();
    IPE_Object result = IPE_NewDict();
    IPE_Dict_Set(result, "compressed", IPE_Bool(reader_.compressed()));
    return result;
}

namespace {
enum { MethodOpen, MethodClose, MethodTables, MethodTable, MethodOptions };
}

void SMF_ReaderType::__bind__() {
    bindMethods({{"open", MethodOpen},
                 {"close", MethodClose},
                 {"tables", MethodTables},
                 {"table", MethodTable},
                 {"options", MethodOptions}});
}

IPE_Object SMF_ReaderType::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case MethodOpen: reader_.open(SMF_PathArgument(arguments, "s|o", "open")); return {};
        case MethodClose:
            arguments.check("", "close");
            reader_.close();
            return {};
        case MethodTables: arguments.check("", "tables"); return SMF_TableNames(reader_);
        case MethodTable: arguments.check("s", "table"); return table(arguments.text(0));
        case MethodOptions: arguments.check("", "options"); return options();
    }
    return {};
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("|i", "create");
    IPE_Object object = IPE_New<SMF_ReaderType>(arguments.size() > 0 && arguments.integer(0) != 0);
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("smf.reader", "create", create, "IPE_Globals");

}  // namespace
