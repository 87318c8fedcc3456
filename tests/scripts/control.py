# How return, break, continue, raise and exec cross blocks, and what the one-line forms refuse.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

def continue_in_handler():
    for i in [1,2,3]:
        try:
            raise Zero
        except Zero:
            continue
        same("not reached", 1, 2)
    return i

same("continue in handler", continue_in_handler(), 3)

def raise_in_finally():
    try:
        try:
            raise X, "x"
        finally:
            raise Y, "y"
    except Y, e:
        return str(e)

same("raise in finally", raise_in_finally(), "y")

def return_in_with():
    while True:
        with 1:
            return 5

same("return in with in while", return_in_with(), 5)

def return_in_finally():
    try:
        pass
    finally:
        return 7
    return 8

same("return in finally", return_in_finally(), 7)

def inline_elif(n):
    if n == 1:
        x = "a"
    elif n == 2: x = "b"
    return x

fault_class("an elif wants a block", "IPESyntaxException", inline_elif, 2)
fault_class("even one that is passed over", "IndentError", inline_elif, 1)

def inline_for():
    for i in range(0, 3): pass

fault_class("no inline for", "IPESyntaxException", inline_for)

def inline_try():
    try: x = 1
    except : x = 2
    return x

fault_class("no inline try", "IndentError", inline_try)

def with_blank_lines(n):
    if n:

        x = 1

        y = 2
    else:

        x = 3
    return x

same("blank lines", [with_blank_lines(1), with_blank_lines(0)], [1, 3])

def return_in_while_else():
    while False:
        pass
    else:
        return "else"

same("return in while else", return_in_while_else(), "else")

def exec_return():
    exec "return 5"
    return 6

same("return in exec", exec_return(), 5)

def exec_break():
    for i in [1, 2, 3]:
        exec "break"
    return i

same("break in exec", exec_break(), 1)

fault_class("exec del of a display", "SyntaxError", run, "del {}[1]")

fault_class("exec of def", "SyntaxError", run, "def elif_behind_inline(): pass")
fault_class("exec of two lines", "SyntaxError", run, "x = 1\ny = 2")
