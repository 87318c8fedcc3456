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
