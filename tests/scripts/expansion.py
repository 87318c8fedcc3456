# The two template languages: % and substitute.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

def expand(template, value):
    return template % value

# Choosing values
same("one value", ["%s" % 5, "a%%b" % 0, "plain" % 0], ["5", "a%b", "plain"])
same("by position", ["%s and %i" % ("x", 3), "%s%s" % [1, 2], "%s" % [7, 8]], ["x and 3", "12", "7"])
same("by name", ["%(a)s %(b)i %(a)s" % {"a": "x", "b": 2}, "%(missing)s" % {}], ["x 2 x", "missing"])
fault("a second use of one value", "ValueError: string replacement requires multiple list param", expand, "%s %s", 5)
fault("past the last position", "ValueError: ran out of string params", expand, "%s %s", [1])
fault("a position in a dict", "ValueError: attempt to do indexed lookup in dict param", expand, "%s", {"a": 1})
fault("a name without a dict", "ValueError: attempt to do dict lookup on non dict param", expand, "%(a)s", [1])
fault("an open name", "ValueError: missing the ) on string replacement with dict", expand, "%(a", {"a": 1})
fault("an unknown code", "ValueError: unknown format code at position 4 in ab %d", expand, "ab %d", 5)
fault("the end as a code", "ValueError: unknown format code at position 3 in 50%", expand, "50%", 5)
fault("the value comes before the code", "ValueError: ran out of string params", expand, "%d", [])

# Width and flags
same("texts fill behind, with - in front", ["%5s|" % "ab", "%-5s|" % "ab", "%1s|" % "abc", "%4s|" % "ä"], ["ab   |", "   ab|", "abc|", "ä  |"])
same("integers", ["%5i|" % 42, "%-5i|" % 42, "%05i|" % 42, "%i" % -7, "%i" % "12x", "%-05i|" % 42], ["   42|", "   42|", "00042|", "-7", "12", "   42|"])
same("hexadecimal, low 32 bits", ["%x" % 255, "%08x" % 48879, "%x" % 4294967297, "%x" % -1], ["ff", "0000beef", "1", "ffffffff"])
same("floats", ["%f" % 2.5, "%.2f" % 2.345, "%6.1f|" % 2.25, "%-6.1f|" % 2.5, "%06.1f|" % 2.5, "%.3f" % 1], ["2", "2.35", "   2.2|", "2.5   |", "0002.5|", "1.000"])
same("groups of three", ["%,i" % 1234567, "%,i" % -1234, "%,i" % 123, "%,i" % 123456, "%,.2f" % 1234567.891, "%,12i|" % 1234567, "%,x" % 1048576], ["1,234,567", "-1,234", "123", "123,456", "1,234,567.89", "   1,234,567|", "100,000"])
same("representation", ["%r" % "it's", "%r" % [[1, "a"]]], ["\"it's\"", "[1, 'a']"])
same("quotes for attributes", "%q" % "say \"hi\" <b>", "say &quot;hi&quot; <b>")

# HTML
same("markup", "%h" % "a<b>&'\"", "a&lt;b&gt;&amp;'\"")
same("places to break", "%,h" % "a/b.c", "a<wbr />/b<wbr />.c")
same("reserved file-name characters fold back", ["%s" % uep("a:b*c"), "%h" % uep("a<b")], ["a:b*c", "a&lt;b"])

# The dollar language
same("names", ["$a$$b".substitute({"a": 1}), "${a} $a_b-$c".substitute({"a": "x", "a_b": "y", "c": "z"}), "${0}".substitute({"0": "zero"})], ["1$b", "x y-z", "zero"])
same("unknown names", ["$x ${y}".substitute({}), "$x ${y}".substitute({}, exact=True)], ["x y", "$x $y"])
same("a lone dollar", ["a $ b".substitute({}), "a $ b".substitute({}, exact=True), "$".substitute({})], ["a  b", "a $ b", ""])
def substitute(text, values):
    return text.substitute(values)

fault("an open brace", "ValueError: missing the } on string substitute", substitute, "${a", {"a": 1})
