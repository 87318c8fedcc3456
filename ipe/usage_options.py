# The command line: [--top N] [--dir FOLDER] in front of --custom.

class usage.options:

def number(text):
    if text == str(text.integer()):
        if text.integer() > 0: return text.integer()
    raise UsageError, "--top wants a number above 0, not '" + text + "'"

def absolute(folder):
    "The server works in its own folder; a relative path is meant from where it was started."
    if folder[:1] == "/": return folder
    return fs("get_env", "PWD", fs("pwd")) + "/" + folder

def read(arguments):
    "A dict with `folder`, an absolute path, and `top`, the number of rows of each table."
    options = {"folder": ".", "top": 15}
    i = 0
    while i < len(arguments):
        word = arguments[i]
        if word == "--custom": break
        if i + 1 < len(arguments):
            if word == "--dir": options["folder"] = arguments[i + 1]
            if word == "--top": options["top"] = number(arguments[i + 1])
        i = i + 1
    options["folder"] = absolute(options["folder"])
    return options
