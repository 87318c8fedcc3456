# Databases: statements, parameters, rows, script functions, collations.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import ipe.sqlite

sqlite = ipe.sqlite.create()
path = fs("get_env", "QUILL_SCRATCH") + "/Größe.sqlite"
db = sqlite.connect(path)
cursor = db.cursor()

same("what the module tells", [sqlite.apilevel, sqlite.threadsafety, sqlite.paramstyle, sqlite.libversion], ["2.0", "1", "qmark,named", "3.32.2"])
same("the settings", [sqlite.busytimeout, sqlite.busypolltime], [900000, 5000])

same("a new cursor", [cursor.description, cursor.metadata, cursor.rowcount, cursor.arraysize, cursor.fetchone(), cursor.fetchall(), cursor.nextset()], [None, None, -1, 1, None, [], None])
same("a table", cursor.execute("create table t (id integer primary key, name text, size real)"), 0)
same("values one by one", cursor.execute("insert into t values (?, ?, ?)", 1, "änne", 1.5), 1)
same("values as a list, as a tuple", [cursor.execute("insert into t values (?, ?, ?)", [2, "bob", None]), cursor.execute("insert into t values (?, ?, ?)", (5000000000, "", 2.0))], [1, 1])
same("values by name", cursor.execute("insert into t values (:id, @name, $size)", {"id": 4, "name": "dora", "size": 8, "other": 0}), 1)
same("changes", cursor.execute("update t set size = 0 where id < ?", 3), 2)
same("no changes", cursor.execute("update t set size = 0 where id = 99"), 0)
same("rows have no count", cursor.execute("select id, name, size, id + 1 as next, null from t order by id"), -1)
same("the columns", cursor.description[0], ("id", "INTEGER", None, None, None, None, None))
same("declared types, else storage classes", cursor.metadata, ["INTEGER", "TEXT", "REAL", "INTEGER", "NULL"])
same("the first row", cursor.fetchone(), (1, "änne", 0.0, 2, None))
same("some rows", cursor.fetchmany(2), [(2, "bob", 0.0, 3, None), (4, "dora", 8.0, 5, None)])
same("by the array size", len(cursor.fetchmany()), 1)
same("the end", [cursor.fetchmany(), cursor.fetchone(), cursor.fetchone(), cursor.fetchall()], [[], None, None, []])
cursor.execute("select id from t order by id")
cursor.arraysize = 3
same("another array size", [len(cursor.fetchmany()), len(cursor.fetchmany(-1)), len(cursor.fetchall())], [3, 0, 1])
cursor.execute("select id, name, size from t where id = 4", use_lists=1)
same("lists", cursor.fetchall(), [[4, "dora", 8.0]])
cursor.execute("select id, name, size, null from t where id = 4", string_only=1)
same("texts", cursor.fetchall(), [("4", "dora", "8.00000000000000000", "None")])

same("two results", [cursor.execute("select 1 union select 2; -- and\nselect 'x' as c"), cursor.fetchall(), cursor.nextset(), cursor.description[0][0], cursor.fetchall(), cursor.nextset(), cursor.fetchall(), cursor.nextset()], [-1, [(1), (2)], 1, "c", [("x")], None, [], None])
cursor.execute("select 1; select 2; select 3; select 4; select 5; select 6; select 7; select 8; select 9; insert into t (id) values (10); insert into t (id) values (11)")
sets = 1
while cursor.nextset():
    sets = sets + 1
same("ten results at most", [sets, cursor.execute("select id from t where id in (10, 11)"), cursor.fetchall()], [10, -1, [(10)]])
cursor.execute("create table made (x); insert into made values (:v); select x * :v from made", {"v": 4})
cursor.nextset()
same("each statement has a count", [cursor.rowcount, cursor.nextset(), cursor.fetchall()], [1, 1, [(16)]])

cursor.execute("select ?1 + ?2", 1, 2)
same("numbered parameters", cursor.fetchall(), [(3)])

def marshal(value):
    return repr(value)

cursor.execute("select :a, :b, :c, :d", {"a": [1, 2], "b": True, "c": "plain", "d": None, "__marshalfunc": marshal})
same("what a function makes bindable", cursor.fetchall(), [("[1, 2]", "True", "plain", None)])
cursor.execute("select :a", {"a": {}, "__marshalfunc": "marshal"})
same("a function by its name", cursor.fetchall(), [("{}")])

many = "insert into t (id, name) values (?, ?)"
same("many rows", [cursor.executemany(many, [(20, "x"), [21, "y"], (22, None)]), cursor.rowcount, cursor.description], [3, 3, None])
same("many rows by name", cursor.executemany("update t set name = :n where id >= :i", [{"n": "p", "i": 20}, {"n": "q", "i": 22}]), 6)
same("no rows", cursor.executemany(many, []), 0)
fault("a row that fails", "RuntimeError: Error during execute: UNIQUE constraint failed: t.id", cursor.executemany, many, [(30, "a"), (30, "b")])
cursor.execute("select count(*) from t where id = 30")
same("no transaction of its own", cursor.fetchone(), (1))
fault("one statement", "RuntimeError: executemany can only process one statement at a time!", cursor.executemany, "delete from t; delete from t", [()])
fault("no rows back", "RuntimeError: executemany can only execute DML statements!", cursor.executemany, "select ?", [(1)])
fault("a set is a container", "TypeError: Require a 'ListType' but given a 'IntType'", cursor.executemany, many, [5])

