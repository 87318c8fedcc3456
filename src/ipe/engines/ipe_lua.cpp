// The Lua bridge: the object, the function, the module.
//
// The object is thin: the engine and its errors are in IPE_LuaState, values in the writer and reader,
// callables in ipe_luacallback. Every operation is one protected run. Results are taken out of the engine
// inside that run, so nothing is left on its stack and a value that cannot cross raises like any other.
#include "ipe/engines/ipe_lua.h"

#include "ipe/engines/ipe_luacallback.h"
#include "ipe/engines/ipe_lualibraries.h"
#include "ipe/engines/ipe_luamarshal.h"
#include "ipe/engines/ipe_luastate.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

const char IPE_Lua::TypeName[] = "IPE_Lua";
const char IPE_LuaFunction::TypeName[] = "LuaFunction";

namespace {

void pushGlobal(lua_State* L, std::string_view name) {
    lua_pushglobaltable(L);
    lua_pushlstring(L, name.data(), name.size());
    lua_gettable(L, -2);
    lua_remove(L, -2);
}

// A script callable in a global is as good as a Lua function.
bool isCallable(lua_State* L, int index) {
    if (lua_isfunction(L, index)) return true;
    if (!luaL_getmetafield(L, index, "__call")) return false;
    lua_pop(L, 1);
    return true;
}

}  // namespace

IPE_Lua::IPE_Lua() : IPE_ModuleType(TypeName), state_(std::make_unique<IPE_LuaState>(*this, MemoryLimit)) {
    state_->run([this](lua_State* L) {
        IPE_OpenLuaBridge(*state_, L);
        IPE_OpenLuaLibraries(L);
    });
}

IPE_Lua::~IPE_Lua() = default;

lua_State* IPE_Lua::state() const noexcept { return state_->current(); }

IPE_Object IPE_Lua::execute(std::string_view text, std::string_view chunkName) {
    std::string name = chunkName.empty() ? IPE_LuaChunkName(text) : std::string(chunkName);
    IPE_LuaChunk chunk{name, text};
    IPE_Object result;
    state_->runChunk(chunk, [&](lua_State* L) {
        IPE_LuaState::load(L, chunk);
        lua_call(L, 0, LUA_MULTRET);
        result = IPE_LuaReader(*state_, L).readResults(1);
    });
    return result;
}

void IPE_Lua::compile(std::string_view text, std::string_view chunkName) {
    std::string name = chunkName.empty() ? IPE_LuaChunkName(text) : std::string(chunkName);
    IPE_KeepLuaCode(name, text);
    IPE_LuaChunk chunk{name, text};
    state_->runChunk(chunk, [&](lua_State* L) {
        IPE_LuaState::load(L, chunk);
        lua_call(L, 0, 0);
    });
}

IPE_Object IPE_Lua::call(std::string_view name, const IPE_Arguments& arguments) {
    IPE_Object result;
    state_->run([&](lua_State* L) {
        IPE_LuaWriter writer(*state_, L);
        int base = lua_gettop(L);
        pushGlobal(L, name);
        if (!isCallable(L, -1))
            XPK_Raise("RuntimeError", "Could not locate a Lua function named '$func'")
                .string("func", name)
                .raise();
        writer.pushAll(arguments);
        lua_call(L, arguments.size(), LUA_MULTRET);
        result = IPE_LuaReader(*state_, L).readResults(base + 1);
    });
    return result;
}

IPE_Object IPE_Lua::getGlobal(std::string_view name) {
    IPE_Object result;
    state_->run([&](lua_State* L) {
        pushGlobal(L, name);
        result = IPE_LuaReader(*state_, L).read(1);
    });
    return result;
}

void IPE_Lua::setGlobal(std::string_view name, const IPE_Object& value) {
    state_->run([&](lua_State* L) {
        lua_pushglobaltable(L);
        lua_pushlstring(L, name.data(), name.size());
        IPE_LuaWriter writer(*state_, L);
        writer.push(value);
        lua_remove(L, -2);
        lua_settable(L, 1);
    });
}

