// The details dictionary of an exception: how a record becomes one and how one becomes a record.
//
// Registered with the runtime from a static initialiser; everything else goes through XPK_Exception.
#pragma once

#include "ipe/object/ipe_type.h"
#include "runtime/xpk_exception.h"

// Called for each dictionary that is built, on the thrower's thread, after the entries of the record: adds
// `ipestack`, and `statement`, `file` and `line` while a script runs. What it raises is dropped, except lack
// of memory. Without a reporter `ipestack` is an empty list.
void IPE_SetStackReporter(void (*reporter)(IPE_Object details));

// New dictionary with `__file`, `__line`, `__type`, `__list`, `__show`, `__strings`, `__numbers` and the
// reporter's entries. Of several fields of one name the innermost one is kept.
IPE_Object IPE_BuildExceptionDetails(const XPK_ExceptionRecord& record);
// The opposite: takes what has the right type, in slot order, and passes over the rest. Any value will do.
void IPE_ParseExceptionDetails(const IPE_Object& details, XPK_ExceptionRecord& record);
