# fs: paths, listings, folders, files, times, links, environment.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

root = fs("get_env", "QUILL_SCRATCH")

def make(name, text):
    file = open(root + "/" + name, "w")
    file.write(text)
    file.close()

# Folders
created = []
fs("mkdir", [root, "a", "b", "c"], on_create=created.append)
same("mkdir tells the levels that it made", len(created), 3)
fs("mkdir", [root, "a", "b", "c"], on_create=created.append)
same("and nothing the second time", len(created), 3)
same("paths as text", fs("path_to_string", ["x", "y", "z"]), "x\\y\\z")
make("a/one.txt", "12345")
make("a/two.TXT", "")
make("a/three.dat", "x" * 1000)
make("a/.hidden", "h")

def names(list):
    result = []
    for row in list:
        result.append(row[1])
    result.sort()
    return result

def keys(dict):
    return dict.keys("A")

same("ls_files by pattern", names(fs("ls_files", root + "/a/*.txt")), ["one.txt", "two.TXT"])
same("patterns ignore case", names(fs("ls_files", [root, "a", "T*"])), ["three.dat", "two.TXT"])
same("ls_paths", fs("ls_paths", [root, "a", "*"]), ["b"])
row = fs("ls_files", root + "/a/one.txt")[0]
same("a row of ls_files", [len(row[0]), row[1], row[2]], [6, "one.txt", 5])
listing = fs("ls_details", [root, "a", "*"])
same("ls_details", [keys(listing), keys(listing["file"]), keys(listing["path"])], [["file", "hard", "path", "soft"], [".hidden", "one.txt", "three.dat", "two.TXT"], ["b"]])
record = listing["file"]["three.dat"]
same("a record", [record["size"], record["links"], record["is_offline"], record["mode"] / 4096, len(record["modified"])], [1000, 1, 0, 8, 6])
same("nothing matches", fs("ls_files", root + "/a/*.none"), [])
fault_class("a missing folder", "RuntimeError", fs, "ls_details", root + "/absent/*")

# Symbolic links
fs("ln_soft", root + "/a/link", "one.txt")
fs("ln_soft", root + "/a/folder", "b")
fs("ln_soft", root + "/a/broken", "nowhere")
listing = fs("ls_details", root + "/a/*")
same("links are files, links to folders are hard", [listing["file"].has_key("link"), listing["file"].has_key("broken"), keys(listing["hard"]), keys(listing["soft"])], [1, 1, ["folder"], []])
listing = fs("ls_details", root + "/a/*", {"resolve_links": True})
same("resolved", [keys(listing["soft"]), fs("path_to_string", listing["soft"]["link"]["target"])], [["broken", "link"], "one.txt"])

# Rename, copy, erase
fs("copy", root + "/a/one.txt", root + "/a/copy")
same("copy", open(root + "/a/copy").readline(), "12345")
fs("rename", root + "/a/copy", root + "/a/moved")
same("rename", [names(fs("ls_files", root + "/a/copy")), names(fs("ls_files", root + "/a/moved"))], [[], ["moved"]])
fault_class("rename never replaces", "RuntimeError", fs, "rename", root + "/a/moved", root + "/a/one.txt")
same("erase", [fs("erase", root + "/a/moved"), fs("erase", root + "/a/moved")], [1, 0])
fault_class("erase of what must exist", "RuntimeError", fs, "erase", root + "/a/moved", 1)
fault_class("rmdir of a full folder", "RuntimeError", fs, "rmdir", root + "/a")
fs("rmdir", root + "/a/b/c")
same("rmdir", fs("ls_paths", root + "/a/b/*"), [])
same("rmdir of nothing is no failure", fs("rmdir", root + "/a/b/c"), None)

# Every name comes back
odd = ["with blank", "back\\slash", "new\nline", "ä世😀", "per%cent", "[x]", "quote'\""]
fs("mkdir", root + "/odd")
for name in odd:
    if find(name, "\\") < 0: make("odd/" + name, name)
