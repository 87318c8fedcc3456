# Lua states.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import ipe.lua

lua = ipe.lua.create()
execute = lua.execute

def gives(label, text, *want):
    same(label, execute("return " + text), want)

# The message ends with the place; a part of it will do.
def refused(part, text):
    try:
        execute(text)
    except Exception, e:
        if find(e.decode, part) >= 0:
            print "ok", part
        else:
            print "FAILED", text, e.decode
    else:
        print "FAILED", text

# Values of scripts in Lua
lua.setglobal("d", {"n": None, "l": [7, "x"], "t": (True)})
gives("their types", "type(d.n), d.n.__ipetype, d.l.__ipetype, d.t.__ipetype, d.__ipetype, getmetatable(d.l).__ipetype", "table", "none", "list", "tuple", "dict", "list")
gives("sequences begin at 1", "#d.l, d.l[1], d.l[2], d.t[1], d.l[3], d.none == nil", 2, 7, "x", True, None, True)
lua.setglobal("big", 9007199254740993)
gives("an integer that is no double: its neighbour crosses", "big == 2^53, type(big)", True, "number")
lua.setglobal("name", ["a", ("b", None)])
same("globals", [lua.getglobal("name"), lua["name"], lua.getglobal("absent"), lua["absent"]], [["a", ("b", None)], ["a", ("b", None)], None, None])
lua["other"] = {"key": None}
same("None keeps its key", lua["other"], {"key": None})

# Values of Lua in scripts
same("results", [execute("x = 1"), execute("return 1"), execute("return 1, 'a', nil"), execute("return nil, nil")], [None, 1, (1, "a", None), (None, None)])
same("numbers", execute("return 3.0, 3.5, -0.0, -2^63"), (3, 3.5, 0, -9223372036854775807 - 1))
for number in ["2^63", "1/0", "0/0", "-2^64", "1e300"]:
    same(number, type(execute("return " + number)), "FloatType")

same("tables", execute("return {10, 20, x = {true}, [2.5] = 'half'}"), {1: 10, 2: 20, "x": {1: True}, 2.5: "half"})
gives("tables that say what they are, or claim to hold an object", "setmetatable({1, 2}, {__ipetype = 'tuple'}), setmetatable({}, {__ipetype = 'class'})", (1, 2), {})
fault("a key of another kind", "RuntimeError: Cannot marshal Lua table: Key for element is not a string or a number", execute, "return {[print] = 1}")
for text in ["coroutine.create(print)", "io.stdout", "{{io.stdout}}"]:
    fault("a value without a counterpart", "RuntimeError: Could not coerce Lua return value to IPE type!", execute, "return " + text)

same("version", lua.version(), "Lua 5.2")
module = lua["ipe"]
same("the module table", [module.version, module.version_number, module.libraries[0]], ["Lua 5.2", 502, "base"])
cyclic = execute("local t = {} t.me = t return t")
cyclic["me"]["seen"] = 1
same("a table in itself", cyclic["seen"], 1)
cyclic["me"] = None

# Depth, both ways
def nested(levels):
    return "local t = {} for i = 2, " + str(levels) + " do t = {t} end return t"

deep = "RuntimeError: Marshalling error. Have recursed too many times. Aborting."
lua.setglobal("d", execute(nested(500)))
gives("deep enough", "(function() local n = 0 while d do n, d = n + 1, d[1] end return n end)(), nil", 500, None)
fault("too deep", deep, execute, nested(501))
fault("too deep to go in", deep, lua.setglobal, "d", [execute(nested(500))])
lua.setglobal("same", same)
refused("Have recursed too many times", "same((function() " + nested(501) + " end)())")
same("compile gives zero", lua.compile("function add(a, b) return a + b end"), 0)
same("call", lua.call("add", 0, 2, 3), 5)

# Functions both ways
def sum(a, b=10, *rest, **named):
    return {"sum": a + b, "rest": rest, "named": named}

lua.setglobal("sum", sum)
same("keywords", execute("local t = sum(1, kwargs{b = 2, c = 3}) return t.sum, t.rest, t.named"), (3, (), {"c": 3}))
same("more arguments", execute("local t = sum(1, 2, 'x', {true}) return t.sum, t.rest[2][1]"), (3, True))
same("a script function by its name", lua.call("sum", 0, 5)["sum"], 15)
twice = execute("return function(f, x) return f(f(x)) end")

def half(x):
    return x / 2

same("a Lua function", twice(half, 12), 3)
lua.setglobal("twice", twice)
same("and back", execute("return twice(function(x) return x .. x end, 'a'), type(twice)"), ("aaaa", "function"))

# Instances: the receiver is passed by Lua's colon, and by the call of the instance itself.
import tools.counter

