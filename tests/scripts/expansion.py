# The format and the dollar language, HTML marks, and the rule of times.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

def format(text, values):
    return text % values

# Which value a code takes
for text, values, want in [("%s-%i", ["a", 5], "a-5"), ("%s", ([1]), "[1]"), ("%(a)s %(missing)s %(a)s", {"a": 1}, "1 missing 1"), ("100%% of %s", "x", "100% of x"), ("none", [1], "none")]:
    same(text, format(text, values), want)

for text, values, want in [("%(a)s", 1, "attempt to do dict lookup on non dict param"), ("%(a", {}, "missing the ) on string replacement with dict"), ("%s", {}, "attempt to do indexed lookup in dict param"), ("%s%s", [1], "ran out of string params"), ("%s%s", 1, "string replacement requires multiple list param"), ("%d", [], "ran out of string params")]:
    fault(text, "ValueError: " + want, format, text, values)

for text, place in [("ab%", 3), ("%d", 1), ("€%05.2u", 6), ("%-,i", 2), ("%z%z", 1)]:
    fault("an unknown code names its place", "ValueError: unknown format code at position " + place + " in " + text, format, text, 1)

# Width and padding, by family
for text, values, want in [("[%5s][%-5s][%2s]", ["ab", "ab", "abc"], "[ab   ][   ab][abc]"), ("[%4s]", "€", "[€ ]"), ("[%5i][%-5i][%05i][%-05i]", [42, 42, 42, 42], "[   42][   42][00042][   42]"), ("[%5f][%-5f][%05f][%-05f]", [42, 42, 42, 42], "[   42][42   ][00042][42   ]"), ("[%6r][%-4q]", ["a", "\""], "['a'   ][&quot;]")]:
    same(text, format(text, values), want)

# Numbers
for text, values, want in [("%,i %,i %,i %,i", [1234567, -1234, 123, -123456], "1,234,567 -1,234 123 -123,456"), ("%,.2f %,x", [1234567.891, 11259375], "1,234,567.89 abc,def"), ("%f %.1f %.3f", [2.5, 0.25, -1.0], "2 0.2 -1.000"), ("%x %x", [8589934591, -1], "ffffffff ffffffff"), ("%i", "12abc", "12"), ("%08x|%,12i|%6.1f|%-6.1f|%06.1f", [48879, 1234567, 2.25, 2.5, 2.5], "0000beef|   1,234,567|   2.2|2.5   |0002.5")]:
    same(text, format(text, values), want)

same("claims are bounded", [len("%.99999999999f" % 0.1), len("%99999999999999999999s" % "x"), len("%,.1f" % 1e308)], [1102, 1000000, 85])

# The thread's locale; the low half alone names it
_system("setlanguage", 1033)
same("English", "%I|%F|%C|%D|%!D|%T" % [-1234567, 1234.5, 2.25, 1709206496, 1709206496, 1709206496], "-1,234,567|1,234.50|$2.25|2/29/2024|Thursday, February 29, 2024|12:34:56 PM")
_system("setlanguage", 66567)
same("German", ["%I|%F|%D|%T" % [-1234567, 1234.5, 1709206496, 1709206496], "[%D%T]" % [0, None]], ["-1.234.567|1.234,50|29.02.2024|12:34:56", "[]"])
infinite = 1e308 * 10.0
same("no number", [str(infinite), str(infinite - infinite)], ["inf", "nan"])
fault_class("%C", "RuntimeError", format, "%C", infinite)
fault_class("%F", "RuntimeError", format, "%F", infinite - infinite)
_system("setlanguage", 0)

# Stand-ins become characters and markers go, except in %q and the dollar language.
text = "\xef\x80\x81\xef\x80\x90\xef\x80\xa2\xef\x80\xaa\xef\x80\xae\xf4\x8f\xbf\xb2Cx\xf4\x8f\xbf\xb3C"
same("folded", ["%s" % text, "%q" % text, "%-3s|%s" % ["\xef\x80\xa2", "\xf4\x8f\xbf\xb2"]], ["\x01\xef\x80\x90/\xef\x80\xaa~x", text, "  /|"])
same("markers stay", "${a}".substitute({"a": text}), "\x01\xef\x80\x90/\xef\x80\xaa~\xf4\x8f\xbf\xb2Cx\xf4\x8f\xbf\xb3C")

# HTML: damaged bytes, and the spans of markers
damage = "\xf4\x8f\xbf\xb0"
begin = "\xf4\x8f\xbf\xb2"
end = "\xf4\x8f\xbf\xb3"
rows = [("%h", "a<b>&\"", "a&lt;b&gt;&amp;\""), ("%h", "\xef\x80\xa3script\xef\x80\xa4", "&lt;script&gt;"), ("%,h", "a.b<", "a<wbr />.b<wbr />&lt;"), ("%,-h", "a.b", "a.b"), ("%h", damage + "2C3(", "<b>[</b><i><font color=\"red\">C3</font></i><b>]</b>("), ("%-h", damage + "2C3(", "<strike>C3</strike>("), ("%-h", damage + "2<", "<strike>&lt;</strike>")]
rows = rows + [("%h", "x" + damage, "x"), ("%h", damage + "2", ""), ("%h", damage + "9y", "y"), ("%h", begin + "Ca" + end + "C" + begin + "Vb" + end + "V" + begin + "Xc" + begin, "<span class=\"ctag\">a</span><span class=\"vtag\">b</span>c"), ("[%6h][%-4h][%,9h]", ["<>", "<", "."], "[&lt;&gt;    ][   &lt;][<wbr />. ]")]
for text, value, want in rows:
    same(text, format(text, value), want)

# Dollars
values = {"a": 1, "a b": "two", "0": "zero"}
same("names", "$a$$b ${a b} ${0}$0".substitute(values), "1$b two zerozero")
same("none", ["$ x$".substitute(values), "$ x$".substitute(values, exact=1), "$none ${no ne}!".substitute(values), "$none ${no ne}!".substitute(values, exact=1)], [" x", "$ x$", "none no ne!", "$none $no ne!"])
fault("an open brace", "ValueError: missing the } on string substitute", "${a".substitute, values)
fault("values that have no keys", "ItemNotFoundException: The NoneType does not have an key x", "$x".substitute, None)

# Times
for value, want in [("20240229123456", 1709206496), ("2024-02-29 12:34:56.789", 1709206496), ((2024, 2, 29, 12, 34, 56), 1709206496), ("20240229", 1709161200), ("2024-02-29", 1709161200), ([2024, 2], 1706742000), (None, 0), ("", 0), (".5", 0), (-5, -5), ((9223372036854775807, 1), 0)]:
    same("maketime", maketime(value), want)

fault("digits", "ValueError: Packed date passed to maketime() is not in a known format", maketime, "123456789")
for value in [{}, (2024)]:
    fault("no date", "RuntimeException: maketime failed to convert " + value, maketime, value)
