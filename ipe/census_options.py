# What reports may be told: by the command line of report.py and, as far as `reports` goes, by the clients of a server.

class census.options:

import census.reports

# The options of reports. A number is told by its limits, a switch takes 0 and 1.
limits = {"count": (1, 100000), "preview_cap": (0, 1000000), "threshold": (1, 1000000000), "maxrows": (-1, 1000000000), "perpath": (0, 1), "subdirs": (0, 1), "calc_digests": (0, 1)}
texts = ["filter", "field", "mode", "pivot", "regex", "regex_dvalue", "xform", "table", "script"]

def check(name, value):
    "The value that a report gets for an option."
    if limits.has_key(name):
        low, high = limits[name]
        return whole(name, value, low, high)
    if name == "epoch": return moment(value)
    if name == "fields":
        for field in list_of(value):
            if type(field) <> "StringType": raise UsageError, "fields wants a list of column names"
        return value
    if name not in texts: raise UsageError, "there is no option '" + name + "'"
    if type(value) == "StringType": return value
    return str(value)

def moment(value):
    "Seconds since 1970, or 2025-12-31 with or without 23:59:59 behind it, as the text that the filters want."
    text = str(value)
    if str(number_of(text)) == text: return strftime(localtime(whole("epoch", text, 0, 4102444800)))
    for pattern in ["????-??-??", "????-??-?? ??:??:??"]:
        if wildmatch(pattern, text):
            if strftime(localtime(maketime(text)))[:len(text)] == text: return text
    raise UsageError, "epoch wants seconds or a date such as 2025-12-31, not '" + text + "'"

def list_of(value):
    if type(value) in ["ListType", "TupleType"]: return value
    return [value]

def whole(name, value, low, high):
    if type(value) in ["TrueType", "FalseType"]: return whole_of(value)
    text = str(value)
    if str(number_of(text)) <> text: raise UsageError, name + " wants a number, not '" + text + "'"
    number = number_of(text)
    if number < low or number > high: raise UsageError, name + " wants a number from " + low + " to " + high
    return number

def whole_of(value):
    if value: return 1
    return 0

def number_of(text):
    "long() raises for what 64 bits do not hold."
    try:
        return long(text)
    except Exception:
        return 0

# --- The command line.

usage = """usage: quillsrv --census FILE [OPTION]... --custom report.py

Reports on a census that quillscan has written. Without --out the results go to
standard output alone.

  --census FILE        the census
  --report NAME        a report, or several with commas between; "all" (the
                       default) runs every one with sensible options
  --list               lists the reports
  --path PATH          a folder to report on; repeat it for more. Default: all
                       roots of the scan
  --filter QUERY       takes only rows that pass, such as "Size >= 5MB"
  --count N            rows wanted, 1 to 100000 (default 200)
  --field NAME         what the report measures, such as Space
  --set KEY=VALUE      any further option of the report
  --epoch MOMENT       from which "within" counts back, in seconds since 1970
                       or as 2025-12-31. Default: the end of the scan
  --digests            adds digests to the summaries
  --hide-paths         masks the names of folders from the fifth level on
  --hide-users         masks users and groups
  --base TEXT          stands in front of all paths, such as a server's name
  --out FILE           a SQLite database that keeps the tables; what stands
                       there already is not worked out again
  --top N              rows to print of each table (default 15)
  --csv, --json        prints all rows of one report in that form
  --quiet              prints no tables
  --help               prints this text

Exit codes: 0 done, 1 a report failed, 2 the command line is wrong.
"""

switches = {"--help": "help", "--list": "list", "--quiet": "quiet"}
forms = {"--csv": "csv", "--json": "json"}
files = {"--census": "census", "--out": "out"}
shown = {"--filter": "filter", "--field": "field", "--count": "count"}
marks = {"--hide-paths": "hide_paths", "--hide-users": "hide_users"}
with_value = ["--census", "--report", "--path", "--filter", "--count", "--field", "--set", "--epoch", "--base", "--out", "--top"]

def absolute(path):
    "The server works in its own folder; a relative path is meant from where it was started."
    if path[:1] == "/": return path
    return fs("get_env", "PWD", fs("pwd")) + "/" + path

def literal(text):
    "The value of --set: a literal where it is one, else the text."
    try:
        return eval(text)
    except Exception:
        return text

def assign(wish, text):
    at = text.find("=")
    if at < 1: raise UsageError, "--set wants KEY=VALUE, not '" + text + "'"
    name = text[:at]
    value = text[at + 1:]
    if name not in texts: value = literal(value)
    wish.options[name] = check(name, value)

def names(text):
    if text == "all": return census.reports.order
    found = text.split(",")
    for name in found:
        if census.reports.catalog.has_key(name) == 0: raise UsageError, "there is no report named '" + name + "'; --list tells them"
    return found

def take(wish, word, value):
    if switches.has_key(word):
        wish[switches[word]] = True
    elif forms.has_key(word):
        wish["form"] = forms[word]
    elif files.has_key(word):
        wish[files[word]] = absolute(value)
    elif shown.has_key(word):
        wish.options[shown[word]] = check(shown[word], value)
    elif marks.has_key(word):
        wish.selection[marks[word]] = 1
    elif word == "--report":
        wish["reports"] = names(value)
    elif word == "--path":
        wish.paths.append(value)
    elif word == "--set":
        assign(wish, value)
    elif word == "--top":
        wish["top"] = whole("top", value, 1, 1000000)
    elif word == "--epoch":
        wish.selection["epoch"] = check("epoch", value)
    elif word == "--base":
        wish.selection["base"] = [value]
    elif word == "--digests":
        wish.options["calc_digests"] = 1
        wish.selection["calc_digests"] = 1
    else:
        raise UsageError, "unknown option '" + word + "'"

def read(arguments):
    "A dict of what was asked for."
    wish = {"census": None, "reports": census.reports.order, "paths": [], "options": {}, "selection": {}, "out": None, "top": 15, "form": "text", "quiet": False, "help": False, "list": False}
    i = 0
    while i < len(arguments):
        word = arguments[i]
        if word == "--custom": break
        i = i + 1
        # The server's own.
        if word == "--standalone": continue
        value = None
        if word in with_value:
            if i == len(arguments): raise UsageError, word + " wants a value"
            value = arguments[i]
            if value == "--custom": raise UsageError, word + " wants a value"
            i = i + 1
        take(wish, word, value)
    if wish.help or wish.list: return wish
    if wish.census == None: raise UsageError, "--census FILE is missing"
    if wish.form <> "text" and len(wish.reports) > 1: raise UsageError, "--csv and --json want one report: --report NAME"
    return wish
