# The indexes of a census, built ahead of a report: their functions, files and tables.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import smf.reader, smf.writer, ipe.lua
import helper.entity, helper.path_levels, helper.path_names, fsi_helper.path_levels

path = fs("get_env", "QUILL_SCRATCH") + "/census.smf"

def field(type, name, format):
    return {"type": type, "name": name, "tags": {"Format": format}}

sizes = {"size": 4096, "zero": 10}
writer = smf.writer.create()
writer.open(path)
paths = writer.table("Path", (sizes, [field(3, "Number", "S"), field(3, "Parent", "M"), field(0, "Name", "D"), field(3, "Owner", "D"), field(3, "Group", "D"), field(3, "Mode", "D")]))
files = writer.table("File", (sizes, [field(3, "PathNumber", "S"), field(0, "Name", "D"), field(4, "Size", "S"), field(4, "Space", "S"), field(9, "Created", "D"), field(9, "Modified", "D"), field(9, "Accessed", "D")]))
users = writer.table("Entity", (sizes, [field(3, "Number", "S"), field(0, "Name", "D")]))
for row in [[1, 0, "/", 1, 1, 493], [2, 1, "usr", 1, 1, 493], [3, 2, "lib", 2, 1, 493], [4, 1, "srv", 1, 1, 448]]:
    paths.append(row)
moment = "2020-02-03 04:05:06"
for row in [[1, "a", 10, 4096], [3, "b", 20, 4096], [3, "c", 30, 8192]]:
    files.append(row + [moment, moment, moment])
users.append([1, "root"])
writer.close()

host = ipe.lua.create()
host.compile("function api_call(name, value) if name == 'GetImageEntitySchema' then return {{name = 'Shown'}} end if name == 'GetImageEntity' then return {Shown = value.Name .. '!'} end if name == 'ListMyColumns' then return {} end return '' end")

same("versions", [helper.entity.call("version"), helper.path_levels.call("version"), helper.path_names.call("version"), fsi_helper.path_levels.call("version")], [1, 1, 1, 1])
same("path levels", helper.path_levels.call("run", {"fsi": path, "lua": host}), None)
same("path levels with a filter", helper.path_levels.call("run", {"fsi": path, "lua": host, "filter": "Size >= 20"}), None)
same("path names", helper.path_names.call("run", {"fsi": path, "base": ["data"]}), None)
same("entity", helper.entity.call("run", {"fsi": path, "lua": host}), None)
fault_class("entity without a host", "AssertionError", helper.entity.call, "run", {"fsi": path, "base": ["other"]})
fault_class("no options", "TypeError", helper.path_names.call, "run")
fault("no census", "KeyError: fsi", helper.path_names.call, "run", {})
fault_class("a census that is not there", "IOError", helper.path_names.call, "run", {"fsi": path + "x"})

# What a table of an index holds, by columns.
def rows(file, name, columns):
    rows = []
    reader = smf.reader.create()
    reader.open(path + file)
    table = reader.table(name)
    for n in range(1, table.rows() + 1):
        table.seek(n - 1)
        row = []
        for column in columns:
            row.append(table.get(column))
        rows.append(row)
    reader.close()
    return rows

level = ["Name", "PathIndex", "PathFiles", "TreeFiles", "TreeSize", "TreePaths", "ChildIndex", "ChildCount", "FileIndex"]
same("the jumps", rows(":~FD~V.SMF", "-PathJump", ["Depth", "Index"]), [[0, 1], [1, 1], [2, 1], [1, 2]])
same("the root", rows(":~FD~V.SMF", "_PI000", level), [["/", 1, 1, 3, 60, 3, 1, 2, 1]])
same("its children", rows(":~FD~V.SMF", "_PI001", level), [["usr", 2, 0, 2, 50, 1, 1, 1, 2], ["srv", 4, 0, 0, 0, 0, 2, 0, 4]])
same("theirs", rows(":~FD~V.SMF", "_PI002", level), [["lib", 3, 2, 2, 50, 0, 1, 0, 2]])
same("the texts", rows(":~PD~V~DATA.SMF", "PathName", ["Number", "Owner", "Levels", "Length", "Path"]), [[1, 1, 1, 6, "/data/"], [2, 1, 2, 10, "/data/usr/"], [3, 2, 3, 14, "/data/usr/lib/"], [4, 1, 2, 10, "/data/srv/"]])
same("the users", rows(":~UD~V.SMF", "Entity", ["Number", "Shown", "Security"]), [[1, "root!", ""]])
