# Runs reports: over a census, into a SQLite database, each run under a key of its own in the column `cache`.
#
# The key is made of everything that the rows depend on: the report and its version, the census file and which file
# that is at this moment, all options, and the application's scripts. The table `runs` tells which keys there are. A
# run that stands there is not repeated, unless its filter asked for something that changes by itself, such as `now`.
# A run is one transaction, so that no half of one is ever found. It removes the runs of its report that nobody can
# ask for any more, of an older census or version, and of more than `kept` others the oldest.

class census.run:

import fsi.reader, ipe.sqlite
import census.complaint, census.host, census.source, census.statement

kept = 20
# Goes up with every change to what this file adds to the rows.
version = 1

def exists(path):
    try:
        file = open(path)
    except IOError:
        return False
    file.close()
    return True

def __init__(self, file, selection, database, listener=None):
    "`selection` is what opens the census; `listener` is called with each message of progress."
    self.file = file
    self.selection = selection
    self.selection["fsi"] = file
    self.listener = listener
    self.database = database
    # A database that this run makes goes again when nothing comes into it.
    self.made = False
    if database <> ":memory:":
        if exists(database) == False: self.made = True
    self.host = census.host.create()
    try:
        self.connection = ipe.sqlite.create().connect(database)
        self.cursor = self.connection.cursor()
        self.cursor.execute("create table if not exists runs (cache text primary key, report, version, census, state, options, again, finished, seconds)")
    except RuntimeError, e:
        raise OutputError, database + ": " + census.complaint.reason(e.decode)
    except Exception, e:
        raise (e.details)

def close(self):
    empty = self.made
    if empty:
        if self.one("select count(*) from runs", []) > 0: empty = False
    self.cursor.close()
    self.connection.close()
    if empty: fs("erase", self.database)

def function(name):
    "The native function of a report."
    exec "import storage." + name
    exec "found = storage." + name + ".call"
    return found

def table_of(name, options):
    "The summaries have one more column with digests, so that is another table."
    if name in ["path_summary", "tree_summary"] and options.get("calc_digests", 0) <> 0: return name + "_digests"
    return name

def row_of(self, name, options):
    "The row of `runs` for a run that is to be made, as a dict."
    native = function(name)
    row = {"report": name, "version": native("version"), "census": self.file, "state": census.source.state(self.file), "options": repr(options)}
    script = ""
    if options.get("xform", None) <> None: script = census.host.resource("Includes/" + str(options["xform"]) + ".lua")
    row["cache"] = sha1(repr([version, row, repr(self.selection), census.host.scripts(), script]))
    return row

def one(self, sql, values):
    "The first column of the only row, or None. Fetching all ends the statement, which would keep its lock."
    self.cursor.execute(sql, values)
    for row in self.cursor.fetchall():
        return row[0]
    return None

def report(self, name, options):
    "Runs a report, or finds its rows of an earlier run; gives table and key."
    row = self.row_of(name, options)
    table = table_of(name, options)
    if self.one("select count(*) from runs where cache = ? and again = 0", [row.cache]) > 0: return (table, row.cache)
    self.check_field(name, options)
    begun = timer()
    statement = census.statement(self, table, row.cache)
    try:
        self.call(name, statement, options)
        statement.begin()
        again = 0
        if options.has_key("_not_cacheable"): again = 1
        statement.execute("insert into runs values (?, ?, ?, ?, ?, ?, ?, ?, ?)", [(row.cache, name, row.version, row.census, row.state, row.options, again, strftime(localtime()), timer(begun))])
        self.supersede(table, row)
        statement.commit()
    except AlreadyThere:
        # Another thread or process has made the same run meanwhile.
        statement.rollback()
    except Exception, e:
        statement.rollback()
        raise (e.details)
    return (table, row.cache)

def check_field(self, name, options):
    "What is measured must be numbers."
    tables = {"file_largest": "File", "path_largest": "Path"}
    if tables.has_key(name) == 0 or options.has_key("field") == 0: return
    for column in fsi.reader.create(self.selection, self.host).table(tables[name]).get_header():
        if column["name"].lower() == options.field.lower() and column["type"] not in ["I32", "I64"]: raise ReportError, "the column " + column["name"] + " holds no numbers"

