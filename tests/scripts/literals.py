# The literal reader: eval of the script form, of JSON, and of packed texts. It reads values and never calls anything.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

# The script form
same("scalars", [eval("5"), eval("-5"), eval("1.5"), eval("-1.5e2"), eval("'a'"), eval("None"), eval("True"), eval("False")], [5, 0 - 5, 1.5, 0.0 - 150.0, "a", None, True, False])
same("brackets", [eval("[]"), eval("()"), eval("{}"), eval("[1, (2,), {'k': [3]}]"), eval("(1)"), eval("[1,]"), eval("{1: 2,}")], [[], (), {}, [1, (2,), {"k": [3]}], (1,), [1], {1: 2}])
same("blanks do not count", eval("    [ 1 ,2 ]  "), [1, 2])
fault("but a text begins with an indent", "InterpreterException: Indent must be a multiple of 4 spaces.", eval, "  [1]")
same("suffix and range", [eval("10L"), eval("9223372036854775807"), eval("-9223372036854775807")], [10, 9223372036854775807, 0 - 9223372036854775807])
same("triple quotes", eval("'''a\nb'''") + "", "a\nb")
for text in ["x", "[open('x')]", "[1 + 2]", "", "-'a'", "[1, 2", "{1: ", "{1, 2}", "[1)", "[1,,2]"]:
    fault_class(text, "IPESyntaxException", eval, text)

many = "[" * 1000000
fault_class("deep nesting ends in an error, not in a crash", "IPESyntaxException", eval, many)

# JSON
def json(text):
    return eval(text, json=1)

same("words", json("[null, true, false]"), [None, True, False])
same("numbers", json("[1, -2, 1.5, -1.5e3, 2E2, 1e+2]"), [1, 0 - 2, 1.5, 0.0 - 1500.0, 200.0, 100.0])
same("strings", json("\"a\\n\\t\\\\\\/\\\"\\u00e4\\ud83d\\ude00\""), "a\n\t\\/\"ä😀")
same("lines", json("{\n\"a\": [1,\n2],\n\t\"b\": {}\n}"), {"a": [1, 2], "b": {}})
fault("an escape of the other form", "SyntaxError: Illegal escape \\x", json, "\"\\x41\"")
fault("apostrophes", "SyntaxError: ' is an illegal character", json, "'a'")
fault("parentheses", "SyntaxError: ( is an illegal character", json, "(1)")
fault("a comment", "SyntaxError: # is an illegal character", json, "[1] # x")
fault_class("words of the script form", "IPESyntaxException", json, "None")
fault_class("a line end in a string", "IPESyntaxException", json, "\"a\nb\"")
fault("a lone surrogate", "SyntaxError: Invalid Unicode", json, "\"\\ud83d\"")
data = {"a": [1, None, True, "x\"y\\z/ä\n"], "b": {"c": [], "d": {}}}
same("there and back", json(repr(data, json=1)), data)

# Packed
data = {"name": "x" * 1000, "list": [1, 2.5, None, ("a")]}
packed = repr(data, zlib=1)
def shorter(a, b):
    if len(a) < len(b): return "shorter"
    return "longer"

same("packed is shorter", shorter(packed, repr(data)), "shorter")
same("the value of a keyword counts", repr(data, json=0), repr(data))
same("unpacked by keyword", eval(packed, zlib=1), data)
same("unpacked by its mark", eval("~" + packed), data)
for text in ["", "z" * 500000]:
    packed = repr(text, zlib=1)
    same("the shortest and a long one", [eval(packed, zlib=1), eval("~" + packed)], [text, text])

fault_class("a damaged packed text", "AssertionError", eval, "~AAAAAAAA")
fault_class("a packed text of nothing", "AssertionError", eval, "~")
fault_class("no Base64", "AssertionError", eval, "~ä!?")

# Every value of a kind comes back
def back(value):
    return eval(repr(value))

for value in [0, 99, 100, 2147483648, 9223372036854775807, 0.1, 1e300, "", "'\"\\\n", [[]], {"k": {1: (2, 3)}}, (None, True)]:
    same("there and back", back(value), value)
