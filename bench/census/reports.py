# The reports' benchmark inside the server: quillsrv --census FILE --rounds N --work FOLDER --custom reports.py
#
# Prints a JSON object of name to {"ms": best, "answer": text}. The time of a report is that of the whole call, from
# the opening of census and index to the commit of its rows in a new database; `memory` is the peak in MB.

class startup_custom:

import ipe.sqlite, bench.statement
import helper.path_levels, helper.path_names
import storage.file_largest, storage.file_ages, storage.group_by_pcre, storage.file_search, storage.tree_summary, storage.spacemap, storage.path_index, storage.path_names

def argument(name):
    words = global_get("__program_args")
    return words[words.index(name) + 1]

file = argument("--census")
work = argument("--work")
rounds = long(argument("--rounds"))
found = {}

def once(function, options, check):
    "Milliseconds of one call, and the answer."
    database = work + "/reports.db"
    fs("erase", database)
    connection = ipe.sqlite.create().connect(database)
    statement = bench.statement(connection)
    cursor = connection.cursor()
    begin = timer()
    cursor.execute("begin")
    function("run", statement, {"fsi": file}, options)
    cursor.execute("commit")
    ms = timer(begin) * 1000
    answer = str(len(statement.found))
    if len(check) > 0:
        cursor.execute(check)
        answer = list(cursor.fetchone()).join(" ")
    cursor.close()
    connection.close()
    return (ms, answer)

def measure(name, function, options, check):
    best = None
    for i in range(0, rounds):
        ms, answer = once(function, options, check)
        if best == None: best = ms
        if ms < best: best = ms
    found[name] = {"ms": best, "answer": answer}

def timed(name, function):
    "An index: built by the first call, opened by the others."
    begin = timer()
    function("build", {"fsi": file})
    found[name + "_build"] = {"ms": timer(begin) * 1000, "answer": ""}
    begin = timer()
    for i in range(0, 20):
        function("build", {"fsi": file})
    found[name + "_open"] = {"ms": timer(begin) * 50, "answer": ""}

def everything():
    return [{"name": "/"}]

def texts(count):
    "Path texts spread over the tree, for locating."
    ms, answer = once(storage.path_names.call, {"paths": everything()}, "select count(*) from r")
    connection = ipe.sqlite.create().connect(work + "/reports.db")
    cursor = connection.cursor()
    cursor.execute("select path from r where ipath % 5 = 0 limit " + count)
    paths = []
    for row in cursor.fetchall():
        paths.append({"name": row[0]})
    connection.close()
    return paths

timed("file_index", helper.path_levels.call)
timed("paths_index", helper.path_names.call)
measure("file_largest", storage.file_largest.call, {"paths": everything(), "filter": "Modified >= 20150101 and Name = '[.]jpg$'"}, "select count(*), sum(value) from r")
measure("file_ages", storage.file_ages.call, {"paths": everything()}, "select count(*), sum(created) from r")
measure("group_by_pcre", storage.group_by_pcre.call, {"paths": everything(), "regex": "\\.([^.]*)$", "regex_dvalue": "(none)"}, "select count(*), sum(size) from r")
measure("file_search", storage.file_search.call, {"paths": everything(), "filter": "Name = '^(report|draft).*[0-9]{3}[.]pdf$'"}, "select sum(count), sum(filteredcount) from r")
measure("tree_summary", storage.tree_summary.call, {"paths": everything()}, "select count(*), sum(size) from r")
measure("spacemap", storage.spacemap.call, {"paths": everything()}, "select count(*), 0 from r")
paths = texts(10000)
measure("locate", storage.path_index.call, {"paths": paths}, "")
found.locate["ms"] = found.locate["ms"] * 1000 / len(paths)

for line in open("/proc/self/status").readlines():
    if line[:6] == "VmHWM:": found["memory"] = {"ms": line[6:].strip().integer() / 1024, "answer": ""}
out = open("/dev/stdout", "a")
out.write(repr(found, json=1) + "\n")
out.close()

class bench.statement:

def __init__(self, connection):
    self.cursor = connection.cursor()
    self.names = {"table": "r", "cache": "1"}
    self.found = []

def __call__(self, sql, rows=None):
    text = sql.substitute(self.names)
    if rows == None: return self.cursor.execute(text)
    return self.cursor.executemany(text, rows)

def set(self, name, value):
    self.names[name + "__c"] = str(value)

def results(self, rows):
    self.found = rows
