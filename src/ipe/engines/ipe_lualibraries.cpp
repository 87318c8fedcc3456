// What Lua code can reach.
//
// A state runs texts of the application and of users inside the server, on a thread of the server. Three
// guarantees rest on this file: no text ends the process or shakes the engine (byte code is not verified by
// the engine, the debug library can exchange the metatables of userdata); the count hook sees all Lua code,
// since finalizers and the handlers of its own errors, where it is off, are kept out; shared objects, which
// would bring a second engine, stay out.
#include "ipe/engines/ipe_lualibraries.h"

#include <sqlite3.h>

#include <cstring>

extern "C" {
#include <lfs.h>
#include <lua-rex-pcre2.h>
#include <lua-sql-sqlite3.h>
}

#include "ipe/engines/ipe_luapack.h"
#include "runtime/epa_shutdown.h"

namespace {

// Standard and linked-in libraries in the order of `ipe.libraries`.
constexpr const char* LibraryNames[] = {"base", "package", "coroutine", "table",    "io",
                                        "os",   "string",  "bit32",     "math",     "debug",
                                        "lfs",  "pack",    "rex_pcre2", "rex_pcre", "luasql.sqlite3"};

// The rest of `debug` changes what the engine and the bridge rely on.
constexpr const char* DebugKept[] = {"getinfo", "getlocal", "getupvalue", "traceback", "upvalueid"};

int exitRefused(lua_State* L) { return luaL_error(L, "os.exit is not available: it would end the server"); }

// Upvalue 1: the library's own function. Asking is fine, the locale belongs to the process.
int setlocale(lua_State* L) {
    if (!lua_isnoneornil(L, 1)) return luaL_error(L, "os.setlocale can only ask");
    lua_settop(L, 2);
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, 2, 1);
    return 1;
}

// Upvalue 1: the library's own function; upvalue 2: the index of its argument `mode`.
int loadText(lua_State* L) {
    int mode = static_cast<int>(lua_tointeger(L, lua_upvalueindex(2)));
    if (mode == 3 && !lua_isstring(L, 1)) luaL_checktype(L, 1, LUA_TFUNCTION);
    if (lua_gettop(L) < mode) lua_settop(L, mode);
    lua_pushliteral(L, "t");
    lua_replace(L, mode);
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
    return lua_gettop(L);
}

int doFile(lua_State* L) {
    const char* name = luaL_checkstring(L, 1);
    lua_settop(L, 1);
    if (luaL_loadfilex(L, name, "t") != LUA_OK) return lua_error(L);
    lua_call(L, 0, LUA_MULTRET);
    return lua_gettop(L) - 1;
}

// As the library's, but for finalizers. A wrapper would take the caller's line from its errors.
int setMetatable(lua_State* L) {
    luaL_checktype(L, 1, LUA_TTABLE);
    luaL_argcheck(L, lua_isnil(L, 2) || lua_istable(L, 2), 2, "nil or table expected");
    if (luaL_getmetafield(L, 1, "__metatable")) return luaL_error(L, "cannot change a protected metatable");
    lua_settop(L, 2);
    if (lua_istable(L, 2)) {
        lua_pushliteral(L, "__gc");
        lua_rawget(L, 2);
        if (!lua_isnil(L, -1)) return luaL_error(L, "a metatable with __gc is not available");
        lua_pop(L, 1);
    }
    lua_setmetatable(L, 1);
    return 1;
}

// A message handler that an error of the count hook calls would run where hooks are off, without an end.
// Upvalue 1: the caller's handler.
int handleMessage(lua_State* L) {
    if (IPE_LuaState::of(L).isLeaving()) return 1;
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, 1, 1);
    return 1;
}

int finishXpcall(lua_State* L, bool good) {
    if (!lua_checkstack(L, 1)) {
        lua_settop(L, 0);
        lua_pushboolean(L, 0);
        lua_pushliteral(L, "stack overflow");
        return 2;
    }
    lua_pushboolean(L, good);
    lua_replace(L, 1);
    return lua_gettop(L);
}

int continueXpcall(lua_State* L) { return finishXpcall(L, lua_getctx(L, nullptr) == LUA_YIELD); }

// As the library's, which can be yielded across; results come behind the handler's slot.
int xpcall(lua_State* L) {
    int count = lua_gettop(L);
    luaL_argcheck(L, count >= 2, 2, "value expected");
    lua_pushvalue(L, 2);
    lua_pushcclosure(L, handleMessage, 1);
    lua_copy(L, 1, 2);
    lua_replace(L, 1);
    int status = lua_pcallk(L, count - 2, LUA_MULTRET, 1, 0, continueXpcall);
    return finishXpcall(L, status == LUA_OK);
}

// Replaces a function of the table on top by `function` with the old one as its first upvalue.
void wrap(lua_State* L, const char* name, lua_CFunction function, int extra = 0) {
    lua_getfield(L, -1, name);
    lua_pushinteger(L, extra);
    lua_pushcclosure(L, function, 2);
    lua_setfield(L, -2, name);
}

void limitBase(lua_State* L) {
    lua_pushglobaltable(L);
    wrap(L, "load", loadText, 3);
    lua_getfield(L, -1, "load");
    lua_setfield(L, -2, "loadstring");
    wrap(L, "loadfile", loadText, 2);
    lua_pushcfunction(L, setMetatable);
    lua_setfield(L, -2, "setmetatable");
    lua_pushcfunction(L, xpcall);
    lua_setfield(L, -2, "xpcall");
    lua_pushcfunction(L, doFile);
    lua_setfield(L, -2, "dofile");
    lua_getfield(L, -1, "os");
    lua_pushcfunction(L, exitRefused);
    lua_setfield(L, -2, "exit");
    wrap(L, "setlocale", setlocale);
    lua_pop(L, 2);
}

