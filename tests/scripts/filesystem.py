# The commands of fs against a real tree. test_fs.cpp tells the paths, the listings and the names that are not UTF-8.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

root = fs("get_env", "QUILL_SCRATCH")

def make(name, text):
    file = open(root + "/" + name, "w")
    file.write(text)
    file.close()
    return root + "/" + name

def text_of(name):
    return open(root + "/" + name).readline()

def there(name):
    return len(fs("ls_details", root + "/" + name)["path"])

# The command fails by the name of its call and the number of the system's error.
def refused(want, *words):
    try:
        fs(*words)
    except Exception, e:
        same(words[0], e.raised + ": " + e.decode.split(")")[0] + ")", want)
    else:
        print "FAILED", words

# Paths
same("separators", fs("path_to_string", ["C:", "dir", "file"]), "C:\\dir\\file")
fault("a path", "TypeError: Require a 'StringType' but given a 'IntType'", fs, "path_to_string", 5)
fault("no command", "RuntimeError: Unknown fs command: no_such", fs, "no_such")
fault("too few", "TypeError: fs requires 3 arguments, 2 given", fs, "rename", "a")

# Levels
def levels(path):
    _G.created = []
    fs("mkdir", path, on_create=created.append)
    return created

path = [root, "a", "b", "c"]
same("mkdir tells what it made", [levels(path), levels(path), levels(root + "/a/d")], [[root + "\\a", root + "\\a\\b", root + "\\a\\b\\c"], [], [root + "/a/d"]])
fs("mkdir", ["", root[1:], "e", "f"])
same("from the root", there("e/f"), 1)
refused("RuntimeError: CreateDirectory (2)", "mkdir", root + "/x/y")
a = make("a.txt", "one")
def under_file():
    try:
        fs("mkdir", [root, "a.txt", "y"])
    except RuntimeError, e:
        return e.strings["path"]

same("the path that failed", under_file(), root + "\\a.txt\\y")
for name in ["a/b/c", "missing", "a.txt/below"]:
    same("rmdir", fs("rmdir", root + "/" + name), None)

same("is gone", there("a/b/c"), 0)
refused("RuntimeError: RemoveDirectory (39)", "rmdir", root + "/a")
fs("ln_soft", root + "/junction", "a")
same("a link goes, what it names stays", [fs("rmdir", root + "/junction"), fs("ls_paths", root + "/jun*"), there("a/b")], [None, [], 1])

# Files
b = make("b", "two")
c = root + "/c"
refused("RuntimeError: MoveFile (17)", "rename", a, b)
same("copy", [fs("copy", a, b), text_of("b")], [None, "one"])
refused("RuntimeError: CopyFile (2)", "copy", root + "/missing", b)
same("rename", [fs("rename", a, c), fs("erase", a), fs("erase", c, 1)], [None, 0, 1])
refused("RuntimeError: DeleteFile (2)", "erase", a, 1)
refused("RuntimeError: DeleteFile (21)", "erase", root)
same("ln_soft", [fs("ln_soft", root + "/link", "b"), text_of("link")], [None, "one"])
refused("RuntimeError: ipPersistFile->Save (17)", "ln_soft", root + "/link", "b")
refused("RuntimeError: CreateFile (2)", "ls_streams", root + "/missing")
same("ls_streams", fs("ls_streams", b), [])
make("ä世😀", "")
same("names in UTF-8", fs("erase", root + "/ä世😀"), 1)

# Names that are not UTF-8, made by the test's runner
bad = root + "/bad"
types = []
for name in fs("ls_details", [bad, "*"])["file"].keys():
    types.append(type(name))
    fs("rename", [bad, name], [bad, "renamed" + len(types)])

types.sort()
same("raw names have a type of their own, and rename like others", [types, len(fs("ls_files", [bad, "renamed?"]))], [["IPE_DirtyUTF16Type", "IPE_DirtyUTF16Type", "StringType"], 3])

# Times
def times(name):
    row = fs("ls_details", root + "/" + name)["file"][name]
    return [row["modified"], row["accessed"]]

date = (2001, 2, 28, 23, 59, 58)
before = times("b")[1]
fs("set_times", b, {"modified": date})
same("one alone", [times("b"), fs("ls_files", b)[0][0]], [[date, before], date])
refused("RuntimeError: SetFileTime (95)", "set_times", b, {"created": date, "accessed": date})
same("the others are set all the same", times("b")[1], date)
for wrong in [(2001, 2, 29, 0, 0, 0), (2001, 13, 1, 0, 0, 0), (1600, 1, 1, 0, 0, 0), (2001), "x", (2001, 1, 1, 0, 0, "0")]:
    refused("RuntimeError: SystemTimeToFileTime (22)", "set_times", b, {"modified": wrong})

