// Version texts for scripts; the formats are read by platform/pf_versioninfo.h.

#include "ipe/nt/ipe_versioninfo.h"

#include "ipe/nt/ipe_path.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_versioninfo.h"

const char IPE_VersionInfo::TypeName[] = "IPE_VersionInfo";

// The path is kept as it was; a list that the script changes later may not change the messages.
IPE_VersionInfo::IPE_VersionInfo(const IPE_Object& path)
    : IPE_ModuleType(TypeName),
      path_(IPE_Object_Copy(path)),
      bytes_(IPE_PathBytes(path, "GetFileVersionInfo")) {}

void IPE_VersionInfo::__bind__() { bindMethods({{"info", Info}}); }

IPE_Object IPE_VersionInfo::__callmethod__(int method, const IPE_Arguments& arguments) {
    if (method != Info) return {};
    arguments.check("", "info");
    return info();
}

IPE_Object IPE_VersionInfo::info() {
    platform::VersionStrings strings;
    IPE_ThrowPathError("GetFileVersionInfo", platform::readVersionStrings(bytes_, strings), path_);
    IPE_Object result = IPE_NewDict();
    for (auto& [name, value] : strings) IPE_Dict_Set(result, name, IPE_String(value));
    return result;
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("o", "create");
    IPE_Object object = IPE_New<IPE_VersionInfo>(arguments[0]);
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("ipe.versioninfo", "create", create);

}  // namespace
