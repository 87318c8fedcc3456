# A census as scripts read it: the application's answers are script functions behind the host's api_call.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import smf.writer, fsi.reader, fsi.reader.table, ipe.lua

path = fs("get_env", "QUILL_SCRATCH") + "/census.dat"

def field(type, name):
    return {"type": type, "name": name, "tags": {"Format": "S"}}

writer = smf.writer.create()
writer.open(path)
size = {"size": 4096, "zero": 10}
table = writer.table("Order", (size, [field(3, "Id"), field(3, "Buyer"), field(4, "Price")]))
for i in range(1, 6):
    table.append([i, i % 3, i * 1000])
table = writer.table("Buyer", (size, [field(3, "Number"), field(0, "Name")]))
table.append([1, "anna"])
table.append([2, "bert"])
writer.close()

schemas = {"Schemas/FSI/Order": "function adjust() setFieldTags('Buyer', {FTable = 'Buyer', FShow = 'Name'}) setFieldStyle('Price', 'bytes') end", "Schemas/FSI/Census": "function vtable() addFieldDefault('Year', 'I32', 0) end function vtable_record() fieldSetIPE(0, options.epoch) end columns = {'Year'}"}
columns = {"Order": ["Price", "Buyer", "Nothing"], "Buyer": ["Name"]}

def api_call(call, *rest):
    if call == "ResolveTableScript": return schemas.get(rest[0], "")
    if call == "ListMyColumns": return columns[rest[1]]

host = ipe.lua.create()
host.setglobal("api_call", api_call)
reader = fsi.reader.create({"fsi": path, "epoch": 2024}, host)
same("tables", reader.tables(), ["Order", "Buyer"])
orders = reader.table("Order")
told = []
for column in orders.get_header():
    told.append([column["name"], column["type"], column["style"]])

same("columns that exist, with their styles", told, [["Price", "I64", "bytes"], ["Buyer", "String", ""]])
same("rows, and what the last one is", [orders.pump(batch=2), orders.record_as_list(), orders.record_as_dict()["Buyer"]], [[[1000, "anna"], [2000, "bert"]], [3000, ""], ""])
orders.next()
same("to the end", [orders.pump(batch=10), orders.pump(batch=10), orders.pump(batch=0)], [[[4000, "anna"], [5000, "bert"]], [], []])
orders.seek(1)
same("a list of rows", orders.record_as_list(batch=1), [[1000, "anna"]])
same("a virtual table", reader.table("Census").pump(batch=5), [[2024]])
fault("no such table", "DatabaseError: No physical or logical table named None", reader.table, "None")
schemas["Schemas/FSI/Buyer"] = "function adjust() addFieldDefault('Day', 'Date') end"
fault("the place in a schema", "LuaInterpreterException: Unsupported column type [12: function addFieldDefault(...) return table('addFieldDefault', ...) end]", reader.table, "Buyer")
same("without a host every stored column is there", fsi.reader.create({"fsi": path}).table("Order").pump(batch=1), [[1, 1, 1000]])
fault("a table of no reader", "DatabaseError: Not connected", fsi.reader.table.create().get_header)
reader.close("")
same("no tables", reader.tables(), [])
