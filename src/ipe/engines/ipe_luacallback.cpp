// Script objects as Lua values.
//
// What holds an object of the state's own would keep the state alive from within: its functions are
// therefore pushed as what they are, and the userdata of the state itself and of its methods hold it without
// a count. Cycles over several objects are not found; who makes them breaks them, as everywhere.
#include "ipe/engines/ipe_luacallback.h"

#include "ipe/engines/ipe_lua.h"
#include "ipe/engines/ipe_luamarshal.h"
#include "ipe/language/ipe_codetype.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

struct Box {
    IPE_Object held;
    bool isOwner = false;  // stands for the state's own object
};

Box* boxAt(const IPE_LuaState& state, lua_State* L, int index) {
    if (lua_type(L, index) != LUA_TUSERDATA || !lua_getmetatable(L, index)) return nullptr;
    const void* address = lua_topointer(L, -1);
    lua_pop(L, 1);
    if (address != state.markAddresses[IPE_LuaState::Function] &&
        address != state.markAddresses[IPE_LuaState::Class])
        return nullptr;
    return static_cast<Box*>(lua_touserdata(L, index));
}

// The same method, holding its object or not.
IPE_Object withCount(const IPE_CallAdapter& adapter, bool counted) {
    return IPE_New<IPE_CallAdapter>(adapter.target(), adapter.method(), counted, adapter.notForUntrusted());
}

IPE_Object requireHeld(const IPE_LuaState& state, lua_State* L) {
    IPE_Object held = IPE_LuaHeldObject(state, L, 1);
    if (!held) luaL_error(L, "IPE_Function == 0");
    return held;
}

int give(IPE_LuaState& state, lua_State* L, const IPE_Object& result) {
    lua_settop(L, 0);
    IPE_LuaWriter(state, L).push(result);
    return 1;
}

// --- Metamethods

// The arguments of a call, which stand behind the called object.
void readArguments(IPE_LuaState& state, lua_State* L, IPE_ArgumentBuffer& buffer) {
    IPE_LuaReader reader(state, L);
    int count = lua_gettop(L);
    luaL_checkstack(L, 6, "too many arguments");
    for (int i = 2; i <= count; ++i) {
        if (lua_istable(L, i) && IPE_LuaMarkOf(state, L, i) == IPE_LuaState::Keywords) {
            if (!buffer.keywords) buffer.keywords = IPE_NewDict();
            reader.readPairs(i, buffer.keywords, false);
        } else {
            buffer.push(reader.read(i));
        }
    }
}

int callHeld(lua_State* L) {
    return IPE_LuaState::callback(L, [L](IPE_LuaState& state) {
        IPE_Object callee = requireHeld(state, L);
        IPE_ArgumentBuffer buffer;
        if (callee.is<IPE_OldClassType>()) buffer.push(callee);
        readArguments(state, L, buffer);
        return give(state, L, callee->__call_untrusted__(buffer.arguments()));
    });
}

int release(lua_State* L) {
    if (Box* box = boxAt(IPE_LuaState::of(L), L, 1)) {
        box->isOwner = false;
        box->held = nullptr;
    }
    return 0;
}

int getAttribute(lua_State* L) {
    return IPE_LuaState::callback(L, [L](IPE_LuaState& state) {
        IPE_Object held = requireHeld(state, L);
        IPE_Object key = IPE_LuaReader(state, L).read(2);
        if (key->is_text("__ipetype")) return lua_pushliteral(L, "class"), 1;
        return give(state, L, held->__getattr__(key, 0));
    });
}

int setAttribute(lua_State* L) {
    return IPE_LuaState::callback(L, [L](IPE_LuaState& state) {
        IPE_Object held = requireHeld(state, L);
        IPE_Object key = IPE_LuaReader(state, L).read(2);
        IPE_Object value = IPE_LuaReader(state, L).read(3);
        held->__setattr__(key, value);
        return 0;
    });
}

int sameObject(lua_State* L) {
    return IPE_LuaState::callback(L, [L](IPE_LuaState& state) {
        lua_pushboolean(L, IPE_LuaHeldObject(state, L, 1) == IPE_LuaHeldObject(state, L, 2));
        return 1;
    });
}

int objectText(lua_State* L) {
    return IPE_LuaState::callback(L, [L](IPE_LuaState& state) {
        std::string text = IPE_Object_Text(requireHeld(state, L));
        lua_pushlstring(L, text.data(), text.size());
        return 1;
    });
}

// --- Globals

int kwargs(lua_State* L) {
    int count = lua_gettop(L);
    if (count != 1) return luaL_error(L, "kwargs expects exactly 1 argument (received %d)", count);
    if (!lua_istable(L, 1)) return luaL_error(L, "Argument to kwargs not a table (type %d).", lua_type(L, 1));
    lua_rawgeti(L, LUA_REGISTRYINDEX, IPE_LuaState::of(L).marks[IPE_LuaState::Keywords]);
    lua_setmetatable(L, 1);
    return 1;
}

