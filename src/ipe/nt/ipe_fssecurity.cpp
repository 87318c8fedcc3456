// The commands of `fs` over security descriptors and privileges.

#include <cerrno>

#include "ipe/nt/ipe_fscommands.h"
#include "ipe/nt/ipe_path.h"
#include "ipe/nt/ipe_sddl.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_privileges.h"
#include "platform/pf_security.h"

namespace {

constexpr struct {
    const char* name;
    platform::SecurityPart part;
} kParts[] = {
    // In the order in which they are applied: entries of the list are told apart by the owner that they are
    // to have.
    {"owner", platform::kSecurityOwner},
    {"group", platform::kSecurityGroup},
    {"dacl", platform::kSecurityDacl},
    {"sacl", platform::kSecuritySacl},
};

bool partOf(std::string_view name, platform::SecurityPart& part) {
    for (auto& row : kParts) {
        if (name != row.name) continue;
        part = row.part;
        return true;
    }
    return false;
}

void switchPrivilege(std::string_view name, bool on) {
    int error = platform::setPrivilege(name, on);
    XPK_ThrowSystemError(error == EINVAL ? "LookupPrivilegeValue" : "AdjustTokenPrivileges", error);
}

IPE_Object getSecurity(const IPE_Arguments& arguments) {
    std::string path = IPE_PathBytes(arguments[1], "GetFileSecurity");
    IPE_Object result = IPE_NewDict();
    IPE_List parts(arguments[2]);
    for (int i = 0; i < parts.count(); ++i) {
        std::string name(PyString_SafeCast(parts[i])->view());
        platform::SecurityPart part;
        IPE_ThrowPathError("GetFileSecurity", partOf(name, part) ? 0 : EINVAL, arguments[1]);
        if (part == platform::kSecuritySacl) switchPrivilege("SeSecurityPrivilege", true);
        std::string text;
        IPE_ThrowPathError("GetFileSecurity", platform::getSecurity(path, part, text), arguments[1]);
        IPE_Dict_Set(result, name, IPE_String(text));
    }
    return result;
}

IPE_Object setSecurity(const IPE_Arguments& arguments) {
    std::string path = IPE_PathBytes(arguments[1], "SetNamedSecurityInfo");
    IPE_DictType* dict = PyDict_SafeCast(arguments[2]);
    int known = 0;
    for (auto& row : kParts) known += dict->findText(row.name) != nullptr;
    IPE_ThrowPathError("SetNamedSecurityInfo", known == dict->count() ? 0 : EINVAL, arguments[1]);
    for (auto& row : kParts) {
        IPE_Object text(dict->findText(row.name));
        if (text.isNull()) continue;
        platform::Sddl sddl;
        int error = platform::parseSddl(PyString_SafeCast(text)->view(), sddl);
        IPE_ThrowPathError("ConvertStringSecurityDescriptorToSecurityDescriptor", error, arguments[1]);
        IPE_ThrowPathError("SetNamedSecurityInfo", platform::setSecurity(path, row.part, sddl), arguments[1]);
    }
    return {};
}

IPE_Object decodeSddl(const IPE_Arguments& arguments) {
    IPE_Object result = IPE_NewList();
    if (!arguments[1].is<IPE_ListType>()) {
        IPE_DecodeSddl(PyString_SafeCast(arguments[1])->view(), result);
        return result;
    }
    IPE_List texts(arguments[1]);
    for (int i = 0; i < texts.count(); ++i) IPE_DecodeSddl(PyString_SafeCast(texts[i])->view(), result);
    return result;
}

IPE_Object setPrivilege(const IPE_Arguments& arguments) {
    switchPrivilege(PyString_SafeCast(arguments[1])->view(), arguments[2]->__nonzero__());
    return {};
}

}  // namespace

const IPE_FsCommand IPE_FsSecurity[] = {
    {"get_security", "soo", getSecurity}, {"set_security", "soo", setSecurity},
    {"decode_sddl", "so", decodeSddl},    {"set_privilege", "soo", setPrivilege},
    {nullptr, nullptr, nullptr},
};
