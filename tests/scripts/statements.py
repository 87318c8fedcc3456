# Statements: every rule of if, while, for, with, assignment, print, del, exec, assert.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import statements.guard

# if
def grade(n):
    if n < 10:
        return "small"
    elif n < 100:
        return "middle"
    elif explode():
        return "never"
    else:
        return "large"

same("the condition behind a taken one is not evaluated", [grade(1), grade(50)], ["small", "middle"])
fault("a reached condition is", "NameError: Name error explode", grade, 500)

def inline(n):
    if n > 5: return "above"
    if n > 3: n = n * 10
    return n

same("inline if", [inline(6), inline(4), inline(1)], ["above", 40, 1])

def inline_else(n):
    if n: return 1
    else: return 2

fault("no else behind an inline if", "SyntaxError: SyntaxError:     else : return 2", inline_else, 0)

def inline_deeper():
    if False: x = 1
        x = 2

fault("deeper line behind an inline if", "IndentError: Expecting indent of 4", inline_deeper)

def no_body():
    if True:
    return 1

def too_deep():
    x = 1
        y = 2

def shallow_comment():
    if True:
        x = 1
    # this comment ends the block above
        x = 2
    return x

fault("missing body", "IndentError: Expecting indent of 6 or more", no_body)
fault("deeper line", "IndentError: Expecting indent of 4", too_deep)
fault("a comment has an indent", "IndentError: Expecting indent of 4", shallow_comment)

def unread(n):
    if n:
        return "not looked at"
    else:
        = ) nonsense +

same("a skipped block is never examined", unread(1), "not looked at")
fault_class("until it is reached", "SyntaxError", unread, 0)

# while
def count_to(n):
    i = 0
    log = []
    while i < n:
        i = i + 1
        if i == 2:
            continue
        if i == 5:
            break
        log.append(i)
    else:
        log.append("never ran")
    return log

same("while with continue and break", count_to(9), [1, 3, 4])
same("else of while: only when the body never ran", [count_to(1), count_to(0)], [[1], ["never ran"]])

def inline_while(n):
    i = 0
    while i < n: i = i + 1
    while True: return i

same("inline while, and return out of it", [inline_while(7), inline_while(0)], [7, 0])

def while_return():
    i = 0
    while True:
        i = i + 1
        for k in [1, 2, 3]:
            if i * k == 12:
                return (i, k)

same("return out of nested loops", while_return(), (4, 3))

# for
def nested():
    log = []
    for a in [1, 2, 3]:
        for b in (1, 2, 3):
            if b == 2: continue
            if a == 2:
                break
            log.append(a * 10 + b)
    return log

same("nested for", nested(), [11, 13, 31, 33])

def pairs():
    log = []
    for name, value in [("a", 1), ["b", 2], ("c", 3, 4)]:
        log.append(name + value)
    return log

same("for with several names", pairs(), ["a1", "b2", "c3"])

def growing():
    items = [1, 2]
    seen = []
    for i in items:
        items.append(i)
        seen.append(i)
    return (seen, items)

def shrinking():
    items = [1, 2, 3]
    for i in items:
        del items[0]

same("elements appended during the loop are not visited", growing(), ([1, 2], [1, 2, 1, 2]))
fault("a list that shrinks during the loop", "IndexError: list index out of range", shrinking)

def over(value):
    for x in value:
        pass

for value in [{}, "abc", 5, None]:
    fault("for over " + type(value), "TypeError: Expecting a sequence type (List or Tuple) got " + type(value), over, value)

same("for over nothing", over([]), None)

def last_value():
    for i in [7, 8]:
        inside = i
    return i + inside

same("no block scope", last_value(), 16)

def stray_break():
    if True:
        break

def stray_continue():
    continue

fault("break outside a loop", "SyntaxError: 'break' outside loop", stray_break)
fault("continue outside a loop", "SyntaxError: 'continue' outside loop", stray_continue)

def break_in_try():
    log = []
    for i in [1, 2]:
        try:
            log.append(i)
            break
            log.append("not reached")
        finally:
            log.append("finally")
        log.append("rest")
    return log

same("break in try: the rest of the body still runs", break_in_try(), [1, "finally", "rest"])

# with
def with_guard():
    g = statements.guard()
    with g as x:
        g.log.append(x)
    with g:
        g.log.append("unnamed")
    with g y:
        g.log.append(y)
    return g.log

def break_in_with():
    g = statements.guard()
    for i in [1, 2]:
        with g:
            g.log.append(i)
            break
            g.log.append("not reached")
        g.log.append("after")
    return g.log

def raise_in_with():
    g = statements.guard()
    try:
        with g:
            raise Lost
    except Lost:
        g.log.append("caught")
    return g.log

same("with", with_guard(), ["enter", "handle", "exit", "enter", "unnamed", "exit", "enter", "handle", "exit"])
same("break leaves the with alone", break_in_with(), ["enter", 1, "exit", "after", "enter", 2, "exit", "after"])
same("an exception passes without exit", raise_in_with(), ["enter", "caught"])

# Assignment
a, b = (1, 2, 3)
same("extra values are ignored", [a, b], [1, 2])
c, d = "xy"
same("names from a string", [c, d], ["x", "y"])
fault("too few values", "RuntimeError: Expected 3 return values, received only 2.", run, "a, b, c = (1, 2)")

counter = 1
def assigns_local():
    counter = 2
    return counter

def assigns_global():
    _G.counter = 3
    return counter

same("a function assigns its own names", [assigns_local(), counter], [2, 1])
same("the module's names through _G", [assigns_global(), counter], [3, 3])

