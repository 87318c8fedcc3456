# File objects as scripts use them, and what they write of values. test_filetype.cpp tells the rest.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

folder = fs("get_env", "QUILL_SCRATCH")
path = folder + "/text"

def put(*parts):
    file = open(path, "w")
    for part in parts:
        file.write(part)
    file.close()

def lines():
    file = open(path)
    result = file.readlines()
    file.close()
    return result

def truth(value):
    if value: return 1
    return 0

put("one\n", "zwei ä\r\n", "", 3)
file = open(path)
same("an open file is true", [truth(file), type(file)], [1, "FileType"])
same("readline", [file.readline(), file.readline(), file.readline(), file.readline()], ["one\n", "zwei ä\r\n", "3", ""])
same("at its end it is false", truth(file), 0)
file.close()
file = open(path, "a")
file.write("\nmore")
file.close()
same("append", lines(), ["one\n", "zwei ä\r\n", "3\n", "more"])
put("y" * 4095, "\n", "z" * 4096)
same("lines that end with a block", [len(lines()[0]), len(lines()[1])], [4096, 4096])
put([1, "a"], None)
same("other values write their representation", lines(), ["[1, 'a']None"])

e = None
try:
    open(folder + "/absent")
except IOError, e:
    pass
same("a missing file", [e.raised, e.numbers["errno"], e.strings["name"], e.decode[:9]], ["IOError", 2, folder + "/absent", "[Errno 2]"])
fault_class("a folder is no file to write", "IOError", open, folder, "w")

file = open(path, "w", utf16=True)
file.write("aä😀")
file.close()
file = open(path)
same("UTF-16, two bytes for each unit", file.read(8, as_base64=True), "YQDkAD3YAN4=")
file.close()

packed = repr([1, "two", {"three": 3.5}], zlib=1)
file = open(path, "w")
file.save_base64(packed, zlib=True)
file.close()
same("save_base64 unpacks", lines()[0][:17], "[1, 'two', {'thre")
put("{'a': [1, 2.5, 'ä']}rest")
file = open(path)
same("readeval", file.readeval(21, is_utf8=True), {"a": [1, 2.5, "ä"]})
file.close()

# Saved values
value = [1, -5, 9223372036854775807, 2.5, "text ä", "", None, True, False, (1, "a"), {"k": [1], 2: {}}, [], ()]
file = open(path, "w")
file.save(value)
fault_class("a value that can't be saved", "TypeError", file.save, [same])
file.close()
file = open(path)
same("a saved value comes back", file.load(), value)
file.close()
