# The built-in functions that no other program calls: text, codecs, time, the machine, objects, stores.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

most = 9223372036854775807

# Text
same("code points", [chr(65), chr(8364), chr(1114111), chr(0), ord("€b"), ord("")], ["A", "€", "\udbff\udfff", "", 8364, 0])
for bad in [-1, 55296, 1114112, 4294967296]:
    fault_class("no code point", "UnicodeError", chr, bad)

fault_class("a code point is a number", "AssertionError", chr, "A")
fault_class("no UTF-8", "UnicodeError", ord, "\xff")
fault_class("a number has no length", "TypeError", len, 1)
same("case, split, join", [lower("ÄB"), upper("ab"), split("a,b;c", ",;"), split("a,b,c", ",", 1), split("a b"), join([1, "b"], "-")], ["äb", "AB", ["a", "b", "c"], ["a", "b,c"], ["a", "b"], "1-b"])
fault_class("join of a tuple", "TypeError", join, (), "")
same("wildmatch: the pattern comes first", [wildmatch("a*C", "ABC"), wildmatch("ABC", "a*C")], [True, False])
same("translate", translate(["x\[key,plain] y", 1]), ["xplain y", 1])
for text, pattern, fits in [("é", "?", True), ("STRAßE😀", "straß?*", True), ("ÄÖ", "*ö", True), ("x\xffy", "x?Y", True), ("x\xffy", "*\xffy", True), ("x\xfey", "x\xffy", False), ("xÿy", "x\xffy", False)]:
    same("beyond ASCII", wildmatch(pattern, text), fits)

for words, keys in [("Knight,Thompson,Xavier,White,Wright,Gnome,Aeon,Science", "NT,0MPSN,SFR,WT,RT,NM,EN,SSNS"), ("school,escher,church,chrome,nation,phone,edge,sign,match", "SXL,ESKR,XRX,KRM,NXN,FN,EJ,SN,MTX"), ("matching,the,fox,lamb,quick,vision,signed,hello,x-ray!,special", "MXNK,0,FKS,LM,KK,FXN,SNT,HL,SR,SPXL")]:
    found = []
    for word in words.split(","):
        found.append(metaphone(word))
    same("metaphone", found.join(","), keys)

same("metaphone of little and of much", [metaphone(""), metaphone("123"), metaphone("S"), metaphone("n" * 5000), len(metaphone("xb" * 1000))], ["", "", "", "N", 127])

# Codecs
same("md5", [md5(""), md5("message digest")], ["d41d8cd98f00b204e9800998ecf8427e", "f96b697d7cb7938d525a2f31aaf161d0"])
same("sha1", [sha1(""), sha1("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")], ["da39a3ee5e6b4b0d3255bfef95601890afd80709", "84983e441c3bd26ebaae4aa1f95129e5e54670f1"])
for coded, plain in [("0V%T", "Cat"), (" \t 0V%T0V%T\nrest", "CatCat"), ("0V%", "Ca"), ("0V", "C"), ("0", ""), ("80``80``", "a"), ("", ""), ("{}", "")]:
    same("uudecode ends at the first foreign character, a text at its first zero", uudecode(coded), plain)

same("uudecode of some bytes", [uudecode("0V%T0V%T", 4), uudecode("0V%T", 0)], ["CatC", ""])
for plain, coded in [("", ""), ("f", "Zg=="), ("fo", "Zm8="), ("foo", "Zm9v"), ("foobar", "Zm9vYmFy")]:
    same("Base64", [base64_encode(plain), base64_decode(coded)], [coded, plain])

same("Base64 of other values", [base64_encode(12), base64_encode("foo".secret())], ["MTI=", "Zm9v"])
same("URLs", [url_encode("AZaz09-._~"), url_encode("a b/é+%"), url_decode("a%20b+c%2f%C3%A9")], ["AZaz09-._~", "a%20b%2F%C3%A9%2B%25", "a b c/é"])
fault("Base64 of nothing", "IndexError: tuple index out of range", base64_encode)
fault("a URL of nothing", "IndexError: tuple index out of range", url_decode)
for action, bad in [(base64_decode, "Zg=!"), (base64_decode, "Z"), (base64_decode, "Zm9vé"), (url_decode, "%"), (url_decode, "%4"), (url_decode, "%zz")]:
    fault_class("damaged text", "ValueError", action, bad)