counter = tools.counter(5)
lua.setglobal("counter", counter)
same("an instance", execute("counter.step = 3 return counter:add(2), counter(), counter.count, type(counter)"), (10, "called 10", 10, "userdata"))
lua.getglobal("counter").mark = "same"
same("which took the change", [counter.step, counter.count, counter.mark], [3, 10, "same"])
lua.setglobal("getglobal", lua.getglobal)
same("a native method", execute("return getglobal('name')[1], counter.words, #counter.list"), ("a", "words", 2))

# Errors
def failing(key):
    raise KeyError, "no " + key

def fields(action, *rest):
    try:
        action(*rest)
    except LuaInterpreterException, e:
        return [e.strings["message"], e.strings["lualine"], e.strings["luacode"]]

lua.setglobal("failing", failing)
same("an error's place", fields(execute, "x = 1\n  error('bad')"), ["bad", "2", "  error('bad')"])
rows = [("local x\r\n  x()\r\nx = 1", "attempt to call local 'x' (a nil value)", "2", "  x()"), ("x = = 1", "unexpected symbol near '='", "1", "x = = 1"), ("error('at 10:20: noon', 0)", "at 10:20: noon", "", ""), ("error({})", "(error object is a table value)", "", ""), ("error()", "(error object is a nil value)", "", "")]
rows = rows + [("\nsetmetatable(5, {})", "bad argument #1 to 'setmetatable' (table expected, got number)", "2", "setmetatable(5, {})"), ("\nload()", "bad argument #1 to 'load' (function expected, got no value)", "2", "load()")]
rows = rows + [("error(setmetatable({}, {__tostring = function() return 'own' end}))", "own", "", ""), ("error(setmetatable({}, {__tostring = function() error('twice', 0) end}))", "twice", "", ""), ("\nerror(select(2, load('\\nx x')), 0)", "syntax error near 'x'", "2", "")]
for text, message, line, code in rows:
    same("an error's fields", fields(execute, text), [message, line, code])

fault("its message", "LuaInterpreterException: bad [1: error('bad')]", execute, "error('bad')")
same("a script's error", fields(execute, "\nreturn failing('x')"), ["no x", "2", "return failing('x')"])
same("Lua catches it", execute("local ok, text = pcall(failing, 'x') return ok, text"), (False, "no x"))
fault("a missing function", "RuntimeError: Could not locate a Lua function named 'nothing'", lua.call, "nothing", 0)
fault_class("texts are wanted", "TypeError", execute, 5)
fault_class("a number is wanted", "TypeError", lua.call, "add", "x")

def leave():
    raise SystemExit, "over"

lua.setglobal("leave", leave)
for text in ["leave()", "pcall(leave) return 1", "while true do pcall(leave) end"]:
    fault("the end is not caught", "SystemExit: over", execute, text)

for text, message in [("kwargs()", "kwargs expects exactly 1 argument (received 0)"), ("kwargs(5)", "Argument to kwargs not a table (type 3)."), ("ipesplit('a')", "ipesplit expects exactly 2 string arguments (received 1)"), ("ipesplit({}, 'a')", "First argument to ipesplit not a string (type 5)."), ("ipesplit('a', 1)", "Second argument to ipesplit not a string (type 3).")]:
    fault(text, "LuaInterpreterException: " + message + " [1: " + text + "]", execute, text)

gives("ipesplit", "#ipesplit('a,b,,c', ','), ipesplit('a,b,,c', ',')", 4, ["a", "b", "", "c"])

# What texts may not do
rows = [("os.exit is not available", "os.exit(3)"), ("can only ask", "os.setlocale('C')"), ("binary chunk", "assert(load('\\27Lua', 'n', 'b'))"), ("binary chunk", "\x1bLua"), ("__gc", "setmetatable({}, {__gc = true})")]
rows = rows + [("module 'no.such.module' not found", "require 'no.such.module'"), ("not enough memory", "local s = string.rep('x', 2^30) return #s"), ("not enough memory", "local s = 'x' while true do s = s .. s end")]
for part, text in rows:
    refused(part, text)

gives("libraries are cut", "type(os.setlocale()), debug.sethook, debug.getregistry, debug.setmetatable, require('debug') == debug, package.loadlib", "string", None, None, None, True, None)
gives("loading", "(load(string.dump(function() end))), loadstring('return 5')(), load('return x', 'n', nil, {x = 6})()", None, 5, 6)
lua.setglobal("list", [1])
execute("ran = 0 getmetatable(list).__gc = function() ran = 1 end list = nil collectgarbage()")
lua.setglobal("list", [1])
gives("finalizers", "(function() list = nil collectgarbage() return ran end)(), #string.rep('x', 1e6)", 0, 1000000)
gives("of library objects", "getmetatable(io.stdout), getmetatable(rex_pcre.new('a')), getmetatable(select(2, lfs.dir('.')))", False, False, False)
same("nor by their names", execute("local env = luasql.sqlite3() local r, c = rex_pcre.new('a'), env:connect(':memory:') return r.__gc, io.stdout.__gc, env.__gc, c.__gc, c:execute('select 1').__gc, r:match('a')"), (None, None, None, None, None, "a"))

