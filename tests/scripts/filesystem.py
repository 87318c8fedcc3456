# fs as scripts call it, each command once, and names that are not UTF-8. test_fs.cpp tells the commands' rules.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

root = fs("get_env", "QUILL_SCRATCH")

def make(name, text):
    file = open(root + "/" + name, "w")
    file.write(text)
    file.close()

created = []
fs("mkdir", [root, "a", "b", "c"], on_create=created.append)
fs("mkdir", [root, "a", "b", "c"], on_create=created.append)
same("mkdir tells the levels that it made", len(created), 3)
make("a/one.txt", "12345")
make("a/two.TXT", "")
make("a/ä世😀", "")
same("names in UTF-8", fs("erase", root + "/a/ä世😀"), 1)

def names(list):
    result = []
    for row in list:
        result.append(row[1])
    result.sort()
    return result

same("ls_files by pattern", names(fs("ls_files", [root, "a", "*.txt"])), ["one.txt", "two.TXT"])
same("ls_paths", fs("ls_paths", [root, "a", "*"]), ["b"])
fs("ln_soft", root + "/a/link", "one.txt")
listing = fs("ls_details", root + "/a/*", {"resolve_links": True})
same("ls_details", [listing.keys("A"), listing["file"].keys("A"), fs("path_to_string", listing["soft"]["link"]["target"])], [["file", "hard", "path", "soft"], ["one.txt", "two.TXT"], "one.txt"])
record = listing["file"]["one.txt"]
same("a record", [record["size"], record["links"], record["is_offline"], record["mode"] / 4096, len(record["modified"])], [5, 1, 0, 8, 6])
fs("copy", root + "/a/one.txt", root + "/a/copy")
fs("rename", root + "/a/copy", root + "/a/moved")
same("copy and rename", open(root + "/a/moved").readline(), "12345")
same("erase", [fs("erase", root + "/a/moved"), fs("erase", root + "/a/moved")], [1, 0])
same("rmdir", [fs("rmdir", root + "/a/b/c"), fs("ls_paths", root + "/a/b/*")], [None, []])
fs("set_times", root + "/a/one.txt", {"modified": (2001, 2, 3, 4, 5, 6)})
fs("set_times", root + "/a/one.txt", {"accessed": (2002, 2, 3, 4, 5, 6)})
same("set_times, each by itself", fs("ls_files", root + "/a/one.txt")[0][0], (2001, 2, 3, 4, 5, 6))

# Names that are not UTF-8, made by the test's runner
bad = root + "/bad"
def types(dict):
    result = []
    for name in dict.keys():
        result.append(type(name))
    result.sort()
    return result

same("raw names have a type of their own", types(fs("ls_details", [bad, "*"])["file"]), ["IPE_DirtyUTF16Type", "IPE_DirtyUTF16Type", "StringType"])
def rename_all(folder):
    for name in fs("ls_details", [folder, "*"])["file"].keys():
        fs("rename", [folder, name], [folder, "renamed" + str(len(fs("ls_files", [folder, "renamed*"])))])

rename_all(bad)
same("and rename like others", names(fs("ls_files", [bad, "*"])), ["renamed0", "renamed1", "renamed2"])

fs("set_env", "QUILL_NEW", "value")
same("environment", [fs("get_env", "QUILL_NEW"), fs("get_env", "QUILL_ABSENT", "default")], ["value", "default"])
before = fs("get_security", root + "/a/one.txt", ["dacl", "owner", "group"])
fs("set_security", root + "/a/one.txt", {"dacl": before["dacl"]})
same("get, set, get", fs("get_security", root + "/a/one.txt", ["dacl", "owner", "group"]), before)
entry = fs("decode_sddl", "D:(D;;0x1F01FF;;;WD)")[0]
same("decode_sddl", [entry["type"], entry["flags"], entry["rights"], entry["trustee"]], ["D", [], [2032127], "S-1-1-0"])
same("fsstat", fs("fsstat", root).keys("A"), ["FreeBytes", "FreeBytesToCaller", "TotalBytes"])
same("the others", [type(fs("fsinfo", root)["type"]), fs("pwd")[:1], len(fs("guid").split("-"))], ["StringType", "/", 5])
