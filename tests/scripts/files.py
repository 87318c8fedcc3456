# File objects: lines, blocks, encodings, digests, saved values, and their failures. Input streams of files.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import ipe.ifilestream

folder = fs("get_env", "QUILL_SCRATCH")
path = folder + "/text"

def put(*parts):
    file = open(path, "w")
    for part in parts:
        file.write(part)
    file.close()
    return open(path)

# The file's bytes, in Base64
def bytes(size):
    file = open(path)
    code = file.read(size, as_base64=1)
    fault("and no more", "IOError: [Errno 61] No data available: '" + path + "'", file.read, 1)
    return code

def truth(value):
    if value: return 1
    return 0

# Lines
file = put("one\n", "zwei ä\r\n", "\n", "", 3)
same("an open file is true", [truth(file), type(file)], [1, "FileType"])
same("readline", [file.readline(), file.readline(), file.readline(), file.readline(), file.readline()], ["one\n", "zwei ä\r\n", "\n", "3", ""])
same("at its end it is false", truth(file), 0)
file.close()
file = open(path, "a")
file.write("\nmore")
file.close()
same("append", open(path).readlines(), ["one\n", "zwei ä\r\n", "\n", "3\n", "more"])
same("nothing", put().readlines(), [])
lines = put("y" * 4095, "\n", "z" * 4096, "\n", "x" * 10000, "\n").readlines()
same("lines about the size of a block", [len(lines), len(lines[0]), len(lines[1]), len(lines[2])], [3, 4096, 4097, 10001])
same("other values write their representation", put([1, "a"], None).readline(), "[1, 'a']None")
put("one\ntwo\nthree\n")
both = open(path, "r+")
same("reading turns to writing and back", [both.readline(), both.write("TWO"), both.readline(), both.close(), open(path).readlines()], ["one\n", None, "\n", None, ["one\n", "TWO\n", "three\n"]])

# Opening and closing
for name, mode, errno in [("/absent", "r", "2] No such file or directory"), ("", "r", "21] Is a directory"), ("/absent", "q", "22] Invalid argument"), ("/absent", "r,ccs=UTF-16", "22] Invalid argument")]:
    fault("open", "IOError: [Errno " + errno + ": '" + folder + name + "'", open, folder + name, mode)

fault_class("a folder is no file to write", "IOError", open, folder, "w")
fault("a path", "TypeError: Require a 'StringType' but given a 'IntType'", open, 5)
names = []
for name in fs("ls_details", folder + "/bad/*")["file"].keys():
    file = open([folder, "bad", name], "a")
    file.write("x")
    names.append(open([folder, "bad", name]).readline())
    file.close()
    names.append(open([folder, "bad", name]).readline())

same("names that are not UTF-8", names, ["", "x", "", "x", "", "x"])
file = open(folder + "\\new", "w")
same("a backslash separates too; closing writes", [file.write("text"), file.close(), open(folder + "/new").readline(), truth(file)], [None, None, "text", 0])
for method in ["readline", "readlines", "close", "load", "md5", "sha1", "load_base64", "read_U32"]:
    fault(method, "ValueError: I/O operation on closed file", getattr(file, method))

fault("write", "ValueError: I/O operation on closed file", file.write, 1)
fault_class("no such method", "AttributeNotFoundException", getattr, file, "seek")
file = open("/dev/full", "w")
file.write("x")
fault("a full disk", "IOError: [Errno 28] No space left on device: '/dev/full'", file.close)
fault("reading what is open to write", "IOError: [Errno 9] Bad file descriptor: '/dev/full'", open("/dev/full", "w").readline)

# Encodings
file = open(path, "w")
file.write("é")
file.write("€😀", utf16=True)
file.close()
same("UTF-16, two bytes for each unit", bytes(8), "w6msID3YAN4=")
file = open(path, "w", utf16=True)
file.write("ab")
file.close()
same("a file of it", bytes(4), "YQBiAA==")
file = open(path, "w", utf16=0, native=1)
file.write("é")
file.close()
same("utf16=0 decides alone", bytes(2), "w6k=")

# Blocks
file = open(path, "w")
file.save_base64("QQBCQ0EAQkMBAgOEeHk=")
file.close()
file = open(path)
same("a block ends at its first zero", [file.read(4), file.read(4, as_base64=1), file.read_U32()], ["A", "QQBCQw==", 2214789633])
fault_class("three bytes are no number", "IOError", file.read_U32)
for size in [-1, 1073741824]:
    fault_class("a size", "AssertionError", file.read, size)

def zeros(size):
    return open("/dev/zero").read(size, is_zlib=1)

fault_class("a packed size", "AssertionError", zeros, 52428800)

