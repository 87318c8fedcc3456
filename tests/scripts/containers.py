# Lists, tuples and dicts.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

# Lists
a = [3, 1, 2]
same("append gives the list", [a.append(5), a], [[3, 1, 2, 5], [3, 1, 2, 5]])
same("sort gives None", [a.sort(), a], [None, [1, 2, 3, 5]])
a.sort("D")
same("descending", a, [5, 3, 2, 1])
a.reverse()
same("reverse", a, [1, 2, 3, 5])
same("index", [a.index(3), a.index(4), ["a", 1].index("1"), [].index(0)], [2, -1, -1, -1])
same("index without case", [["One", "TWO"].index_nocase("two"), ["One"].index_nocase("x"), ["Ä"].index_nocase("ä")], [1, -1, 0])
def index_nocase(list, text):
    return list.index_nocase(text)

fault("all must be strings", "TypeError: Require a 'StringType' but given a 'IntType'", index_nocase, [1], "a")
same("sum, min, max", [[1, "x", 2.5, 4].sum(), [0, 5, 3].min(), [-2, -1].max(), [3, "9", 7].max(), [].sum(), [0].min(), [4, -3, "-9"].min(), [-2, -1].sum(), [].min()], [5, 3, 0, 7, 0, 0, -3, -3, 0])
def sum(list):
    return list.sum()

fault("a sum too large", "SafeIntArithmeticOverflow: ", sum, [9223372036854775807, 1])
same("concatenation copies", [1, [2]] + [3], [1, [2], 3])
inner = [1]
outer = [inner] + []
inner.append(2)
same("deeply", outer, [[1]])
def add(a, b):
    return a + b

fault("only lists", "TypeError: TypeError: can only concatenate list (not \"TupleType\") to list", add, [1], (2,))

def get(value, i):
    return value[i]

def set(value, i, x):
    value[i] = x
    return value

def remove(value, i):
    del value[i]
    return value

same("index from the end", [get([1, 2, 3], -1), get([1, 2, 3], -3), get([1, 2], "-1"), get([1, 2], False)], [3, 1, 2, 1])
fault("an index of no number", "TypeError: Require a 'IntType' but given a 'StringType'", get, [1], "a")
fault("out of range", "KeyError: The key 3 does not exist", get, [1, 2, 3], 3)
fault("out of range from the end", "KeyError: The key -4 does not exist", get, [1, 2, 3], -4)
same("set", set([1, 2], 1, "x"), [1, "x"])
fault("no negative index in an assignment", "IndexError: list index out of range", set, [1, 2], -1, 0)
fault("set past the end", "IndexError: list index out of range", set, [1, 2], 2, 0)
same("delete", [remove([1, 2, 3], 0), remove([1, 2, 3], 2)], [[2, 3], [1, 2]])
fault("no negative index in del", "IndexError: list index out of range", remove, [1], -1)
same("slices hold the same elements", [[1, 2, 3, 4][1:3], [1, 2][:0], [1, 2][-1:], [1][5:]], [[2, 3], [], [2], []])

same("comparison by the first difference", [compare([1, 2], [1, 3]), compare([2], [1, 3]), compare([1], [1]), compare([1], [1, 2]), compare([1], (1)), compare([1, 2], [1]), compare([], ())], [-1, 1, 0, 1, 1, 1, 1])

def many(n):
    list = []
    for i in range(0, n):
        list.append(n - i)
    return list

big = many(5000)
big.sort()
same("a long sort", [big[0], big[2500], big[-1], len(big), big.sum()], [1, 2501, 5000, 5000, 12502500])
words = ["b", "a", "C", "Ä", "ä", "B", "c", "A"]
words.sort()
same("strings collate by locale", words.join("").lower(), "aaääbbcc")
same("mixed kinds don't break a sort", len(["b", 1, None, 2.5, [1], "a"].append(0)), 7)
rows = [("b", 1), ("a", 2), ("b", 3), ("a", 1)]
same("isort", rows.isort([(0, "A"), (1, "D")]), [("a", 2), ("a", 1), ("b", 3), ("b", 1)])
same("isort by keys of dicts", [{"n": 1}, {"n": 3}, {"n": 2}].isort([("n", "D")]), [{"n": 3}, {"n": 2}, {"n": 1}])
kept = [(2, "a"), (1, "b"), (2, "c")]
same("isort leaves equals in their order", kept.isort([(0, "D"), (1, "A")]), [(2, "a"), (2, "c"), (1, "b")])
same("isort without keys", [2, 1].isort([]), [1, 2])
def isort(rows, keys):
    return rows.isort(keys)

fault("isort without the column", "IndexError: isort index out of range", isort, kept, [(5, "A")])
same("and loses nothing", len(kept), 3)

# Tuples
t = (1, [2], "x")
same("tuples", [t[0], len(t), t.tuple_append(4), t], [1, 3, (1, [2], "x", 4), (1, [2], "x")])
same("are not frozen", set((1, 2), 0, 5), (5, 2))
fault("no index from the end", "KeyError: The key -1 does not exist", get, (1, 2), -1)
fault("set out of range", "IndexError: tuple index out of range", set, (1, 2), 2, 0)
fault("no sum", "TypeError: __add__ is not supported", add, (1,), (2,))
fault("no slice", "TypeError: __getslice__ is not supported", run, "x = (1, 2)[0:1]")
fault("no del", "TypeError: __delitem__ is not supported", remove, (1, 2), 0)
same("a tuple of one is a number", [long((5)), float((5)), 1 + (2), long(("12"))], [5, 5.0, 3, 12])
fault("a longer one is none", "RuntimeError: cannot convert multi valued tuple to integer", long, (1, 2))
fault("nor a float", "RuntimeError: cannot convert multi valued tuple to float", float, (1, 2))

