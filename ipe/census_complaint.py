# What a user is told of an exception.

class census.complaint:

# Exceptions whose message speaks to users. Any other is a fault of a program and shows where it was raised.
spoken = ["UsageError", "CensusError", "OutputError", "PathNotFoundException", "InvalidFilterException", "InvalidRegularExpressionException", "DatabaseError", "IOError", "LuaInterpreterException", "UnknownIncludeScript", "ReportError", "DevelopmentError", "ValueError"]

# Libraries raise RuntimeError; of these they are meant for users, too.
fronts = ["Error during ", "Failed to connect/open database ", "Error compiling regular expression: ", "Could not locate a Lua function "]

def controls():
    "Characters that would disturb a terminal, but for the line end."
    found = []
    for code in range(1, 32):
        if code <> 10: found.append(chr(code))
    for code in range(127, 160):
        found.append(chr(code))
    return found

disturbing = controls()

def plain(text):
    "Bytes of names that are no text, which a mark and 2 stand for, show as \\xE4."
    text = unicode_sanitize(text).replace("\uDBFF\uDFF02", "\\x")
    for mark in disturbing:
        text = text.replace(mark, "?")
    return text

def reason(text):
    "What SQLite says, without the words of its module in front."
    for front in fronts[:2]:
        if text.find(front) == 0: return text[text.find(": ") + 2:]
    return text

def is_spoken(e):
    if e.raised in spoken: return True
    if e.raised <> "RuntimeError": return False
    for front in fronts:
        if e.decode.find(front) == 0: return True
    return False

def text(e):
    "A line, or for a query the message and below it the query with a mark at the fault."
    message = e.decode
    if e.raised == "LuaInterpreterException" and e.strings.get("luacode", "") == "": message = e.strings.get("message", message)
    if is_spoken(e): return plain(reason(message).strip().replace("\n", "\n    "))
    return plain(e.raised + ": " + message + " (" + e.file + " " + e.line + ")")
