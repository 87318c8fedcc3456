// Tables of a census, read by scripts.
#include "census/script/fsi_readertabletype.h"

#include "census/script/fsi_readertype.h"
#include "ipe/object/ipe_moduleregistry.h"

const char FSI_ReaderTableType::TypeName[] = "FSI_ReaderTableType";

void FSI_ReaderTableType::connect(const IPE_Object& reader, std::string_view name) {
    reader_ = reader;
    table_.connect(reader.as<FSI_ReaderType>()->reader(), name, true);
}

namespace {
enum { MethodRecordAsList, MethodRecordAsDict, MethodGetHeader, MethodSeek, MethodNext, MethodPump };
}

void FSI_ReaderTableType::__bind__() {
    bindMethods({{"record_as_list", MethodRecordAsList},
                 {"record_as_dict", MethodRecordAsDict},
                 {"get_header", MethodGetHeader},
                 {"seek", MethodSeek},
                 {"next", MethodNext},
                 {"pump", MethodPump}});
}

IPE_Object FSI_ReaderTableType::__callmethod__(int method, const IPE_Arguments& arguments) {
    constexpr struct {
        const char *name, *spec;
    } Specs[] = {{"record_as_list", ""}, {"record_as_dict", ""}, {"get_header", ""},
                 {"seek", "i"},          {"next", ""},           {"pump", ""}};
    arguments.check(Specs[method].spec, Specs[method].name);
    table_.meta();
    switch (method) {
        case MethodRecordAsList:
        case MethodPump:
            if (IPE_Object most = arguments.keyword("batch"); !most.isNull())
                return table_.batch(most->__int__());
            return table_.recordAsList();
        case MethodRecordAsDict: return table_.recordAsDict();
        case MethodGetHeader: return table_.header();
        case MethodSeek: table_.seek(arguments.integer(0)); return {};
        case MethodNext: table_.next(); return {};
    }
    return {};
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("", "create");
    IPE_Object object = IPE_New<FSI_ReaderTableType>();
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("fsi.reader.table", "create", create, "IPE_Globals");

}  // namespace
