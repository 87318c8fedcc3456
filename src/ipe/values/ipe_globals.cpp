// The process-wide store.
//
// It also serves the translation marks of strings: the thread's own variables come first, the process-wide
// store stands in on a thread without a passport.
#include "ipe/values/ipe_globals.h"

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_translate.h"
#include "platform/pf_process.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_threadpassport.h"
#include "runtime/xpk_threadstate.h"

namespace {

IPE_Object& globals() {
    // Never destroyed as a variable: its component takes it down.
    static auto* store = new IPE_Object;
    return *store;
}

IPE_Store* translations() {
    XPK_ThreadState* state = XPK_CurrentThread();
    if (state && state->passport) return &IPE_StoreOf(state->passport->variables());
    return IPE_FindGlobalStore();
}

IPE_Object translationOf(const IPE_Object& key) {
    // Never destroyed: the pools are gone when static objects die.
    static const IPE_Object& language = *new IPE_Object(IPE_StringType::intern("language"));
    IPE_Store* store = translations();
    return store ? store->getKey(language, key) : IPE_Object();
}

void noteMissing(const IPE_Object& key, const IPE_Object& text) {
    // Never destroyed: the pools are gone when static objects die.
    static const IPE_Object& missing = *new IPE_Object(IPE_StringType::intern("language_missing"));
    if (IPE_Store* store = translations()) store->setKeyIfPresent(missing, key, text);
}

EPA_Component component(
    [](bool up, const char*, void*) {
        if (up)
            IPE_StartGlobals();
        else
            IPE_StopGlobals();
    },
    "", "IPE_Globals");

const bool registered = [] {
    IPE_SetTranslationSource({translationOf, noteMissing});
    return true;
}();

}  // namespace

IPE_Store* IPE_FindGlobalStore() noexcept { return globals().tryAs<IPE_Store>(); }

IPE_Store& IPE_GlobalStore() {
    IPE_Store* store = IPE_FindGlobalStore();
    XPK_Assert(store);
    return *store;
}

void IPE_StartGlobals() {
    IPE_Object handle = IPE_New<IPE_Store>();
    handle.counted()->markShared();
    auto& store = *handle.as<IPE_Store>();
    store.set("platform", IPE_String("windows"));
    store.set("_call_frequency", IPE_Int(platform::kHighResolutionFrequency));
    store.set("_debug", IPE_Int(0));
    std::string path;
    XPK_ThrowSystemError("GetModuleFileName", platform::programPath(path));
    store.set("__program_name", IPE_String(path));
    std::vector<std::string> arguments;
    XPK_ThrowSystemError("CommandLineToArgv", platform::programArguments(arguments));
    IPE_Object list = IPE_NewList();
    for (size_t i = 1; i < arguments.size(); ++i) list.as<IPE_ListType>()->append(IPE_String(arguments[i]));
    store.set("__program_args", list);
    globals() = handle;
}

void IPE_StopGlobals() noexcept { globals() = nullptr; }
