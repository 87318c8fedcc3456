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
        return e.decode[:29]

same("an unknown escape is a letter", [search("\\yes", "yes"), broken("\\yes", PCRE_EXTRA=1)], [1, "Failed to compile expression:"])
same("a pattern that does not compile", broken("(a"), "Failed to compile expression:")
fault_class("a text is wanted", "TypeError", search, "a", 5)
