// Copies of plain data, references to everything else.
//
// A crossing happens once for each row of a walk, so a flat value pays for nothing but itself: the guard
// against cycles is made when a second container turns up.
//
// No Lua code runs meanwhile. Script code might, when a collection drops the last handle to a script object;
// so containers are walked by position, each element held while it is written, and their size is asked
// again at every step.
#include "ipe/engines/ipe_luamarshal.h"

#include <cmath>
#include <cstring>

#include "ipe/engines/ipe_lua.h"
#include "ipe/engines/ipe_luacallback.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_wholetext.h"

namespace {

constexpr const char* NoRoom = "cannot marshal value";

void requireDepth(int depth) {
    if (depth > IPE_LuaDepthLimit)
        XPK_Raise("RuntimeError", "Marshalling error. Have recursed too many times. Aborting.").raise();
}

[[noreturn]] void cannotCoerce() {
    XPK_Raise("RuntimeError", "Could not coerce Lua return value to IPE type!").raise();
}

IPE_Object numberOf(double value) {
    constexpr double Limit = 9223372036854775808.0;
    if (value >= -Limit && value < Limit && value == std::floor(value))
        return IPE_Int(static_cast<int64_t>(value));
    return IPE_Float(value);
}

IPE_Object textOf(lua_State* L, int index) {
    size_t size = 0;
    const char* text = lua_tolstring(L, index, &size);
    return IPE_WholeText({text, size});
}

IPE_LuaState::Mark markNamed(const char* name) {
    constexpr const char* Names[] = {"none", "dict", "list", "tuple"};
    for (int i = 0; name && i < 4; ++i)
        if (strcmp(name, Names[i]) == 0) return static_cast<IPE_LuaState::Mark>(i);
    return IPE_LuaState::Unmarked;
}

}  // namespace

