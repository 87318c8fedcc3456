# Strings and secrets.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

s = "Grüße, 世界"
same("length in code points", [len(s), len(""), len("😀")], [9, 0, 1])
same("index", [s[0], s[2], s[-1], "😀x"[1]], ["G", "ü", "界", "x"])
def at(text, i):
    return text[i]

fault("index past the end", "IndexError: string index out of range", at, "abc", 3)
fault("index before the start", "IndexError: string index out of range", at, "abc", -4)
fault_class("index of no integer", "AssertionError", at, "abc", "0")
same("slices", ["abcdef"[2:4], "abcdef"[-3:-1], "abcdef"[4:2], "abc"[1:99], "abc"[-99:2], "abc"[3:], "abc"[0:-9], s[-3:99], "abc"[-99:-1]], ["cd", "de", "", "bc", "ab", "", "", " 世界", "ab"])

same("sum with anything", ["a" + 1, "a" + None + [1, "x"], "a" + 2.5], ["a1", "aNone[1, \"x\"]", "a2.50000000000000000"])
same("repeat", ["ab" * 3, "ab" * 0, "ab" * -1, "ab" * "2"], ["ababab", "", "", "abab"])

same("split at blanks", ["a  b".split(), " a ".split(), "a b c".split(" ", 1), "".split()], [["a", "", "b"], ["", "a"], ["a", "b c"], []])
same("split at any of a set", ["a,b;c".split(",;"), "a,b,c".split(",", 1), "a,b,c".split(",", 0), "abc".split(""), "a,".split(","), ",a,,b,".split(","), "a,b,c".split(",", -5), "a,".split(",", 1), ",".split(","), "".split(",") + "".split("")], [["a", "b", "c"], ["a", "b,c"], ["a,b,c"], ["a", "b", "c"], ["a"], ["", "a", "", "b"], ["a", "b", "c"], ["a"], [""], []])
same("split by non-ASCII", ["aäböc".split("öä"), "aä€😀z".split("")], [["a", "b", "c"], ["a", "ä", "€", "😀", "z"]])
fault("split at a number", "TypeError: Index 1 requires StringType arguments, IntType given", split, "a", 1)
same("the limit reached at the end", ["a,b".split(",", 2), "a,b,".split(",", 2)], [["a", "b"], ["a", "b"]])
same("join", [["a", 1, None].join("-"), [].join(","), [[1, 2]].join("")], ["a-1-None", "", "[1, 2]"])

same("strip", ["  a \t\r\n".strip(), "  a ".lstrip(), "  a ".rstrip(), "xxaxx".strip("x"), "abc".strip("abc"), "\x0ba".strip()], ["a", "a ", "  a", "a", "", "\x0ba"])
same("case", ["äÖ x".upper(), "ABC ÄÖ".lower(), "a[Z`{".upper(), "A[z@".lower()], ["ÄÖ X", "abc äö", "A[Z`{", "a[z@"])
same("find", ["hello".find("l"), "hello".find("z"), "hello".find(""), "".find("a"), "äöü".find("ü")], [2, -1, -1, -1, 2])
same("replace", ["aXbXc".replace("X", "--"), "aaa".replace("aa", "b"), "abc".replace("z", "y"), "äöä".replace("ä", ""), "abc".replace("", "x"), "a-b".replace("-", "€😀")], ["a--b--c", "ba", "abc", "ö", "abc", "a€😀b"])
same("match", ["README.TXT".match("*.txt"), "readme.txt".match("R?ADME*"), "abc".match("a?"), "abc".match("*"), "".match("*"), "ÄB".match("ä*"), "aab".match("a*ab"), "abcd".match("*b*d"), "ABC".match("ab?d"), "ab".match("a"), "".match("?")], [True, True, False, True, True, True, True, True, False, False, False])
same("numbers out of text", ["007x".integer(), "-0012".integer(), "x1".integer(), " 5".integer(), "+5".integer(), "2.5kg".float(), "none".float(), "-1e2".float(), "--5".integer() + "".integer(), "-9223372036854775808".integer(), "18446744073709551617".integer(), "2.5e1kg".float()], [7, -12, 0, 0, 0, 2.5, 0.0, -100.0, 0, -9223372036854775807 - 1, 1, 25.0])

same("compared by bytes", [compare("a", "b"), compare("b", "a"), compare("a", "a"), compare("Z", "a"), compare("a", "ab"), compare("z", "ä"), compare("", "a")], [-1, 1, 0, -1, -1, -1, -1])
same("other types are never equal", [compare("1", 1), compare("None", None)], [1, 1])

# Representation
same("quotes", [repr("a"), repr("it's"), repr("\""), repr("'\"")], ["'a'", "\"it's\"", "'\"'", "'\\'\"'"])
same("escapes", repr("\n\r\t\\\001\017\020\037"), "'\\n\\r\\t\\\\\\001\\017\x10\x1f'")
same("triple quotes", repr("""a
"b"	"""), "\"\"\"a\n\\\"b\\\"\\t\"\"\"")
same("JSON of the short escapes", repr("\010\t\n\014\r\"/\\\001aä€😀z", json=1), "\"\\b\\t\\n\\f\\r\\\"\\/\\\\\\u0001aä€😀z\"")
def json(text):
    return repr(text, json=1)

fault("JSON of what is not UTF-8", "UnicodeError: Conversion Failue", json, "\xff")
same("JSON", [repr("a\"b/c\\d\n\t\001ä", json=1), eval("\"\\u00e4\\/\"", json=1)], ["\"a\\\"b\\/c\\\\d\\n\\t\\u0001ä\"", "ä/"])
def round(text):
    return eval(repr(text))

for text in ["", "plain", "it's", "\"both' \"", "\\\n\r\t", "äöü 世界 😀", "\001\002\016\017"]:
    same("there and back", round(text), text)
same("inside a container", str(["a", ["it's \"q\""]]), "[\"a\", [\"it's \"q\"\"]]")

# Secrets
secret = "hunter2".secret()
same("a secret shows nothing", [str(secret), "" + secret, repr(secret), repr(secret, json=1), len(secret), type(secret)], ["---secret---", "---secret---", "''", "\"\"", 7, "SecretType"])
same("but tells on demand", secret.string(), "hunter2")

fault("nor has it the methods of a text", "AttributeNotFoundException: The SecretType does not have an attribute named upper", getattr, secret, "upper")
fault("no such method", "AttributeNotFoundException: The StringType does not have an attribute named startswith", getattr, "a", "startswith")
fault("nor another", "AttributeNotFoundException: The StringType does not have an attribute named title", getattr, "a", "title")

# Translation
thread_execute("dict_set", "language", "hello", "hallo")
same("translate", translate("\[hello,Hello], \[world,World]!"), "hallo, World!")
same("without a default the key", translate("a \[key] b"), "a key b")
same("in containers", translate(["\[hello]", {"k": "\[hello,x]"}]), ["hallo", {"k": "hallo"}])
