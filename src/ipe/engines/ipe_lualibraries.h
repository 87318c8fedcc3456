// The libraries of every Lua state.
//
// The standard ones, `lfs`, `rex_pcre2` (also under the name `rex_pcre`) and `luasql` with `luasql.sqlite3`,
// each as a global and for `require`; `string.pack`, `string.packsize` and `string.unpack`. Left out is what
// would end or harm the process that the state lives in: `os.exit` and a change of the locale raise an
// error, `load` and its kin read no byte code, `debug` keeps what only looks, `require` finds texts but no
// shared objects, and a metatable with `__gc` cannot be set by Lua code.
#pragma once

#include "ipe/engines/ipe_luastate.h"

// Inside run(), once per state.
void IPE_OpenLuaLibraries(lua_State* L);
