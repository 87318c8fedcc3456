// IPE_Lua: a Lua state as a script object, and IPE_LuaFunction, a function that lives in one. The module
// `ipe.lua`.
//
// Native code uses the same object: schema scripts, filters and row walks run in it. Values cross by copy,
// except callables and native objects, which cross as references in both directions (docs/scripting.md tells
// which becomes what). A Lua error unwinds C++ destructors and arrives as LuaInterpreterException "$message
// [$lualine: $luacode]"; a script exception inside a callback reaches Lua as an error with its text.
//
// A state belongs to one thread at a time. Its memory is limited (MemoryLimit), and a running chunk ends with
// SystemExit soon after the server stops, whatever the chunk catches.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ipe/object/ipe_moduletype.h"

struct lua_State;
class IPE_LuaState;

class IPE_Lua final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    static constexpr size_t MemoryLimit = size_t(1) << 30;  // bytes of one state

    // With the standard libraries, those that every state has, and the globals `kwargs`, `ipesplit`, `ipe`.
    // An object lives in a handle: make it with IPE_NewLua().
    IPE_Lua();
    ~IPE_Lua() override;

    // --- For native callers. `chunkName` is what error positions show.
    // Loads a text and runs it. No result gives None, one the value, several a tuple.
    IPE_Object execute(std::string_view text, std::string_view chunkName = {});
    // The same, with the text kept for error messages in the thread variable `tls_luacode` under the chunk's
    // name; results are dropped.
    void compile(std::string_view text, std::string_view chunkName = {});
    // Calls a global function. RuntimeError "Could not locate a Lua function named '$func'".
    IPE_Object call(std::string_view name, const IPE_Arguments& arguments);
    template <class... Values>
    IPE_Object callWith(std::string_view name, const Values&... values) {
        const IPE_Object items[sizeof...(values) + 1] = {values..., IPE_Object()};
        return call(name, IPE_Arguments(items, static_cast<int>(sizeof...(values))));
    }
    // None for a global that is nil or absent; a function as an IPE_LuaFunction, which keeps this state.
    IPE_Object getGlobal(std::string_view name);
    void setGlobal(std::string_view name, const IPE_Object& value);
    // True when the global is neither absent, nil nor the script's None.
    bool hasGlobal(std::string_view name);

    // --- For scripts: execute, compile, call, version, getglobal, setglobal; indexing is getglobal and
    // setglobal.
    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    IPE_Object __getitem__(const IPE_Object& key) override;
    void __setitem__(const IPE_Object& key, const IPE_Object& value) override;

    // The coroutine that runs, or the main one.
    lua_State* state() const noexcept;

  private:
    friend class IPE_LuaFunction;
    std::unique_ptr<IPE_LuaState> state_;
};

// A Lua function as a script callable. Keeps its state alive; belongs to the state's thread.
class IPE_LuaFunction final : public IPE_Type {
  public:
    static const char TypeName[];
    // `reference` is one of the state's registry; the object owns it.
    IPE_LuaFunction(const IPE_Object& lua, int reference);
    ~IPE_LuaFunction() override;
    IPE_Object __call__(const IPE_Arguments& arguments) override;
    // All results in order, without the tuple; for callers that run once a row.
    void callAll(const IPE_Arguments& arguments, std::vector<IPE_Object>& results);
    // Pushes the function when it lives in `state`; false when it does not.
    bool pushIn(const IPE_LuaState& state, lua_State* L) const;

  private:
    template <class Take>
    void run(const IPE_Arguments& arguments, Take&& take);
    IPE_Object lua_;
    int reference_;
};

// The state that a value is, or null for any other value and for a null handle.
IPE_Lua* IPE_LuaOf(const IPE_Object& value) noexcept;
// A new, bound object.
IPE_Object IPE_NewLua();
