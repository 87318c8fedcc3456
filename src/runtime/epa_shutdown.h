// The running flag, the shutdown functions, and the handlers that wake a blocked thread.
//
// `running` is true from static initialisation and turns false exactly once, in request_shutdown; every long
// loop tests it. A thread that blocks for longer than two seconds puts an EPA_ShutdownHandler on its passport
// for that time.
#pragma once

#include <atomic>
#include <cstdint>

namespace epa_detail {
extern std::atomic<bool> running;
}

inline bool XPK_IsRunning() noexcept { return epa_detail::running.load(std::memory_order_relaxed); }

// Turns the running flag off and calls the shutdown functions in slot order, outside the table's lock,
// emptying each slot. Safe from any thread and any number of times; only the first call acts.
void request_shutdown();

// As request_shutdown, asked for by a script: the exit code is then read from the global `__rc`.
void request_script_exit();
bool XPK_ScriptAskedToExit() noexcept;

// Registers a function and one word in the first free of 10 slots. SystemError "Too many shutdown functions".
using XPK_ShutdownFunction = void (*)(void* data);
void XPK_AddShutdownFunction(XPK_ShutdownFunction function, void* data);
inline void add_shutdown_callback(XPK_ShutdownFunction function, void* data) {
    XPK_AddShutdownFunction(function, data);
}
// Empties the table (process entry).
void XPK_ClearShutdownFunctions();
