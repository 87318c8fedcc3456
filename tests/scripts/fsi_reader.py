# A census as scripts read it: the application's answers are script functions behind the host's api_call.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
import check
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
print reader.tables()
orders = reader.table("Order")
for column in orders.get_header():
    print column["name"], column["type"], column["style"]
print orders.pump(batch=2)
print orders.record_as_list(), orders.record_as_dict()["Buyer"]
orders.next()
print orders.pump(batch=10), orders.pump(batch=10), orders.pump(batch=0)
orders.seek(1)
print orders.record_as_list(batch=1)
print reader.table("Census").pump(batch=5)
try:
    reader.table("None")
except DatabaseError, e:
    lines = e.decode.split("\n")
    print e.raised, lines[0]
schemas["Schemas/FSI/Buyer"] = "function adjust() addFieldDefault('Day', 'Date') end"
try:
    reader.table("Buyer")
except LuaInterpreterException, e:
    print e
# Without a host every stored column is there.
print fsi.reader.create({"fsi": path}).table("Order").pump(batch=1)
try:
    fsi.reader.table.create().get_header()
except DatabaseError, e:
    lines = e.decode.split("\n")
    print e.raised, lines[0]
reader.close("")
print reader.tables()
