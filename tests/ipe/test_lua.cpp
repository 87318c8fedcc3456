// The Lua bridge below scripts, whose program lua.py tells the rest: objects and cycles across it, calls
// within calls, the end of the server, and the cost of a call in memory.
#include <atomic>
#include <functional>
#include <lua.hpp>
#include <thread>

#include "ipe/engines/ipe_lua.h"
#include "runtime/epa_shutdown.h"
#include "values_testing.h"

namespace {

// A native callable of any other type than the language's own.
class Native final : public IPE_Type {
  public:
    static const char TypeName[];
    using Body = std::function<IPE_Object(const IPE_Arguments&)>;
    explicit Native(Body body) : IPE_Type(TypeName), body_(std::move(body)) { ++alive; }
    ~Native() override { --alive; }
    IPE_Object __call__(const IPE_Arguments& arguments) override { return body_(arguments); }
    static inline int alive = 0;

  private:
    Body body_;
};
const char Native::TypeName[] = "NativeForTest";

// A native object with attributes and methods, one of them not for everybody.
class Thing final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    Thing() : IPE_ModuleType(TypeName) {}
    void __bind__() override { bindMethods({{"count", 1}, {"secret", 2, true}}); }
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override {
        return I(method * 100 + arguments.size());
    }
};
const char Thing::TypeName[] = "ThingForTest";

class Lua : public ValuesTest {
  protected:
    void TearDown() override { EXPECT_EQ((object = nullptr, Native::alive), 0); }
    IPE_Object object = IPE_NewLua();
    IPE_Lua& lua = *IPE_LuaOf(object);

    IPE_Object run(const std::string& text) { return lua.execute(text); }
    std::string shown(const std::string& text) { return repr(run(text)); }
    std::string error(const std::string& text) {
        return raised([&] { run(text); });
    }
    // The value as it comes back after a stay in Lua.
    IPE_Object back(const IPE_Object& value) {
        lua.setGlobal("v", value);
        return lua.getGlobal("v");
    }
    void define(const char* name, Native::Body body) {
        lua.setGlobal(name, IPE_New<Native>(std::move(body)));
    }
};

TEST_F(Lua, NothingIsNoGlobal) {
    lua.setGlobal("nothing", {});
    EXPECT_EQ(shown("return nothing == nil"), "True");
    EXPECT_FALSE(lua.hasGlobal("nothing"));
    lua.setGlobal("nothing", IPE_None());
    EXPECT_FALSE(lua.hasGlobal("nothing"));
    lua.setGlobal("nothing", IPE_False());
    EXPECT_TRUE(lua.hasGlobal("nothing"));
}

TEST_F(Lua, ValuesComeBackAsTheyWent) {
    IPE_Object value = D({{S("none"), IPE_None()},
                          {IPE_None(), I(1)},
                          {I(5), L({T({}), T({F(0.5), S("")}), D({})})},
                          {S("b"), IPE_False()}});
    EXPECT_TRUE(IPE_Object_Equal(back(value), value));
    EXPECT_EQ(back(IPE_None()), IPE_None());
    IPE_Object bytes = run("return 'a\\0\\255b'");
    ASSERT_EQ(bytes.as<IPE_StringType>()->view(), std::string_view("a\0\xff"
                                                                   "b",
                                                                   4));
    EXPECT_EQ(back(bytes).as<IPE_StringType>()->view(), bytes.as<IPE_StringType>()->view());
    IPE_Object native = IPE_New<Native>([](auto&) { return IPE_Object(); });
    EXPECT_EQ(back(native), native);
    EXPECT_EQ(back(object), object);  // the state within itself, which must not keep it alive
    IPE_Object method = back(object->__getattr__(S("getglobal"), 0));
    EXPECT_EQ(IPE_Call(method, S("v")).typeName(), IPE_CallAdapter::TypeName);
    IPE_Object function = run("return function(a, b) return b, a end");
    EXPECT_STREQ(function.typeName(), "LuaFunction");
    EXPECT_EQ(repr(IPE_Call(back(function), I(1), S("x"))), "('x', 1)");
    // A function of another state is an object like any other.
    IPE_Object other = IPE_NewLua();
    IPE_LuaOf(other)->setGlobal("f", function);
    EXPECT_EQ(repr(IPE_LuaOf(other)->execute("return type(f), f(1, {2})")), "('userdata', ({1: 2}, 1))");
    EXPECT_EQ(IPE_LuaOf(other)->getGlobal("f"), function);
}

