# A census as the reports' options need it: what was scanned, and which file it is.

class census.source:

import fsi.reader
import census.complaint

def state(file):
    "What tells this file from another under its name, which a scan renames into place."
    found = fs("ls_details", file)
    for kind in [found.file, found.soft, found.hard]:
        for name in kind.keys():
            details = kind[name]
            return repr((details["inode"], details["size"], details["modified"], details["created"]))
    return ""

def rows(reader, name):
    "The rows of a table as dicts."
    table = reader.table(name)
    names = []
    for column in table.get_header():
        names.append(column["name"])
    found = []
    for values in table.record_as_list(batch=100000):
        row = {}
        for i in range(0, len(names)):
            row[names[i]] = values[i]
        found.append(row)
    return found

def read(file):
    "A dict: `tables`, `paths` of the roots, the row of each in `roots`, and `epoch`, when all had been scanned, as text."
    try:
        reader = fsi.reader.create({"fsi": file}, None)
        tables = reader.tables()
        roots = []
        if "Root" in tables: roots = rows(reader, "Root")
    except DatabaseError, e:
        raise CensusError, "'" + file + "' is not a census: " + e.decode
    except Exception, e:
        raise (e.details)
    for name in ["Path", "File"]:
        if name not in tables: raise CensusError, "'" + file + "' is not a census: it has no table " + name
    found = {"paths": [], "roots": roots, "epoch": None, "tables": tables}
    for root in roots:
        found.paths.append(root["Path"])
        moment = root.get("Finished", "")
        if len(moment) > 0:
            if found["epoch"] == None or moment > found["epoch"]: found["epoch"] = moment
    if len(found["paths"]) == 0: found["paths"].append("/")
    return found
