// The script functions that build an index ahead of a report:
//
//   helper.path_names.call("run", {"fsi": file, "lua": host})
//
// Each opens a reader with the options, opens or builds its index, and frees it all again. Path levels take a
// `filter` as well. The keyword `progress` is that of reports.
#include "census/index/fsi_entityhelper.h"
#include "census/index/fsi_pathlevelhelper.h"
#include "census/index/fsi_pathnamehelper.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"

namespace {

constexpr int Version = 1;

// Calls `index(reader, options, arguments)`, unless only the version is asked for.
template <class Index>
IPE_Object callHelper(const IPE_Arguments& arguments, Index index) {
    arguments.check("s|ooo", "call");
    if (arguments.text(0) == "version") return IPE_Int(Version);
    arguments.check("so|", "call");
    const IPE_Object& options = arguments[1];
    IPE_Object host(PyDict_SafeCast(options)->findText("lua"));
    FSI_ProgressListener listener(arguments.keyword("progress"));
    FSI_Reader reader(options, host);
    index(reader, options);
    return IPE_None();
}

IPE_Object callEntity(const IPE_Arguments& arguments) {
    return callHelper(arguments,
                      [](FSI_Reader& reader, const IPE_Object&) { FSI_EntityHelper helper(reader); });
}

IPE_Object callPathLevels(const IPE_Arguments& arguments) {
    return callHelper(arguments, [&](FSI_Reader& reader, const IPE_Object& options) {
        IPE_Object filter(options.as<IPE_DictType>()->findText("filter"));
        bool none = filter.isNull() || filter.is<IPE_NoneType>();
        FSI_PathLevelHelper helper(reader);
        helper.open(none ? std::string() : IPE_Object_Text(filter), options, arguments.keywordsOrNull());
    });
}

IPE_Object callPathNames(const IPE_Arguments& arguments) {
    return callHelper(arguments,
                      [](FSI_Reader& reader, const IPE_Object&) { FSI_PathNameHelper helper(reader); });
}

// Under both names, as a component of the longer one.
struct Registration {
    Registration(const char* component, const char* module, IPE_NativeFunction call)
        : component_(component, "call", call, "IPE_Module"), module_(module, "call", call, "IPE_Module") {}
    IPE_NativeModule component_, module_;
};
const Registration registered[] = {
    {"fsi_helper.entity", "helper.entity", callEntity},
    {"fsi_helper.path_levels", "helper.path_levels", callPathLevels},
    {"fsi_helper.path_names", "helper.path_names", callPathNames},
};

}  // namespace