IPE_LuaState::Mark IPE_LuaMarkOf(const IPE_LuaState& state, lua_State* L, int index) {
    if (!lua_getmetatable(L, index)) return IPE_LuaState::Unmarked;
    const void* address = lua_topointer(L, -1);
    auto mark = IPE_LuaState::Unmarked;
    for (int i = 0; i < IPE_LuaState::MarkCount && mark == IPE_LuaState::Unmarked; ++i)
        if (address == state.markAddresses[i]) mark = static_cast<IPE_LuaState::Mark>(i);
    // Lua code may mark tables with a metatable of its own.
    if (mark == IPE_LuaState::Unmarked && lua_istable(L, index < 0 ? index - 1 : index)) {
        lua_pushliteral(L, "__ipetype");
        lua_rawget(L, -2);
        if (lua_type(L, -1) == LUA_TSTRING) mark = markNamed(lua_tostring(L, -1));
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
    return mark;
}

// --- To Lua

IPE_LuaWriter::IPE_LuaWriter(IPE_LuaState& state, lua_State* L)
    : state_(state), L_(L), slot_(lua_gettop(L) + 1) {
    luaL_checkstack(L, 1, NoRoom);
    lua_pushnil(L);
}

void IPE_LuaWriter::pushAll(const IPE_Arguments& arguments) {
    luaL_checkstack(L_, arguments.size(), NoRoom);
    for (const IPE_Object& argument : arguments) push(argument);
}

void IPE_LuaWriter::push(const IPE_Object& value) {
    luaL_checkstack(L_, 6, NoRoom);
    if (!value)
        lua_pushnil(L_);
    else if (auto* string = value.tryAs<IPE_StringType>())
        lua_pushlstring(L_, string->text(), string->bytes());
    else if (auto* integer = value.tryAs<IPE_IntType>())
        lua_pushnumber(L_, static_cast<double>(integer->value));
    else if (auto* number = value.tryAs<IPE_FloatType>())
        lua_pushnumber(L_, number->value);
    else if (value == IPE_None())
        lua_rawgeti(L_, LUA_REGISTRYINDEX, state_.noneValue);
    else if (value.is<IPE_TrueType>() || value.is<IPE_FalseType>())
        lua_pushboolean(L_, value.is<IPE_TrueType>());
    else if (value.is<IPE_DictType>() || value.is<IPE_ListType>() || value.is<IPE_TupleType>())
        pushContainer(value);
    else
        IPE_PushLuaObject(state_, L_, value);
}

bool IPE_LuaWriter::pushKnown(const EPA_Counted* address) {
    if (!guarded_) {
        if (!first_) return false;
        lua_newtable(L_);
        lua_replace(L_, slot_);
        guarded_ = true;
        remember(first_, firstIndex_);
    }
    lua_rawgetp(L_, slot_, address);
    if (!lua_isnil(L_, -1)) return true;
    lua_pop(L_, 1);
    return false;
}

void IPE_LuaWriter::remember(const EPA_Counted* address, int index) {
    if (guarded_) {
        lua_pushvalue(L_, index);
        lua_rawsetp(L_, slot_, address);
    } else {
        first_ = address;
        firstIndex_ = index;
    }
}

void IPE_LuaWriter::pushContainer(const IPE_Object& value) {
    if (pushKnown(value.counted())) return;
    requireDepth(++depth_);
    bool dict = value.is<IPE_DictType>();
    int32_t count = value->__len__();
    lua_createtable(L_, dict ? 0 : count, dict ? count : 0);
    remember(value.counted(), lua_gettop(L_));
    if (dict)
        fillDict(value);
    else
        fillSequence(value);
    auto mark = dict                       ? IPE_LuaState::Dict
                : value.is<IPE_ListType>() ? IPE_LuaState::List
                                           : IPE_LuaState::Tuple;
    lua_rawgeti(L_, LUA_REGISTRYINDEX, state_.marks[mark]);
    lua_setmetatable(L_, -2);
    --depth_;
}

void IPE_LuaWriter::fillDict(const IPE_Object& value) {
    auto* dict = value.as<IPE_DictType>();
    for (uint32_t i = 0; i < dict->slots(); ++i) {
        IPE_Object key(dict->keyAt(i));
        if (!key) continue;
        IPE_Object item(dict->valueAt(i));
        push(key);
        push(item);
        lua_rawset(L_, -3);
    }
}

void IPE_LuaWriter::fillSequence(const IPE_Object& value) {
    auto* sequence = value.as<IPE_SequenceType>();
    for (int32_t i = 0; i < sequence->count(); ++i) {
        IPE_Object item = sequence->at(i);
        push(item);
        lua_rawseti(L_, -2, i + 1);
    }
}

// --- From Lua

IPE_LuaReader::~IPE_LuaReader() {
    if (std::uncaught_exceptions() <= failures_) [[likely]]
        return;
    auto drop = [](const IPE_Object& value) {
        if (auto* dict = value.tryAs<IPE_DictType>())
            dict->recycle();
        else if (value)
            value.as<IPE_SequenceType>()->items().clear();
    };
    drop(first_);
    for (auto& [address, value] : others_) drop(value);
}

IPE_Object IPE_LuaReader::read(int index) {
    switch (lua_type(L_, index)) {
        case LUA_TNONE:
        case LUA_TNIL: return IPE_None();
        case LUA_TBOOLEAN: return IPE_Bool(lua_toboolean(L_, index));
        case LUA_TNUMBER: return numberOf(lua_tonumber(L_, index));
        case LUA_TSTRING: return textOf(L_, index);
        case LUA_TTABLE: return readTable(index);
        case LUA_TFUNCTION: {
            luaL_checkstack(L_, 1, NoRoom);
            lua_pushvalue(L_, index);
            return IPE_New<IPE_LuaFunction>(IPE_Object(&state_.owner()), luaL_ref(L_, LUA_REGISTRYINDEX));
        }
        case LUA_TUSERDATA:
            if (IPE_Object held = IPE_LuaHeldObject(state_, L_, index)) return held;
    }
    cannotCoerce();
}

IPE_Object IPE_LuaReader::readResults(int first) {
    int count = lua_gettop(L_) - first + 1;
    if (count <= 1) return read(first);
    IPE_Object tuple = IPE_NewTuple();
    for (int i = 0; i < count; ++i) tuple.as<IPE_TupleType>()->append(read(first + i));
    return tuple;
}

IPE_Object* IPE_LuaReader::find(const void* address) {
    if (address == firstAddress_) return &first_;
    if (others_.empty()) return nullptr;
    auto found = others_.find(address);
    return found == others_.end() ? nullptr : &found->second;
}

void IPE_LuaReader::remember(const void* address, const IPE_Object& value) {
    if (!firstAddress_) {
        firstAddress_ = address;
        first_ = value;
    } else {
        others_.emplace(address, value);
    }
}

IPE_Object IPE_LuaReader::readTable(int index) {
    const void* address = lua_topointer(L_, index);
    if (IPE_Object* known = find(address)) return *known;
    luaL_checkstack(L_, 6, NoRoom);
    IPE_LuaState::Mark mark = IPE_LuaMarkOf(state_, L_, index);
    if (mark == IPE_LuaState::None) return IPE_None();
    requireDepth(++depth_);
    IPE_Object result;
    if (mark == IPE_LuaState::List || mark == IPE_LuaState::Tuple) {
        result = mark == IPE_LuaState::List ? IPE_NewList() : IPE_NewTuple();
        remember(address, result);
        auto* sequence = result.as<IPE_SequenceType>();
        size_t count = lua_rawlen(L_, index);
        sequence->reserve(count);
        for (size_t i = 1; i <= count; ++i) {
            lua_rawgeti(L_, index, static_cast<int>(i));
            sequence->append(read(lua_gettop(L_)));
            lua_pop(L_, 1);
        }
    } else {
        result = IPE_NewDict();
        remember(address, result);
        readPairs(index, result, mark == IPE_LuaState::Dict);
    }
    --depth_;
    return result;
}

void IPE_LuaReader::readPairs(int index, const IPE_Object& dict, bool anyKey) {
    auto* target = dict.as<IPE_DictType>();
    lua_pushnil(L_);
    while (lua_next(L_, index)) {
        int value = lua_gettop(L_), key = value - 1;
        int type = lua_type(L_, key);
        if (!anyKey && type != LUA_TSTRING && type != LUA_TNUMBER)
            XPK_Raise("RuntimeError", "Cannot marshal Lua table: Key for element is not a string or a number")
                .raise();
        IPE_Object name = read(key);
        target->set(name, read(value));
        lua_pop(L_, 1);
    }
}
