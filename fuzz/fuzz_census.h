// What targets share that run reports: the components that publish them, a statement, and the folder of a
// census whose indexes are removed.
#pragma once

#include <cstdlib>

#include "../tests/census/filter_census.h"
#include "fuzz_target.h"
#include "fuzz_watch.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "runtime/epa_lifecycle.h"
#include "store/smf_file.h"

// A statement that takes all rows and keeps none.
class FuzzStatement final : public IPE_Type {
  public:
    static constexpr const char TypeName[] = "FuzzStatement";
    FuzzStatement() : IPE_Type(TypeName) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override {
        arguments.check("s|o", "statement");
        if (arguments.size() > 1)
            for (const IPE_Object& row : PyList_SafeCast(arguments[1])->items()) PyTuple_SafeCast(row);
        return {};
    }
    IPE_Object __getattr__(const IPE_Object& key, int depth) override {
        if (!key->is_text("set") && !key->is_text("results")) return IPE_Type::__getattr__(key, depth);
        return IPE_New<IPE_BridgeType>([](const IPE_Arguments&) { return IPE_Object(); });
    }
};

// Reports are published by components, which start once.
inline IPE_NativeFunction fuzzReport(const char* name) {
    static const bool started = [] {
        fuzzSetUp();
        setenv("TZ", "UTC", 1);
        EPA_LifeCycle::control(true);
        std::atexit([] { EPA_LifeCycle::shutdown(); });
        SMF_SetDamageLog([](const std::string&) {});
        return true;
    }();
    (void)started;
    return IPE_ModuleRegistry::lookup(std::string("storage.") + name).as<IPE_ModuleBridge>()->factory();
}

inline void fuzzRunReport(const char* name, const IPE_Object& selection, const IPE_Object& options,
                          const IPE_Object& host) {
    IPE_NativeFunction report = fuzzReport(name);
    const IPE_Object arguments[] = {IPE_String("run"), IPE_New<FuzzStatement>(), selection, options};
    IPE_Object keywords = IPE_NewDict();
    keywords.as<IPE_DictType>()->setText("lua", host);
    report(IPE_Arguments(arguments, 4, keywords));
}

// Indexes that do not fit beside the census go below the same folder.
inline void fuzzKeepInside(const CensusFolder& folder) {
    setenv("XDG_CACHE_HOME", folder.file("cache").c_str(), 1);
}

// Removes everything but the census, or only the indexes of the options of one run.
inline void fuzzRemoveIndexes(const CensusFolder& folder, bool keepPlain) {
    std::filesystem::remove_all(folder.file("cache"));
    for (const auto& entry : std::filesystem::directory_iterator(folder.folder)) {
        std::string name = entry.path().filename();
        bool plain = name.find("~V.") != std::string::npos;
        if (name.find(":~") != std::string::npos && !(keepPlain && plain))
            std::filesystem::remove(entry.path());
    }
}
