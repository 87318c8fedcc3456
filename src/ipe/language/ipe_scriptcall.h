// Calling back into scripts from native code.
//
// A method of an instance gets its receiver only where a script wrote `obj.m()`. Native code has no such
// spot, so it calls script callables through this one helper, which prepends the receiver when there is one:
// the callee itself when it is a "ClassType", or the object that the attribute came from.
#pragma once

#include <type_traits>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"

// Calls `callee`. A ClassType callee is passed as the first argument. The result may be null.
IPE_Object IPE_CallScript(const IPE_Object& callee, const IPE_Arguments& arguments);
template <class... Values>
requires(std::is_same_v<Values, IPE_Object>&&...) IPE_Object
    IPE_CallScript(const IPE_Object& callee, const Values&... values) {
    const IPE_Object items[sizeof...(values) + 1] = {values..., IPE_Object()};
    return IPE_CallScript(callee, IPE_Arguments(items, static_cast<int>(sizeof...(values))));
}
// Calls the attribute `name` of `object`, with the object as the first argument when it is a ClassType. Null
// when the attribute is absent and `mustExist` is false.
IPE_Object IPE_CallScriptMethod(const IPE_Object& object, const char* name, const IPE_Arguments& arguments,
                                bool mustExist = true);