fault("not SQL", 'RuntimeError: Error during prepare: near "selekt": syntax error', cursor.execute, "selekt 1")
same("no statement after an error", [cursor.fetchone(), cursor.nextset(), cursor.description, cursor.rowcount], [None, None, None, -1])
fault("too few", "RuntimeError: Incorrect number of parameters in list! Expected 2, got 1.", cursor.execute, "select ?, ?", 1)
fault("too many", "RuntimeError: Incorrect number of parameters in list! Expected 1, got 2.", cursor.execute, "select ?", [1, 2])
fault("for nothing", "RuntimeError: Incorrect number of parameters in list! Expected 0, got 1.", cursor.execute, "delete from t", 1)
fault("a name that is missing", "KeyError: b", cursor.execute, "select :a, :b", {"a": 1})
fault("a parameter without a name", "RuntimeError: Incorrect number of parameters in list! Expected 2, got 1.", cursor.execute, "select :a, ?", {"a": 1})
fault("no such value", "RuntimeError: Cannot bind parameter of type 'TrueType' to sqlite parameter", cursor.execute, "select ?", True)
fault("no function for it", "RuntimeError: Cannot bind parameter of type 'TrueType' to sqlite parameter", cursor.execute, "select :a", {"a": True, "__marshalfunc": None})
fault("an error in the second row", "RuntimeError: Error during execute: integer overflow", cursor.execute, "select abs(-9223372036854775807 - 1)")
cursor.execute("select abs(-9223372036854775807 + 1 - x) from (select 1 as x union all select 2)")
same("a good row", cursor.fetchone(), (9223372036854775807))
fault("a bad one", "RuntimeError: Error trying to fetch the next row: integer overflow", cursor.fetchone)
same("nothing behind it", cursor.fetchall(), [])
cursor.execute("select x'00' union all select 'text'")
fault("a BLOB, when it is fetched", "RuntimeError: BLOB values are not supported!", cursor.fetchone)
same("the row behind the BLOB", cursor.fetchall(), [("text")])
fault("no such folder", "RuntimeError: Failed to connect/open database '/nowhere/x': unable to open database file", sqlite.connect, "/nowhere/x")

cursor.execute("select 3", sandbox=1)
same("a sandbox", cursor.fetchall(), [(3)])
cursor.execute("pragma user_version")
same("PRAGMA without one", cursor.fetchall(), [(0)])

rows = [[{"name": "path", "type": "TEXT"}, {"name": "two words", "type": "INT"}], ("/a", 1), ["/b", None]]
same("a stored result", db.storeresultset("kept", rows), 2)
cursor.execute("select * from kept")
same("its table", [cursor.metadata, cursor.description[1][0], cursor.fetchall()], [["TEXT", "INT"], "two words", [("/a", 1), ("/b", None)]])
same("no rows to store", db.storeresultset("empty", [rows[0]]), 0)
fault("no description", "IndexError: list index out of range", db.storeresultset, "none", [])
fault("a bad row to store", "RuntimeError: Incorrect number of parameters in list! Expected 2, got 1.", db.storeresultset, "undone", [rows[0], ("/a", 1), ("/b")])
cursor.execute("begin; select count(*) from undone; commit")
same("is rolled back", [cursor.nextset(), cursor.fetchone()], [1, (0)])
fault("a name that is more than one", "RuntimeError: executemany can only process one statement at a time!", db.storeresultset, "a (x); drop table t; create table b", [rows[0]])

def twice(value):
    return value * 2

def odd(value):
    return [value]

def broken(*values):
    raise ValueError, "no good"

def count_values(*values):
    return len(values)

db.createfunction("twice", 1, scalar=twice)
db.createfunction("odd", 1, scalar=odd)
db.createfunction("broken", -1, scalar=broken)
db.createfunction("count_values", -1, scalar=count_values)

def query(text, *values):
    cursor.execute(text, *values)
    return cursor.fetchall()

same("a script function", query("select twice(4), twice('ab'), twice(1.5), odd(1), count_values(1, null, x'00', 'a')"), [(8, "abab", 3.0, None, 3)])

def leave():
    raise SystemExit, "over"

db.createfunction("leave", 0, scalar=leave)
fault("an exit is no error of the statement", "SystemExit: over", query, "select leave()")
fault("a script error", "RuntimeError: Error during execute: no good", query, "select broken()")
db.createfunction("TWICE", 1, scalar=count_values)
same("a function replaced", query("select twice(4)"), [(1)])

def add(state, value):
    if state.total == None:
        state.total = 0
    state.total = state.total + value

def total(state):
    return state.total

