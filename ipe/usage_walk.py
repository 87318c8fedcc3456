# The walk: one pass over a tree, folder by folder, that counts everything the report shows.
#
# Symbolic links are not followed and file systems mounted inside are not entered. A file with several names counts
# where its first name is met. Sizes are exact: `size` is the length, `space` what is allocated for it.

class usage.walk:

def __init__(self, folder, top, source, out):
    self.folder = folder
    self.top = top
    self.source = source
    self.out = out
    self.files = 0
    self.folders = 0
    self.size = 0
    self.space = 0
    self.folder_space = 0
    self.links = 0
    self.special = 0
    self.extra_names = 0
    self.extra_size = 0
    self.linked = {}
    self.mounts = []
    self.unreadable = []
    self.by_extension = {}
    self.by_owner = {}
    self.by_year = {}
    self.by_tree = {}
    self.largest = []
    self.least = -1

def readable(text):
    "Bytes of a name that are no text arrive as a mark and four digits, of which the last two are the byte."
    pieces = text.split("\udbff\udff0")
    result = pieces[0]
    for piece in pieces[1:]:
        if piece[:3] == "4DC":
            if piece[3:5] == "5C":
                result = result + "\\" + piece[5:]
            else:
                result = result + "\\x" + piece[3:5] + piece[5:]
        else:
            result = result + "?" + piece
    return result

def shown(path):
    "A path as text; components are joined with a backslash, and line ends would break the report."
    text = fs("path_to_string", path)
    text = text.replace("\\", "/").replace("\n", "\\n").replace("\r", "\\r")
    return readable(text.replace("//", "/"))

def extension(name):
    "The text behind the last full stop, if something stands before it."
    parts = name.split(".")
    count = len(parts)
    if count < 2: return "(none)"
    if count == 2:
        if parts[0] == "": return "(none)"
    return parts[-1]

def row(table, key):
    "The counters of a group: files, bytes, bytes allocated."
    if key in table: return table[key]
    counters = [0, 0, 0]
    table[key] = counters
    return counters

def run(self):
    "Walks the tree. Each entry of `open` is a folder's path, its number from 1 in the order in which folders are met, and the counters of its first-level tree."
    open = [([self.folder], 1, None)]
    while len(open) > 0:
        path, id, tree = open[-1]
        del open[len(open) - 1]
        try:
            listing = self.source.listing(path, id)
        except SystemExit, e:
            raise (e.details)
        except UsageError, e:
            raise (e.details)
        except Exception, e:
            self.unreadable.append((shown(path), e.decode))
            listing = None
        if listing <> None:
            self.folder_contents(path, tree, listing, open)
        self.out.progress(self)
    self.source.finish(self)

def folder_contents(self, path, tree, listing, open):
    for name, record in listing["path"]:
        self.folders = self.folders + 1
        self.folder_space = self.folder_space + record["space"]
        below = tree
        if below == None: below = row(self.by_tree, shown([name]))
        open.append((path + [name], self.folders + 1, below))
    for name, record in listing["hard"]:
        if record["mode"] / 4096 == 10:
            self.links = self.links + 1
        else:
            self.mounts.append(shown(path + [name]))
    files = listing["file"]
    if len(files) > 0:
        if tree == None: tree = row(self.by_tree, "(files of the folder itself)")
        self.count_files(path, tree, files)

def count_files(self, path, tree, files):
    "The hot loop: everything it needs per file stands in locals. A file's kind is the mode's high digits."
    by_extension = self.by_extension
    by_owner = self.by_owner
    by_year = self.by_year
    least = self.least
    count = 0
    total = 0
    allocated = 0
    for name, record in files:
        size = record["size"]
        kind = record["mode"] / 4096
        if kind == 8:
            if record["links"] > 1:
                if self.is_known(record):
                    self.extra_names = self.extra_names + 1
                    self.extra_size = self.extra_size + size
                    continue
            space = record["space"]
            count = count + 1
            total = total + size
            allocated = allocated + space
            if type(name) == "StringType":
                key = extension(name)
            else:
                key = extension(str(name))
            counters = row(by_extension, key)
            counters[0] = counters[0] + 1
            counters[1] = counters[1] + size
            counters[2] = counters[2] + space
            counters = row(by_owner, record["owner"])
            counters[0] = counters[0] + 1
            counters[1] = counters[1] + size
            counters[2] = counters[2] + space
            counters = row(by_year, record["modified"][0])
            counters[0] = counters[0] + 1
            counters[1] = counters[1] + size
            counters[2] = counters[2] + space
            if size > least:
                self.keep_large(size, path, name)
                least = self.least
        elif kind == 10:
            self.links = self.links + 1
        else:
            self.special = self.special + 1
    self.files = self.files + count
    self.size = self.size + total
    self.space = self.space + allocated
    tree[0] = tree[0] + count
    tree[1] = tree[1] + total
    tree[2] = tree[2] + allocated

def is_known(self, record):
    "Whether a name of this file was met before."
    key = str(record["device"]) + ":" + str(record["inode"])
    if key in self.linked: return True
    self.linked[key] = 1
    return False

def keep_large(self, size, path, name):
    "Keeps the largest files; the list is cut when it is ten times too long."
    self.largest.append((size, shown(path + [name])))
    if len(self.largest) >= self.top * 10: self.cut_largest()

def cut_largest(self):
    self.largest.isort([(0, "D"), (1, "A")])
    self.largest = self.largest[:self.top]
    if len(self.largest) == self.top: self.least = self.largest[-1][0]
