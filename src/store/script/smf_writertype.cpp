// Stores, made by scripts.
#include "store/script/smf_writertype.h"

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_dicttype.h"
#include "store/script/smf_schema.h"
#include "store/script/smf_writertabletype.h"
#include "store/smf_error.h"

const char SMF_WriterType::TypeName[] = "SMF_WriterType";

IPE_Object SMF_WriterType::table(std::string_view name, const IPE_Object& schema) {
    if (!writer_.isOpen()) SMF_Fail(SMF_Runtime, "Not connected", writer_.fileName());
    IPE_Object object = IPE_New<SMF_WriterTableType>();
    object.as<SMF_WriterTableType>()->create(IPE_Object(this), name, schema);
    object->__bind__();
    return object;
}

void SMF_WriterType::setOptions(const IPE_Object& options) {
    IPE_Object compressed(PyDict_SafeCast(options)->findText("compressed"));
    writer_.setCompressed(compressed && compressed->__nonzero__());
}

namespace {
enum { MethodOpen, MethodClose, MethodTable, MethodOptions };
}

void SMF_WriterType::__bind__() {
    bindMethods(
        {{"open", MethodOpen}, {"close", MethodClose}, {"table", MethodTable}, {"options", MethodOptions}});
}

IPE_Object SMF_WriterType::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case MethodOpen: writer_.open(SMF_PathArgument(arguments, "s", "open")); return {};
        case MethodClose:
            arguments.check("", "close");
            writer_.close();
            return {};
        case MethodTable: arguments.check("so", "table"); return table(arguments.text(0), arguments[1]);
        case MethodOptions:
            arguments.check("o", "options");
            setOptions(arguments[0]);
            return {};
    }
    return {};
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("", "create");
    IPE_Object object = IPE_New<SMF_WriterType>();
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("smf.writer", "create", create, "IPE_Globals");

}  // namespace