rows = fs("ls_files", root + "/odd/*")
same("odd names are listed", len(rows), 6)
def erase_all(folder):
    for name in list(fs("ls_details", [folder, "*"])["file"]):
        fs("erase", [folder, name[0]], 1)

erase_all(root + "/odd")
same("and erased", fs("ls_files", root + "/odd/*"), [])

# Names that are not UTF-8, made by the test's runner
bad = root + "/bad"
same("raw names are listed", len(fs("ls_details", [bad, "*"])["file"]), 3)
def types(dict):
    result = []
    for name in dict.keys():
        result.append(type(name))
    result.sort()
    return result

same("as a type of their own", types(fs("ls_details", [bad, "*"])["file"]), ["IPE_DirtyUTF16Type", "IPE_DirtyUTF16Type", "StringType"])
def rename_all(folder):
    for name in fs("ls_details", [folder, "*"])["file"].keys():
        fs("rename", [folder, name], [folder, "renamed" + str(len(fs("ls_files", [folder, "renamed*"])))])

rename_all(bad)
same("and renamed", names(fs("ls_files", [bad, "*"])), ["renamed0", "renamed1", "renamed2"])

# Times
fs("set_times", root + "/a/one.txt", {"modified": (2001, 2, 3, 4, 5, 6)})
same("set_times", fs("ls_files", root + "/a/one.txt")[0][0], (2001, 2, 3, 4, 5, 6))
fs("set_times", root + "/a/one.txt", {"accessed": (2002, 2, 3, 4, 5, 6)})
same("each by itself", fs("ls_details", root + "/a/one.txt")["file"]["one.txt"]["modified"], (2001, 2, 3, 4, 5, 6))

# Environment
same("get_env", [fs("get_env", "QUILL_SCRATCH"), fs("get_env", "QUILL_ABSENT", "default")], [root, "default"])
fault("a missing variable", "ERROR_ENVVAR_NOT_FOUND: GetEnvironmentVariable", fs, "get_env", "QUILL_ABSENT")
fs("set_env", "QUILL_NEW", "value")
same("set_env", fs("get_env", "QUILL_NEW"), "value")
fs("set_env", "QUILL_NEW")
fault("removed", "ERROR_ENVVAR_NOT_FOUND: GetEnvironmentVariable", fs, "get_env", "QUILL_NEW")

# Security texts
entry = fs("decode_sddl", "D:P(A;OICI;FA;;;S-1-22-1-1000)(D;;0x1F01FF;;;WD)")
same("decode_sddl", [entry[0]["controls"], entry[0]["type"], entry[0]["flags"], entry[0]["rights"], entry[0]["trustee"]], ["P", "A", ["OI", "CI"], ["FA"], "S-1-22-1-1000"])
same("rights as a number, an alias as a SID", [entry[1]["type"], entry[1]["flags"], entry[1]["rights"], entry[1]["trustee"]], ["D", [], [2032127], "S-1-1-0"])
fault_class("no colon", "AssertionError", fs, "decode_sddl", "nothing")
before = fs("get_security", root + "/a/one.txt", ["dacl", "owner", "group"])
fs("set_security", root + "/a/one.txt", {"dacl": before["dacl"]})
same("get, set, get", fs("get_security", root + "/a/one.txt", ["dacl", "owner", "group"]), before)

# The file system
info = fs("fsstat", root)
def positive(n):
    if n > 0: return 1
    return 0

same("fsstat", [positive(info["TotalBytes"]), info.keys("A")], [1, ["FreeBytes", "FreeBytesToCaller", "TotalBytes"]])
same("fsinfo", positive(len(fs("fsinfo", root)["type"])), 1)
same("pwd", fs("pwd")[:1], "/")
guid = fs("guid").split("-")
same("guid", [len(guid), len(guid[0]), len(guid[4])], [5, 8, 12])
fault_class("an unknown command", "RuntimeError", fs, "nothing")
