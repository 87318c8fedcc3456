// Lists out of Lua: a table of Lua without a mark crosses as a dictionary whose keys count from 1.
#pragma once

#include <string>
#include <vector>

#include "runtime/ipe_object.h"

// The items of a list or tuple, or the values of a dictionary with the keys 1 to n in that order; `what`
// names the thing in the fault, a TypeError "Require a list of $what". None and a null handle give no items.
std::vector<IPE_Object> FSI_ItemsOf(const IPE_Object& value, const char* what);
// The same, each item as its text.
std::vector<std::string> FSI_TextsOf(const IPE_Object& value, const char* what);
