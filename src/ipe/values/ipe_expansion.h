// The two template languages: `%` directives over one parameter object, and `$name` over a mapping.
//
// Both read the template as code points and build UTF-8. Errors are ValueError with the messages of the
// grammar; a template that is not a string raises RuntimeError.
#pragma once

#include "ipe/object/ipe_type.h"

IPE_Object IPE_ExpandFormat(const IPE_Object& format, const IPE_Object& parameter);
// `exact`: an unknown name stays as `$name`; otherwise only the name is left.
IPE_Object IPE_ExpandDollar(const IPE_Object& format, const IPE_Object& mapping, bool exact);

// The time rule: None or null 0, packed and dashed texts, sequences of year, month and optionally day, hour,
// minute, second in local time, ints themselves.
int64_t IPE_TimeOf(const IPE_Object& value);
