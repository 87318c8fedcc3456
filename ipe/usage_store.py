# Where the walk gets its listings: from the folders themselves, from the folders with everything kept in a store as
# well, or from such a store.
#
# A listing is a dict of `path`, `hard` and `file`, each a list of (name, record). The store has two tables: `Path`, a
# row for each folder in the order in which they are met, the first being the top, and `File`, the other entries
# folder by folder in the order of the walk. Reading it back is the same walk over, so every figure agrees.

class usage.live:

def require(self, folder):
    try:
        fs("ls_details", [folder, "*"])
    except Exception, e:
        raise UsageError, e.decode + " '" + folder + "'"

def listing(self, path, id):
    found = fs("ls_details", path + ["*"])
    return {"path": list(found["path"]), "hard": list(found["hard"]), "file": list(found["file"])}

def finish(self, walk):
    return

class usage.columns:

program = "usage 1"
path = [("parent", 3, "R"), ("name", 0, "F"), ("space", 4, "S"), ("fault", 0, "D")]
file = [("path", 3, "R"), ("name", 0, "F"), ("hard", 3, "D"), ("size", 4, "S"), ("space", 4, "S"), ("mode", 3, "D"), ("links", 3, "D"), ("device", 4, "S"), ("inode", 4, "S"), ("owner", 4, "S"), ("modified", 9, "D")]

def schema(columns, options):
    fields = []
    for name, type, format in columns:
        fields.append({"type": type, "name": name, "tags": {"Format": format}})
    return ({"size": 262144, "zero": 1000, "tags": options}, fields)

class usage.keeper:

import smf.writer, usage.live, usage.columns

def __new__(self, path, folder):
    return usage.live()

def __init__(self, path, folder):
    "The store appears under its name when it is whole; until then it stands beside it."
    self.require(folder)
    self.path = path
    self.part = path + ".part"
    self.paths = [[0, folder, 0, ""]]
    self.writer = smf.writer.create()
    try:
        self.writer.open(self.part)
    except IOError, e:
        raise UsageError, e.decode
    self.files = self.writer.table("File", usage.columns.schema(usage.columns.file, {"program": usage.columns.program}))

def fail(self, exception):
    "A store that cannot be written is no unreadable folder: the walk ends, and nothing is left of the store."
    if exception.raised == "SystemExit": raise (exception.details)
    fs("erase", self.part)
    raise UsageError, exception.decode

def keep(self, id, hard, entries):
    files = self.files
    for name, record in entries:
        files.append([id, str(name), hard, record["size"], record["space"], record["mode"], record["links"], record["device"], record["inode"], record["owner"], record["modified"]])

def listing(self, path, id):
    try:
        found = super(self).listing(path, id)
    except SystemExit, e:
        raise (e.details)
    except Exception, e:
        self.paths[id - 1][3] = e.decode
        raise (e.details)
    for name, record in found["path"]:
        self.paths.append([id, str(name), record["space"], ""])
    try:
        self.keep(id, 1, found["hard"])
        self.keep(id, 0, found["file"])
    except Exception, e:
        self.fail(e)
    return found

def finish(self, walk):
    options = {"program": usage.columns.program, "made": strftime(localtime()), "files": walk.files, "bytes": walk.size}
    try:
        table = self.writer.table("Path", usage.columns.schema(usage.columns.path, options))
        for row in self.paths:
            table.append(row)
        self.writer.close()
        fs("erase", self.path)
        fs("rename", self.part, self.path)
    except Exception, e:
        self.fail(e)

class usage.replay:

import smf.reader, usage.columns

def __init__(self, path):
    self.path = path
    reader = smf.reader.create()
    try:
        reader.open(path)
        self.files = reader.table("File")
        self.read_paths(reader.table("Path"))
        self.files.top()
    except Exception, e:
        self.refuse(e.decode)
    if self.options.get("program") <> usage.columns.program: self.refuse("it was made by another program")
    self.folder = self.names[0]
    self.made = self.options["made"]

def refuse(self, reason):
    raise UsageError, "'" + self.path + "' does not hold a walk: " + reason + "; --rescan walks again and replaces it"

def read_paths(self, table):
    "What lies in each folder, and why a folder could not be read."
    self.options = table.schema()[0]["tags"]
    self.names = []
    self.below = []
    self.faults = []
    table.top()
    while table.more():
        parent, name, space, fault = table.record()
        self.names.append(name)
        self.below.append([])
        self.faults.append(fault)
        if parent > 0: self.below[parent - 1].append((name, {"space": space}))
        table.next()

def listing(self, path, id):
    if self.faults[id - 1] <> "": raise UnreadableFolder, self.faults[id - 1]
    found = {"path": self.below[id - 1], "hard": [], "file": []}
    try:
        self.read_files(id, found)
    except SystemExit, e:
        raise (e.details)
    except Exception, e:
        self.refuse(e.decode)
    return found

def read_files(self, id, found):
    "The rows of one folder lie together."
    files = self.files
    while files.more():
        if files.get(0) <> id: return
        row = files.record()
        record = {"size": row[3], "space": row[4], "mode": row[5], "links": row[6], "device": row[7], "inode": row[8], "owner": row[9], "modified": [row[10][:4].integer()]}
        if row[2] == 1:
            found["hard"].append((row[1], record))
        else:
            found["file"].append((row[1], record))
        files.next()

def finish(self, walk):
    "A damaged block may read as other values; then the totals differ from those that were kept."
    if str(walk.files) <> self.options["files"] or str(walk.size) <> self.options["bytes"]:
        self.refuse("its figures do not agree")
