# Stores: written with every type of field that a writer takes, read by tables and cursors, filtered, and what they refuse.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import smf.reader, smf.writer, smf.cursor, smf.reader.table, smf.writer.record

path = fs("get_env", "QUILL_SCRATCH") + "/every.dat"

def field(type, name, format, tags):
    tags["Format"] = format
    return {"type": type, "name": name, "tags": tags}

fields = [field(0, "Name", "F", {}), field(0, "Owner", "D", {}), field(3, "Count", "M", {}), field(4, "Size", "S", {"style": "bytes"}), field(5, "Made", "D", {}), field(9, "Modified", "D", {}), field(7, "Attributes", "D", {"SN": "R;H;S", "LN": "ReadOnly;Hidden;System"}), field(8, "Branch", "S", {"R": "T", "S": "/"}), field(4, "_order", "S", {})]
schema = ({"size": 4096, "zero": 10, "tags": {"root": "/data"}}, fields)

# One record for each row of the table, by its number
def record(i):
    attributes = ["R", "H,S", ""][i % 3]
    branch = ["usr", "share", "d" + str(i % 4)]
    day = "%04i-02-%02i" % [2000 + i, 1 + i]
    return ["file" + str(i) + ".txt", ["root", "größe", ""][i % 3], i * 1000, i * i * 1000000, day, day + " 12:30:" + "%02i" % [i], attributes, branch, i]

# --- Writing
writer = smf.writer.create()
fault("a table of nothing", "DatabaseError: Not connected", writer.table, "File", schema)
same("close of nothing", writer.close(), None)
writer.open(path)
files = writer.table("File", schema)
paths = writer.table("Path", ({"size": 4096, "zero": 10}, [field(0, "Path", "S", {})]))
writer.options({"compressed": 1})
clock = writer.table("Clock", ({"size": 4096, "zero": 10}, [field(6, "At", "S", {})]))
empty = writer.table("Empty", schema)
for i in range(0, 25):
    files.append(record(i))
    paths.append(("/data/" + str(i), "an item too many"))
clock.append([[23, 59, 1]])
fault("too few values", "IndexError: list index out of range", files.append, ["short"])
fault("no list", "TypeError: Require a 'ListType' but given a 'StringType'", files.append, "text")
writer.close()
fault("append behind close", "DatabaseError: Not connected", files.append, record(0))
writer.open(path + ".next")
fault("append to a table of the file before", "DatabaseError: Not connected", files.append, record(0))
writer.close()

# Faults of a schema
def create(schema):
    spoilt = smf.writer.create()
    spoilt.open(path + ".spoilt")
    spoilt.table("T", schema)

fault_class("no size", "AssertionError", create, ({"zero": 10}, []))
fault_class("a size that is no number", "AssertionError", create, ({"size": "a", "zero": 10}, []))
fault_class("no type", "AssertionError", create, ({"size": 4096, "zero": 10}, [{"name": "a"}]))
fault("no fields", "IndexError: tuple index out of range", create, ({"size": 4096, "zero": 10}))
fault("no codec", "SystemError: There is no field encoder available for JS", create, ({"size": 4096, "zero": 10}, [field(9, "a", "", {})]))
fault("no such folder", "IOError: [Errno 2] No such file or directory: '/absent/x'", smf.writer.create().open, "/absent/x")

# --- Reading
reader = smf.reader.create()
fault("tables of nothing", "DatabaseError: Not connected", reader.tables)
fault("a table of nothing", "DatabaseError: Not connected", reader.table, "File")
fault("no path", "TypeError: Index 0 requires StringType arguments, IntType given", reader.open, 5)
reader.open([fs("get_env", "QUILL_SCRATCH"), "every.dat"], "ignored")
same("tables", reader.tables(), ["File", "Path", "Clock", "Empty"])
same("the file follows the option at close", reader.options(), {"compressed": True})
table = reader.table("File")
same("rows", [table.rows(), reader.table("Empty").rows()], [25, 0])
same("fields", table.fields()["Branch"], 7)

expected = record(7)
table.seek(7)
same("seek ends on the row behind", table.record(), expected)
same("get by index and name", [table.get(3), table.get("Name")], [49000000, "file7.txt"])
fault("an index too high", "DatabaseError: Field index out of range", table.get, 9)
fault("an index below zero", "DatabaseError: Field index out of range", table.get, -1)
fault("a name that is none", "KeyError: absent", table.get, "absent")
fault("seek behind the end", "DatabaseError: Seek past end of table", table.seek, 26)

def count_rows(table):
    number = 0
    table.top()
    while table.more():
        if repr(table.record()) <> repr(record(number)): print "FAILED row", number, table.record()
        number = number + 1
        table.next()
    return number

same("every row", count_rows(table), 25)
same("values are empty behind the end", [table.more(), table.get("Name"), table.get("Size")], [False, "", 0])
table.seek(25)
same("seek to the last row", table.more(), False)
same("an empty table", count_rows(reader.table("Empty")), 0)
times = reader.table("Clock")
times.top()
same("a time", times.record(), ["23:59:01"])
fault("a schema with a time", "SystemError: Invalid database field type", times.schema)
fault("no such table", "DatabaseError: Unable to determine internal table location Absent", reader.table, "Absent")

