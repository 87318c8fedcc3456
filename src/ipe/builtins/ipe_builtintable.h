// The table of built-in functions, and a built-in as a value.
//
// Families of functions register their rows in static initialisers (IPE_BuiltinTable); the table is complete
// before the process entry runs and never changes after it. Any thread may read it.
#pragma once

#include <string_view>
#include <vector>

#include "ipe/language/ipe_moduleshared.h"

// Every registered row, in registration order. Rows have static storage.
const std::vector<const IPE_Builtin*>& IPE_Builtins();
// The row of a name, or null.
const IPE_Builtin* IPE_FindBuiltin(std::string_view name);
// Checks the row's spec and calls its function. The result may be null, which a call site turns into None.
IPE_Object IPE_CallBuiltin(const IPE_Builtin& row, const IPE_Arguments& arguments);
// The row as a callable value: one immortal object for the life of the process. Null for an unknown name.
IPE_Object IPE_BuiltinValue(std::string_view name);
// Stores every built-in under its name. The first call seeds the C library's random generator.
void IPE_PublishBuiltins(IPE_DictType& target);

// Argument `index`; IndexError "tuple index out of range" past the end. For the functions without a spec.
const IPE_Object& IPE_RequiredArgument(const IPE_Arguments& arguments, int index);
// The bytes that native code takes from a value: the text of strings and secrets, else the text form.
std::string IPE_NativeText(const IPE_Object& value);
