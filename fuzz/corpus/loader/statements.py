# Statements: every rule of if, while, for, with, assignment, print, del, exec, assert.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import statements.guard

# if
def grade(n):
    if n < 10:
        return "small"
    elif n < 100:
        return "middle"
    elif explode():
        return "never"
    else:
        return "large"

def choose(n):
    log = []
    if n == 1:
        log.append("if")
    elif n == 2:
        log.append("elif")
    else:
        log.append("else")
    log.append("end")
    return log

same("if, elif, else", [choose(1), choose(2), choose(3)], [["if", "end"], ["elif", "end"], ["else", "end"]])
same("the condition behind a taken one is not evaluated", [grade(1), grade(50)], ["small", "middle"])
fault("a reached condition is", "NameError: Name error explode", grade, 500)

def inline(n):
    if n > 5: return "above"
    if n > 3: n = n * 10
    return n

same("inline if", [inline(6), inline(4), inline(1)], ["above", 40, 1])

def inline_else(n):
    if n: return 1
    else: return 2

fault("no else behind an inline if", "SyntaxError: SyntaxError:     else : return 2", inline_else, 0)

def inline_deeper():
    if False: x = 1
        x = 2