refused("RuntimeError: CreateFile (2)", "set_times", root + "/missing", {})
fs("set_times", b, {"modified": (2000, 2, 29, 0, 0, 0)})
same("a leap day", times("b")[0], (2000, 2, 29, 0, 0, 0))

# Security
parts = ["dacl", "owner", "group"]
before = fs("get_security", b, parts)
same("owner", before["owner"][:11], "O:S-1-22-1-")
def mode():
    return fs("ls_details", b)["file"]["b"]["mode"] % 512

kept = mode()
fs("set_security", b, {"dacl": "D:(A;;FR;;;WD)"})
same("readable by all others", mode(), 4)
fs("set_security", b, before)
same("and back", [mode(), fs("get_security", b, parts)], [kept, before])
refused("RuntimeError: ConvertStringSecurityDescriptorToSecurityDescriptor (22)", "set_security", b, {"dacl": "D:(A"})
refused("RuntimeError: SetNamedSecurityInfo (95)", "set_security", b, {"dacl": "D:(D;;FA;;;WD)"})
refused("RuntimeError: SetNamedSecurityInfo (22)", "set_security", b, {"other": ""})
refused("RuntimeError: GetFileSecurity (2)", "get_security", root + "/missing", parts)
refused("RuntimeError: LookupPrivilegeValue (22)", "set_privilege", "SeNothing", True)
refused("RuntimeError: AdjustTokenPrivileges (95)", "set_privilege", "SeUndockPrivilege", True)
def entries(text):
    found = []
    for entry in fs("decode_sddl", text):
        found.append([entry["type"], entry["controls"], entry["flags"], entry["rights"], entry["trustee"]])
    return found

same("decode_sddl", entries("D:PAI(A;OICI;0x1F01FF;;;WD)(OA;;FAX;a;b;S-1-22-1-7)"), [["A", "PAI", ["OI", "CI"], [2032127], "S-1-1-0"], ["OA", "PAI", [], ["FA", "X"], "S-1-22-1-7"]])
same("parts, conditions", [len(entries(["D:(A;;FA;;;BA)", "S:(AU;SA;FA;;;WD)", "O:BA"])), len(entries("D:(XA;;FX;;;WD;(@User.a==(1)))(A;;FA;;;WD)"))], [2, 2])
open_ones = "(" * 200000
for wrong in ["", "D", "D:(A;;FA;;;WD", "D:(A;;0x;;;WD)", "D:(A;;0x123456789;;;WD)", "D:0123456789012345678901234567890123456789012345678901234567890123(A;;FA;;;WD)", "D:" + open_ones]:
    fault_class("damage", "AssertionError", entries, wrong)

refused("RuntimeError: ConvertStringSecurityDescriptorToSecurityDescriptor (22)", "decode_sddl", "D:(A;;FA;;;ZZ)")

# The system
same("fsinfo", fs("fsinfo", "/proc")["type"], "proc")
refused("RuntimeError: GetVolumeInformation (2)", "fsinfo", "/no/such")
same("fsstat", fs("fsstat", root).keys("A"), ["FreeBytes", "FreeBytesToCaller", "TotalBytes"])
guid = fs("guid")
def alike(a, b):
    if a == b: return 1
    return 0

same("guid", [guid.match("????????-????-4???-????-????????????"), alike(guid, fs("guid")), guid.upper()], [True, 0, guid])
name = "QUILL_NEW"
fault("no variable", "ERROR_ENVVAR_NOT_FOUND: GetEnvironmentVariable", fs, "get_env", name)
fs("set_env", name, "v\\alue")
same("environment", [fs("get_env", "QUILL_ABSENT", 5), fs("get_env", name, 5)], [5, "v\\alue"])
fs("set_env", name, "x" * 32766)
same("of the greatest length", len(fs("get_env", name)), 32766)
fs("set_env", name, "x" * 32767)
fault("a longer one", "ERROR_ENVVAR_TOO_LARGE: GetEnvironmentVariable", fs, "get_env", name)
fs("set_env", name)
same("gone", fs("get_env", name, "gone"), "gone")
refused("RuntimeError: SetEnvironmentVariable (22)", "set_env", "a=b", "c")
same("pwd", fs("path_to_string", fs("pwd"))[:1], "/")
