# The command line of report.py.

class census.options:

import census.reports

def absolute(path):
    "The server works in its own folder; a relative path is meant from where it was started."
    if path[:1] == "/": return path
    return fs("get_env", "PWD", fs("pwd")) + "/" + path

def whole(word, text, low, high):
    if str(long(text)) != text: raise UsageError, word + " wants a number, not '" + text + "'"
    number = long(text)
    if number < low or number > high: raise UsageError, word + " wants a number from " + low + " to " + high
    return number

def literal(text):
    "The value of --set: a literal where it is one, else the text."
    try:
        return eval(text)
    except Exception:
        return text

def assign(read, text):
    at = text.find("=")
    if at < 1: raise UsageError, "--set wants KEY=VALUE, not '" + text + "'"
    read.options[text[:at]] = literal(text[at + 1:])

def names(text):
    if text == "all": return census.reports.order
    found = text.split(",")
    for name in found:
        if census.reports.catalog.has_key(name) == 0: raise UsageError, "there is no report named '" + name + "'; --list tells them"
    return found

with_value = ["--census", "--report", "--path", "--filter", "--count", "--field", "--set", "--epoch", "--base", "--out", "--top"]

def read(arguments):
    "A dict of what was asked for."
    read = {"census": None, "reports": census.reports.order, "paths": [], "options": {}, "selection": {}, "out": None, "top": 15, "form": "text", "quiet": False, "help": False, "list": False}
    i = 0
    while i < len(arguments):
        word = arguments[i]
        if word == "--custom": break
        value = None
        if word in with_value:
            i = i + 1
            if i == len(arguments): raise UsageError, word + " wants a value"
            value = arguments[i]
            if value == "--custom": raise UsageError, word + " wants a value"
        take(read, word, value)
        i = i + 1
    if read.help or read.list: return read
    if read.census == None: raise UsageError, "--census FILE is missing"
    if read.form <> "text" and len(read.reports) > 1: raise UsageError, "--csv and --json want one report: --report NAME"
    return read

switches = {"--help": "help", "--list": "list", "--quiet": "quiet"}
forms = {"--csv": "csv", "--json": "json"}
files = {"--census": "census", "--out": "out"}
shown = {"--filter": "filter", "--field": "field"}
marks = {"--hide-paths": "hide_paths", "--hide-users": "hide_users"}

def take(read, word, value):
    if switches.has_key(word):
        read[switches[word]] = True
    elif forms.has_key(word):
        read["form"] = forms[word]
    elif files.has_key(word):
        read[files[word]] = absolute(value)
    elif shown.has_key(word):
        read.options[shown[word]] = value
    elif marks.has_key(word):
        read.selection[marks[word]] = 1
    elif word == "--report":
        read["reports"] = names(value)
    elif word == "--path":
        read.paths.append(value)
    elif word == "--top":
        read["top"] = whole(word, value, 1, 1000000)
    elif word == "--count":
        read.options["count"] = whole(word, value, 1, 100000)
    elif word == "--set":
        assign(read, value)
    elif word == "--epoch":
        read.selection["epoch"] = whole(word, value, 0, 4102444800)
    elif word == "--base":
        read.selection["base"] = [value]
    elif word == "--digests":
        read.options["calc_digests"] = 1
        read.selection["calc_digests"] = 1
    else:
        raise UsageError, "unknown option '" + word + "'"