TEST_F(Lua, SharedAndCyclicContainersStaySo) {
    define("held", [](auto&) { return IPE_Object(); });
    IPE_Object dict = run("local t = {} t.self = t t.a = {} t.b = t.a return t");
    EXPECT_EQ(dict->__getitem__(S("self")), dict);
    EXPECT_EQ(dict->__getitem__(S("a")), dict->__getitem__(S("b")));
    IPE_Object pair = run("local t = {} return t, t");
    EXPECT_EQ(IPE_Tuple(pair)[0], IPE_Tuple(pair)[1]);
    lua.setGlobal("t", dict);
    EXPECT_EQ(shown("return t.self == t, t.a == t.b, t.a ~= t"), "(True, True, True)");
    IPE_Object inner = dict->__getitem__(S("a")),
               compare = run("return function(a, b, c) return a == b, c.a == a end");
    EXPECT_EQ(repr(IPE_Call(compare, inner, inner, dict)), "(True, True)");
    dict->clear();
    // A cycle around a value that cannot cross is taken apart again (the leak check watches).
    error(
        "local t = {{}} t.self = t t[1].up = t t.held = held t[2] = setmetatable({t, io.stdout}, {__ipetype "
        "= 'list'}) return t");
    // 2 to the 60 lists without sharing.
    IPE_Object list = L({});
    for (int i = 0; i < 60; ++i) list = L({list, list});
    lua.setGlobal("l", list);
    EXPECT_EQ(shown("local n = 0 while l do l = l[2] n = n + 1 end return n"), "61");
}

TEST_F(Lua, CallablesTakeArgumentsAndKeywords) {
    std::string seen;
    define("f", [&](const IPE_Arguments& a) {
        seen = repr(a.tuple()) + repr(a.keywords());
        return a.size() ? T({a[0], IPE_None()}) : IPE_Object();
    });
    EXPECT_EQ(shown("return f(1, nil, kwargs{a = 2}, {3}, kwargs{b = {4}})"), "(1, None)");
    EXPECT_TRUE(seen == "(1, None, {1: 3}){'a': 2, 'b': {1: 4}}" ||
                seen == "(1, None, {1: 3}){'b': {1: 4}, 'a': 2}")
        << seen;
    EXPECT_EQ(shown("return f() == nil, type(f), select('#', f())"), "(True, 'userdata', 1)");
    EXPECT_EQ(shown("local t = {x = 1} local same = kwargs(t) == t f(t) return same, t"), "(True, {'x': 1})");
    EXPECT_EQ(seen, "(){'x': 1}");
    EXPECT_EQ(repr(lua.callWith("f", S("direct"))), "('direct', None)");  // a script callable by its name
    // What a callable kept of its arguments outlives its failure.
    IPE_Object kept;
    define("keep", [&](const IPE_Arguments& a) -> IPE_Object {
        kept = a[0];
        XPK_Raise("KeyError", "x").raise();
    });
    error("keep({{1}, 2})");
    EXPECT_EQ(repr(kept->__getitem__(I(1))), "{1: 1}");
    // A userdata that has given its object up.
    lua_State* L = lua.state();
    lua_getglobal(L, "f");
    luaL_callmeta(L, -1, "__gc");
    lua_settop(L, 0);
    EXPECT_EQ(error("f()"), "LuaInterpreterException: IPE_Function == 0 [1: f()]");
}

TEST_F(Lua, ObjectsGiveAndTakeAttributes) {
    IPE_Object thing = IPE_New<Thing>();
    thing->__bind__();
    lua.setGlobal("thing", thing);
    EXPECT_EQ(shown("thing.x = {y = 2} return thing.x, thing.none, thing.count(1, 2), thing.__ipetype"),
              "({'y': 2}, None, 102, 'class')");
    EXPECT_EQ(IPE_Dict_GetInt64(thing->__getattr__(S("x"), 0), "y"), 2);
    EXPECT_EQ(shown("local c = thing.count return type(c), getmetatable(c).__ipetype, c()"),
              "('userdata', 'code', 100)");
    EXPECT_EQ(error("thing.secret()"),
              "LuaInterpreterException: __call__ not available to untrusted code [1: thing.secret()]");
    EXPECT_NE(error("thing()").find("The ThingForTest is not callable"), std::string::npos);
    lua.setGlobal("again", thing);
    EXPECT_EQ(shown("return thing == again, tostring(thing)"), "(True, 'ThingForTest')");
}

// The programs' own errors: the program `lua`.
TEST_F(Lua, ErrorsTellPlaceAndLine) {
    // The text of a chunk is known while it runs, however long its name.
    EXPECT_EQ(raised([&] { lua.execute("error('e')", "FSI Filter: " + std::string(100, 'n')); }),
              "LuaInterpreterException: e [1: error('e')]");
    define("inner", [&](auto&) { return run("\nerror('deep')"); });
    EXPECT_EQ(error("inner()"), "LuaInterpreterException: deep [2: error('deep')] [1: inner()]");
    EXPECT_EQ(shown("return select(2, pcall(inner))"), "\"deep [2: error('deep')]\"");
    define("fail", [](auto&) -> IPE_Object { XPK_Raise("KeyError", "no $key").string("key", "k").raise(); });
    EXPECT_EQ(shown("return select(2, pcall(fail))"), "'no k'");  // no Lua line called it
    try {
        run("fail()");
        FAIL();
    } catch (const XPK_Exception& e) {
        EXPECT_EQ(e.record().show, "$message [$lualine: $luacode]");
        EXPECT_EQ(e.record().fieldList, "message,lualine,luacode");
        EXPECT_EQ(e.message(), "no k [1: fail()]");
        EXPECT_EQ(*e.record().findString("cause"), "KeyError");
    }
    define("grow", [](auto&) -> IPE_Object { throw std::bad_alloc(); });
    EXPECT_EQ(error("grow()"), "LuaInterpreterException: not enough memory [1: grow()]");
    EXPECT_EQ(shown("return 1"), "1");
}

