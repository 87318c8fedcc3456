# Exceptions: try, except, else, finally, raise, raise again, the details, the logger, and ipestack.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import exceptions.thing

def raiser(name, text):
    exec "raise " + name + ", '" + text + "'"

# except
def handled(name):
    try:
        raiser(name, "text")
    except First:
        return "first"
    except Second, e:
        return "second " + str(e)
    except :
        return "bare"
    return "after"

same("clauses by word", [handled("First"), handled("Second"), handled("Third")], ["first", "second text", "bare"])
same("ASCII case does not count", handled("FIRST"), "first")

def unmatched():
    log = []
    try:
        log.append("body")
        raise Nobody, "lost"
        log.append("not reached")
    except Somebody:
        log.append("wrong")
    log.append("after")
    return log

same("an exception that no clause takes is dropped", unmatched(), ["body", "after"])

def first_only():
    log = []
    try:
        raise Twice
    except Twice:
        log.append(1)
    except Twice:
        log.append(2)
    except :
        log.append(3)
    else:
        log.append("else")
    return log

def with_else(fails):
    log = []
    try:
        if fails: raise Failed
        log.append("body")
    except Failed:
        log.append("handler")
    else:
        log.append("else")
    log.append("end")
    return log

same("one clause handles", first_only(), [1])
same("else", [with_else(False), with_else(True)], [["body", "else", "end"], ["handler", "end"]])

def nested():
    log = []
    try:
        try:
            raise Inner, "in"
        except Inner, e:
            log.append(str(e))
            raise Outer, "out"
    except Outer, e:
        log.append(str(e))
    return log

same("raised in a handler", nested(), ["in", "out"])

# finally
def finally_rule(how):
    log = []
    _G.finally_log = log
    try:
        log.append("body")
        if how == "raise": raise Passing, "through"
        if how == "return": return log
    finally:
        log.append("finally")
    log.append("after")
    return log

def finally_raise():
    try:
        finally_rule("raise")
    except Passing, e:
        finally_log.append(str(e))
    return finally_log

same("finally", finally_rule("pass"), ["body", "finally", "after"])
same("finally lets the exception pass", finally_raise(), ["body", "finally", "through"])
same("return leaves without finally", finally_rule("return"), ["body"])

def in_loop():
    log = []
    for i in [1, 2, 3]:
        try:
            if i == 2:
                continue
            log.append(i)
        except :
            log.append("never")
        log.append("rest")
    return log

same("continue in try: the rest of the pass still runs", in_loop(), [1, "rest", "rest", 3, "rest"])

# raise
fault("a word alone", "Word: ", run, "raise Word")
fault("a message is text", "Word: a1b", run, "raise Word, 'a' + 1 + 'b'")
for text in ["raise 5", "raise 'text'", "raise Word 'text'"]:
    fault_class(text, "SyntaxError", run, text)

fault("parentheses want details", "TypeError: Require a 'DictType' but given a 'StringType'", run, "raise ('text')")

def key_fault():
    table = {}
    table["missing"]["x"] = 1

def again():
    try:
        key_fault()
    except KeyError, e:
        raise (e.details)

def twice():
    try:
        again()
    except KeyError, e:
        return e

e = twice()
same("raised again, nothing is lost", [e.raised, e.decode, e.strings["key"]], ["KeyError", "missing", "missing"])

# The exception object
def divide():
    fixed(1)

def fixed(a, b):
    pass

def catch(action):
    try:
        action()
    except Exception, e:
        return e

e = catch(divide)
same("fields", [e.raised, e.strings["functionname"], e.strings["actual"], e.numbers["expected"]], ["NotEnoughArgumentsException", "fixed", "(1)", 2])
same("str is the message", str(e), "fixed() takes 2 arguments; (1) given")
same("type", type(e), "ExceptionType")
same("file and line", [e.file[-13:], type(e.line)], ["exceptions.py", "IntType"])
same("details is a dict", [type(e.details), e.details["raised"]], ["DictType", e.raised])
fault("no such entry", "KeyError: nothing", getattr, e, "nothing")

# The logger sees every exception that reaches a try, matched or not
seen = []
def logger(e):
    seen.append(e.raised)

tls.exception_logger = logger
unmatched()
handled("First")
finally_raise()
del tls["exception_logger"]
same("exception_logger in tls", seen, ["Nobody", "First", "Passing", "Passing"])

# ipestack: the frames at the throw, innermost first, with the locals as text
def with_locals(password, job, credentials):
    __hidden = "hidden value"
    number = 5
    fraction = 2.5
    text = "words"
    pair = (1, 2)
    items = [1, "b"]
    table = {"k": 1}
    thing = exceptions.thing()
    nothing = None
    function = raiser
    module = exceptions.thing
    raise Located, "here"

def calls_it():
    with_locals("secret word", {"the": "job"}, ["more", "secrets"])

def hidden_frame():
    calls_it()

hidden_frame.__donttrace = True

def functions_of(e):
    names = []
    for frame in e.ipestack:
        if "function" in frame:
            if "locals" in frame: names.append(frame["function"])
    return names

e = catch(hidden_frame)
same("the functions, innermost first, without __donttrace", functions_of(e)[:3], ["with_locals", "calls_it", "catch"])

def frame_of(e, name):
    for frame in e.ipestack:
        if "function" in frame:
            if frame["function"] == name: return frame

frame = frame_of(e, "with_locals")
locals = frame["locals"]
def local(name):
    return locals.get(name, "no entry")

same("rule 1: __code__ is left out", locals.has_key("__code__"), 0)
same("rule 2: two underscores show no value", find(repr(locals), "hidden value"), -1)
same("rules 3 and 4: secrets, the job", [local("password"), local("credentials"), local("job")], ["<secret>", "<secret>", "<job>"])
same("rule 5: values", [local("number"), local("fraction"), local("text"), local("pair"), local("items"), local("table"), local("thing")], ["5", str(2.5), "words", "(1, 2)", "[1, \"b\"]", "{\"k\": 1}", "\"@class thing\""])
same("rule 7: the type's name", [local("nothing"), local("function"), local("module")], ["NoneType", "CodeType", "IPE_ModuleShared"])
same("statement, file, line", [frame["statement"].split("\n")[0].strip()[:13], frame["file"][-13:], type(frame["line"])], ["raise Located", "exceptions.py", "IntType"])
same("args and signature", [frame.has_key("args"), frame["signature"][0][0][0]], [1, "password"])

# Calls that fail leave the next calls of the same function their names.
def fails_often(first, second, third, fourth, fail):
    fifth = 5
    sixth = 6
    seventh = 7
    if fail: raise Often, "again"
    return first + second + third + fourth + fifth + sixth + seventh

sums = []
for fail in [0, 0, 0, 1, 1, 1, 0, 0, 0]:
    try:
        sums.append(fails_often(1, 2, 3, 4, fail))
    except Often:
        sums.append("failed")
same("calls after failed ones", sums, [28, 28, 28, "failed", "failed", "failed", 28, 28, 28])

class exceptions.thing:

value = 1
