// The last component to start: it fills the module registry and the global store, so that the server finds
// the module "startup". It runs no script itself.
#include <unistd.h>

#include "bundles.h"
#include "entry.h"
#include "ipe/language/ipe_programloader.h"
#include "ipe/values/ipe_globals.h"
#include "platform/pf_links.h"
#include "platform/pf_process.h"
#include "runtime/epa_lifecycle.h"

namespace {

// A relative path is tried in the working directory, then in the directory of entry.
std::string customPath() {
    std::string path = optionText("--custom", 9);
    if (path.empty() || path[0] == '/' || access(path.c_str(), F_OK) == 0) return path;
    std::string entered = entryState().entryDirectory + "/" + path;
    return access(entered.c_str(), F_OK) == 0 ? entered : path;
}

void component(bool up, const char*, void*) {
    if (!up) return;
    EntryState& state = entryState();
    IPE_Store& globals = IPE_GlobalStore();
    platform::OsVersion version;
    platform::osVersion(version);
    std::string kernel = version.kernel + " (" + version.machine + ")";
    globals.set("osversion_emulated",
                IPE_String(version.distribution.empty() ? kernel : version.distribution));
    globals.set("osversion_underlying",
                IPE_String(version.distribution.empty() ? kernel : version.distribution + ", " + kernel));
    if (hasOption("--custom")) {
        load_source("", customPath());
        state.customRun = true;
        return;
    }
    if (access("quillsrv_crypt=false.txt", F_OK) == 0) state.cryptEnabled = false;
    std::string directory = platform::directoryOf(state.program);
    std::vector<std::string> bundles = bundleNames();
    globals.set("startup_type", IPE_String(bundles.empty() ? "py" : "dat"));
    if (bundles.empty())
        load_source("", directory + "/../ipe/startup.py");
    else
        loadBundles(directory, bundles);
}
const EPA_Component registered(component, "*", nullptr);

}  // namespace
