// The process-wide store and what stands in it from the start.
//
// The component IPE_Globals makes the store and sets `platform`, `_call_frequency`, `_debug`,
// `__program_name` and `__program_args`; it destroys the store when it goes down.
#pragma once

#include "ipe/values/ipe_store.h"

// The process-wide store; an assertion before the component started and after it stopped.
IPE_Store& IPE_GlobalStore();
// The same, or null.
IPE_Store* IPE_FindGlobalStore() noexcept;

// What the component does on its two calls; for tests that need the store alone.
void IPE_StartGlobals();
void IPE_StopGlobals() noexcept;
