// IPE_LuaState: the engine behind an IPE_Lua, and the border between Lua's errors and the exceptions of the
// runtime.
//
// Every use of the engine stands inside run(), where a Lua error may be raised at any time and unwinds C++
// destructors; functions that Lua calls are bodies of callback(), which no exception of the runtime leaves.
// SystemExit cannot be caught by Lua code: once raised, it is raised again at each step until the outermost
// run() has ended.
//
// A state belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <exception>
#include <lua.hpp>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

#include "runtime/xpk_exception.h"

class IPE_Lua;

// A text that is being run, for the line that an error shows. Lives on the stack of its run.
struct IPE_LuaChunk {
    std::string_view name, text;
    const IPE_LuaChunk* outer = nullptr;
};

class IPE_LuaState {
  public:
    // What a table or userdata is marked as. The metatables lie in the registry under "ipetype_none" and so
    // on; the field `__ipetype` of each names the kind.
    enum Mark { None, Dict, List, Tuple, Keywords, Function, Class, MarkCount, Unmarked = MarkCount };

    // `limit` bounds the memory in bytes. XPK_MemoryException when the engine cannot be made.
    IPE_LuaState(IPE_Lua& owner, size_t limit);
    ~IPE_LuaState();
    IPE_LuaState(const IPE_LuaState&) = delete;
    IPE_LuaState& operator=(const IPE_LuaState&) = delete;

    static IPE_LuaState& of(lua_State* L) noexcept;
    IPE_Lua& owner() const noexcept { return owner_; }
    lua_State* main() const noexcept { return main_; }
    // The coroutine that runs at this moment, or the main one.
    lua_State* current() const noexcept { return current_; }
    // A SystemExit is on its way out.
    bool isLeaving() const noexcept { return exit_ != nullptr; }

    // Calls body(lua_State*) protected, with an empty stack. A Lua error is raised as LuaInterpreterException
    // "$message [$lualine: $luacode]"; an exception of the body leaves as it is.
    template <class Body>
    void run(Body&& body) {
        using Plain = std::remove_reference_t<Body>;
        runProtected([](lua_State* L, void* context) { (*static_cast<Plain*>(context))(L); },
                     const_cast<void*>(static_cast<const void*>(&body)));
    }
    // The same while `chunk` is the text that runs.
    template <class Body>
    void runChunk(IPE_LuaChunk& chunk, Body&& body) {
        ChunkScope scope(*this, chunk);
        run(std::forward<Body>(body));
    }
    // Inside run(): pushes the text as a function. A syntax fault is a Lua error. Never byte code.
    static void load(lua_State* L, const IPE_LuaChunk& chunk);

    // The body of a function that Lua calls: body(state) gives the number of results. An exception becomes a
    // Lua error with its text, behind the position of the calling line.
    template <class Body>
    static int callback(lua_State* L, Body&& body) {
        IPE_LuaState& state = of(L);
        std::string text;
        {
            Inside scope(state, L);
            try {
                if (!state.exit_) return body(state);
                text = "SystemExit";
            } catch (const XPK_Exception& exception) {
                text = state.noteFailure(exception);
            } catch (const std::bad_alloc&) {
                text = "not enough memory";
            }
        }
        return raiseText(L, text);
    }

    // Registry references, valid for the state's life: the metatables, and the one table that stands for the
    // script's None.
    int marks[MarkCount] = {};
    const void* markAddresses[MarkCount] = {};
    int noneValue = LUA_NOREF;

  private:
    struct Frame;
    struct Inside {
        Inside(IPE_LuaState& state, lua_State* L) : state_(state), outer_(state.current_) {
            state_.current_ = L;
        }
        ~Inside() { state_.current_ = outer_; }
        IPE_LuaState& state_;
        lua_State* outer_;
    };
    struct ChunkScope {
        ChunkScope(IPE_LuaState& state, IPE_LuaChunk& chunk) : state_(state) {
            chunk.outer = state_.chunk_;
            state_.chunk_ = &chunk;
        }
        ~ChunkScope() { state_.chunk_ = state_.chunk_->outer; }
        IPE_LuaState& state_;
    };

    static void* allocate(void* data, void* block, size_t oldSize, size_t newSize) noexcept;
    static int enter(lua_State* L);
    static void watch(lua_State* L, lua_Debug* event);
    static int raiseText(lua_State* L, std::string_view text);
    void runProtected(void (*body)(lua_State*, void*), void* context);
    void finish(lua_State* L, int status, const std::exception_ptr& failure);
    std::string noteFailure(const XPK_Exception& exception);
    static std::string describe(lua_State* L);
    [[noreturn]] void raiseError(std::string_view text);
    std::string lineOf(std::string_view source, int64_t line) const;
    bool isChunkName(std::string_view source) const;

    IPE_Lua& owner_;
    const size_t limit_;
    size_t used_ = 0;
    lua_State* main_ = nullptr;
    lua_State* current_ = nullptr;
    const IPE_LuaChunk* chunk_ = nullptr;
    std::exception_ptr exit_;  // a SystemExit on its way out
    std::string causeText_, causeType_;
};

// The name of a text that has none: the same for equal texts.
std::string IPE_LuaChunkName(std::string_view text);
// Keeps a text in the thread variable `tls_luacode`; without a passport on this thread nothing happens.
void IPE_KeepLuaCode(std::string_view name, std::string_view text);
