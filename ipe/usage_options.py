# The command line: [--top N] [--dir FOLDER] [--store FILE [--rescan]] in front of --custom.

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
    "A dict with `folder`, an absolute path, and whether it was `given`, `top`, the number of rows of each table, `store`, an absolute path or None, `rescan`, and `made`, None until a store tells it."
    options = {"folder": ".", "given": False, "top": 15, "store": None, "rescan": False, "made": None, "help": False}
    i = 0
    while i < len(arguments):
        word = arguments[i]
        if word == "--custom": break
        if word == "--rescan": options["rescan"] = True
        if word == "--help": options["help"] = True
        if word in ["--store", "--dir", "--top"]:
            i = i + 1
            if i == len(arguments): raise UsageError, word + " wants a value"
            value = arguments[i]
            if value[:2] == "--": raise UsageError, word + " wants a value"
            if word == "--store": options["store"] = absolute(value)
            if word == "--dir":
                options["folder"] = value
                options["given"] = True
            if word == "--top": options["top"] = number(value)
        i = i + 1
    options["folder"] = absolute(options["folder"])
    return options