def add_badly(state, value):
    raise ValueError, "not this one"

db.createfunction("total_of", 1, step=add, final=total)
db.createfunction("bad_of", 1, step=add_badly, final=total)
same("groups", query("select g, total_of(v) from (select 1 as g, 2 as v union all select 1, 3 union all select 2, 7) group by g"), [(1, 5), (2, 7)])
same("no rows in a group", query("select total_of(id) from t where id < 0"), [(None)])
same("the function itself is left alone", total.total, None)
fault("a step that fails", "RuntimeError: Error during execute: not this one", query, "select bad_of(id) from t")

def function(*rest, **options):
    db.createfunction(*rest, **options)

def both():
    db.createfunction("f", 1, scalar=twice, step=add)

def half():
    db.createfunction("f", 1, step=add)

def too_wide():
    db.createfunction("f", 1000, scalar=twice)

def no_code():
    db.createfunction("f", 1, step=add, final=5)

fault("scalar alone", "RuntimeError: You cannot supply a step or final function if you supply a scalar function: f", both)
fault("step and final", "RuntimeError: If no scalar function is supplied then both a step and a final function must be supplied", half)
fault("a count that SQL refuses", "RuntimeError: Failed to create user defined function: bad parameter or other API misuse", too_wide)
fault("final is code", "TypeError: Require a 'CodeType' but given a 'IntType'", no_code)

fault("no __get__", "RuntimeError: Error during execute: No __get__ function found", query, "select get('a')")

def __get__(key):
    return {"a": 1, "b": None}[key]

same("get", query("select get('a'), get('b'), typeof(get('a'))"), [("1", "None", "text")])
fault_class("get fails", "RuntimeError", query, "select get('c')")

same("regexp", query("select 'Größe' regexp 'GRÖSSE|größE', 'abc' regexp '^B', null regexp 'a', regexp('b+', 'xBBx')"), [(1, 0, None, 1)])
fault("not a pattern", "RuntimeError: Error during execute: Error compiling regular expression: (a - missing closing parenthesis (position 2) in pattern", query, "select 'a' regexp '(a'")
fault("not a text", "RuntimeError: Error during execute: Error executing regular expression", query, "select cast(x'ff' as text) regexp '(a)'")
fault("too many steps", "RuntimeError: Error during execute: Error executing regular expression", query, "select ? regexp '^(a|aa|a*)*[bc]$'", "a" * 60)

cursor.execute("create table p (path text)")
cursor.executemany("insert into p values (?)", [("/x/a b"), ("/x/a/c"), ("/x/A"), ("/x/a-b"), ("/x")])
same("a path stands before its children", query("select path from p order by path collate tree"), [("/x"), ("/x/A"), ("/x/a/c"), ("/x/a-b"), ("/x/a b")])
same("equal but for case", query("select 'ÄB' = 'äb' collate tree, 'a b' = 'a/b' collate tree"), [(1, 0)])
same("no sql_collate", query("select 'a' = 'b' collate closure"), [(1)])

def sql_collate(a, b):
    return len(b) - len(a)

same("a script's collation", query("select path from p order by path collate closure limit 2"), [("/x/a b"), ("/x/a/c")])

def again(n):
    other = db.cursor()
    other.execute("select count(*) from p where length(path) > ?", n)
    return other.fetchone()[0]

def myself():
    cursor.execute("select 1")

def shut():
    db.close()
    return 1

db.createfunction("again", 1, scalar=again)
db.createfunction("myself", 0, scalar=myself)
db.createfunction("shut", 0, scalar=shut)
same("a statement within one", query("select again(5)"), [(3)])
fault("a cursor within itself", "RuntimeError: Error during execute: Error during execute: bad parameter or other API misuse", query, "select myself()")

sqlite.busytimeout = 100
same("a setting is everybody's", ipe.sqlite.create().busytimeout, 100)
other = sqlite.connect(path)
other_cursor = other.cursor()
other_cursor.execute("begin immediate")
cursor.execute("begin")
fault("a lock that is not given back", "RuntimeError: Could not execute query. Database is busy!", cursor.execute, "insert into p values ('z')")
cursor.execute("rollback")
other_cursor.execute("rollback")
other.close()
sqlite.busytimeout = 900000

cursor.execute("select 1 union all select 2")
second = db.cursor()
fault("closed in the middle", "RuntimeError: An operation was attempted on a closed database handle!", query, "select shut() union all select 2")
closed = "RuntimeError: An operation was attempted on a closed database handle!"
fault("fetching behind a close", closed, second.fetchone)
fault("executing behind a close", closed, second.execute, "select 1")
fault("the next set behind a close", closed, second.nextset)
fault("a cursor behind a close", closed, db.cursor)
same("closing again", [second.close(), db.close(), db.commit(), db.rollback()], [None, None, None, None])
fault("a file that is no database", "RuntimeError: Error during prepare: file is not a database", sqlite.connect(fs("get_env", "QUILL_SCRIPTS") + "/sqlite.py").cursor().execute, "select * from t")
