# Lua states.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import ipe.lua

lua = ipe.lua.create()
execute = lua.execute

same("results", [execute("x = 1"), execute("return 1"), execute("return 1, 'a', nil")], [None, 1, (1, "a", None)])
same("numbers", [execute("return 3.0"), execute("return 3.5"), execute("return -0.0")], [3, 3.5, 0])
same("version", lua.version(), "Lua 5.2")
same("compile gives zero", lua.compile("function add(a, b) return a + b end"), 0)
same("call", lua.call("add", 0, 2, 3), 5)
same("globals", [lua.setglobal("name", ["a", ("b", None)]), lua.getglobal("name"), lua["name"], lua.getglobal("absent"), lua["absent"]], [None, ["a", ("b", None)], ["a", ("b", None)], None, None])
lua["other"] = {"key": None}
same("None keeps its key", lua["other"], {"key": None})
same("None is no nil", execute("return other.key == nil, other.key.__ipetype, other.none == nil"), (False, "none", True))
module = lua["ipe"]
same("the module table", [module.version, module.version_number, module.libraries[0]], ["Lua 5.2", 502, "base"])
cyclic = execute("local t = {} t.me = t return t")
cyclic["me"]["seen"] = 1
same("a table in itself", cyclic["seen"], 1)
cyclic["me"] = None

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
same("an error without a place", fields(execute, "error('bad', 0)"), ["bad", "", ""])
fault("its message", "LuaInterpreterException: bad [1: error('bad')]", execute, "error('bad')")
same("a script's error", fields(execute, "\nreturn failing('x')"), ["no x", "2", "return failing('x')"])
same("Lua catches it", execute("local ok, text = pcall(failing, 'x') return ok, text"), (False, "no x"))
fault("a missing function", "RuntimeError: Could not locate a Lua function named 'nothing'", lua.call, "nothing", 0)
fault("a key of another kind", "RuntimeError: Cannot marshal Lua table: Key for element is not a string or a number", execute, "return {[print] = 1}")
fault("a value without a counterpart", "RuntimeError: Could not coerce Lua return value to IPE type!", execute, "return io.stdout")
fault("too deep", "RuntimeError: Marshalling error. Have recursed too many times. Aborting.", execute, "local t = {} for i = 1, 500 do t = {t} end return t")
same("deep enough", len(execute("local t = {} for i = 1, 499 do t = {t} end return t")), 1)
fault_class("texts are wanted", "TypeError", execute, 5)
fault_class("a number is wanted", "TypeError", lua.call, "add", "x")

def leave():
    raise SystemExit, "over"

lua.setglobal("leave", leave)
fault("the end is not caught", "SystemExit: over", execute, "pcall(leave) return 1")

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
