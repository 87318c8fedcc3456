# What the test programs share: where print goes, and two ways to compare.

class check:

_B.check_output = open("/dev/stdout", "a")
_B.__stdout__ = _B.check_output.write

# Compares the representations, which tell the types too.
def same(label, got, want):
    if repr(got) == repr(want):
        print "ok", label
    else:
        print "FAILED", label + ": got", repr(got) + ", want", repr(want)

# Calls `action` with the arguments behind it; wants "Class: first line of the message".
def fault(label, want, action, *rest):
    try:
        action(*rest)
    except Exception, e:
        lines = e.decode.split("\n")
        message = e.raised + ": "
        if len(lines) > 0:
            message = message + lines[0]
        same(label, message, want)
    else:
        print "FAILED", label + ": no error, want", want

# As `fault`, for messages that the system words: wants the class alone.
def fault_class(label, want, action, *rest):
    try:
        action(*rest)
    except Exception, e:
        same(label, e.raised, want)
    else:
        print "FAILED", label + ": no error, want", want

# One simple statement, in a frame of its own.
def run(text):
    exec text

# Order as the operators tell it
def compare(a, b):
    if a == b: return 0
    if a < b: return -1
    return 1