def claim(self, table, cache):
    "Called inside the transaction, before its first rows."
    again = self.one("select again from runs where cache = ?", [cache])
    if again == 0: raise AlreadyThere, cache
    if again == 1: self.forget(table, cache)

def forget(self, table, cache):
    self.cursor.execute("select name from sqlite_master where type = 'table' and name in (?, ?, ?)", [table, table + "_offsets", table + "_preview"])
    for row in self.cursor.fetchall():
        self.cursor.execute("delete from " + row[0] + " where cache = ?", [cache])
    self.cursor.execute("delete from about where cache = ?", [cache])
    self.cursor.execute("delete from runs where cache = ?", [cache])

def supersede(self, table, row):
    old = "select cache, options from runs where report = :report and census = :census and (state <> :state or version <> :version)"
    many = " union select cache, options from (select * from runs where report = :report and census = :census order by rowid desc limit -1 offset " + kept + ")"
    self.cursor.execute(old + many, {"report": row.report, "census": row.census, "state": row.state, "version": row.version})
    for cache, options in self.cursor.fetchall():
        self.forget(table_of(row.report, eval(options)), cache)

def call(self, name, statement, options):
    native = function(name)
    if name == "file_duplicated":
        self.prepare_duplicates(statement, options)
        native("run", statement, self.selection, options, lua=self.host, progress=self.listener)
        self.group_duplicates(statement, options)
        return
    native("run", statement, self.selection, options, lua=self.host, progress=self.listener)
    if name == "path_index": self.keep_ranges(statement)
    if name == "iterate": self.keep_totals(statement)

# --- Reports that need a hand before or after.

def prepare_duplicates(self, statement, options):
    "The native side writes a fingerprint of each file through a cursor; the groups are made in SQL."
    extra = ""
    for i in range(1, len(names_of(options.get("fields", ["Modified", "Size", "Name"]))) + 1):
        extra = extra + ", field" + i
    self.cursor.execute("drop table if exists temp.details")
    self.cursor.execute("create temp table details (name, size, date, owner, path, hash, ipath" + extra + ")")
    options["dcursor"] = self.connection.cursor()
    statement.gather()

def names_of(fields):
    if type(fields) == "StringType": return fields.split("\uDBFF\uDFF9")
    return fields

def group_duplicates(self, statement, options):
    del options["dcursor"]
    statement("create table if not exists $table (cache, hash, copies, size, wasted, name, path)")
    statement.begin()
    statement("insert into $table select $cache, hash, count(*), max(size), sum(size) - max(size), min(name), min(path) from details group by hash having count(*) > 1")
    statement.execute("drop table temp.details")

def keep_ranges(self, statement):
    statement("create table if not exists $table (cache, number, path, start, count)")
    statement("create table if not exists about (cache, object)")
    rows = []
    for path, range, number in statement.found:
        place = eval(range)
        rows.append((number, path, place["pathStart"], place["pathCount"]))
    statement("insert into $table values ($cache, ?, ?, ?, ?)", rows)
    statement("insert into about (cache, object) values ($cache, '{}')")

def keep_totals(self, statement):
    "The script of an iteration leaves in the global `totals` a table from a name to a pair, of files and bytes."
    statement("create table if not exists $table (cache, name, files, size)")
    totals = self.host.getglobal("totals")
    rows = []
    if type(totals) == "DictType":
        for name in totals.keys():
            pair = totals[name]
            if type(pair) <> "DictType" or len(pair) <> 2: raise ReportError, "the script must fill the global totals, from a name to {files, bytes}"
            rows.append((name, pair[1], pair[2]))
    statement("insert into $table values ($cache, ?, ?, ?)", rows)

# --- What a run has left.

def rows(self, query, table, cache):
    "The rows of a query over a report's table."
    statement = census.statement(self, table, cache)
    self.cursor.execute(query.substitute(statement.names))
    return self.cursor.fetchall()

def all(self, table, cache, first=0, most=-1):
    "The column names of a report's table without `cache`, and its rows of this run."
    self.cursor.execute("select * from " + table + " where cache = ? order by rowid limit ? offset ?", [cache, most, first])
    names = []
    for column in self.cursor.description:
        names.append(column[0])
    rows = []
    for row in self.cursor.fetchall():
        rows.append(list(row)[1:])
    return (names[1:], rows)
