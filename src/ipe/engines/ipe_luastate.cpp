// The engine, its limits, and its errors.
//
// Lua's library is the C++ build: an error is a C++ exception of its own that unwinds destructors, and its
// protected call swallows every exception that is none of its own. So the two families must never meet. Here
// they are kept apart: enter(), the function below every protected call, and callback(), the frame of every
// function that Lua calls, catch what the runtime throws by its type and let Lua's errors pass.
//
// A count hook looks at the server's running flag every few thousand instructions. The error that it raises
// can be caught by pcall, so from then on it comes again at every single instruction: each protected call of
// the chunk ends, then its caller, until nothing is left. That works because no Lua code runs where hooks do
// not: finalizers, debug.sethook and message handlers of the hook's own errors are kept out
// (ipe_lualibraries.cpp).
#include "ipe/engines/ipe_luastate.h"

#include <cstdlib>
#include <functional>

#include "ipe/values/ipe_dicttype.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_threadpassport.h"
#include "runtime/xpk_stack.h"

namespace {

// What a run may take of the native stack: the engine's limit of 200 nested calls, some 10 KB each in its
// text functions, and behind them one call of a linked-in library.
constexpr size_t StackNeed = 3 * 1024 * 1024;
constexpr int WatchInterval = 10'000;  // instructions between two looks at the running flag
// An instruction that asks for so much takes its time, so the next one looks.
constexpr size_t LargeBlock = 1 << 20;
// Texts in `tls_luacode` of one thread, so that generated ones do not pile up in a worker.
constexpr int KeptTexts = 1000;
constexpr std::string_view TextName = "[string \"";
constexpr std::string_view AutomaticName = "script ";

// Where a message names its place as "source:line: ": false when it does not.
struct Position {
    std::string_view source, message;
    int64_t line = 0;
};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool splitPosition(std::string_view text, size_t from, Position& position) {
    for (size_t colon = text.find(':', from); colon != std::string_view::npos;
         colon = text.find(':', colon + 1)) {
        size_t end = colon + 1;
        int64_t line = 0;
        while (end < text.size() && end < colon + 10 && isDigit(text[end]))
            line = line * 10 + (text[end++] - '0');
        if (end == colon + 1 || text.substr(end, 2) != ": ") continue;
        position = {text.substr(0, colon), text.substr(end + 2), line};
        return true;
    }
    return false;
}

std::string_view lineAt(std::string_view text, int64_t line) {
    while (--line > 0) {
        size_t end = text.find('\n');
        if (end == std::string_view::npos) return {};
        text.remove_prefix(end + 1);
    }
    text = text.substr(0, text.find('\n'));
    if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    return text;
}

// Lua cuts the names that it shows.
bool isShown(std::string_view shown, std::string_view name) {
    return shown == name.substr(0, LUA_IDSIZE - 1);
}

IPE_DictType* keptTexts() {
    XPK_ThreadState* thread = XPK_CurrentThread();
    if (!thread || !thread->passport) return nullptr;
    auto* texts = thread->passport->tlsLuaCode().tryAs<IPE_DictType>();
    return texts && !texts->isCleared() ? texts : nullptr;
}

// The text kept under a name as Lua shows it; null when there is none.
IPE_Object keptText(std::string_view shown) {
    IPE_DictType* texts = keptTexts();
    if (!texts) return {};
    if (IPE_Type* text = texts->findText(shown)) return IPE_Object(text);
    if (shown.size() < LUA_IDSIZE - 1) return {};
    for (uint32_t i = 0; i < texts->slots(); ++i)
        if (IPE_Type* key = texts->keyAt(i); key && isShown(shown, key->c_str()))
            return IPE_Object(texts->valueAt(i));
    return {};
}

int describeValue(lua_State* L) {
    if (luaL_getmetafield(L, 1, "__tostring") || lua_isnumber(L, 1))
        luaL_tolstring(L, 1, nullptr);
    else
        lua_pushfstring(L, "(error object is a %s value)", luaL_typename(L, 1));
    return 1;
}

}  // namespace