# p = 61, q = 53: n = 3233 (ca1), e = 17 (11), d = 2753 (ac1).
zeros = "0" * 255
wide = "8" + zeros
for mode, text, exponent, modulus, result in [("eh", "41", "11", "ca1", "ae6"), ("dh", "AE6", "ac1", "CA1", "41"), ("e", "A", "11", "ca1", "ae6"), ("d", "ae6", "ac1", "ca1", "A"), ("eh", "0", "11", "ca1", "0"), ("eh", "0005", "0", "ca1", "1"), ("eh", "5", "3", "64", "19"), ("eh", wide, "1", "9" + zeros, wide), ("eh", "2", "3ff", "f" * 256, wide), ("eh", "00000" + wide, "1", "3", "2")]:
    same("rsa", rsa(mode, text, exponent, modulus), result)

for mode, text in [("eh", "1" + wide), ("e", "x" * 129), ("eh", "1g"), ("eh", "-1"), ("x", "1")]:
    fault_class("rsa of what is no number, too long or no mode", "ValueError", rsa, mode, text, "1", "3")

fault("rsa by zero", "NumericError: Divide by Zero", rsa, "eh", "1", "1", "0")
same("units", [unicode_utf8("a€"), unicode_utf16("a😀"), unicode_utf32("a😀"), unicode_utf8(""), unicode_utf16(""), unicode_utf32("")], [[97, 226, 130, 172], [97, 55357, 56832], [97, 128512], [], [], []])
same("sanitized", [unicode_sanitize("\xc3("), unicode_sanitize("é"), unicode_native("abc")], ["\xf4\x8f\xbf\xb02C3(", "é", "abc"])
fault_class("no UTF-8 in units", "UnicodeError", unicode_utf32, "\xc3(")
unicode_flags(1)
same("unless the thread sanitizes", [unicode_flags(), unicode_utf32("\xc3(")], [1, [1114096, 50, 67, 51, 40]])
unicode_flags(0)
same("names of files", [uep("a:b?c/d\\e. "), udp(uep("a:b?c/d\\e. ")), udp("\xef\x80\xab\xef\x80\xae"), udp(5000)], ["a:b\xef\x80\xa5c\xef\x80\xa2d\xef\x80\xa6e.\xef\x80\xa8", "a:b?c/d\\e. ", ":~", 5000])
same("XML of all that is not plain", xep("a\"&'<>\x01\x1f*,/:;?\\|~\x7fä"), "a&quot;&amp;&apos;&lt;&gt;&#1;&#31;&#42;&#44;&#47;&#58;&#59;&#63;&#92;&#124;&#126;\x7fä")
same("XML", [xep("<a href=\"x\">&'"), xep("a/b", "/", "-"), xep("abc", "ab", "<"), xep("éx", "é", "€")], ["&lt;a href=&quot;x&quot;&gt;&amp;&apos;", "a-b", "&lt;bc", "€x"])
for plain in ["<&>\"'", "a*b,c/d:e;f?g\\h|i~", "tab\tline\n", "€", ""]:
    same("XML there and back", xdp(xep(plain)), plain)

same("codes in XML", xdp("&#8364;&nbsp;"), "€&nbsp;")
fault_class("a text is wanted", "TypeError", xep, 12)
zeros = "0" * 30
same("leading zeros", xdp("&#" + zeros + "65;"), "A")
fault("too many", "RuntimeError: Malformed character reference", xdp, "&#" + zeros + "065;")
fault("an open code", "RuntimeError: Malformed character reference", xdp, "&#12")
for code in ["0", "-1", "", "x41"]:
    fault("code " + code, "RuntimeError: Illegal value", xdp, "&#" + code + ";")

for code in ["55296", "1114112", "4294967361", "99999999999999999999999999"]:
    fault("code " + code, "UnicodeError: Illegal Unicode 1", xdp, "&#" + code + ";")

# Time
now = maketime("20240229123456")
same("maketime", [maketime((2024, 2, 29, 12, 34, 56)), maketime(""), maketime(None), maketime(-5)], [now, 0, 0, -5])
same("localtime", [localtime(now), localtime(0), localtime(-1), localtime()[0] / 1000, localtime(32535244798)[0] / 1000], [(2024, 2, 29, 12, 34, 56), (0, 0, 0, 0, 0, 0), (0, 0, 0, 0, 0, 0), 2, 3])
fault("a time too late", "RuntimeError: The value passed to localtime exceeds the maximum allowed!", localtime, 32535244799)
same("strftime", [strftime(now), strftime("20240229", "%d/%m"), strftime(0), strftime(now, "x" * 200), strftime(now, "%900000000d")], ["2024-02-29 12:34:56", "29/02", "", "", ""])
fault_class("no text of such a time", "RuntimeError", strftime, most)
for wrong, date in [("IndexError", ([2000, 1],)), ("TypeError", (2000,)), ("TypeError", (2000, 1)), ("ValueError", (-9223372036854775807, 1, 1))]:
    fault_class("no weekday", wrong, weekday, *date)