# Writes a deflated block with the length that it declares behind it.
block = "eJyrVk9Ut1KINtRRMIqtBQAXpwNp"
def packed(block, length):
    file = open(path, "w")
    for i in [1, 2]:
        file.save_base64(block)
        file.save_base64(length)
    file.close()
    return open(path)

for length in ["DQAAAA==", "AAAADQ=="]:
    file = packed(block, length)
    same("either byte order", [file.read(21, is_zlib=1), file.readeval(21, is_zlib=1, is_utf8=1)], ["{'a': [1, 2]}", {"a": [1, 2]}])

def unpack(block, length):
    return packed(block, length).read(21, is_zlib=1)

for damaged, length in [("eJyrVk+rt1KINtRRMIqtBQAXpwNp", "DQAAAA=="), (block, "AwAAAA=="), (block, "/////w=="), (block, "DAAAAA==")]:
    fault_class("damage", "AssertionError", unpack, damaged, length)

file = put("{'a': [1, 2.5, 'ä']}rest")
same("readeval", file.readeval(21, is_utf8=True), {"a": [1, 2.5, "ä"]})
same("sanitized", put("'a\xff'").readeval(4, is_utf8=1, sanitize=1), "a\xf4\x8f\xbf\xb02FF")
def readeval(text):
    return put(text).readeval(len(text), is_utf8=1)

fault_class("no call", "IPESyntaxException", readeval, "sys_exit()")

# Digests and Base64
file = put("abc")
same("digests, which leave the place alone", [file.md5(), file.sha1(), file.load_base64(1, 5), file.load_base64()], ["900150983CD24FB0D6963F7D28E17F72", "a9993e364706816aba3e25717850c26c9cd0d89d", "YmM=", ""])
file.load_base64(0, 1)
same("the rest", file.load_base64(), "YmM=")
large = "z" * 10485760
same("up to 10 MB", put(large).md5().lower(), md5(large))
put(large, "z")
for method in ["md5", "sha1", "load_base64"]:
    fault(method, "IOError: [Errno 1] in memory file operation on file > 10MB: '" + path + "'", getattr(open(path), method))

file = open(path, "w")
file.save_base64(repr([1, "two", {"three": 3.5}], zlib=1), zlib=True)
def save_packed(text):
    file.save_base64(text, zlib=1)

fault_class("no Base64", "AssertionError", file.save_base64, "!")
fault_class("nothing packed", "AssertionError", save_packed, "AAEC")
file.close()
same("save_base64 unpacks", open(path).readline()[:17], "[1, 'two', {'thre")

# Saved values
value = [1, -5, 9223372036854775807, 2.5, "text ä", "", None, True, False, (1, "a"), {"k": [1], 2: {}}, [], ()]
file = open(path, "w")
file.save(value)
file.save(7)
fault_class("a value that can't be saved", "TypeError", file.save, [same])
file.close()
file = open(path)
same("saved values come back", [file.load(), file.load()], [value, 7])
fault("two are there", "IOError: stream eof", file.load)
same("how they begin", open(path).read(12, as_base64=1), "SUJGGgAAAAIAAAAA")
fault_class("something else", "AssertionError", put("X").load)

# Input streams
put("one\ntwo\nthree\n")
create = ipe.ifilestream.create
stream = create(path)
same("tellp counts what was taken", [stream(), stream.tellp()], ["one", 4])
def seek(to, origin):
    return [stream.seekp(to, origin=origin), stream()]

same("seekp", [seek(4, "cur"), seek(-6, "end"), seek(0, "set")], [[8, "three"], [8, "three"], [0, "one"]])
fault("before the beginning", "IOError: [Errno 22] Invalid argument: '" + path + "'", stream.seekp, -1)
def text_of(**options):
    return create(path, **options)()

put("\xef\xbb\xbftext")
same("the mark of the encoding", [len(text_of()), text_of(binary=0)], [5, "text"])
put("ab")
same("and none", text_of(binary=0), "ab")
fault("no file", "IOError: [Errno 2] No such file or directory: '/absent'", create, "/absent")
stream = create("/absent", nothrow=1)
def one_byte():
    return stream(bytes=1)

same("nothing of no file", stream(), "")
fault("nor a byte", "IOError: stream eof", one_byte)
put("head\n", large, "tail")
stream = create(path)
stream()
same("copytofile", [stream.copytofile(folder + "/copy", 10485760), stream(), open(folder + "/copy").md5().lower()], [None, "tail", md5(large)])
fault("of too much", "IOError: stream eof", stream.copytofile, folder + "/copy", 1)
fault_class("of less than nothing", "AssertionError", stream.copytofile, folder + "/copy", -1)
