# Packs an application into a bundle, a store that the server starts from.
#
#     quillsrv --output FILE.dat [--source PATH]... [--under NAME] [--resource PATH]... [--pack] --custom tools/bundle.py
#
# The application that ships with the server, with its scripts for the tables of a census:
#
#     quillsrv --output FILE.dat --source ipe --under Schemas --resource ipe/Schemas \
#         --under Includes --resource ipe/Includes --custom tools/bundle.py
#
# The text behind --custom is the script's path to the end of the line, so the options stand before it. Exit code: 0,
# or 2 when nothing was packed; what stood under the name before is then still there.

class startup_custom:

import smf.writer

usage = """usage: quillsrv --output FILE.dat [--source PATH]... [--under NAME] [--resource PATH]... [--pack] --custom tools/bundle.py

  --output FILE.dat   the bundle; it goes beside the server's program
  --source PATH       a source file, or a folder: the modules of all *.py files below it
  --resource PATH     a file, named by its last component, or a folder: all files below it, named by their paths
                      from there; at most 10 MB each, kept as Base64 with the SHA-1 digest
  --under NAME        stands in front of the names of the resources that follow, with a "/"
  --pack              compress each module's literal by itself
"""

def say(path, text):
    out = open(path, "a")
    out.write(text)
    out.close()

def absolute(path):
    "The server works in its own folder; a relative path is meant from where it was started."
    if path[:1] == "/": return path
    return fs("get_env", "PWD", fs("pwd")) + "/" + path

def options(arguments):
    found = {"output": None, "source": [], "resource": [], "pack": False}
    under = ""
    i = 0
    while arguments[i] <> "--custom":
        word = arguments[i]
        i = i + 1
        if word == "--pack":
            found["pack"] = True
        elif word in ["--output", "--source", "--under", "--resource"]:
            if arguments[i] == "--custom": raise BundleUsage, word + " wants a value"
            if word == "--output":
                found["output"] = absolute(arguments[i])
            elif word == "--under":
                under = arguments[i] + "/"
            elif word == "--source":
                found["source"].append((absolute(arguments[i]), ""))
            else:
                found["resource"].append((absolute(arguments[i]), under))
            i = i + 1
        else:
            raise BundleUsage, "unknown option '" + word + "'"
    if found["output"] == None: raise BundleUsage, "--output is missing"
    if wildmatch("*.dat", found["output"]) == False: raise BundleUsage, "a bundle's name ends in .dat"
    if len(found["source"]) + len(found["resource"]) == 0: raise BundleUsage, "there is nothing to pack"
    return found

def walk(folder, prefix, pattern, files):
    "Appends (path, name) for all files below a folder that the pattern matches, in the order of their names."
    listing = fs("ls_details", [folder, "*"])
    for name in listing["file"].keys("A"):
        if type(name) <> "StringType": raise BundleError, folder + ": the name of a file is no text"
        kind = listing["file"][name]["mode"] / 4096
        if kind == 8 or kind == 10:
            if wildmatch(pattern, name): files.append((folder + "/" + name, prefix + name))
    for name in listing["path"].keys("A"):
        if type(name) <> "StringType": raise BundleError, folder + ": the name of a folder is no text"
        walk(folder + "/" + name, prefix + name + "/", pattern, files)

def is_folder(path):
    try:
        fs("ls_files", [path, "*"])
    except Exception:
        return False
    return True

def files_of(paths, pattern):
    "`paths` are pairs of a path and what stands in front of the names."
    files = []
    for path, prefix in paths:
        if is_folder(path):
            walk(path, prefix, pattern, files)
        else:
            files.append((path, prefix + path.split("/")[-1]))
    return files

def modules(files, pack):
    "One row for each module. The source's name in it is the one from its folder on, wherever that lies."
    rows = []
    origin = {}
    for path, name in files:
        for module in interpreter("load", path):
            # A server never runs this one, and every program for --custom has it.
            if module == "startup_custom": continue
            if module in origin: raise BundleError, "the module " + module + " stands in " + origin[module] + " and in " + name
            origin[module] = name
            stored = eval(repr(interpreter("module_get", module)))
            stored["file"] = name
            if pack:
                rows.append(["~" + repr(stored, zlib=1)])
            else:
                rows.append([repr(stored)])
    return rows

def resources(files):
    rows = []
    names = {}
    for path, name in files:
        key = lower(name)
        if key in names: raise BundleError, "two resources are named " + name
        names[key] = 1
        rows.append([name, open(path).sha1(), open(path).load_base64()])
    return rows

def longest(rows):
    "A block must hold the longest text. Base64 has a byte for each character, others at most four."
    most = 65536
    for row in rows:
        for text in row[:2]:
            if len(text) * 4 > most: most = len(text) * 4
        if len(row[-1]) > most: most = len(row[-1])
    return most

def fill(writer, name, columns, rows):
    fields = []
    for column in columns:
        fields.append({"type": 0, "name": column, "tags": {"Format": "S"}})
    table = writer.table(name, ({"size": longest(rows), "zero": 10}, fields))
    for row in rows:
        table.append(row)

def pack(wish):
    module_rows = modules(files_of(wish["source"], "*.py"), wish["pack"])
    resource_rows = resources(files_of(wish["resource"], "*"))
    part = wish["output"] + ".part"
    writer = smf.writer.create()
    try:
        writer.open(part)
        writer.options({"compressed": 1})
        fill(writer, "modules", ["source"], module_rows)
        fill(writer, "resources", ["name", "hash", "base"], resource_rows)
        writer.close()
    except Exception, e:
        fs("erase", part)
        raise (e.details)
    fs("erase", wish["output"])
    fs("rename", part, wish["output"])
    say("/dev/stdout", "%s: %i modules, %i resources\n" % [wish["output"], len(module_rows), len(resource_rows)])

try:
    pack(options(global_get("__program_args")))
except BundleUsage, e:
    say("/dev/stderr", "bundle: " + e.decode + "\n\n" + usage)
    global_set("__rc", 2)
except BundleError, e:
    say("/dev/stderr", "bundle: " + e.decode + "\n")
    global_set("__rc", 2)
except Exception, e:
    say("/dev/stderr", "bundle: " + e.raised + ": " + e.decode + " " + e.strings.get("path", e.strings.get("file", "")) + "\n")
    global_set("__rc", 2)