def between(low, value, high):
    if value >= low and value < high: return 1
    return 0

begin = timer()
same("timers run forward", [between(0.0, timer(begin), 3600.0), between(5.0, timer(begin - 5000000000), 3600.0), between(-1e300, timer(most), 0.0)], [1, 1, 1])
timeout().sleep(1)
fault_class("a timeout has no length", "TypeError", timeout, 1)

# The machine
system_gc()
fault_class("system_gc takes nothing", "TypeError", system_gc, 1)
same("figures", [between(1, threadid(), most), between(1, len(hostos("name")), 300), type(drive_list()), between(0, drive_size("/")["available"], most), len(rtoken8()), rchoice(["only"])], [1, 1, "ListType", 1, 8, "only"])
_system("setlanguage", 1031)
same("German", [_system("getlanguage"), localeinfo("SENGLANGUAGE"), localeinfo("SDECIMAL"), localeinfo("SMONTHNAME3"), localeinfo("SDAYNAME7")], [1031, "German", ",", "März", "Sonntag"])
_system("setlanguage", 1033)
same("English", [localeinfo("SDECIMAL"), localeinfo("SISO639LANGNAME"), localeinfo("ILANGUAGE")], [".", "en", "0409"])
_system("setlanguage", 0)
same("of the system", [between(1, _system("getansicodepage"), 65536), between(1, _system("getsystemlanguage"), 65536), _system("getlanguage")], [1, 1, 0])
fault_class("no such key", "KeyError", localeinfo, "NOSUCHKEY")
fault_class("no language", "TypeError", _system, "setlanguage")
fault_class("no such word", "RuntimeError", _system, "shout")

# Objects
import check
setattr(check, "colour", "red")
same("an attribute", getattr(check, "colour"), "red")
delattr(check, "colour")
same("attributes that are missing", [getattr(1, "colour", 5), getattr(check, "colour", None)], [5, None])
fault_class("of a value", "AttributeNotFoundException", getattr, 1, "colour")
fault_class("of a module", "AttributeError", getattr, check, "none")
fault_class("a value takes none", "TypeError", setattr, 1, "a", 1)
same("nothing", [lang("any", 1), tag(), type(smart_inspect("get"))], [None, None, "SmartInspectType"])
inspected = smart_inspect("get")
same("memory and pools", [between(1048576, inspected.memory()["resident"], most), len(inspected.memory()["pools"])], [1, 10])
same("modules and threads", [between(0, inspected.modules()["ipe"].index("re"), 100), inspected.threads()["maximum"]], [1, 256])
fault_class("no spell", "AttributeNotFoundException", getattr, inspected, "spell")
fault_class("only got", "RuntimeError", smart_inspect, "set")

# What the interpreter tells of itself
def caller():
    return interpreter("get_caller")

where = caller()
same("get_caller", [where["file"][-11:], where["statement"]], ["builtins.py", "    return interpreter ( 'get_caller' )"])
def lines():
    found = []
    for entry in interpreter("callstack"):
        found.append(entry["line"])
    return found

same("callstack: the loop, its caller", [lines()[0] - where["line"], lines()[1] - where["line"]], [6, 10])
same("statement", interpreter("statement")[:2], ["same", "("])
same("builtin", type(interpreter("builtin")), "IPE_ModuleBuitin")
interpreter("profile", "local")
x = 0
while x < 3:
    x = x + 1
interpreter("profile", "disable")
hits = []
for file, counted in list(interpreter("profile", "get_coverage")):
    for line, statements in list(counted):
        if statements.has_key("    x = x + 1"): hits.append(statements["    x = x + 1"]["hits"])
interpreter("profile", "reset")
same("coverage, and none", [hits, interpreter("get_coverage")], [[3], {}])

# Stores
for kind, get, set, delete, execute in [("global", global_get, global_set, global_delete, global_execute), ("thread", thread_get, thread_set, thread_delete, thread_execute)]:
    fault("nothing there", "RuntimeError: There is no " + kind + " variable x", get, "x")
    list = [1, check]
    set("x", list)
    list.append(2)
    get("x").append(3)
    same("stripped copies of their time", [get("x"), get("y", 5), find(repr(get()), "'none'")], [[1], 5, -1])
    set("x")
    execute("dict_set", "d", "k", 1)
    delete("d", "k")
    same("an entry", [get("x", None), get("d")], [None, {}])
    delete("d")
    same("a name", get("d", 0), 0)

