# File objects.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

folder = fs("get_env", "QUILL_SCRATCH")
path = folder + "/text"

def put(name, *parts):
    file = open(folder + "/" + name, "w")
    for part in parts:
        file.write(part)
    file.close()
    return folder + "/" + name

def lines(path):
    file = open(path)
    result = file.readlines()
    file.close()
    return result

# Text
put("text", "one\n", "zwei ä\r\n", "", 3)
same("lines keep their ends", lines(path), ["one\n", "zwei ä\r\n", "3"])
file = open(path)
same("readline", [file.readline(), file.readline(), file.readline(), file.readline(), file.readline()], ["one\n", "zwei ä\r\n", "3", "", ""])
def truth(value):
    if value: return 1
    return 0

same("a file at its end is false", truth(file), 0)
file.close()
same("a closed one too", truth(file), 0)
def readline(file):
    return file.readline()

fault("a closed file", "ValueError: I/O operation on closed file", readline, file)
file = open(path)
same("an open one is true", truth(file), 1)
same("type", type(file), "FileType")
file.close()
file = open(path, "a")
file.write("\nmore")
file.close()
same("append", lines(path)[3], "more")
long_line = "x" * 10000
put("long", long_line, "\n", "y" * 4095, "\n", "z" * 4096)
same("long lines come whole", [len(lines(folder + "/long")[0]), len(lines(folder + "/long")[1]), len(lines(folder + "/long")[2])], [10001, 4096, 4096])
put("empty")
same("an empty file", lines(folder + "/empty"), [])
put("value", [1, "a"], None)
same("other values write their representation", lines(folder + "/value"), ["[1, 'a']None"])

e = None
try:
    open(folder + "/absent")
except IOError, e:
    pass
same("a missing file", [e.raised, e.numbers["errno"], e.strings["name"]], ["IOError", 2, folder + "/absent"])
same("the message", e.decode[:9], "[Errno 2]")
fault_class("a folder is no file to write", "IOError", open, folder, "w")

# Encodings
file = open(folder + "/wide", "w", utf16=True)
file.write("aä😀")
file.close()
file = open(folder + "/wide")
same("UTF-16, two bytes for each unit", file.read(8, as_base64=True), "YQDkAD3YAN4=")
file.close()
file = open(folder + "/mixed", "w")
file.write("a", utf16=True)
file.write("b")
file.close()
file = open(folder + "/mixed")
same("UTF-16 for one call", file.read(3, as_base64=True), "YQBi")
file.close()

# Blocks
file = open(folder + "/block", "w")
file.save_base64("QQBCQwECAwT/")
file.close()
file = open(folder + "/block")
same("text ends at a zero byte", file.read(4), "A")
same("read_U32", file.read_U32(), 67305985)
def read(file, size):
    return file.read(size)

fault_class("a short read", "IOError", read, file, 5)
file.close()
file = open(folder + "/block")
same("load_base64", [file.load_base64(2, 3), file.load_base64(), file.load_base64()], ["QkMB", "AgME/w==", ""])
file.close()
put("abc", "abc")
file = open(folder + "/abc")
same("digests", [file.md5(), file.sha1()], ["900150983CD24FB0D6963F7D28E17F72", "a9993e364706816aba3e25717850c26c9cd0d89d"])
file.close()
def read_U32(file):
    return file.read_U32()

file = open(folder + "/abc")
fault_class("read_U32 past the end", "IOError", read_U32, file)
file.close()

# Packed text
packed = repr([1, "two", {"three": 3.5}], zlib=1)
file = open(folder + "/unpacked", "w")
file.save_base64(packed, zlib=True)
file.close()
same("save_base64 unpacks", lines(folder + "/unpacked")[0][:17], "[1, 'two', {'thre")
file = open(folder + "/literal", "w")
file.write("{'a': [1, 2.5, 'ä']}rest")
file.close()
file = open(folder + "/literal")
same("readeval", file.readeval(21, is_utf8=True), {"a": [1, 2.5, "ä"]})
file.close()

# Saved values
value = [1, -5, 9223372036854775807, 2.5, "text ä", "", None, True, False, (1, "a"), {"k": [1], 2: {}}, [], ()]
file = open(folder + "/saved", "w")
file.save(value)
file.close()
file = open(folder + "/saved")
same("a saved value comes back", file.load(), value)
file.close()
file = open(folder + "/saved")
same("its first bytes", file.read(12, as_base64=True), "SUJGGgAAAAIAAAAA")
file.close()
def load(name):
    file = open(folder + "/" + name)
    return file.load()

fault_class("a wrong first byte", "AssertionError", load, "abc")
fault_class("an empty file", "IOError", load, "empty") 
file = open(folder + "/short", "w")
file.save_base64("SUJGGgAAAAIAAAAABw==")
file.close()
fault_class("a value cut short", "IOError", load, "short")
def save(value):
    file = open(folder + "/unsaved", "w")
    file.save(value)

fault_class("a value that can't be saved", "TypeError", save, [same])