void limitDebug(lua_State* L) {
    lua_getglobal(L, "debug");
    lua_newtable(L);
    for (const char* name : DebugKept) {
        lua_getfield(L, -2, name);
        lua_setfield(L, -2, name);
    }
    luaL_getsubtable(L, LUA_REGISTRYINDEX, "_LOADED");
    lua_pushvalue(L, -2);
    lua_setfield(L, -2, "debug");
    lua_pop(L, 1);
    lua_setglobal(L, "debug");
    lua_pop(L, 1);
}

// Of the four searchers the third and fourth load shared objects.
void limitPackage(lua_State* L) {
    lua_getglobal(L, "package");
    lua_pushnil(L);
    lua_setfield(L, -2, "loadlib");
    lua_pushliteral(L, "");
    lua_setfield(L, -2, "cpath");
    lua_getfield(L, -1, "searchers");
    for (int i = 4; i > 2; --i) {
        lua_pushnil(L);
        lua_rawseti(L, -2, i);
    }
    lua_pop(L, 2);
}

// A metatable on top that serves as its own index offers its finalizer as a method, and not every library
// stands a use of the object after that. The index becomes a copy of the true methods.
void hideMetamethods(lua_State* L) {
    lua_getfield(L, -1, "__index");
    bool own = lua_rawequal(L, -1, -2);
    lua_pop(L, 1);
    if (!own) return;
    int metatable = lua_gettop(L);
    lua_newtable(L);
    lua_pushnil(L);
    while (lua_next(L, metatable)) {
        bool method = lua_type(L, -2) == LUA_TSTRING && strncmp(lua_tostring(L, -2), "__", 2) != 0;
        lua_pushvalue(L, -2);
        lua_insert(L, -2);
        if (method)
            lua_rawset(L, metatable + 1);
        else
            lua_pop(L, 2);
    }
    lua_setfield(L, metatable, "__index");
}

// The metatables of library objects are reached by getmetatable; a Lua function put there as `__gc` would
// run unwatched.
void hideMetatables(lua_State* L) {
    lua_pushnil(L);
    while (lua_next(L, LUA_REGISTRYINDEX)) {
        if (lua_type(L, -2) == LUA_TSTRING && lua_type(L, -1) == LUA_TTABLE) {
            lua_getfield(L, -1, "__gc");
            bool final = !lua_isnil(L, -1);
            lua_pop(L, 1);
            if (final) {
                hideMetamethods(L);
                lua_getfield(L, -1, "__metatable");
                if (lua_isnil(L, -1)) {
                    lua_pushboolean(L, 0);
                    lua_setfield(L, -3, "__metatable");
                }
                lua_pop(L, 1);
            }
        }
        lua_pop(L, 1);
    }
}

// Statements of `luasql` run where the count hook does not see them; the server's stop interrupts them.
// Called for every database that the process opens.
int watchDatabase(sqlite3* database, const char**, const void*) {
    constexpr int StepsBetweenLooks = 4000;
    sqlite3_progress_handler(
        database, StepsBetweenLooks, [](void*) { return XPK_IsRunning() ? 0 : 1; }, nullptr);
    return SQLITE_OK;
}

void openLinked(lua_State* L) {
    if (sqlite3_auto_extension(reinterpret_cast<void (*)()>(watchDatabase)) != SQLITE_OK)
        luaL_error(L, "not enough memory");
    luaL_requiref(L, "lfs", luaopen_lfs, 1);
    luaL_requiref(L, "rex_pcre2", luaopen_rex_pcre2, 1);
    lua_pushnil(L);
    lua_setfield(L, -2, "_newmembuffer");  // bare memory, for that library's own tests
    luaL_getsubtable(L, LUA_REGISTRYINDEX, "_LOADED");
    lua_pushvalue(L, -2);
    lua_setfield(L, -2, "rex_pcre");
    luaL_requiref(L, "luasql.sqlite3", luaopen_luasql_sqlite3, 0);
    lua_pushvalue(L, -1);
    lua_setfield(L, -3, "luasql");
    lua_setglobal(L, "luasql");
    lua_pop(L, 1);
    lua_setglobal(L, "rex_pcre");
    lua_pop(L, 1);
}

}  // namespace

void IPE_OpenLuaLibraries(lua_State* L) {
    luaL_openlibs(L);
    openLinked(L);
    lua_getglobal(L, "string");
    luaL_setfuncs(L, IPE_LuaPackFunctions, 0);
    lua_pop(L, 1);
    limitBase(L);
    limitDebug(L);
    limitPackage(L);
    hideMetatables(L);

    lua_newtable(L);
    lua_pushliteral(L, LUA_VERSION);
    lua_setfield(L, -2, "version");
    lua_pushinteger(L, LUA_VERSION_NUM);
    lua_setfield(L, -2, "version_number");
    lua_newtable(L);
    int count = 0;
    for (const char* name : LibraryNames) {
        lua_pushstring(L, name);
        lua_rawseti(L, -2, ++count);
    }
    lua_rawgeti(L, LUA_REGISTRYINDEX, IPE_LuaState::of(L).marks[IPE_LuaState::List]);
    lua_setmetatable(L, -2);
    lua_setfield(L, -2, "libraries");
    lua_setglobal(L, "ipe");
}
