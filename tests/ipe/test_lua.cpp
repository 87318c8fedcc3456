// The Lua bridge: values both ways, calls into scripts, errors, what hostile texts may not do, packing, and
// the cost of a call in memory.
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

const char* const TooDeep = "RuntimeError: Marshalling error. Have recursed too many times. Aborting.";

TEST_F(Lua, ScriptValuesBecomeLuaValues) {
    lua.setGlobal("d", D({{S("n"), IPE_None()}, {S("l"), L({I(7), S("x")})}, {S("t"), T({IPE_True()})}}));
    EXPECT_EQ(shown("return type(d.n), d.n.__ipetype, d.l.__ipetype, d.t.__ipetype, d.__ipetype"),
              "('table', 'none', 'list', 'tuple', 'dict')");
    EXPECT_EQ(shown("return getmetatable(d.l).__ipetype, #d.l, d.l[1], d.l[2], d.t[1], d.l[3]"),
              "('list', 2, 7, 'x', True, None)");
    lua.setGlobal("nothing", {});
    EXPECT_EQ(shown("return nothing == nil"), "True");
    lua.setGlobal("big", I(9007199254740993));  // not a double: its neighbour crosses
    EXPECT_EQ(shown("return big == 2^53, type(big)"), "(True, 'number')");
    EXPECT_FALSE(lua.hasGlobal("nothing"));
    lua.setGlobal("nothing", IPE_None());
    EXPECT_FALSE(lua.hasGlobal("nothing"));
    lua.setGlobal("nothing", IPE_False());
    EXPECT_TRUE(lua.hasGlobal("nothing"));
}

