// The process-wide lock. It guards the table of shutdown functions and stands in for a passport's own lock
// until the passport's thread has announced itself. Held for a few instructions only; nothing else is taken
// under it.
#pragma once

#include "runtime/epa_lock.h"

EPA_RecursiveLock& XPK_ProcessLock() noexcept;