struct IPE_LuaState::Frame {
    void (*body)(lua_State*, void*);
    void* context;
    std::exception_ptr failure;
};

IPE_LuaState::IPE_LuaState(IPE_Lua& owner, size_t limit) : owner_(owner), limit_(limit) {
    main_ = current_ = lua_newstate(allocate, this);
    if (!main_) throw XPK_MemoryException(__FILE__, __LINE__);
    lua_sethook(main_, watch, LUA_MASKCOUNT, WatchInterval);
}

IPE_LuaState::~IPE_LuaState() { lua_close(main_); }

IPE_LuaState& IPE_LuaState::of(lua_State* L) noexcept {
    void* data = nullptr;
    lua_getallocf(L, &data);
    return *static_cast<IPE_LuaState*>(data);
}

// A new block comes with a kind of object in place of its old size.
void* IPE_LuaState::allocate(void* data, void* block, size_t oldSize, size_t newSize) noexcept {
    auto* state = static_cast<IPE_LuaState*>(data);
    if (!block) oldSize = 0;
    if (newSize > oldSize && newSize >= LargeBlock && state->current_ && !XPK_IsRunning())
        lua_sethook(state->current_, watch, LUA_MASKCOUNT, 1);
    if (newSize == 0) {
        free(block);
        state->used_ -= oldSize;
        return nullptr;
    }
    if (newSize > oldSize && newSize - oldSize > state->limit_ - state->used_) return nullptr;
    void* result = realloc(block, newSize);
    if (result) state->used_ += newSize - oldSize;
    return result;
}

// --- Running

int IPE_LuaState::enter(lua_State* L) {
    auto* frame = static_cast<Frame*>(lua_touserdata(L, 1));
    lua_settop(L, 0);
    try {
        frame->body(L, frame->context);
    } catch (const XPK_Exception&) {
        frame->failure = std::current_exception();
    } catch (const std::bad_alloc&) {
        frame->failure = std::make_exception_ptr(XPK_MemoryException(__FILE__, __LINE__));
    }
    return 0;
}

void IPE_LuaState::runProtected(void (*body)(lua_State*, void*), void* context) {
    XPK_RequireStack(StackNeed);
    lua_State* L = current_;
    if (!lua_checkstack(L, LUA_MINSTACK)) throw XPK_MemoryException(__FILE__, __LINE__);
    Frame frame{body, context, nullptr};
    lua_pushcfunction(L, enter);
    lua_pushlightuserdata(L, &frame);
    int status = lua_pcall(L, 1, 0, 0);
    if (status == LUA_OK && !frame.failure && !exit_) [[likely]]
        return;
    finish(L, status, frame.failure);
}

void IPE_LuaState::finish(lua_State* L, int status, const std::exception_ptr& failure) {
    std::string text;
    if (status != LUA_OK) {
        if (!exit_ && !failure) text = describe(L);
        lua_pop(L, 1);
    }
    if (exit_) {
        lua_sethook(L, watch, LUA_MASKCOUNT, WatchInterval);
        std::rethrow_exception(std::exchange(exit_, nullptr));
    }
    if (failure) std::rethrow_exception(failure);
    raiseError(text);
}

void IPE_LuaState::watch(lua_State* L, lua_Debug*) {
    IPE_LuaState& state = of(L);
    if (!state.exit_) {
        if (XPK_IsRunning()) {
            if (lua_gethookcount(L) != WatchInterval) lua_sethook(L, watch, LUA_MASKCOUNT, WatchInterval);
            return;
        }
        try {
            XPK_Raise("SystemExit", "").raise();
        } catch (const XPK_Exception&) {
            state.exit_ = std::current_exception();
        }
    }
    if (lua_gethookcount(L) != 1) lua_sethook(L, watch, LUA_MASKCOUNT, 1);
    luaL_error(L, "SystemExit");
}

