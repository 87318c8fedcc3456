# Tokens and literals: escapes, numbers, names, and what the tokenizer refuses.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import ipe.tokenizer

# Escapes
same("quotes", '\'' + "\"", chr(39) + chr(34))
same("backslash", len("\\"), 1)
same("line feed, return, tab", unicode_utf32("\n\r\t"), [10, 13, 9])
same("octal", '\101\012', "A" + chr(10))
same("octal is cut to a byte", unicode_utf8('\503\251'), [67, 169])
same("hexadecimal", '\x41\x7a\x7A', "Azz")
same("code point", ord('\u20ac'), 8364)
same("surrogate pair", ord('\uD83D\ude00'), 128512)
same("reserved marks", unicode_utf32('\s\{\['), [1114097, 1114105, 1114106])
same("path-safe character", unicode_utf32('\p:\p*\pA\p<'), [58, 61473, 65, 61475])
same("non-ASCII text", len("äöü€"), 4)
same("hash in a literal", "a # b", "a " + "# b")

def escape(text):
    return eval("'" + text + "'")

fault("unknown escape", "SyntaxError: Illegal escape \\q", escape, "\\q")
fault_class("octal digit 8", "IPESyntaxException", escape, "\\89x")
fault_class("octal too short", "IPESyntaxException", escape, "\\12")
fault("lone high surrogate", "SyntaxError: Invalid Unicode", escape, "\\ud83dx")
fault("lone low surrogate", "SyntaxError: Invalid Unicode", escape, "\\ude00")
fault("code point zero", "SyntaxError: \\u0000 is not allowed", escape, "\\u0000")
fault("bad code point", "SyntaxError: Illegal character in unicode escape", escape, "\\u12g4")
fault_class("unclosed literal", "IPESyntaxException", run, "x = 'abc")

# Triple quotes
poem = """first
  second
	third"""
same("line breaks stay, a leading tab is two blanks", poem + "", "first\n  second\n  third")
same("triple apostrophes", '''it's "so"''' + "", "it's \"so\"")
same("triple flag", """a""".is_triquote(), True)
same("no triple flag", "a".is_triquote(), False)
fault("line feed escape in triple quotes", "SyntaxError: Cannot have \\ n in  strings", eval, "\"\"\"a\\nb\"\"\"")
fault("return escape in triple quotes", "SyntaxError: Cannot have \\ r in  strings", eval, "\"\"\"a\\rb\"\"\"")

# Numbers
same("point and no digits", 1., 1.0)
same("exponent", [1e2, 1E+2, 1e-1], [100.0, 100.0, 0.1])
same("exponent d", [1d2, 1D2], [100.0, 100.0])
same("suffix", [10L, 10l], [10, 10])
same("float with suffix", 1.5L, 1.5)
same("types", [type(1), type(1.), type(1e1), type(7L)], ["IntType", "FloatType", "FloatType", "IntType"])
same("negative literals", [-3, -1.5, - 2], [0 - 3, 0.0 - 1.5, 0 - 2])

# Names
a|b = 1
x~1 = 2
_ = 3
forever = 4
iffy = 5
same("bar and tilde are letters", a|b + x~1, 3)
same("keywords match whole", _ + forever + iffy, 12)
x = 6	
same("white space behind a token", x	+	1, 7)

# What is no token
fault("exclamation mark", "SyntaxError: ! is an illegal character", run, "x = !")
fault("dollar", "SyntaxError: $ is an illegal character", run, "x = $")
fault("semicolon", "SyntaxError: ; is an illegal character", run, "x = 1; y = 2")
fault("non-ASCII outside a literal", "SyntaxError: chr( 195) is an illegal character", run, "x = é")
fault("tab in the indent", "InterpreterException: Tabs are not allowed in the source.", interpreter, "parse", "class t:\n\tx = 1\n", "t.py")
fault("indent of three", "InterpreterException: Indent must be a multiple of 4 spaces.", interpreter, "parse", "class t:\n   x = 1\n", "t.py")
fault("end inside triple quotes", "RuntimeError: Read past EOF", interpreter, "parse", "class t:\nx = '''abc\n", "t.py")
same("blank lines have no indent", interpreter("parse", "class tokens_blank:\n   \n \nx = 1\n", "t.py"), ["tokens_blank"])
same("no class line, no module", interpreter("parse", "x = 1\n", "t.py"), [])
same("underscores in a class line", interpreter("parse", "class __tokens__deep_er: pass\nclass tokens_two(base):\n", "t.py"), ["tokens.deep_er", "tokens_two"])

# The tokenizer as an object
t = ipe.tokenizer.create()
def tokens(text):
    result = []
    t.assign(text)
    result.append(t.token())
    while t.token() <> "[EOL]":
        result.append(t.next())
    return result

same("token texts", tokens("a != b <> 2 >= 1.5 'x' # c"), ["a", "<>", "b", "<>", 2, ">=", 1.5, "x", "[EOL]"])
same("keyword names", tokens("if x is not None:"), ["if", "x", "is", "not", "None", ":", "[EOL]"])
same("class and with have no name", tokens("class with"), ["?Unknown?", "?Unknown?", "[EOL]"])
t.assign("one two")
t.next()
t.back()
same("back and the rest", [t.next(), t.tokens(), t.next()], ["two", "two", "[EOL]"])