data = {"list": [1, 2, {"x": 0}]}
data["list"][2]["x"] = 5
data.list[0] = "first"
data.new = {}
data.new["k"] = 1
same("assignment through a chain", [data["list"], data["new"]], [["first", 2, {"x": 5}], {"k": 1}])

# Names that are always there
def has_local(name):
    third = 3
    if dir(_L).index(name) >= 0:
        return "there"
    return "absent"

same("_L is the namespace of the call", [has_local("third"), has_local("fourth")], ["there", "absent"])
same("_G is the namespace of the module", _G.counter, 3)

# print
def printed(flavour):
    lines = []
    _G.lines = lines
    __stdout__ = lines.append
    if flavour == 1: print "a", 1, None, [2, "b"]
    if flavour == 2: print "open",
    if flavour == 3: print
    return lines

same("print", printed(1), ["a 1 None [2, \"b\"]\r\n"])
same("a trailing comma leaves the line open", printed(2), ["open"])
same("print alone", printed(3), ["\r\n"])
keep = _B.__stdout__
delattr(_B, "__stdout__")
print "nobody listens"
_B.__stdout__ = keep

# del
items = [1, 2, 3]
del items[1]
table = {"a": {"b": 1, "c": 2}}
del table.a["b"]
del table["absent"]
same("del", [items, table], [[1, 3], {"a": {"c": 2}}])
fault("del of an unknown name", "NameError: NameError nothing", run, "del nothing[0]")

def del_name():
    x = 1
    del x

fault("no del of a name", "SyntaxError: SyntaxError:     del x", del_name)

# exec
def exec_here():
    x = 1
    exec "x = x + 41"
    return x

same("exec runs in the frame", exec_here(), 42)
fault_class("exec takes simple statements", "SyntaxError", run, "if True: pass")
fault_class("exec of nothing", "SyntaxError", run, "")

# assert
def asserting(value):
    assert value == 3

same("assert", asserting(3), None)
fault("assertion", "AssertionError: Assertion LHS: 4", asserting, 4)

# A string, pass and a nested class line do nothing
def quiet():
    "documentation"
    pass
    class Nothing
    """more
    lines"""
    return "end"

same("lines without effect", quiet(), "end")

# __stop__ abandons the rest of a statement
log = []
def note(text):
    log.append(text)
    return text

def trace(text):
    log.append("trace " + text)

trace.__stop__ = 1
trace(note("argument"))
same("a stopped function evaluates nothing", log, [])
trace.__stop__ = 0
trace(note("argument"))
same("even a statement that would clear it", log, [])
setattr(trace, "__stop__", 0)
trace(note("argument"))
same("an open one runs", log, ["argument", "trace argument"])

def silent():
    return 1

trace.__stop__ = silent
trace(note("again"))
same("a function decides", len(log), 2)
setattr(trace, "__stop__", None)
trace("last")
same("None clears", log[2], "trace last")

# Depth
def deeper(n):
    return deeper(n + 1)

fault("call depth", "SandboxError: Reached maximum call depth of 101", deeper, 0)

# How return, break, continue, raise and exec cross blocks, and what the one-line forms refuse
def continue_in_handler():
    for i in [1,2,3]:
        try:
            raise Zero
        except Zero:
            continue
        same("not reached", 1, 2)
    return i

same("continue in handler", continue_in_handler(), 3)

def raise_in_finally():
    try:
        try:
            raise X, "x"
        finally:
            raise Y, "y"
    except Y, e:
        return str(e)

same("raise in finally", raise_in_finally(), "y")

def return_in_with():
    while True:
        with 1:
            return 5

same("return in with in while", return_in_with(), 5)

def return_in_finally():
    try:
        pass
    finally:
        return 7
    return 8

same("return in finally", return_in_finally(), 7)

def inline_elif(n):
    if n == 1:
        x = "a"
    elif n == 2: x = "b"
    return x

fault_class("an elif wants a block", "IPESyntaxException", inline_elif, 2)
fault_class("even one that is passed over", "IndentError", inline_elif, 1)

def inline_for():
    for i in range(0, 3): pass

fault_class("no inline for", "IPESyntaxException", inline_for)

def inline_try():
    try: x = 1
    except : x = 2
    return x

fault_class("no inline try", "IndentError", inline_try)

def with_blank_lines(n):
    if n:

        x = 1

        y = 2
    else:

        x = 3
    return x

same("blank lines", [with_blank_lines(1), with_blank_lines(0)], [1, 3])

def return_in_while_else():
    while False:
        pass
    else:
        return "else"

same("return in while else", return_in_while_else(), "else")

def exec_return():
    exec "return 5"
    return 6

same("return in exec", exec_return(), 5)

def exec_break():
    for i in [1, 2, 3]:
        exec "break"
    return i

same("break in exec", exec_break(), 1)

fault_class("exec del of a display", "SyntaxError", run, "del {}[1]")

fault_class("exec of def", "SyntaxError", run, "def elif_behind_inline(): pass")
fault_class("exec of two lines", "SyntaxError", run, "x = 1\ny = 2")

# Unknown names
fault("unknown name in a statement", "NameError: There is no variable named 'nobody'", run, "nobody()")
fault("unknown name in an expression", "NameError: Name error nobody", run, "x = nobody")
return
print "FAILED: return ends the module"

class statements.guard:

log = []

def __enter__(self):
    self.log.append("enter")
    return "handle"

def __exit__(self):
    self.log.append("exit")
