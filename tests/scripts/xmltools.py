# XML tokens, stanzas and lines.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import ipe.xmlblock
import ipe.linebuffer

scratch = fs("get_env", "QUILL_SCRATCH")

def file_of(text):
    file = open(scratch + "/text.xml", "w")
    file.write(text)
    file.close()
    return open(scratch + "/text.xml")

def loose(text):
    return file_of(text).xmltokens(False)

same("a tag", pyxparser("<a b='1'/>"), ["(a", "Ab 1", ")a"])
same("text over lines", pyxparser("<a>x\ny</a>"), ["(a", "-x", "-\n", "-y", ")a"])
same("carriage returns", pyxparser("<a>x\r\ny\r</a>\r\n"), ["(a", "-x", "-\n", "-y", ")a"])
same("lines outside tags", [pyxparser("\n<a/>\n\n"), loose("\n<a/>\n\n")], [["(a", ")a"], ["-\n", "(a", ")a", "-\n"]])
same("loose text", [loose("a"), loose(""), loose("a\nb\n")], [["-a"], [], ["-a", "-\n", "-b"]])
same("loose tags", loose("<a></b>"), ["(a", ")b"])
same("entities", pyxparser("<a b='&lt;&quot;&#x41;'>&#x41;&amp;&apos;&gt;&nbsp;&</a>"), ["(a", "Ab <\"A", "-A&'>&nbsp;&", ")a"])
same("a code needs no semicolon", [pyxparser("<a>&#x41</a>"), pyxparser("<a b='&#x41'>&#x42_c</a>")], [["(a", "-A", ")a"], ["(a", "Ab A", "-Bc", ")a"]])
same("instruction", pyxparser("<?xml version='1.0'?><a/>"), ["?xml version='1.0'", "(a", ")a"])
same("comment and document type", pyxparser("<!DOCTYPE a\n b><!-- <x>\n - --><a/>"), ["(a", ")a"])
same("cdata", pyxparser("<a><![CDATA[<&lt;\n\n]]]></a>"), ["(a", "-<&lt;", "-\n", "-\n", "-]", ")a"])
same("a tag over lines", pyxparser("<a\n\tb = \"it's\"c='2'\n/>"), ["(a", "Ab it's", "Ac 2", ")a"])
same("marks of the encoding", [pyxparser("\xEF\xBB\xBF<a/>"), file_of("\uFEFF<a/>").xmltokens()], [["(a", ")a"], ["(a", ")a"]])
second = file_of("x\n<a/>")
second.readline()
same("what is left of a file", [second.xmltokens(1), second.xmltokens(1)], [["(a", ")a"], []])

fault("text outside", "PYXParserError: Data is not allowed outside tags", pyxparser, "a")
fault("an open tag", "PYXParserError: All tags not closed in XML document", pyxparser, "<a>x")
fault("strict by default", "PYXParserError: All tags not closed in XML document", file_of("<a>").xmltokens)
fault("a wrong end tag", "PYXParserError: Parsing Error; Expecting 'b', Found 'a'", pyxparser, "<a><b></a></b>")
fault("an end tag alone", "PYXParserError: Parsing Error; Expecting '', Found 'a'", pyxparser, "</a>")
fault("directive", "PYXParserError: Unknown directive", pyxparser, "<!ELEMENT a>")
fault("decimal code", "PYXParserError: Unsupported Entity Encoding", pyxparser, "<a>&#65;</a>")
fault("bad code", "PYXParserError: Expecting Hex Digit", pyxparser, "<a>&#x4;</a>")
fault("open comment", "PYXParser: Unexpected EOF in comment", pyxparser, "<!-- \n--")
fault("open document type", "PYXParser: Unexpected EOF in doctype", pyxparser, "<!DOCTYPE")
fault("open cdata", "PYXParser: Unexpected EOF in CDATA", pyxparser, "<![CDATA[ ]] >")
fault("open tag", "PYXParser: Unexpected EOF in Tag Data", pyxparser, "<a b='1'\n")
fault("no value", "RuntimeError: Expecting property=value", pyxparser, "<a b\n='1'/>")
fault("no quote", "RuntimeError: Expecting quote on property", pyxparser, "<a b=1/>")
fault("a value over lines", "RuntimeError: Expecting multiple line property values are not supported", pyxparser, "<a b='1\n'/>")
fault_class("a text is wanted", "TypeError", pyxparser, 5)
closed = file_of("<a/>")
closed.close()
fault("a closed file", "ValueError: I/O operation on closed file", closed.xmltokens)

def take(*pieces):
    block = ipe.xmlblock.create()
    found = []
    for piece in pieces:
        block.append(piece)
        found.append(block.getstanza())
    return found + [block.getbuffer()]

same("a stanza in pieces", take("<a><b>", "</b></a>"), [None, "<a><b></b></a>", ""])

block = ipe.xmlblock.create()
block.append("<m><to x='1'><b>1</b></to><to/><from a='/'><c/></from></m>")
same("inner, none and a slash", [block.innerxml("absent"), block.innerxml("from")], ["", ""])
same("a whole name", [block.outerxml("t"), block.outerxml("to")], ["", "<to x='1'><b>1</b></to>"])
block.reset()
block.append("<m><to x='1'><b>1</b></to></m>")
same("inner", [block.innerxml("to"), block.getbuffer()], ["<b>1</b>", "</to></m>"])
block.append("<open")
same("outer, not complete", [block.outerxml("open"), block.append(" a='1'>"), block.outerxml("open"), block.innerxml("open")], ["", None, None, None])

# Names have room.
def stanza(size, rest):
    block = ipe.xmlblock.create()
    name = "n" * size
    block.append("<" + name + rest)
    return block.getstanza()

longest = "n" * 124
same("the longest name", [len(stanza(124, "></" + longest + ">")), stanza(124, "")], [253, None])
fault_class("a longer one", "AssertionError", stanza, 125, "")
name = "n" * 62
block = ipe.xmlblock.create()
block.append("<" + name + "/>")
same("the longest that is asked for", len(block.outerxml(name)), 65)
for ask in [block.outerxml, block.innerxml]:
    fault_class("a longer one", "AssertionError", ask, name + "n")

# Tags and lines beyond the size of a block of the input
closing = "</d>" * 200000
same("deep", len(pyxparser("<d>" * 200000 + closing)), 400000)
value = "v" * 300000
same("long", pyxparser("<a b='" + value + "'>" + value + "\n" + value + "</a>"), ["(a", "Ab " + value, "-" + value, "-\n", "-" + value, ")a"])

line = ipe.linebuffer.create()
line.append("abc\r\ndef")
same("a line", [line.getline(), line.getline()], ["abc", None])
line.append("\n\rg\n\nh")
same("lines", [line.getlines(), line.getlines(), line.getbuffer()], [["def", "", "g", ""], [], "h"])
line.append("\ra,\"b,c\",'d\"e',\n")
same("fields", [line.splitcsvline(), line.splitcsvline(), line.splitcsvline()], [("h"), ("a", "\"b,c\"", "'d\"e'", ""), None])
line.append(" a ,'b,c\n\n")
same("fields, odd", [line.splitcsvline(), line.splitcsvline()], [(" a ", "'b,c"), ("")])

line = ipe.linebuffer.create(0)
line.append("x" * 1048577)
same("no limit", len(line.getbuffer()), 1048577)