TEST_F(Lua, LuaValuesBecomeScriptValues) {
    EXPECT_EQ(run("return").typeName(), IPE_NoneType::TypeName);
    EXPECT_EQ(shown("return nil, nil"), "(None, None)");
    EXPECT_EQ(run("return 3.0").typeName(), IPE_IntType::TypeName);
    EXPECT_EQ(run("return 3.5").typeName(), IPE_FloatType::TypeName);
    EXPECT_EQ(run("return -2^63")->__int__(), INT64_MIN);
    for (const char* number : {"2^63", "1/0", "0/0", "-2^64", "1e300"})
        EXPECT_EQ(run(std::string("return ") + number).typeName(), IPE_FloatType::TypeName) << number;
    IPE_Object mixed = run("return {10, 20, x = {true}, [2.5] = 'half'}");
    EXPECT_EQ(IPE_Dict_GetInt64(mixed->__getitem__(S("x")), "none", -1), -1);
    EXPECT_EQ(mixed->__getitem__(I(2))->__int__(), 20);
    EXPECT_STREQ(mixed->__getitem__(F(2.5))->c_str(), "half");
    EXPECT_EQ(shown("return setmetatable({1, 2}, {__ipetype = 'tuple'})"), "(1, 2)");
    EXPECT_EQ(error("return {[true] = 1}"),
              "RuntimeError: Cannot marshal Lua table: Key for element is not a string or a number");
    for (const char* value : {"coroutine.create(print)", "io.stdout", "{{io.stdout}}"})
        EXPECT_EQ(error(std::string("return ") + value),
                  "RuntimeError: Could not coerce Lua return value to IPE type!");
    // A foreign table that claims to hold an object is a table.
    EXPECT_EQ(shown("return setmetatable({}, {__ipetype = 'class'})"), "{}");
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

TEST_F(Lua, DepthIsBoundedBothWays) {
    auto nested = [](int levels) {
        return "local t = {} for i = 2, " + std::to_string(levels) + " do t = {t} end return t";
    };
    IPE_Object deepest = run(nested(500));
    EXPECT_EQ(error(nested(501)), TooDeep);
    lua.setGlobal("d", deepest);
    EXPECT_EQ(raised([&] { lua.setGlobal("d", L({deepest})); }), TooDeep);
    EXPECT_EQ(shown("local n = 0 while d do n, d = n + 1, d[1] end return n"), "500");
    define("f", [](auto&) { return IPE_Object(); });
    EXPECT_NE(error("f((function() " + nested(501) + " end)())").find("Have recursed too many times"),
              std::string::npos);
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
    for (auto [text, message] :
         {std::pair{"kwargs()", "kwargs expects exactly 1 argument (received 0)"},
          {"kwargs(5)", "Argument to kwargs not a table (type 3)."},
          {"ipesplit('a')", "ipesplit expects exactly 2 string arguments (received 1)"},
          {"ipesplit({}, 'a')", "First argument to ipesplit not a string (type 5)."},
          {"ipesplit('a', 1)", "Second argument to ipesplit not a string (type 3)."}})
        EXPECT_EQ(error(text), std::string("LuaInterpreterException: ") + message + " [1: " + text + "]");
    EXPECT_EQ(shown("local t = ipesplit('a,b,,c', ',') return #t, t[4], t"), "(4, 'c', ['a', 'b', '', 'c'])");
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

TEST_F(Lua, ErrorsTellPlaceAndLine) {
    auto fields = [&](const std::function<void()>& body) -> std::string {
        try {
            body();
        } catch (const XPK_Exception& e) {
            const XPK_ExceptionRecord& record = e.record();
            EXPECT_EQ(e.type(), "LuaInterpreterException");
            EXPECT_EQ(record.show, "$message [$lualine: $luacode]");
            EXPECT_EQ(record.fieldList, "message,lualine,luacode");
            return *record.findString("message") + "|" + *record.findString("lualine") + "|" +
                   *record.findString("luacode");
        }
        return "nothing";
    };
    auto failing = [&](const std::string& text) { return fields([&] { run(text); }); };
    EXPECT_EQ(failing("local x\r\n  x()\r\nx = 1"), "attempt to call local 'x' (a nil value)|2|  x()");
    EXPECT_EQ(failing("x = = 1"), "unexpected symbol near '='|1|x = = 1");
    EXPECT_EQ(failing("error('at 10:20: noon', 0)"), "at 10:20: noon||");
    EXPECT_EQ(failing("error({})"), "(error object is a table value)||");
    EXPECT_EQ(failing("error()"), "(error object is a nil value)||");
    EXPECT_EQ(failing("error(setmetatable({}, {__tostring = function() return 'own' end}))"), "own||");
    EXPECT_EQ(failing("error(setmetatable({}, {__tostring = function() error('twice', 0) end}))"), "twice||");
    EXPECT_EQ(failing("\nsetmetatable(5, {})"),
              "bad argument #1 to 'setmetatable' (table expected, got number)|2|setmetatable(5, {})");
    EXPECT_EQ(failing("\nload()"), "bad argument #1 to 'load' (function expected, got no value)|2|load()");
    EXPECT_EQ(failing("\nerror(select(2, load('\\nx x')), 0)"), "syntax error near 'x'|2|");
    // The text of a chunk is known while it runs, however long its name.
    EXPECT_EQ(fields([&] { lua.execute("error('e')", "FSI Filter: " + std::string(100, 'n')); }),
              "e|1|error('e')");
    define("inner", [&](auto&) { return run("\nerror('deep')"); });
    EXPECT_EQ(failing("inner()"), "deep [2: error('deep')]|1|inner()");
    EXPECT_EQ(failing("local ok, text = pcall(inner) error(text, 0)").substr(0, 23),
              "deep [2: error('deep')]");
    EXPECT_EQ(raised([&] { lua.callWith("none", I(1)); }),
              "RuntimeError: Could not locate a Lua function named 'none'");
    define("fail", [](auto&) -> IPE_Object { XPK_Raise("KeyError", "no $key").string("key", "k").raise(); });
    EXPECT_EQ(shown("return select(2, pcall(fail))"), "'no k'");  // no Lua line called it
    try {
        run("fail()");
        FAIL();
    } catch (const XPK_Exception& e) {
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

TEST_F(Lua, SystemExitCannotBeCaught) {
    define("leave", [](auto&) -> IPE_Object { XPK_Raise("SystemExit", "").raise(); });
    EXPECT_EQ(error("leave()"), "SystemExit: ");
    EXPECT_EQ(error("pcall(leave) return 5"), "SystemExit: ");
    EXPECT_EQ(error("while true do pcall(leave) end"), "SystemExit: ");
    EXPECT_EQ(shown("local n = 0 for i = 1, 1e5 do n = n + 1 end return n"), "100000");
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

TEST_F(Lua, TextsCannotHarmTheServer) {
    EXPECT_NE(error("os.exit(3)").find("os.exit is not available"), std::string::npos);
    EXPECT_NE(error("os.setlocale('C')").find("can only ask"), std::string::npos);
    EXPECT_EQ(shown("return type(os.setlocale())"), "'string'");
    EXPECT_EQ(shown("return load(string.dump(function() end)), loadstring('return 5')(), load('return x', "
                    "'n', nil, {x = 6})()")
                  .substr(0, 10),
              "(None, 5, ");
    EXPECT_NE(error("assert(load('\\27Lua', 'n', 'b'))").find("binary chunk"), std::string::npos);
    EXPECT_NE(error(std::string("\x1bLua")).find("binary chunk"), std::string::npos);
    EXPECT_EQ(shown("return debug.sethook, debug.getregistry, debug.setmetatable, require('debug') == debug, "
                    "package.loadlib"),
              "(None, None, None, True, None)");
    EXPECT_NE(error("setmetatable({}, {__gc = true})").find("__gc"), std::string::npos);
    lua.setGlobal("list", L({I(1)}));
    EXPECT_EQ(shown("ran = 0 getmetatable(list).__gc = function() ran = 1 end return 1"), "1");
    lua.setGlobal("list", L({I(1)}));
    EXPECT_EQ(shown("list = nil collectgarbage() return ran"), "0");
    EXPECT_NE(error("require 'no.such.module'").find("module 'no.such.module' not found"), std::string::npos);
    // Finalizers of library objects are out of reach.
    EXPECT_EQ(shown("return getmetatable(io.stdout), getmetatable(rex_pcre.new('a')), "
                    "getmetatable(select(2, lfs.dir('.')))"),
              "(False, False, False)");
    EXPECT_EQ(
        shown("local env = luasql.sqlite3() local r, c = rex_pcre.new('a'), env:connect(':memory:') "
              "return r.__gc, io.stdout.__gc, env.__gc, c.__gc, c:execute('select 1').__gc, r:match('a')"),
        "(None, None, None, None, None, 'a')");
    EXPECT_EQ(error("local s = string.rep('x', 2^30) return #s"),
              "LuaInterpreterException: not enough memory [: ]");
    EXPECT_EQ(error("local s = 'x' while true do s = s .. s end").substr(0, 42),
              "LuaInterpreterException: not enough memory");
    EXPECT_EQ(shown("return #string.rep('x', 1e6)"), "1000000");
}

TEST_F(Lua, LibrariesAreThere) {
    EXPECT_EQ(shown("return require 'lfs' == lfs, lfs.attributes('/', 'mode')"), "(True, 'directory')");
    EXPECT_EQ(shown("return require 'rex_pcre' == rex_pcre2, rex_pcre.match('ab12', '(\\\\d)(\\\\d)')"),
              "(True, '1', '2')");
    EXPECT_NE(error("rex_pcre2.new('(')").find("missing closing parenthesis"), std::string::npos);
    EXPECT_EQ(
        shown(
            "local c = require 'luasql.sqlite3'.sqlite3():connect(':memory:') c:execute 'create table t (a)' "
            "c:execute 'insert into t values (7)' local q = c:execute 'select a from t' local a = q:fetch() "
            "q:close() c:close() return a, require 'luasql' == luasql"),
        "(7, True)");
    EXPECT_EQ(shown("return ipe.version, ipe.version_number, ipe.libraries[1]"), "('Lua 5.2', 502, 'base')");
    EXPECT_EQ(lua.getGlobal("ipe")->__getitem__(S("libraries")).typeName(), IPE_ListType::TypeName);
}

TEST_F(Lua, PackAndUnpack) {
    run("function hex(s) return (s:gsub('.', function(c) return ('%02x'):format(c:byte()) end)) end");
    for (auto [text, want] : {
             std::pair{"hex(string.pack('<i4 >i4 b', 1, -2, -128))", "'01000000fffffffe80'"},
             {"hex(('>I3 s1 z c3'):pack(0x10203, 'ab', 'c', 'd'))", "'0102030261626300640000'"},
             {"hex(string.pack('<!4 b i4 !2 Xi8 b x', 1, 2, 3))", "'0100000002000000' .. '0300'"},
             {"hex(string.pack('>d f', 1.5, -2))", "'3ff8000000000000c0000000'"},
             {"hex(string.pack('<i16 >I10', -2, 258))", "'fe' .. ('ff'):rep(15) .. ('00'):rep(8) .. '0102'"},
             {"hex(string.pack('<J j', 2^64 - 2048, -2^63))", "'00f8ffffffffffff' .. '0000000000000080'"},
             {"string.packsize('<!8 b d i2 c5 =h')", "26"},
             {"table.concat({string.unpack('<i2 >I2 z s1 B', string.pack('<i2 >I2 z s1 B', -5, 65535, 'q', "
              "'rs', 255))}, ' ')",
              "'-5 65535 q rs 255 11'"},
             {"table.concat({string.unpack('<i16 !4 i4', string.pack('<i16 !4 i4', -7, 9))}, ' ')",
              "'-7 9 21'"},
             {"table.concat({string.unpack('b', 'abc', -1)}, ' ')", "'99 4'"},
             {"string.unpack('', 'abc', 4)", "4"},
             {"(string.unpack('<f', string.pack('<f', 0.5)))", "0.5"},
             {"(string.unpack('<J', ('\\255'):rep(8)))", "2^64"},
         })
        EXPECT_EQ(error(std::string("local got, want = ") + text + ", " + want +
                        " if got ~= want then error(tostring(got), 0) end"),
                  "nothing")
            << text;
    for (auto [text, message] : {
             std::pair{"string.pack('i1', 128)", "integer overflow"},
             {"string.pack('B', -1)", "unsigned overflow"},
             {"string.pack('i4', 1.5)", "number has no integer representation"},
             {"string.pack('j', 2^63)", "number has no integer representation"},
             {"string.pack('i4')", "number expected, got nil"},
             {"string.pack('i17', 1)", "out of limits [1,16]"},
             {"string.pack('s1', ('x'):rep(256))", "string length does not fit in given size"},
             {"string.pack('c2', 'abc')", "string longer than given size"},
             {"string.pack('z', 'a\\0b')", "string contains zeros"},
             {"string.pack('c', '')", "missing size for format option 'c'"},
             {"string.pack('y')", "invalid format option 'y'"},
             {"string.pack('Xz')", "invalid next option for option 'X'"},
             {"string.pack('!3 i4', 1)", "not power of 2"},
             {"string.pack('c99999999999', '')", "too large"},
             {"string.packsize('s')", "variable-length format"},
             {"string.packsize('c999999999999999999999')", "too large"},
             {"string.unpack('i4', 'abc')", "data string too short"},
             {"string.unpack('i4', 'abcd', 6)", "initial position out of string"},
             {"string.unpack('i4', 'abcd', 0/0)", "initial position out of string"},
             {"string.unpack('z', 'abc')", "unfinished string for format 'z'"},
             {"string.unpack('s8', ('\\255'):rep(8))", "data string too short"},
             {"string.unpack('<i16', ('\\1'):rep(16))", "16-byte integer does not fit into Lua Integer"},
         })
        EXPECT_NE(error(text).find(message), std::string::npos) << text << " raises " << error(text);
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
