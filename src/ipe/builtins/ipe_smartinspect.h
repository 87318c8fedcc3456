// The inspection object that `smart_inspect("get")` gives: figures about the running process for consoles and
// support scripts.
//
// Methods, each without arguments and each a fresh snapshot of plain data:
//   memory   dict: `resident` bytes of the process, `pools` a list of dicts `size`, `chunks`, `used`
//   modules  dict from branch to the list of its module names
//   threads  dict: `maximum`, `running`
// The object keeps no state, so every thread may use the one instance.
#pragma once

#include "ipe/object/ipe_type.h"

IPE_Object IPE_SmartInspect();
// The thread manager's figures: a dict of `maximum` and `running`.
IPE_Object IPE_ThreadSummary();