# Libraries
gives("lfs, rex_pcre", "require 'lfs' == lfs, lfs.attributes('/', 'mode'), require 'rex_pcre' == rex_pcre2, rex_pcre.match('ab12', '(\\\\d)(\\\\d)')", True, "directory", True, "1", "2")
refused("missing closing parenthesis", "rex_pcre2.new('(')")
same("luasql", execute("local c = require 'luasql.sqlite3'.sqlite3():connect(':memory:') c:execute 'create table t (a)' c:execute 'insert into t values (7)' local q = c:execute 'select a from t' local a = q:fetch() q:close() c:close() return a, require 'luasql' == luasql"), (7, True))

# string.pack
execute("function hex(s) return (s:gsub('.', function(c) return ('%02x'):format(c:byte()) end)) end")
rows = [("hex(string.pack('<i4 >i4 b', 1, -2, -128))", "01000000fffffffe80"), ("hex(('>I3 s1 z c3'):pack(0x10203, 'ab', 'c', 'd'))", "0102030261626300640000"), ("hex(string.pack('<!4 b i4 !2 Xi8 b x', 1, 2, 3))", "01000000020000000300"), ("hex(string.pack('>d f', 1.5, -2))", "3ff8000000000000c0000000"), ("hex(string.pack('<i16 >I10', -2, 258))", "feffffffffffffffffffffffffffffff00000000000000000102")]
rows = rows + [("hex(string.pack('<J j', 2^64 - 2048, -2^63))", "00f8ffffffffffff0000000000000080"), ("string.packsize('<!8 b d i2 c5 =h')", 26), ("table.concat({string.unpack('<i2 >I2 z s1 B', string.pack('<i2 >I2 z s1 B', -5, 65535, 'q', 'rs', 255))}, ' ')", "-5 65535 q rs 255 11"), ("table.concat({string.unpack('<i16 !4 i4', string.pack('<i16 !4 i4', -7, 9))}, ' ')", "-7 9 21")]
rows = rows + [("table.concat({string.unpack('b', 'abc', -1)}, ' ')", "99 4"), ("string.unpack('', 'abc', 4)", 4), ("(string.unpack('<f', string.pack('<f', 0.5)))", 0.5), ("(string.unpack('<J', ('\\255'):rep(8))) == 2^64", True)]
for text, want in rows:
    same(text, execute("return " + text), want)

rows = [("pack('i1', 128)", "integer overflow"), ("pack('B', -1)", "unsigned overflow"), ("pack('i4', 1.5)", "number has no integer representation"), ("pack('j', 2^63)", "number has no integer representation"), ("pack('i4')", "number expected, got nil")]
rows = rows + [("pack('i17', 1)", "out of limits [1,16]"), ("pack('s1', ('x'):rep(256))", "string length does not fit in given size"), ("pack('c2', 'abc')", "string longer than given size"), ("pack('z', 'a\\0b')", "string contains zeros"), ("pack('c', '')", "missing size for format option 'c'")]
rows = rows + [("pack('y')", "invalid format option 'y'"), ("pack('Xz')", "invalid next option for option 'X'"), ("pack('!3 i4', 1)", "not power of 2"), ("pack('c99999999999', '')", "too large")]
for text, part in rows:
    refused(part, "string." + text)

rows = [("packsize('s')", "variable-length format"), ("packsize('c999999999999999999999')", "too large"), ("unpack('i4', 'abc')", "data string too short"), ("unpack('i4', 'abcd', 6)", "initial position out of string"), ("unpack('i4', 'abcd', 0/0)", "initial position out of string")]
rows = rows + [("unpack('z', 'abc')", "unfinished string for format 'z'"), ("unpack('s8', ('\\255'):rep(8))", "data string too short"), ("unpack('<i16', ('\\1'):rep(16))", "16-byte integer does not fit into Lua Integer")]
for text, part in rows:
    refused(part, "string." + text)

# The line of a function compiled earlier comes from the thread's texts.
lua.compile("function later()\n  return nothing.x\nend")
same("a compiled line", fields(lua.call, "later", 0)[2], "  return nothing.x")
kept = []
for name in tls_luacode.keys():
    kept.append(tls_luacode[name])
kept.sort()
same("kept texts", kept, ["function add(a, b) return a + b end", "function later()\n  return nothing.x\nend"])

class tools.counter:

def __init__(self, start):
    self.count = start
    self.words = "words"
    self.list = [1, 2]

def add(self, more):
    self.count = self.count + more + self.step
    return self.count

def __call__(self):
    return "called " + self.count
