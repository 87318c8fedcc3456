# A second source file of the modules test.

class modules.other:

import modules.counter
modules.counter.count[0] = modules.counter.count[0] + 1
answer = 42
_underscored = 1

def read():
    return answer

def set(value):
    _G.answer = value

class modules.early:

value = 1
return
value = 2

class modules.faulty:

raise Broken, "at import"

class modules.circle_a:

before = 1
import modules.circle_b
after = modules.circle_b.value

class modules.circle_b:

import modules.circle_a
value = 5

class modules.half_a:

before = 1
from modules.half_b import seen
after = seen + 5

class modules.half_b:

from modules.half_a import before
seen = before

class modules.lazy:

asked = []
def load(name):
    asked.append(name)
    if name == "made_on_demand": _B.made_on_demand = "made"
