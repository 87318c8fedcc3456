# def: parameters, types, aspects, return types, decorators, attributes of functions.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import functions.doubling

# Parameters

def fixed(a, b):
    return [a, b]

same("surplus arguments are ignored", fixed(1, 2, 3, 4), [1, 2])
same("so are unknown names", fixed(1, b=2, c=3), [1, 2])
fault("too few", "NotEnoughArgumentsException: fixed() takes 2 arguments; (1) given", fixed, 1)
fault("none", "NotEnoughArgumentsException: fixed() takes 2 arguments; () given", fixed)

def both():
    return fixed(1, 2, a=3)

fault("a name for a filled position", "TypeError: fixed() got multiple values for keyword argument a", both)

def many_lines(
        a,
        b=2,
        *rest
        ):
    return [a, b, rest]

same("a parameter list may spread over lines", many_lines(1, 2, 3), [1, 2, (3,)])

base = 10
def with_default(a, b=base):
    return a + b

base = 20
same("a default is taken when the function is made", with_default(1), 11)

def shared(list=[]):
    list.append(1)
    return len(list)

same("and shared by the calls", [shared(), shared(), shared()], [1, 2, 3])

# No closures
def outer(hidden):
    def inner():
        return hidden
    return inner

fault("a nested function does not see the locals around it", "NameError: Name error hidden", outer(1))

def outer_default(given):
    def inner(kept=given):
        return kept
    return inner

inner = outer_default(5)
same("a default carries a value in", inner(), 5)

# Types convert
calls = []
def to_int(value, name="", func=None, args=None, kwargs=None, isreturn=None):
    calls.append([name, args, kwargs, isreturn])
    return long(value)

def area(width: to_int, height as to_int = 3):
    return width * height

same("a type converts its argument", area("4", "5"), 20)
same("a default is converted too", area("4"), 12)
calls = []
area("4", height="6")
same("what a type is told", calls, [["width", ("4",), {"height": "6"}, False], ["height", ("4",), {"height": "6"}, False]])

def text_of(value, isreturn=None):
    if isreturn: return "returned " + str(value)
    return value

def three() -> text_of:
    return 3

def four() as text_of:
    return 4

same("return types", [three(), four()], ["returned 3", "returned 4"])

def loses(value, isreturn=None):
    return

def lost(a: loses):
    return a

def lost_result() -> loses:
    return 1

fault("a type that gives nothing", "TypeError: The __call__ method on the type object did not return a value", lost, 1)
fault("a return type that gives nothing", "TypeError: The __call__ method on the type object did not return a value", lost_result)

doubling = functions.doubling()
def doubled(a: doubling):
    return a

same("an instance as a type", doubled(4), 8)

# Aspects
def plus_one(value, name=""):
    return value + 1

def seen(value):
    calls.append(value)

def aspected(a = 1 + plus_one + seen + plus_one):
    return a

calls = []
same("aspects change the value", [aspected(), aspected(5)], [3, 7])
same("one that gives None does not", calls, [2, 6])

def listed(a: to_int = "1" + [plus_one, plus_one], b=0):
    return a + b

same("aspects in a list, behind a type", listed("5", 1), 8)

# Decorators
order = []
def appending(letter):
    def decorator(code, kept=letter):
        order.append(kept)
        return code
    return decorator

a, b, c, d = (appending("a"), appending("b"), appending("c"), appending("d"))
def hook(code):
    order.append("aspect")
    return code

__aspect__ = hook
@a
@b
def decorated[c, d](x):
    return x
delattr(_G, "__aspect__")

same("the last decorator comes first", order, ["d", "c", "aspect", "b", "a"])
same("the function is bound", decorated(7), 7)

order = []
using:
    a
    b
def grouped():
    return "grouped"

same("using groups decorators", order, ["b", "a"])

def replace(code):
    return "no function"

@replace
def replaced():
    return 1

same("a decorator may give anything", replaced, "no function")

def nothing(code):
    return

def falls_off(code):
    pass

def decorate_nothing():
    @nothing
    def f():
        pass

def decorate_none():
    @falls_off
    def f():
        pass
    return f

fault("return alone gives no value", "TypeError: The decorator did not return a value", decorate_nothing)
same("falling off the end gives None", decorate_none(), None)

# Results
def bare():
    return

def end():
    pass

same("no result is None", [bare(), end()], [None, None])
same("return of a sum", plus_one(1) * 10, 20)

# Attributes of functions
def documented(first, second="x", third: to_int = 1 + plus_one) -> text_of:
    "What it does."
    if first: raise Oops, "message"
    raise Other

same("documentation and name", [documented.__doc__, documented.__name__], ["What it does.", "documented"])
same("an absent attribute is None", [documented.color, end.__doc__], [None, None])
documented.color = "red"
same("attributes can be set", documented.color, "red")
same("the dict behind them", documented.__dict__["color"], "red")
rows, result = documented.signature
same("signature: parameters", [rows[0][0], rows[1][0], rows[2][0]], ["first", "second", "third"])
same("signature: defaults", [rows[0][1], rows[1][1], rows[2][1]], [None, "x", 1])
same("signature: aspects", [len(rows[0][2]), rows[2][2][0].__name__], [0, "plus_one"])
same("signature: types", [rows[0][3], rows[2][3].__name__, result.__name__], [None, "to_int", "text_of"])
same("what the body raises", documented.raises, ["Other"])
same("source", [documented.source[0][-12:], type(documented.source[1])], ["functions.py", "IntType"])

class functions.doubling:

def __call__(self, value, name="", func=None, args=None, kwargs=None, isreturn=None):
    return value * 2
