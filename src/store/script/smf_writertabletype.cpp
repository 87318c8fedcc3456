// Tables, filled by scripts.
#include "store/script/smf_writertabletype.h"

#include "ipe/object/ipe_moduleregistry.h"
#include "store/script/smf_writertype.h"

const char SMF_WriterTableType::TypeName[] = "SMF_WriterTableType";

void SMF_WriterTableType::create(const IPE_Object& writer, std::string_view name, const IPE_Object& schema) {
    table_.createFromSchema(name, schema, writer.as<SMF_WriterType>()->writer());
    writer_ = writer;
}

namespace {
enum { MethodAppend };
}

void SMF_WriterTableType::__bind__() { bindMethods({{"append", MethodAppend}}); }

IPE_Object SMF_WriterTableType::__callmethod__(int method, const IPE_Arguments& arguments) {
    if (method != MethodAppend) return {};
    arguments.check("o", "append");
    table_.append(arguments[0]);
    return {};
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("", "create");
    IPE_Object object = IPE_New<SMF_WriterTableType>();
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("smf.writer.record", "create", create, "IPE_Globals");

}  // namespace
