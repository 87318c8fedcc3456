// What the built-in functions share in reading their arguments.
#pragma once

#include <string>

#include "ipe/language/ipe_moduleshared.h"

// Argument `index`; IndexError "tuple index out of range" past the end. For the functions without a spec.
const IPE_Object& IPE_RequiredArgument(const IPE_Arguments& arguments, int index);

// The bytes that native code takes from a value: the text of strings and secrets, else the text form.
std::string IPE_NativeText(const IPE_Object& value);
