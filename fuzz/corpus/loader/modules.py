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

def missing():
    import absent_module

def missing_dotted():
    import modules.absent

def missing_from():
    from absent_module import x

def missing_star():
    from modules.absent import *

def missing_name():
    from modules.other import no_such_name

def faulty():
    import modules.faulty

def bad_import():
    import modules.

def bad_from():