# Dicts
d = {"b": 2, "a": 1}
same("get", [d.get("a"), d.get("x"), d.get("x", 5), d["b"]], [1, None, 5, 2])
same("has_key is a number", [d.has_key("a"), d.has_key("x")], [1, 0])
same("keys in order", [d.keys("A"), d.keys("D"), {"b": 1, "C": 1, "a": 1}.keys("A"), len(d.keys())], [["a", "b"], ["b", "a"], ["a", "b", "C"], 2])
same("getset", [d.getset("a", 9), d.getset("c", 3), d.getset("c", 4), d["c"]], [1, 3, 3, 3])
same("without case", [d.get_nocase("A"), d.get_nocase("X"), d.get_nocase("X", 7), d.has_key_nocase("C"), d.has_key_nocase("Z"), d.getset_nocase("B", 0), d.getset_nocase("E", 5), d["E"]], [1, None, 7, 1, 0, 2, 5, 5])
def get_nocase(dict, key):
    return dict.get_nocase(key)

fault("without case all keys are strings", "TypeError: Require a 'StringType' but given a 'IntType'", get_nocase, {1: 2}, "a")
d.new = "attribute"
same("attributes are entries", [d["new"], d.a, d.new], ["attribute", 1, "attribute"])
same("methods hide entries", type({"get": 1}.get), "CallAdapterType")
same("keys of every kind that hashes", [{1: "a", "1": "b", None: "c", [1]: "d"}[[1]], {"x": {}}["x"]], ["d", {}])
fault("a tuple is no key", "TypeError: __hash__ is not supported", run, "x = {(1, 2): 3}")

def grow(n):
    dict = {}
    for i in range(0, n):
        dict[i] = i * 2
        dict[str(i)] = i
    for i in range(0, n, 2):
        del dict[i]
    for i in range(0, n, 4):
        dict[i] = "again"
    return dict

big = grow(3000)
same("many entries, deleted and set again", [len(big), big[1], big.get(2), big[4], big["2999"], big[2999]], [5250, 2, None, "again", 2999, 5998])
same("dicts compare by their entries", [compare({"a": 1, "b": 2}, {"b": 2, "a": 1}), compare({"a": 1}, {"a": 2}), compare({"a": 1}, {"b": 1}), compare({}, [])], [0, -1, 1, 1])

# list and tuple
same("list()", [list((1, 2)), list("aä"), list([1]), list({"k": 1})], [[1, 2], ["a", "ä"], [1], [("k", 1)]])
same("tuple()", [tuple([1, 2]), tuple("ab"), tuple({"k": 1})], [(1, 2), ("a", "b"), (("k", 1),)])
fault("not of a number", "ValueError: tuple() argument must be a sequence", list, 5)
fault("nor of None", "ValueError: tuple() argument must be a sequence", tuple, None)
same("range", [range(0, 3), range(3, 3), range(0, 10, 4), range(-1, 1), range(0, 6, 3), range(6, 5, -1), range(9223372036854775806, 9223372036854775807), len(range(-9223372036854775807, 9223372036854775807, 9223372036854775807))], [[0, 1, 2], [], [0, 4, 8], [-1, 0], [0, 3], [], [9223372036854775806], 2])
fault_class("no step", "ValueError", range, 0, 5, 0)
fault_class("a step away from the end", "ValueError", range, 0, 5, -1)
fault_class("too long", "MemoryAllocError", range, -9223372036854775807, 9223372036854775807)

# Text
same("text and representation", [str([1, "a", (2,), {"k": None}]), repr([1, "a", (2,), {"k": None}])], ["[1, \"a\", (2), {\"k\": None}]", "[1, 'a', (2), {'k': None}]"])
same("JSON", repr([1, "a", (2, 3), {"k": [True]}], json=1), "[1,\"a\",[2,3],{\"k\":[true]}]")
loop = [1]
loop.append(loop)
table = {"self": None}
table["self"] = table
same("circles are cut", [str(loop), repr(table)], ["[1, [...]]", "{'self': {...}}"])
loop[1] = None
table["self"] = None

def nested(levels):
    value = []
    for i in range(1, levels):
        value = [value]
    return len(str(value))

same("thirty-two levels print", nested(32), 64)
fault("thirty-three do not", "RuntimeError: Maximum stack depth exceded", nested, 33)

def translate_circle():
    circle = []
    circle.append(circle)
    try:
        translate(circle)
    finally:
        circle[0] = None

fault("a circle has no translation", "RuntimeError: Cannot call translate on circular structures", translate_circle)

# Copies
kept = {"list": [1, [2]], "tuple": (3, [4])}
copy = clone(kept)
kept["list"][1].append("changed")
same("copies are deep", copy, {"list": [1, [2]], "tuple": (3, [4])})
same("what can't be copied is left out", [clone([1, same, 2]), clone({"f": same, "k": 1})], [[1, 2], {"k": 1}])
fault("a tuple is copied whole or not", "TypeError: __copy__ is not supported for element in tuple", clone, (1, same))