bool IPE_Lua::hasGlobal(std::string_view name) {
    bool result = false;
    state_->run([&](lua_State* L) {
        pushGlobal(L, name);
        result =
            !lua_isnil(L, 1) && !(lua_istable(L, 1) && IPE_LuaMarkOf(*state_, L, 1) == IPE_LuaState::None);
    });
    return result;
}

// --- For scripts

enum { MethodExecute, MethodCompile, MethodCall, MethodVersion, MethodGetglobal, MethodSetglobal };

void IPE_Lua::__bind__() {
    bindMethods({{"execute", MethodExecute},
                 {"compile", MethodCompile},
                 {"call", MethodCall},
                 {"version", MethodVersion},
                 {"getglobal", MethodGetglobal},
                 {"setglobal", MethodSetglobal}});
}

IPE_Object IPE_Lua::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case MethodExecute: arguments.check("s", "execute"); return execute(arguments.text(0));
        case MethodCompile:
            arguments.check("s", "compile");
            compile(arguments.text(0));
            return IPE_Int(0);
        case MethodCall: arguments.check("si|", "call"); return call(arguments.text(0), arguments.from(2));
        case MethodVersion: arguments.check("", "version"); return IPE_String(LUA_VERSION);
        case MethodGetglobal: arguments.check("s", "getglobal"); return getGlobal(arguments.text(0));
        case MethodSetglobal:
            arguments.check("so", "setglobal");
            setGlobal(arguments.text(0), arguments[1]);
            return {};
    }
    return {};
}

IPE_Object IPE_Lua::__getitem__(const IPE_Object& key) { return getGlobal(PyString_SafeCast(key)->view()); }

void IPE_Lua::__setitem__(const IPE_Object& key, const IPE_Object& value) {
    setGlobal(PyString_SafeCast(key)->view(), value);
}

// --- Functions

IPE_LuaFunction::IPE_LuaFunction(const IPE_Object& lua, int reference)
    : IPE_Type(TypeName), lua_(lua), reference_(reference) {}

IPE_LuaFunction::~IPE_LuaFunction() {
    lua_State* L = lua_.as<IPE_Lua>()->state();
    if (lua_checkstack(L, 2)) luaL_unref(L, LUA_REGISTRYINDEX, reference_);
}

IPE_Object IPE_LuaFunction::__call__(const IPE_Arguments& arguments) {
    IPE_Object result;
    run(arguments, [&](IPE_LuaReader& reader, int first, int) { result = reader.readResults(first); });
    return result;
}

void IPE_LuaFunction::callAll(const IPE_Arguments& arguments, std::vector<IPE_Object>& results) {
    results.clear();
    run(arguments, [&](IPE_LuaReader& reader, int first, int last) {
        for (int i = first; i <= last; ++i) results.push_back(reader.read(i));
    });
}

template <class Take>
void IPE_LuaFunction::run(const IPE_Arguments& arguments, Take&& take) {
    IPE_LuaState& state = *lua_.as<IPE_Lua>()->state_;
    state.run([&](lua_State* L) {
        IPE_LuaWriter writer(state, L);
        int base = lua_gettop(L);
        lua_rawgeti(L, LUA_REGISTRYINDEX, reference_);
        writer.pushAll(arguments);
        lua_call(L, arguments.size(), LUA_MULTRET);
        IPE_LuaReader reader(state, L);
        take(reader, base + 1, lua_gettop(L));
    });
}

bool IPE_LuaFunction::pushIn(const IPE_LuaState& state, lua_State* L) const {
    if (lua_.as<IPE_Lua>()->state_.get() != &state) return false;
    lua_rawgeti(L, LUA_REGISTRYINDEX, reference_);
    return true;
}

IPE_Lua* IPE_LuaOf(const IPE_Object& value) noexcept { return value.tryAs<IPE_Lua>(); }

IPE_Object IPE_NewLua() {
    IPE_Object object = IPE_New<IPE_Lua>();
    object->__bind__();
    return object;
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("", "create");
    return IPE_NewLua();
}

const IPE_NativeModule registered("ipe.lua", "create", create, "IPE_Globals");

}  // namespace