TEST_F(Lua, EndlessMutualCallsEndInAnError) {
    define("again", [&](auto&) { return lua.callWith("f"); });
    lua.compile("function f() return again() end");
    EXPECT_NE(raised([&] { lua.callWith("f"); }).find("C stack overflow"), std::string::npos);
    EXPECT_NE(error("local function f() return 1 + f() end f()").find("stack overflow"), std::string::npos);
    IPE_Object many = run("local s = {} for i = 1, 3e5 do s[i] = i end return table.unpack(s)");
    EXPECT_EQ(IPE_Tuple(many).count(), 300'000);
    // A callback that enters the state again from a coroutine.
    define("enter", [&](const IPE_Arguments& a) { return lua.execute(a.text(0)); });
    EXPECT_EQ(shown("return coroutine.wrap(function() coroutine.yield(enter('return 1 + 1')) end)()"), "2");
    EXPECT_NE(error("coroutine.wrap(function() enter('coroutine.yield()') end)()").find("yield"),
              std::string::npos);
    // Each state counts its own nested calls; the native stack, which all share, is watched too.
    int depth = 0;
    std::function<IPE_Object(const IPE_Arguments&)> deeper = [&](const IPE_Arguments&) -> IPE_Object {
        if (++depth > 100) return {};
        IPE_Object own = IPE_NewLua();
        IPE_LuaOf(own)->setGlobal("deeper", IPE_New<Native>(deeper));
        return IPE_LuaOf(own)->execute(
            "local function f(n) if n == 0 then return deeper() end "
            "return (('a'):gsub('a', function() f(n - 1) end)) end return f(100)");
    };
    EXPECT_NE(raised([&] { deeper({}); }).find("Maximum stack depth exceded"), std::string::npos);
    EXPECT_LT(depth, 20);
}

TEST_F(Lua, ShutdownEndsEveryChunk) {
    for (const char* text :
         {"while true do end", "while true do pcall(function() while true do end end) end",
          "local function f() while true do pcall(f) end end f()",
          "while true do xpcall(function() error() end, function() while true do end end) end",
          "while true do coroutine.resume(coroutine.create(function() while true do end end)) end",
          "local co = coroutine.wrap(function() while true do coroutine.yield() end end) while true do co() "
          "end",
          "table.sort({3, 2, 1}, function() while true do end end)",
          "return setmetatable({}, {__index = function() while true do end end}).x",
          "error(setmetatable({}, {__tostring = function() while true do end end}))",
          "while true do pcall(load, function() while true do end end) end",
          "while true do pcall(enter, 'while true do end') end",
          "local c = luasql.sqlite3():connect(':memory:') while true do c:execute('with recursive n(i) as "
          "(select 1 union select i + 1 from n) select count(*) from n') end"}) {
        define("enter", [&](const IPE_Arguments& a) { return lua.execute(a.text(0)); });
        std::thread stop([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            epa_detail::running = false;
        });
        EXPECT_EQ(error(text), "SystemExit: ") << text;
        stop.join();
        epa_detail::running = true;
    }
    EXPECT_EQ(shown("local n = 0 for i = 1, 1e5 do n = n + 1 end return n"), "100000");
    lua.setGlobal("enter", {});
}

TEST_F(Lua, CallsLeaveNothingBehind) {
    IPE_Object function = run("return function(row, n, f) return n, row[1], function() end, f end");
    IPE_Object row = L({S("text that is long enough to have a block of its own in the engine"), IPE_None()});
    std::vector<IPE_Object> results;
    lua_State* L = lua.state();
    auto measure = [&] {
        for (int i = 0; i < 2000; ++i) {
            const IPE_Object arguments[] = {row, I(i), function};
            function.as<IPE_LuaFunction>()->callAll(IPE_Arguments(arguments, 3), results);
            raised([&] { lua.callWith("none"); });
            error("error(5)");
        }
        lua_gc(L, LUA_GCCOLLECT, 0);
        return std::pair(lua_gc(L, LUA_GCCOUNT, 0), lua_rawlen(L, LUA_REGISTRYINDEX));
    };
    auto before = measure(), after = measure();
    EXPECT_NEAR(before.first, after.first, 4);
    EXPECT_EQ(before.second, after.second);
    EXPECT_EQ(lua_gettop(L), 0);
    ASSERT_EQ(results.size(), 4u);
    EXPECT_EQ(results[0]->__int__(), 1999);
    EXPECT_EQ(results[2].typeName(), IPE_LuaFunction::TypeName);
    // A function keeps its state.
    object = nullptr;
    EXPECT_EQ(repr(IPE_Call(function, row, I(1), IPE_None()))[1], '1');
}

}  // namespace
