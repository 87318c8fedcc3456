# What the server's census code asks of the application. It asks through the function `api_call` in a Lua state, the
# host; here that function is a script function, so that the answers can be scripts, resources of a bundle or files.

class census.host:

import ipe.lua

# What users see of a table, in order. A table that is not here shows what its schema script lists.
columns = {}
columns["File"] = ["Path", "Name", "Type", "Size", "Space", "Created", "Modified", "Accessed", "Changed", "Owner", "Group", "Mode", "Links", "Counted", "Target"]
columns["Path"] = ["Number", "Path", "Owner", "Group", "Mode", "Levels", "Size", "Space", "Files", "TreeSize", "TreeSpace", "TreeFiles"]
columns["PathDACL"] = ["Path", "Entity", "Type", "Rights", "Text"]
columns["Entity"] = ["Number", "Type", "ID", "Name", "FullName"]
columns["Root"] = ["Number", "Path", "Host", "FileSystem", "Started", "Finished", "Folders", "Files", "Unreadable", "Size", "Space"]
columns["Problem"] = ["Path", "Name", "Call", "Error", "Message"]
columns["Census"] = ["File", "Masked"]

def beside():
    "The folder of this source file, with its separator."
    parts = beside.source[0].replace("\\", "/").split("/")
    del parts[len(parts) - 1]
    parts.append("")
    return parts.join("/")

def resource(name):
    "The text of a resource: out of a bundle, or from the folder of the sources; None when there is none."
    if name.find("..") >= 0: return None
    bundled = global_get("__resource_values", {})
    if bundled.has_key(name.lower()): return base64_decode(bundled[name.lower()])
    try:
        file = open(beside() + name)
    except IOError:
        return None
    text = file.readlines().join("")
    file.close()
    return text

def scripts():
    "All texts that shape what a report sees of a census."
    texts = []
    for table in columns.keys("A"):
        texts.append(ResolveTableScript("Schemas/FSI/" + table))
        texts.append(columns[table])
    return texts

# --- The calls.

def ResolveTableScript(name):
    "The schema script of a table: `name` is Schemas/FSI/ and the table's name. A table without one is as it is stored."
    script = resource(name + ".lua")
    if script == None: return ""
    return script

def ListMyColumns(kind, table):
    "The columns that the user may see."
    if columns.has_key(table): return columns[table]
    return []

def ResolveIncludeScript(name, *rest):
    "The script behind `exec` in a query, or behind the option `xform` of a grouping."
    script = resource("Includes/" + name + ".lua")
    if script == None: raise UnknownIncludeScript, "There is no script named '" + name + "'"
    return script

def GetImageEntitySchema():
    "The columns of the users index."
    return [{"name": "Type", "format": "D"}, {"name": "ID"}, {"name": "Name"}, {"name": "FullName"}]

def GetImageEntity(entity, options):
    "A row of the users index, out of the row that the scan wrote."
    if options.get("hide_users", 0):
        return {"Type": entity.get("Type"), "ID": "", "Name": "hidden", "FullName": ""}
    return {"Type": entity.get("Type"), "ID": str(entity.get("ID")), "Name": entity.get("Name"), "FullName": entity.get("FullName")}

calls = {"ResolveTableScript": ResolveTableScript, "ListMyColumns": ListMyColumns, "ResolveIncludeScript": ResolveIncludeScript, "GetImageEntitySchema": GetImageEntitySchema, "GetImageEntity": GetImageEntity}

def api_call(name, *arguments):
    if calls.has_key(name) == 0: raise UnknownApiCall, "There is no call named '" + name + "'"
    function = calls[name]
    return function(*arguments)

def create():
    "A new host. It belongs to the thread that made it."
    host = ipe.lua.create()
    host.setglobal("api_call", api_call)
    return host
