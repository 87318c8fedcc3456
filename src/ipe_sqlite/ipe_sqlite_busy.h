// What a statement does while another connection holds the lock that it needs.
//
// The n-th wait of a statement, from 0, lasts 50 * (n + 1) milliseconds, at most the module's `busypolltime`;
// a statement whose waits come to more than `busytimeout` fails as busy. A stop of the server ends the wait
// and makes the statement fail.
#pragma once

#include <cstdint>

// A busy handler of the library: waits and gives 1, or gives 0 when the statement shall fail. `module` is an
// IPE_Sqlite.
int IPE_Sqlite_Busy(void* module, int calls) noexcept;

struct IPE_Sqlite_BusyWait {
    int64_t delay;  // of this call, milliseconds
    int64_t total;  // of all calls up to this one
};
// The wait of call `calls`, from 0. A `pollTime` below 1 counts as 1, since waits of nothing would never end.
IPE_Sqlite_BusyWait IPE_Sqlite_BusyWaitOf(int calls, int64_t pollTime) noexcept;
