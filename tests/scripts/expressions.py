# Expressions: operators without rank, displays, subscripts, chains, calls, conditions.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import expressions.thing

# Operators go from left to right
same("no precedence", 2 + 3 * 4, 20)
same("left to right", 20 - 4 / 2 - 1, 7)
same("division cuts towards zero", [-7 / 2, 7 / -2, -7 % 2], [-3, -3, -1])
same("minus in front of a number", 7 - -2, 9)
same("format", "%s-%s" % (1, 2) + "!", "1-2!")
x = 1 == 2
y = 5 and nobody
same("an assignment does not look at what follows its expression", [x, y], [1, 5])

def sum_of(n):
    more = " + 1" * n
    exec "_G.total = 1" + more
    return total

same("thirty-two operators", sum_of(32), 33)
fault("thirty-three", "RuntimeError: Maximum stack depth exceded", sum_of, 33)

# What is refused
for text in ["x = -_B", "x = -(1)", "x = -'1'", "x = not True", "repr(True and False)", "x = [1 == 1]", "x = 1 2"]:
    fault_class(text, "SyntaxError", run, text)

for text in ["x = 1 = 2", "x =", "x = 1 +", "x = [1,", "x = [1,,2]", "x = {1:}", "x = {1}"]:
    fault_class(text, "SyntaxError", run, text)

for text in ["x = [1][-b]", "x = [1][]", "x = [1][0:1:2]", "x = repr(1,", "x = repr(1 2)", "assert True and (True or False)", "assert", "assert 1 is 1"]:
    fault_class(text, "SyntaxError", run, text)

# Displays
same("parentheses make a tuple", [(1), (), (1, 2,), ((1))], [(1,), (), (1, 2), ((1,),)])
same("a tuple of one", type((1)), "TupleType")
same("tuple of a sum", (1 + 2), tuple([3]))
same("lists", [[], [1], [1, 2,], [[], [[]]]], [[], [1], [1, 2], [[], [[]]]])
same("dicts", [{}, {"a": 1}, {1: 2, "b": {},}], [{}, {"a": 1}, {1: 2, "b": {}}])

# Literals are the same object each time, so a list display is new at every pass
def fresh():
    x = []
    x.append(1)
    return x

same("list displays are new", [fresh(), fresh()], [[1], [1]])

# Subscripts
a = [10, 11, 12, 13]
b = 1
same("index", [a[0], a[-1], a[b], a[b + 1]], [10, 13, 11, 12])
same("slices", [a[1:], a[:2], a[:], a[1:3], a[:-1], a[-2:], a[3:1]], [[11, 12, 13], [10, 11], [10, 11, 12, 13], [11, 12], [10, 11, 12], [12, 13], []])
fault("index out of range", "KeyError: The key 4 does not exist", run, "x = [1][4]")
fault("string index out of range", "IndexError: string index out of range", run, "x = 'abc'[3]")
fault("missing key", "KeyError: The key 'k' does not exist", run, "x = {}['k']")
empty = {}
def missing_in_chain():
    empty["k"]["l"] = 2

def missing_attribute():
    x = check.nothing

import check
fault("missing key in a statement", "KeyError: k", missing_in_chain)
fault("missing attribute of a module", "AttributeError: AttributeErrror nothing", missing_attribute)

# Chains
deep = {"list": [1, {"call": same}], "text": "a,b"}
same("attributes and subscripts", deep.list[1]["call"].__name__, "same")
same("call in a chain", deep.text.split(",")[1].upper() + "!", "B!")
same("methods of literals", ["a-b".split("-"), [3, 4].sum(), "%i" % [5]], [["a", "b"], 7, "5"])

def chain_of(n):
    steps = "[0]" * n
    value = [1]
    value[0] = value
    _G.circle = value
    exec "_G.end = value" + steps
    value[0] = None

fault("a chain of thirty-three steps", "RuntimeError: Maximum stack depth exceded", chain_of, 33)
circle[0] = None
same("of thirty-two", chain_of(32), None)

# Calls
def show(first, second="two", *rest, **named):
    return [first, second, rest, named]

