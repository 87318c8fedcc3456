// Script timers. A missing queue is an error for the pulse, which drops it.
#include "ipe/threads/ipe_scriptpulse.h"

#include "ipe/threads/ipe_thread.h"
#include "ipe/values/ipe_dicttype.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_pulse.h"

namespace {

EPA_Component component(
    [](bool up, const char*, void*) {
        if (!up) return;
        EPA_Pulse::addOneSecond(IPE_PulseOne);
        EPA_Pulse::addSevenSecond(IPE_PulseSeven);
        EPA_Pulse::addThirtyOneSecond(IPE_PulseThirtyOne);
    },
    "EPA_Pulse");

}  // namespace

void IPE_PulseOne() { IPE_EnqueueJob("pulse_1", IPE_NewDict()); }
void IPE_PulseSeven() { IPE_EnqueueJob("pulse_7", IPE_NewDict()); }
void IPE_PulseThirtyOne() { IPE_EnqueueJob("pulse_31", IPE_NewDict()); }
