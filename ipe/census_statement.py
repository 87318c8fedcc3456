# The statement that a report writes through: it is called with one SQL template, and for inserts with a list of rows.
#
# Tables are made and rows written in one transaction, which begins with the first rows: until then a report runs
# beside others that write into the same database, and one that fails leaves no trace.

class census.statement:

import census.complaint

def quote(text):
    "A text as a literal of SQL."
    return "'" + str(text).replace("'", "''") + "'"

def __init__(self, run, table, cache):
    "`run` is the census.run whose database this is; it is asked by claim() before the first rows are written."
    self.run = run
    self.cursor = run.connection.cursor()
    self.names = {"table": table, "cache": quote(cache)}
    self.cache = cache
    self.table = table
    self.held = []
    self.open = False
    self.gathering = False
    self.found = []

def __call__(self, sql, rows=None):
    "$table, ${table} and $cache are filled in, and what set() has bound, such as $ipath__c."
    text = sql.substitute(self.names)
    if rows == None:
        if self.open: return self.execute(text)
        self.held.append(text)
        return 0
    self.begin()
    return self.execute(text, rows)

def execute(self, text, rows=None):
    try:
        if rows == None: return self.cursor.execute(text)
        return self.cursor.executemany(text, rows)
    except RuntimeError, e:
        raise OutputError, self.run.database + ": " + census.complaint.reason(e.decode)
    except Exception, e:
        raise (e.details)

def gather(self):
    "A transaction of temporary tables alone, which locks nothing: without one, each of their rows is its own."
    self.execute("begin")
    self.gathering = True

def begin(self):
    if self.open: return
    if self.gathering: self.execute("commit")
    self.gathering = False
    self.execute("begin immediate")
    self.open = True
    self.run.claim(self.table, self.cache)
    for text in self.held:
        self.execute(text)

def commit(self):
    self.execute("commit")
    self.open = False

def rollback(self):
    if self.open == False and self.gathering == False: return
    self.open = False
    self.gathering = False
    try:
        self.cursor.execute("rollback")
    except RuntimeError:
        # After a failure such as a full disk SQLite has rolled back by itself.
        pass

def set(self, name, value):
    "Binds a number or a text as $NAME__c."
    if type(value) == "IntType":
        self.names[name + "__c"] = str(value)
    else:
        self.names[name + "__c"] = quote(value)

def results(self, rows):
    "What a report gives back instead of writing a table."
    self.found = rows