void IPE_LuaState::load(lua_State* L, const IPE_LuaChunk& chunk) {
    std::string name = "=" + std::string(chunk.name);
    if (luaL_loadbufferx(L, chunk.text.data(), chunk.text.size(), name.c_str(), "t") != LUA_OK) lua_error(L);
}

// --- Errors

std::string IPE_LuaState::noteFailure(const XPK_Exception& exception) {
    std::string text = exception.message();
    if (exception.type() == "SystemExit") {
        exit_ = std::current_exception();
        if (text.empty()) text = "SystemExit";
    }
    causeText_ = text;
    causeType_ = exception.type();
    return text;
}

int IPE_LuaState::raiseText(lua_State* L, std::string_view text) {
    luaL_where(L, 1);
    lua_pushlstring(L, text.data(), text.size());
    lua_concat(L, 2);
    return lua_error(L);
}

// The text of the error on top of the stack, which stays there.
std::string IPE_LuaState::describe(lua_State* L) {
    size_t size = 0;
    if (lua_type(L, -1) == LUA_TSTRING) {
        const char* text = lua_tolstring(L, -1, &size);
        return std::string(text, size);
    }
    if (!lua_checkstack(L, LUA_MINSTACK)) return "(error without a text)";
    lua_pushcfunction(L, describeValue);
    lua_pushvalue(L, -2);
    std::string result = "(error without a text)";
    if (lua_pcall(L, 1, 1, 0) == LUA_OK || lua_type(L, -1) == LUA_TSTRING) {
        const char* text = lua_tolstring(L, -1, &size);
        if (text) result.assign(text, size);
    }
    lua_pop(L, 1);
    return result;
}

bool IPE_LuaState::isChunkName(std::string_view source) const {
    for (const IPE_LuaChunk* chunk = chunk_; chunk; chunk = chunk->outer)
        if (isShown(source, chunk->name)) return true;
    return source.starts_with(TextName) || source.starts_with(AutomaticName) || source.ends_with(".lua") ||
           keptText(source);
}

std::string IPE_LuaState::lineOf(std::string_view source, int64_t line) const {
    for (const IPE_LuaChunk* chunk = chunk_; chunk; chunk = chunk->outer)
        if (isShown(source, chunk->name)) return std::string(lineAt(chunk->text, line));
    IPE_Object kept = keptText(source);
    auto* text = kept.tryAs<IPE_StringType>();
    return text ? std::string(lineAt(text->view(), line)) : std::string();
}

void IPE_LuaState::raiseError(std::string_view text) {
    Position position;
    // The name of a text that Lua code loaded itself may hold anything up to its closing bracket.
    size_t bracket = text.starts_with(TextName) ? text.find("\"]:") : std::string_view::npos;
    std::string line, code;
    if (splitPosition(text, bracket == std::string_view::npos ? 0 : bracket + 2, position) &&
        isChunkName(position.source)) {
        text = position.message;
        line = std::to_string(position.line);
        code = lineOf(position.source, position.line);
    }
    XPK_Raise raise("LuaInterpreterException", "$message [$lualine: $luacode]");
    raise.string("message", text).string("lualine", line).string("luacode", code);
    if (!causeType_.empty() && text == causeText_)
        raise.fields("message,lualine,luacode").string("cause", causeType_);
    raise.raise();
}

// --- Texts

std::string IPE_LuaChunkName(std::string_view text) {
    char name[32];
    snprintf(name, sizeof name, "%s%016zx", AutomaticName.data(), std::hash<std::string_view>()(text));
    return name;
}

void IPE_KeepLuaCode(std::string_view name, std::string_view text) {
    IPE_DictType* texts = keptTexts();
    if (!texts) return;
    if (texts->count() >= KeptTexts && !texts->findText(name)) texts->recycle();
    texts->setText(name, IPE_String(text));
}
