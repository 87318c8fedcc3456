# Runs reports: over a census, into a SQLite database, each run under a key of its own in the column `cache`.
#
# The key is made of everything that the rows depend on: the report and its version, the census file with its size and
# time, and all options. A run whose key stands in the table `about` already is not repeated, unless its filter asked
# for something that changes by itself, such as `now`. A run is one transaction, so that no half of one is ever found.

class census.run:

import ipe.sqlite, census.host, census.reports, census.statement

def __init__(self, file, selection, database, listener):
    "`selection` is what opens the census; `listener` is called with each message of progress, or is None."
    self.file = file
    self.selection = selection
    self.selection["fsi"] = file
    self.listener = listener
    self.host = census.host.create()
    self.connection = ipe.sqlite.create().connect(database)
    self.cursor = self.connection.cursor()
    self.cursor.execute("create table if not exists about (cache, object)")

def close(self):
    self.cursor.close()
    self.connection.close()

def function(self, name):
    "The native function of a report."
    exec "import storage." + name
    exec "found = storage." + name + ".call"
    return found

def state(self):
    "What the census file is at this moment."
    parts = self.file.split("/")
    base = parts[len(parts) - 1]
    details = fs("ls_details", self.file).file[base]
    return (details["size"], details["modified"])

def key(self, name, options):
    native = self.function(name)
    return sha1(repr([name, native("version"), self.file, self.state(), repr(self.selection), repr(options)]))

def one(self, sql, values):
    "The first column of the first row, or None."
    self.cursor.execute(sql, values)
    row = self.cursor.fetchone()
    if row == None: return None
    return row[0]

def report(self, name, options):
    "Runs a report, or finds its rows of an earlier run; gives the key."
    cache = self.key(name, options)
    if self.one("select count(*) from about where cache = ?", [cache]) > 0: return cache
    statement = census.statement(self.connection, name, cache)
    self.cursor.execute("begin immediate")
    try:
        self.call(name, statement, options)
        self.cursor.execute("commit")
    except Exception, e:
        self.cursor.execute("rollback")
        raise (e.details)
    if options.has_key("_not_cacheable"):
        self.cursor.execute("delete from about where cache = ?", [cache])
    return cache

def call(self, name, statement, options):
    native = self.function(name)
    if name == "file_duplicated": self.prepare_duplicates(statement, options)
    native("run", statement, self.selection, options, lua=self.host, progress=self.listener)
    if name == "file_duplicated": self.group_duplicates(statement, options)
    if name == "path_index": self.keep_ranges(statement)
    if name == "iterate": self.keep_owners(statement)

# --- Reports that need a hand before or after.

def prepare_duplicates(self, statement, options):
    "The native side writes a fingerprint of each file through a cursor; the groups are made in SQL."
    statement("create table if not exists $table (cache, hash, copies, size, wasted, name, path)")
    extra = ""
    for i in range(1, len(options.get("fields", ["Modified", "Size", "Name"])) + 1):
        extra = extra + ", field" + i
    statement("drop table if exists temp.details")
    statement("create temp table details (name, size, date, owner, path, hash, ipath" + extra + ")")
    options["dcursor"] = self.connection.cursor()

def group_duplicates(self, statement, options):
    statement("insert into $table select $cache, hash, count(*), max(size), (count(*) - 1) * max(size), min(name), min(path) from details group by hash having count(*) > 1")
    statement("drop table temp.details")
    statement("insert into about (cache, object) values ($cache, '{}')")
    del options["dcursor"]

def keep_ranges(self, statement):
    statement("create table if not exists $table (cache, number, path, range)")
    rows = []
    for path, range, number in statement.found:
        rows.append((number, path, range))
    statement("insert into $table values ($cache, ?, ?, ?)", rows)
    statement("insert into about (cache, object) values ($cache, '{}')")

def keep_owners(self, statement):
    statement("create table if not exists $table (cache, owner, files, size)")
    totals = self.host.getglobal("totals")
    rows = []
    for owner in totals.keys():
        rows.append((owner, totals[owner][1], totals[owner][2]))
    statement("insert into $table values ($cache, ?, ?, ?)", rows)
    statement("insert into about (cache, object) values ($cache, '{}')")

# --- What a run has left.

def rows(self, query, table, cache):
    "The rows of a query over a report's table."
    statement = census.statement(self.connection, table, cache)
    self.cursor.execute(query.substitute(statement.names))
    return self.cursor.fetchall()

def all(self, table, cache):
    "The column names of a report's table without `cache`, and its rows of this run."
    self.cursor.execute("select * from " + table + " where cache = ?", [cache])
    names = []
    for column in self.cursor.description:
        names.append(column[0])
    rows = []
    for row in self.cursor.fetchall():
        rows.append(list(row)[1:])
    return (names[1:], rows)
