# Classes are modules; instances are copies of them; reuse goes through delegates.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import classes.plain, classes.point, classes.base, classes.derived, classes.mixed, classes.container, classes.link
import classes.dynamic, classes.empty

# Instances are snapshots
p = classes.point(1, 2)
q = classes.point(3)
same("fields", [p.x, p.y, q.x, q.y], [1, 2, 3, 0])
same("method", p.sum(10), 13)
p.tags.append("p")
same("each instance has its own containers", [p.tags, q.tags, classes.point.tags], [["p"], [], []])
classes.point.later = 5
same("later changes of the class show in new instances", classes.point(1).later, 5)
fault("and not in old ones", "RuntimeError: The object does not contain the requested method", getattr, p, "later")
same("but a default", getattr(p, "later", "default"), "default")
same("arguments without __init__ are ignored", classes.plain(1, 2, x=3).value, 1)
same("what __init__ returns is dropped", type(classes.point(1)), "ClassType")
same("module and name", [p.__module__, p.__name__, type(p), type(classes.point)], ["classes", "point", "ClassType", "IPE_ModuleShared"])
same("str without __str__", str(p), "\"@class point\"")
same("str with it", str(classes.container()), "a container")
same("repr", repr(classes.container()), "\"@class container\"")
def imports_reach():
    return classes.point(1).classes

fault("imports of the class body do not reach an instance", "RuntimeError: The object does not contain the requested method", imports_reach)

def equal(a, b):
    if a == b: return "equal"
    return "different"

same("instances are equal only to themselves", [equal(p, p), equal(p, classes.point(1, 2))], ["equal", "different"])
same("an instance leaves no copy", [objectstrip([p, 1]), objectstrip(p)], [[1], None])

# Special methods
box = classes.container()
box["k"] = 5
box[2] = "two"
same("subscripts", [box["k"], box[2], box.data], [5, "two", {"k": 5, 2: "two"}])
del box["k"]
same("del of a subscript", box.data, {2: "two"})
def enter(value):
    with value:
        pass

import check
check.p = p
for text, name in [("x = p[0]", "__getitem__"), ("p[0] = 1", "__setitem__"), ("del p[0]", "__delitem__"), ("x = [p(1)]", "__call__")]:
    fault(text, "RuntimeError: The class does not have a " + name + " method", run, text)

fault("no __enter__", "RuntimeError: The class does not have a __call__ method", enter, p)

# __call__ gets the instance by itself in a statement, and as a method; an expression passes the arguments alone
box("one")
same("call as a statement", box.calls, [("one",)])
same("call as a method", box.__call__("two"), 2)
def called_alone():
    return [box("three")]

same("call in an expression: the first argument is no instance", called_alone(), ["three has no calls"])

# Delegates
d = classes.derived("name")
same("own, extended, implemented", [d.own(), d.shared(), d.first(), d.second()], ["own of name", "derived", "first of name", "second of name"])
same("a method of a delegate runs with the receiver", d.describe(), "base sees name")
same("fields of the delegate", d.base_field, 7)
same("super", super(d).base_field, 7)
same("__extends__", [type(d.__extends__), d.__extends__.__name__, classes.plain().__extends__], ["ClassType", "base", None])
same("__implements__", [len(d.__implements__), classes.plain().__implements__], [2, []])
d.__extends__ = 5
same("assigning __extends__ does not extend", d.__extends__.__name__, "base")
d.base_field = 8
same("assignment stays in the instance", [d.base_field, super(d).base_field], [8, 7])
names = dir(d)
def has(name):
    if name in names: return 1
    return 0

same("dir tells the delegates' names", [has("own"), has("base_field"), has("describe"), has("second")], [1, 1, 1, 1])
fault("a miss", "RuntimeError: The object does not contain the requested method", getattr, d, "nothing")
fault("super of no class", "RuntimeError: A class instance must be passed to super, not IntType", super, 5)
fault("super without one", "RuntimeError: The class does not have a super", super, p)
same("a single object as implements", classes.mixed().first(), "first of mixed")

# __getattr__ is asked last
dyn = classes.dynamic()
same("__getattr__", [dyn.known, dyn.anything, dyn.other], [1, "made anything", "made other"])

# The depth of delegation
def linked(levels):
    last = classes.plain()
    for i in range(0, levels):
        last = classes.link(last)
    return last.value

same("ten levels", linked(10), 1)
fault("eleven levels", "SandboxError: Reached maximum call depth of 11", linked, 11)
circle = classes.link(None)
circle.target = 1
same("an extended object that is missing", circle.__extends__, None)

class classes.empty:

class classes.plain:

value = 1

class classes.point:

import classes.empty
tags = []

def __init__(self, x, y=0):
    self.x = x
    self.y = y
    return "dropped"

def sum(self, more):
    return self.x + self.y + more

class classes.container:

def __init__(self):
    self.data = {}
    self.calls = []

def __str__(self):
    return "a container"

def __getitem__(self, key):
    return self.data[key]

def __setitem__(self, key, value):
    self.data[key] = value

def __delitem__(self, key):
    del self.data[key]

def __call__(self, *rest):
    if type(self) <> "ClassType": return self + " has no calls"
    self.calls.append(rest)
    return len(self.calls)

class classes.base:

base_field = 7

def shared(self):
    return "base"

def describe(self):
    return "base sees " + self.name

class classes.derived(classes.base):

import classes.base, classes.first, classes.second

def __new__(self, name):
    return classes.base()

__new__.__implements__ = [classes.first(), classes.second()]

def __init__(self, name):
    self.name = name

def own(self):
    return "own of " + self.name

def shared(self):
    return "derived"

class classes.first:

def first(self):
    return "first of " + self.name

class classes.second:

def first(self):
    return "hidden"

def second(self):
    return "second of " + self.name

class classes.mixed:

import classes.first
name = "mixed"

def __new__(self):
    pass

__new__.__implements__ = classes.first()

class classes.dynamic:

known = 1

def __getattr__(self, key):
    return "made " + key

class classes.link:

def __new__(self, target):
    return target
