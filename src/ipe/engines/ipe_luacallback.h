// Script objects inside Lua, and the globals that every state has for calls into scripts.
//
// A script object in Lua is a userdata that holds a counted handle, given up when Lua collects it. Calling it
// calls the object through __call_untrusted__, with itself as the first argument where it is an instance;
// a table marked by `kwargs` becomes keyword arguments, in any position. An object of the kind "class" gives
// and takes attributes. Used up userdata raise the Lua error "IPE_Function == 0".
#pragma once

#include "ipe/engines/ipe_luastate.h"
#include "ipe/object/ipe_type.h"

// Inside run(), once per state: the metatables, the value None, and the globals `kwargs` and `ipesplit`.
void IPE_OpenLuaBridge(IPE_LuaState& state, lua_State* L);
// Pushes a callable or native object. A Lua function of this state is pushed as itself.
void IPE_PushLuaObject(IPE_LuaState& state, lua_State* L, const IPE_Object& value);
// The object that a userdata holds; null for any other userdata and once it is given up.
IPE_Object IPE_LuaHeldObject(const IPE_LuaState& state, lua_State* L, int index);