same("positions", show(1), [1, "two", (), {}])
same("surplus", [show(1, 2, 3, 4), show(1, 3, 4, 5, c=6)], [[1, 2, (3, 4), {}], [1, 3, (4, 5), {"c": 6}]])
same("names", show(second=5, first=6, third=7), [6, 5, (), {"third": 7}])
same("spread", show(*[1, 2, 3]), [1, 2, (3,), {}])
same("spread of a tuple in the middle", show(0, *(1, 2), *[3]), [0, 1, (2, 3), {}])
same("spread of names", show(1, **{"second": 3, "x": 4}), [1, 3, (), {"x": 4}])
same("sums as arguments", show(1 + 1 * 2, second=3 - 1), [4, 2, (), {}])
same("trailing comma", show(1, 2,), [1, 2, (), {}])
fault_class("names from something else", "TypeError", run, "x = repr(1, **[1])")
fault("a number is not callable", "ObjectNotCallableException: The IntType is not callable", run, "x = 5(1)")
same("a call without a value gives None", [run("pass")], [None])

# Conditions
def yes(text):
    exec "assert " + text
    return 1

def decide(text):
    _G.decision = "undecided"
    try:
        yes(text)
        _G.decision = True
    except AssertionError:
        _G.decision = False
    return decision

same("comparisons", [decide("1 < 2"), decide("2 <= 2"), decide("3 > 4"), decide("3 >= 4"), decide("3 == 3"), decide("3 <> 3"), decide("3 != 4")], [True, True, False, False, True, False, True])
same("not", [decide("not 0"), decide("not 1"), decide("not 1 == 2"), decide("not True and not True")], [True, False, True, False])
same("in a list", [decide("1 in [1, 2]"), decide("3 in [1, 2]"), decide("'b' in 'abc'"), decide("2 in (1, 2)")], [True, False, True, True])
same("in a dict means its keys", [decide("'k' in {'k': 0}"), decide("0 in {'k': 0}")], [True, False])
same("not in", [decide("1 not in [1, 2]"), decide("not 1 in [1, 2]"), decide("3 not in [1, 2]")], [False, False, True])
same("sums on both sides", decide("1 + 2 * 3 == 10 - 1"), True)
same("strings and containers are always true", [decide("''"), decide("[]"), decide("{}"), decide("()"), decide("'0'")], [True, True, True, True, True])
same("numbers and singletons", [decide("0"), decide("0.0"), decide("2"), decide("None"), decide("True"), decide("False")], [False, False, True, False, True, False])
same("False ends the condition: and, or are not ranked", [decide("False and True or True"), decide("True or False and False"), decide("True and False or True")], [False, True, True])
same("what is skipped is not evaluated", [decide("True or nobody(')', [nobody]) == {nobody}"), decide("False and nobody((1), [2])")], [True, False])

# Comparisons across types
same("string and number", [decide("'1' == 1"), decide("1 == '1'"), decide("'a' < 1"), decide("'a' > 1")], [False, False, False, True])
same("int and float go by the left side", [decide("2 == 2.7"), decide("2.7 == 2")], [True, False])
same("True and numbers", [decide("True == 5"), decide("5 == True"), decide("False == 0"), decide("None == None"), decide("None == 0")], [True, False, True, True, False])
same("lists", [decide("[1, 2] == [1, 2]"), decide("[1] == (1)"), decide("[1, 2] < [1, 3]"), decide("{'a': 1} == {'a': 1}")], [True, False, True, True])

# dir
def member(value, name):
    if name in dir(value): return "there"
    return "absent"

same("dir of a namespace", [member(expressions.thing, "method"), member(expressions.thing, "nothing")], ["there", "absent"])
def branch_has(path, name):
    if name in dir[path]: return "there"
    return "absent"

def branches():
    if "expressions" in dir[]: return "there"
    return "absent"

same("dir[] names the branches of modules", branches(), "there")
same("dir[path] names what is in one", [branch_has("expressions", "thing"), branch_has("ipe", "tokenizer"), branch_has("expressions", "x")], ["there", "there", "absent"])

# Receivers
thing = expressions.thing(5)
same("method", thing.method(1), [5, 1])
f = thing.method
fault("a method has no receiver of its own", "NotEnoughArgumentsException: method() takes 2 arguments; (1) given", f, 1)
same("the receiver stays through the chain", thing.lookup()["get"](2), [5, 2])
thing.inner = expressions.thing(6)
same("the last dot decides", thing.inner.method(3), [6, 3])
thing("statement")
same("a called instance gets itself in a statement", thing.called, "statement")

class expressions.thing:

def __init__(self, value):
    self.value = value

def method(self, argument):
    return [self.value, argument]

def lookup(self):
    return {"get": self.method}

def __call__(self, text):
    self.called = text
