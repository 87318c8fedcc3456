// string.pack, string.packsize and string.unpack for Lua 5.2, with the formats of the Lua 5.3 manual (section
// 6.4.2). Numbers are doubles: a packed integer must have no fractional part, and an unpacked integer outside
// the range of exact doubles is the nearest one.
#pragma once

#include <lua.hpp>

// For luaL_setfuncs; ends with a null entry.
extern const luaL_Reg IPE_LuaPackFunctions[];