int ipesplit(lua_State* L) {
    int count = lua_gettop(L);
    if (count != 2) return luaL_error(L, "ipesplit expects exactly 2 string arguments (received %d)", count);
    for (int i = 1; i <= 2; ++i)
        if (lua_type(L, i) != LUA_TSTRING)
            return luaL_error(L, "%s argument to ipesplit not a string (type %d).",
                              i == 1 ? "First" : "Second", lua_type(L, i));
    return IPE_LuaState::callback(L, [L](IPE_LuaState& state) {
        IPE_LuaReader reader(state, L);
        IPE_Object text = reader.read(1), separator = reader.read(2);
        return give(state, L, text.as<IPE_StringType>()->split(IPE_Arguments(&separator, 1)));
    });
}

// --- Marks

struct MarkRow {
    IPE_LuaState::Mark mark;
    const char* registryName;
    const char* kind;
};
constexpr MarkRow Marks[] = {
    {IPE_LuaState::None, "ipetype_none", "none"},       {IPE_LuaState::Dict, "ipetype_dict", "dict"},
    {IPE_LuaState::List, "ipetype_list", "list"},       {IPE_LuaState::Tuple, "ipetype_tuple", "tuple"},
    {IPE_LuaState::Keywords, "ipetype_kwargs", "dict"}, {IPE_LuaState::Function, "ipetype_function", "code"},
    {IPE_LuaState::Class, "ipetype_class", "class"},
};

// A table that holds `__ipetype` alone.
void pushKind(lua_State* L, const char* kind) {
    lua_createtable(L, 0, 1);
    lua_pushstring(L, kind);
    lua_setfield(L, -2, "__ipetype");
}

void makeMark(IPE_LuaState& state, lua_State* L, const MarkRow& row) {
    luaL_newmetatable(L, row.registryName);
    lua_pushstring(L, row.kind);
    lua_setfield(L, -2, "__ipetype");
    pushKind(L, row.kind);
    lua_setfield(L, -2, "__index");
    // What getmetatable shows in its place: a finalizer put into the true one would run unwatched.
    pushKind(L, row.kind);
    lua_setfield(L, -2, "__metatable");
    state.markAddresses[row.mark] = lua_topointer(L, -1);
    state.marks[row.mark] = luaL_ref(L, LUA_REGISTRYINDEX);
}

void makeObjectMark(IPE_LuaState& state, lua_State* L, IPE_LuaState::Mark mark) {
    static const luaL_Reg functions[] = {{"__call", callHeld},
                                         {"__gc", release},
                                         {"__eq", sameObject},
                                         {"__tostring", objectText},
                                         {nullptr, nullptr}};
    lua_rawgeti(L, LUA_REGISTRYINDEX, state.marks[mark]);
    luaL_setfuncs(L, functions, 0);
    if (mark == IPE_LuaState::Class) {
        lua_pushcfunction(L, getAttribute);
        lua_setfield(L, -2, "__index");
        lua_pushcfunction(L, setAttribute);
        lua_setfield(L, -2, "__newindex");
    }
    lua_pop(L, 1);
}

}  // namespace

void IPE_OpenLuaBridge(IPE_LuaState& state, lua_State* L) {
    // Makes the head of the registry's free list, so that a destructor that gives a reference back never
    // needs memory.
    lua_pushboolean(L, 1);
    luaL_unref(L, LUA_REGISTRYINDEX, luaL_ref(L, LUA_REGISTRYINDEX));
    for (const MarkRow& row : Marks) makeMark(state, L, row);
    makeObjectMark(state, L, IPE_LuaState::Function);
    makeObjectMark(state, L, IPE_LuaState::Class);
    lua_newtable(L);
    lua_rawgeti(L, LUA_REGISTRYINDEX, state.marks[IPE_LuaState::None]);
    lua_setmetatable(L, -2);
    state.noneValue = luaL_ref(L, LUA_REGISTRYINDEX);
    lua_pushcfunction(L, kwargs);
    lua_setglobal(L, "kwargs");
    lua_pushcfunction(L, ipesplit);
    lua_setglobal(L, "ipesplit");
}

void IPE_PushLuaObject(IPE_LuaState& state, lua_State* L, const IPE_Object& value) {
    if (auto* function = value.tryAs<IPE_LuaFunction>(); function && function->pushIn(state, L)) return;
    IPE_Object held = value;
    auto* adapter = value.tryAs<IPE_CallAdapter>();
    if (adapter && adapter->target() == &state.owner()) held = withCount(*adapter, false);
    auto mark = adapter || value.is<IPE_CodeType>() ? IPE_LuaState::Function : IPE_LuaState::Class;
    auto* box = new (lua_newuserdata(L, sizeof(Box))) Box;
    box->isOwner = value.counted() == &state.owner();
    if (!box->isOwner) box->held = std::move(held);
    lua_rawgeti(L, LUA_REGISTRYINDEX, state.marks[mark]);
    lua_setmetatable(L, -2);
}

IPE_Object IPE_LuaHeldObject(const IPE_LuaState& state, lua_State* L, int index) {
    Box* box = boxAt(state, L, index);
    if (!box) return {};
    if (box->isOwner) return IPE_Object(&state.owner());
    auto* adapter = box->held.tryAs<IPE_CallAdapter>();
    return adapter && !adapter->owned() ? withCount(*adapter, true) : box->held;
}
