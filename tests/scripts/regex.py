# Regular expressions.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import ipe.re

def search(pattern, text, **options):
    return ipe.re.compile(pattern, **options).search(text)

def findall(pattern, text, **options):
    return ipe.re.compile(pattern, **options).findall(text)

same("search", [search("b+", "abbc"), search("^b", "abc"), search("", "")], [1, 0, 1])
same("the first match and its groups", [findall("(a)(b)", "xab"), findall("a", "aaa"), findall("z", "a")], [["ab", "a", "b"], ["a"], None])
same("a group that took no part, before and behind", [findall("(a)|(b)", "b"), findall("(b)|(a)", "b")], [["b", "", "b"], ["b", "b"]])
same("matches of nothing", [findall("x*", "aaa"), findall("", ""), findall("(?=ab\\K)", "ab")], [[""], [""], [""]])
same("UTF-8", [findall("ä.", "xäöü"), search("^.$", "世"), search("É", "é", PCRE_CASELESS=1)], [["äö"], 1, 1])
same("options count by being there", [search("ABC", "abc", PCRE_CASELESS=0), search("ABC", "abc")], [1, 0])
same("anchored", search("b", "ab", PCRE_ANCHORED=1), 0)
same("dot takes line ends", [search("a.b", "a\nb"), search("a.b", "a\nb", PCRE_DOTALL=1)], [0, 1])
same("lines", [search("^b$", "a\nb\nc"), search("^b$", "a\nb\nc", PCRE_MULTILINE=1)], [0, 1])
same("extended", search("a b # comment", "ab", PCRE_EXTENDED=1), 1)
same("ungreedy", [findall("a+", "aaa"), findall("a+", "aaa", PCRE_UNGREEDY=1)], [["aaa"], ["a"]])
same("end only", [search("a$", "a\n"), search("a$", "a\n", PCRE_DOLLAR_ENDONLY=1)], [1, 0])
same("first line", search("b", "a\nb", PCRE_FIRSTLINE=1), 0)
same("no check, callouts", search("a", "a", PCRE_NO_UTF8_CHECK=1, PCRE_AUTO_CALLOUT=1), 1)
same("no groups by themselves", findall("(a)(?<n>b)", "ab", PCRE_NO_AUTO_CAPTURE=1), ["ab", "b"])
same("the inverting block", [search("\{N}abc", "xyz"), search("\{N}abc", "abc"), search("a\{N}bc", "abd"), search("a\{N", "a"), search("\{n}abc", "abc")], [1, 0, 1, 0, 1])
same("findall does not invert", [findall("\{N}abc", "xyz"), findall("\{N}abc", "abc")], [None, ["abc"]])
same("other blocks are dropped", [search("a\{x}b", "ab"), search("a\{open", "a"), search("a\{zzz}b\{}c", "abc")], [1, 1, 1])
same("a plain brace repeats", findall("a{2}", "aaa"), ["aa"])

def broken(pattern, **options):
    try:
        ipe.re.compile(pattern, **options)
    except RuntimeError, e:
        return [e.decode[:29], e.numbers["pcre_erroroffset"]]

failed = "Failed to compile expression:"
same("an unknown escape is a letter", [search("\\yes", "yes"), broken("\\yes", PCRE_EXTRA=1)[0]], [1, failed])
same("a pattern that does not compile tells where", broken("(a"), [failed, 2])
fault_class("a text is wanted", "TypeError", search, "a", 5)
same("a text that is not UTF-8 matches nothing", [search("a", "a\xc3"), findall("a", "a\xc3")], [0, None])

# Limits
many = "(a)" * 511
same("512 groups", [len(findall(many, "a" * 600)), search(many + "(a)", "a" * 600)], [512, 1])
fault("one more", "RuntimeError: Number of matches exceeded internal limit (512)", findall, many + "(a)", "a" * 600)
text = "a" * 40 + "!"
for action, pattern in [(search, "^(a+)+$"), (findall, "(a|aa)+$"), (search, "(*NO_JIT)(a+)+$")]:
    fault("too many steps", "RuntimeError: An unexpected error occured whilst evaluating regular expression", action, pattern, text)

closing = ")" * 1000
same("too large, too deep", [broken("((a{0,200}){0,200}){0,200}")[0], broken("(" * 1000 + closing)[0]], [failed, failed])

# A recursion without end is refused or stopped, never followed; where the compiled code runs out of stack, the
# interpreter goes on.
for pattern, size in [("(?R)?a(?1)?(b|(?R))*c", 100000), ("^(?:(a)|b)*$", 2000000)]:
    try:
        search(pattern, "a" * size)
    except RuntimeError, e:
        if "An unexpe, Failed to".find(e.decode[:9]) < 0: print "FAILED", e.decode

# A match across the places where a long search pauses, and assertions that look behind them
tail = "y" * 700
for at in [0, 511, 512, 513, 1023, 1024, 5000]:
    text = "x" * at + "ab" + tail
    same("found", [search("ab", text), search("(?<!q)ab(?=y)", text), len(findall("x*?(ab)(y+)$", text)[0])], [1, 1, at + 702])

def verbs(at):
    text = "x" * at + "ab"
    return [search("^ab", text), search("\\Gab", text), search("x(*COMMIT)ab", text)]

same("one piece", [verbs(0), verbs(1), verbs(511), verbs(512), verbs(1024)], [[1, 1, 0], [0, 0, 1], [0, 0, 0], [0, 0, 0], [0, 0, 0]])
wide = "€" * 600
same("wide letters", [search("€$", wide), search("!", wide + "!"), search("^$", wide), search("$", "x" * 512), search("$", "x" * 1024)], [1, 1, 0, 1, 1])
