// What every fuzz target shares: a process with values and components but no server, and the rule of the
// house: any input ends in a value or in an exception of the one family. Whatever else leaves a target is a
// finding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_threadstate.h"

// The thread state and the components, once per process.
inline void fuzzSetUp() {
    static XPK_ThreadScope scope(true);
    static const bool started = [] {
        XPK_InitPools();
        IPE_InitSingletons();
        IPE_StartGlobals();
        return true;
    }();
    (void)started;
}

// True when nothing was raised.
template <class Function>
bool fuzzRun(Function&& function) {
    fuzzSetUp();
    try {
        function();
        return true;
    } catch (const XPK_Exception& exception) {
        exception.message();
        return false;
    }
}

inline std::string_view fuzzText(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}
