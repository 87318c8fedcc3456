// Damage found in stores goes to the log while there is one.
//
// The store's files know no log, so that tools can use them alone; the line between the two is drawn here.
#include "ipe/builtins/ipe_logger.h"
#include "platform/pf_console.h"
#include "runtime/epa_lifecycle.h"
#include "store/smf_file.h"

namespace {

void logDamage(const std::string& line) {
    if (IPE_SetLogContext("dev", 40, __FILE__, __LINE__))
        IPE_LogMessage(line);
    else
        platform::debugOutput(line);
}

const EPA_Component component([](bool up, const char*, void*) {
    if (up) SMF_SetDamageLog(logDamage);
});

}  // namespace