global_set("here", 1)
thread_set("job", {"id": "j1"})
set_value_into_shared_storage_where("job", "id", "j1", "mark", 5)
same("a thread's own", [thread_get("here", None), thread_get("mark"), get_value_from_shared_storage_on_all_passports("mark")], [None, 5, [5]])
same("no queue", [global_qempty("q"), global_qpop("q")], [0, None])
for i in [0, 1]:
    global_qpush("q", [i])

same("the oldest first", [global_qempty("q"), global_qpop("q"), global_qpush("q", "last"), global_qpop("q"), global_qpop("q"), global_qpop("q")], [2, [0], None, [1], "last", None])
interpreter("global_set", "colour", [1])
snapshot = interpreter("global")
snapshot["colour"] = 2
same("a snapshot of all", [global_get("colour"), interpreter("global")["colour"]], [[1], [1]])

# An operation, what it gives, and the value of the name behind it
do = global_execute
global_set("limit", 3)
for words, result, left in [(["inc", "n"], 1, 1), (["inc", "n"], 2, 2), (["dec", "m"], -1, -1), (["inc_less_than", "n", "limit"], True, 3), (["inc_less_than", "n", "limit"], False, 3), (["inc_less_than", "new", "absent"], False, None), (["set_if_exists", "new", 1], False, None), (["set_if_exists", "n", "text"], True, "text")]:
    same(words[0], [do(*words), global_get(words[1], None)], [result, left])

for words, result, left in [(["list_append", "l", 1], None, [1]), (["list_append", "l", 2], None, [1, 2]), (["list_append", "l", 1], None, [1, 2, 1]), (["list_remove", "l", 1], True, [2, 1]), (["list_remove", "l", 9], False, [2, 1]), (["list_remove", "no list", 9], False, None)]:
    same(words[0], [do(*words), global_get(words[1], None)], [result, left])

rows = [(["dict_list_append", "d", "k", "v"], None, {"k": ["v"]}), (["dict_list_remove", "d", "other", "v"], False, {"k": ["v"]}), (["dict_list_remove", "d", "k", "v"], True, {"k": []}), (["dict_get", "d", "none", 7], 7, {"k": []}), (["dict_get", "nobody", "none"], None, None)]
rows = rows + [(["dict_del", "d", "k"], None, {}), (["dict_del", "nobody", "k"], None, None), (["dict_item_add", "d", 4, 150], 150, {4: 150}), (["dict_item_add", "d", 4, -1], 149, {4: 149}), (["dict_keys", "d"], [4], {4: 149}), (["dict_keys", "nobody"], [], None)]
for words, result, left in rows:
    same(words[0], [do(*words), global_get(words[1], None)], [result, left])

same("bulk_set", [do("bulk_set", {"b1": 1, "b2": []}), global_get("b1"), global_get("b2")], [None, 1, []])
global_set("i", most)
global_set("s", "x")
rows = [(["inc", "i"], "SafeIntArithmeticOverflow: "), (["inc", "s"], "TypeError: Require a 'IntType' but given a 'StringType'"), (["dict_set", "i", "k", "v"], "TypeError: Require a 'DictType' but given a 'IntType'"), (["list_append", "i", "v"], "TypeError: Require a 'ListType' but given a 'IntType'")]
rows = rows + [(["bulk_set", "v"], "TypeError: Require a 'DictType' but given a 'StringType'"), (["inc"], "TypeError: inc requires 1 arguments, 0 given"), (["frob"], "RuntimeError: Unknown store operation frob")]
for words, error in rows:
    fault(words[0], error, do, *words)

same("what was refused is not done", global_get("i"), most)

# Tuples that scripts put where a queue is expected
def pop(value):
    global_set("q", value)
    return global_qpop("q")

def push(value):
    global_set("q", value)
    global_qpush("q", "v")

fault("a short one", "IndexError: tuple index out of range", pop, (1))
fault("no entries", "TypeError: Require a 'DictType' but given a 'IntType'", push, (1, 2, 3))
fault("full", "SafeIntArithmeticOverflow: ", push, (0, most, {}))
same("an entry that is missing", pop((0, most, {})), None)
sys_exit()
