// Bundles, read at start.
//
// This runs on one thread before any script; a fault in any bundle keeps the server from starting.
#include "bundles.h"

#include "ipe/language/ipe_moduleshared.h"
#include "ipe/language/ipe_programloader.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_literal.h"
#include "runtime/epa_unicode.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_readertable.h"

namespace {

struct Resources {
    IPE_Object names = IPE_NewList(), values = IPE_NewDict(), hashes = IPE_NewDict();
};

// Calls visit() for each row, with the place noted for whatever it raises.
template <class Visit>
void eachRow(SMF_ReaderTable& table, const std::string& file, Visit visit) {
    table.top();
    for (table.next(); table.position() <= table.rows(); table.next()) {
        XPK_TraceScope scope;
        XPK_TraceString(scope.state(), "file", file);
        XPK_TraceNumber(scope.state(), "line", table.position());
        visit();
    }
}

void readModules(SMF_Reader& reader) {
    SMF_ReaderTable table;
    table.connect(reader, "modules");
    SMF_String source;
    source.connect(table, "source");
    eachRow(table, reader.name(), [&] {
        IPE_Object dictionary = parse_literal(source.get());
        std::string path = IPE_Dict_GetString(dictionary, "module");
        IPE_ModuleRegistry::register_(path, IPE_New<IPE_ModuleInternal>(dictionary));
    });
}

void readResources(SMF_Reader& reader, Resources& resources) {
    SMF_ReaderTable table;
    table.connect(reader, "resources");
    SMF_String name, hash, base;
    name.connect(table, "name");
    hash.connect(table, "hash");
    base.connect(table, "base");
    eachRow(table, reader.name(), [&] {
        EPA_Unicode lower;
        lower.setUtf8(name.get());
        resources.names.as<IPE_ListType>()->append(IPE_String(name.get()));
        lower.toLower();
        std::string key(lower.utf8());
        IPE_Dict_Set(resources.values, key, IPE_String(base.get()));
        IPE_Dict_Set(resources.hashes, key, IPE_String(hash.get()));
    });
}

}  // namespace

std::vector<std::string> bundleNames() {
    const IPE_Object arguments[] = {IPE_String("ls_files"), IPE_ListOf({IPE_String("*.dat")})};
    IPE_List files(IPE_FindBuiltin("fs")->function(IPE_Arguments(arguments, 2)));
    IPE_Object entries = IPE_NewList();
    for (int32_t i = 0; i < files.count(); ++i) {
        IPE_Tuple file(files[i]);
        entries.as<IPE_ListType>()->append(IPE_TupleOf({file[0], file[1]}));
    }
    entries.as<IPE_ListType>()->sort(false);
    std::vector<std::string> names;
    for (const IPE_Object& entry : entries.as<IPE_ListType>()->items())
        names.push_back(IPE_Object_Text(IPE_Tuple(entry)[1]));
    return names;
}

void loadBundles(const std::string& directory, const std::vector<std::string>& names) {
    Resources resources;
    for (const std::string& name : names) {
        std::string path = directory + "/" + name;
        XPK_TraceScope scope;
        XPK_TraceString(scope.state(), "file", path);
        XPK_TraceNumber(scope.state(), "line", 0);
        SMF_Reader reader;
        reader.open(path);
        readModules(reader);
        readResources(reader, resources);
        reader.close();
    }
    if (resources.names.as<IPE_ListType>()->count() == 0) return;
    IPE_Store& globals = IPE_GlobalStore();
    globals.set("__resource_names", resources.names);
    globals.set("__resource_values", resources.values);
    globals.set("__resource_hashes", resources.hashes);
}
