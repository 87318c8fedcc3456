# Modules: loading, import, from, optional imports, native modules, the built-ins' hook.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

same("load tells the modules of a file", interpreter("load", fs("get_env", "QUILL_SCRIPTS") + "/lib/other.py"), ["modules.other", "modules.early", "modules.faulty", "modules.circle_a", "modules.circle_b", "modules.half_a", "modules.half_b", "modules.lazy"])

import modules.counter
same("an import runs the module", modules.counter.count, [0])
import modules.other
same("prefixes are namespaces", [type(modules), type(modules.other), modules.other.answer], ["IPE_ModuleShared", "IPE_ModuleShared", 42])
same("modules share the loaded one", modules.counter.count, [1])
import modules.other
same("each runs once", modules.counter.count, [1])
modules.other.set(43)
same("functions keep their module's names", [modules.other.read(), modules.other.answer], [43, 43])

from modules.other import read, answer
same("from", [read(), answer], [43, 43])
answer = 1
same("names are copied", [answer, read()], [1, 43])
from modules.other import read set
same("commas are optional behind from", type(set), "CodeType")
from modules.early import *
same("return ends a module alone, its importer goes on", value, 1)

for text, want in [("import absent_module", "ImportError: absent_module"), ("import modules.absent", "ImportError: modules.absent"), ("from absent_module import x", "ImportError: absent_module"), ("from modules.absent import *", "ImportError: modules.absent"), ("from modules.other import no_such_name", "AttributeError: AttributeError no_such_name")]:
    fault(text, want, run, text)

fault("an exception at import comes to the importer", "Broken: at import", run, "import modules.faulty")
for text in ["import modules.", "from modules.other"]:
    fault_class(text, "SyntaxError", run, text)

import modules.nowhere pass
same("an optional import of nothing leaves a namespace", [type(modules.nowhere), dir(modules.nowhere)], ["IPE_ModuleShared", []])
import modules.other pass modules.absent pass
same("an optional import of something", modules.other.answer, 43)

def circle():
    import modules.circle_a

# A module counts as loaded when its import has ended, with `from` as soon as it begins.
fault("a circle of imports never ends by itself", "SandboxError: Reached maximum call depth of 101", circle)
from modules.half_a import before, after
same("a circle of from does", [before, after], [1, 6])

# An import in a function lands in the module
def import_inside():
    import modules.inside
    return modules.inside.value

same("an import in a function", [import_inside(), modules.inside.value], [6, 6])

# Native modules
import ipe.tokenizer, ipe.re
same("native modules", [type(ipe.tokenizer.create), type(ipe.re.compile)], ["BridgeType", "BridgeType"])
t = ipe.tokenizer.create()
same("native objects have no receiver to pass", t.assign("x"), None)

# Argument checks of native functions
fault("wrong type", "TypeError: Index 0 requires StringType arguments, IntType given", ord, 1)
fault("too few", "TypeError: ord requires 1 arguments, 0 given", ord)
fault("too many", "TypeError: ord requires 1 arguments, 2 given", ord, "a", "b")
fault("an optional argument of the wrong type", "TypeError: Index 2 requires IntType arguments, StringType given", range, 1, 2, "3")

# The registry
def holds(list, value):
    if value in list: return 1
    return 0

same("branches", [holds(interpreter("modules"), "modules"), holds(interpreter("modules"), "ipe")], [1, 1])
same("names in a branch", [holds(interpreter("modules", "modules"), "other"), holds(interpreter("modules", "modules"), "absent")], [1, 0])
same("a name without a dot lies in the empty branch", holds(interpreter("modules", ""), "startup_custom"), 1)
stored = eval(repr(interpreter("module_get", "modules.early")))
same("the stored form", [stored["module"], stored["file"][-8:], stored["line"], stored["tokens"][0][1], stored["tokens"][0][2][:2]], ["modules.early", "other.py", 16, 0, [5, "value"]])
fault("module_get of nothing", "ImportError: No module named 'nowhere.else'", interpreter, "module_get", "nowhere.else")
fault("of a missing leaf", "KeyError: Three", interpreter, "module_get", "modules.Three")
fault_class("load of no file", "IOError", interpreter, "load", "/no such file.py")
same("module_set does nothing", interpreter("module_set", "modules.early", 1), None)
same("a node", type(interpreter("module_get", "modules.early")), "ModuleSourceType")

# The hook for missing built-ins
import modules.lazy
_B.__lazy_load__ = modules.lazy.load
def demand():
    return made_on_demand

def demand_nothing():
    return never_made

same("a built-in made on demand", demand(), "made")
fault("one that is not", "NameError: Name error never_made", demand_nothing)
fault("asked once only", "NameError: Name error never_made", demand_nothing)
def count(name):
    total = 0
    for asked in modules.lazy.asked:
        if asked == name: total = total + 1
    return total

same("the hook is asked once per name", [count("made_on_demand"), count("never_made")], [1, 1])

class modules.counter:

count = [0]

class modules.inside:

value = 6
