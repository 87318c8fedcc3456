# The statement that a report writes through: it is called with one SQL template, and for inserts with a list of rows.

class census.statement:

def quote(text):
    "A text as a literal of SQL."
    return "'" + str(text).replace("'", "''") + "'"

def __init__(self, connection, table, cache):
    self.cursor = connection.cursor()
    self.names = {"table": table, "cache": quote(cache)}
    self.found = []

def __call__(self, sql, rows=None):
    "$table, ${table} and $cache are filled in, and what set() has bound, such as $ipath__c."
    text = sql.substitute(self.names)
    if rows == None: return self.cursor.execute(text)
    return self.cursor.executemany(text, rows)

def set(self, name, value):
    "Binds a number or a text as $NAME__c."
    if type(value) == "IntType":
        self.names[name + "__c"] = str(value)
    else:
        self.names[name + "__c"] = quote(value)

def results(self, rows):
    "What a report gives back instead of writing a table."
    self.found = rows
