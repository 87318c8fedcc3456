// Values across the border between scripts and Lua.
//
// One writer or reader serves one crossing: all arguments of a call, all its results. Within a crossing a
// container that is met twice becomes one container on the other side, so cycles end. More than 500 nested
// containers raise RuntimeError "Marshalling error. Have recursed too many times. Aborting.". Both are used
// inside IPE_LuaState::run() or callback(); they raise Lua errors when the engine lacks memory.
#pragma once

#include <exception>
#include <unordered_map>

#include "ipe/engines/ipe_luastate.h"
#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"

inline constexpr int IPE_LuaDepthLimit = 500;

// Script values to Lua.
class IPE_LuaWriter {
  public:
    // Pushes one slot that the writer needs while it lives; what push() adds stands above it.
    IPE_LuaWriter(IPE_LuaState& state, lua_State* L);
    // Pushes one value. Null is nil; None, dicts, lists and tuples are marked tables; a function that lives
    // in this state is itself; callables and all other objects are userdata that hold them.
    void push(const IPE_Object& value);
    void pushAll(const IPE_Arguments& arguments);

  private:
    void pushContainer(const IPE_Object& value);
    void fillDict(const IPE_Object& value);
    void fillSequence(const IPE_Object& value);
    bool pushKnown(const EPA_Counted* address);
    void remember(const EPA_Counted* address, int index);

    IPE_LuaState& state_;
    lua_State* L_;
    const int slot_;  // of the table from address to table, nil until there is a second container
    bool guarded_ = false;
    int depth_ = 0;
    const EPA_Counted* first_ = nullptr;  // the only container before there is a guard
    int firstIndex_ = 0;
};

// Lua values to scripts.
class IPE_LuaReader {
  public:
    IPE_LuaReader(IPE_LuaState& state, lua_State* L)
        : state_(state), L_(L), failures_(std::uncaught_exceptions()) {}
    // On the way out of a failure, empties what was made: a half-read table that holds itself would stay. So
    // a reader ends before anybody else gets its values.
    ~IPE_LuaReader();
    IPE_LuaReader(const IPE_LuaReader&) = delete;
    IPE_LuaReader& operator=(const IPE_LuaReader&) = delete;
    // The value at an absolute index; None for nil and beyond the top. What has no counterpart raises
    // RuntimeError "Could not coerce Lua return value to IPE type!".
    IPE_Object read(int index);
    // The values from `first` to the top: None for none, the value of one, a tuple of several.
    IPE_Object readResults(int first);
    // Enters the pairs of the table at an absolute index. Other keys than texts and numbers raise
    // RuntimeError "Cannot marshal Lua table: Key for element is not a string or a number".
    void readPairs(int index, const IPE_Object& dict, bool anyKey);

  private:
    IPE_Object readTable(int index);
    IPE_Object* find(const void* address);
    void remember(const void* address, const IPE_Object& value);

    IPE_LuaState& state_;
    lua_State* L_;
    const int failures_;
    int depth_ = 0;
    // The first table stands aside: most crossings hold one or none.
    const void* firstAddress_ = nullptr;
    IPE_Object first_;
    std::unordered_map<const void*, IPE_Object> others_;
};

// What the value at an index is marked as, by its metatable.
IPE_LuaState::Mark IPE_LuaMarkOf(const IPE_LuaState& state, lua_State* L, int index);