# The schema makes an equal table
told = table.schema()
same("sizes and options", told[0], {"size": 4096, "zero": 10, "tags": {"root": "/data"}})
same("a field", [told[1][3]["type"], told[1][3]["name"], told[1][3]["tags"]["type"], told[1][3]["tags"]["style"]], [4, "Size", "I64", "bytes"])
same("flags and trees show their names", [told[1][6]["tags"]["shortdecode"], told[1][7]["tags"]["R"], told[1][7]["tags"]["S"]], [["R", "H", "S"], "T", "."])
told[1][3]["tags"]["style"] = "changed"
same("the schema is a copy", table.schema()[1][3]["tags"]["style"], "bytes")
same("no options, no tags", reader.table("Path").schema()[0], {"size": 4096, "zero": 10})
second = smf.writer.create()
second.open(path + ".second")
copy = second.table("File", table.schema())
for i in range(0, 25):
    copy.append(record(i))
second.options({})
second.close()
earlier = reader.table("Path")
reader.open(path + ".second")
earlier.seek(3)
fault_class("a table of the file before", "IOError", earlier.get, "Path")
same("a table from a schema", count_rows(reader.table("File")), 25)
same("no option", reader.options(), {"compressed": False})

# Closed
reader.close()
fault("a closed reader", "DatabaseError: Not connected", reader.tables)

# Restricted
reader = smf.reader.create(1)
reader.open(path)
table = reader.table("File")
same("restricted tables count", [table.rows(), table.schema()[1][0]["name"]], [25, "Name"])
table.top()
fault("but do not tell", "SecurityException: Access to this table is restricted", table.record)
fault("nor by field", "SecurityException: Access to this table is restricted", table.get, 0)
fault("nor paths", "SecurityException: Access to this table is restricted", reader.table("Path").get, "Path")
times = reader.table("Clock")
times.top()
same("others do", times.get(0), "23:59:01")

# --- Cursors
cursor = smf.cursor.create()
fault("a cursor of nothing", "DatabaseError: Not connected", cursor.connect, "File")
same("open tells the tables", cursor.open(path), ["File", "Path", "Clock", "Empty"])
fault("no table yet", "DatabaseError: Not connected", cursor.range)
same("connect tells the fields", cursor.connect("File")[5:], ["Modified", "Attributes", "Branch", "_order"])

def rows(cursor):
    found = []
    while cursor:
        found.append(cursor.tellp())
    return found

same("without a range", rows(cursor), [])
cursor.range()
same("all rows", len(rows(cursor)), 25)
cursor.range(5, 2)
same("two rows", rows(cursor), [5, 6])
cursor.range(24)
same("from a row on", rows(cursor), [24, 25])
cursor.range(24, 10)
same("to the end", rows(cursor), [24, 25])
fault("a range behind the end", "DatabaseError: Seek past end of table", cursor.range, 26, 1)
cursor.connect("Empty")
cursor.range()
same("an empty table", rows(cursor), [])

# Columns
cursor.connect("File")
def step(cursor):
    if cursor: return cursor.tellp()
    return None

cursor.range(8, 1)
same("one step", step(cursor), 8)
same("fields that begin with _ are left out", cursor.record(), expected[:8])
same("by name", [cursor.record(1)["Size"], cursor.record(1).has_key("_order")], [49000000, 0])
chosen = cursor.header(["size", "absent", "Name"])
same("chosen columns", [len(chosen), chosen[0][0], chosen[0][1].type, chosen[0][1].name, chosen[0][2], chosen[1][2]], [2, 3, "I64", "Size", "Size", "Name"])
same("are what a record has", [cursor.record(), cursor.record(1).keys("A"), cursor.record(1).Name], [[49000000, "file7.txt"], ["Name", "Size"], "file7.txt"])
same("all columns", len(cursor.header()), 8)

# Filters
def hits(text, *rest):
    cursor.connect("File")
    cursor.filter(text, *rest)
    cursor.range()
    return rows(cursor)

same("numbers", hits("Size >= 400MB"), [22, 23, 24, 25])
same("texts", hits("Name = \"file1.txt\""), [2])
same("a pattern that takes an empty text", len(hits("Owner = 'q?.*'")), 25)
cursor.connect("File")
same("tokens", cursor.filter("Count > 5")[0]["value"], "Count")
fault_class("a bad filter", "InvalidFilterException", cursor.filter, "Count >")
cursor.range(1, 10)
same("leaves the one before; the range counts rows, not hits", rows(cursor), [2, 3, 4, 5, 6, 7, 8, 9, 10])

cursor.connect("File")
cursor.range(2, 1)
same("one row before", step(cursor), 2)
same("without the field", cursor.record(1).has_key("Kind"), 0)
cursor.filter("def Kind string {} if (Count > 0): (% Kind 'some')")
cursor.range(2, 1)
same("a declared field", [step(cursor), cursor.record(1).get("Kind")], [2, "some"])

# --- What is no store
other = open(path + ".other", "w")
other.write("something else")
other.close()
fault("a foreign file", "DatabaseError: The database has a corrupt header", reader.open, path + ".other")
fault("a store that was not closed", "DatabaseError: The database has a corrupt header", reader.open, path + ".spoilt")
fault("no file", "IOError: [Errno 2] No such file or directory: '/absent'", reader.open, "/absent")
fault("a bare table", "DatabaseError: Not connected", smf.reader.table.create().rows)
fault("a bare record", "DatabaseError: Not connected", smf.writer.record.create().append, [])
