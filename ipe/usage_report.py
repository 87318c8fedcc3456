# The report of a finished walk, as text.

class usage.report:

import usage.accounts

def human(bytes):
    "A size in the unit that fits, binary steps."
    value = float(bytes)
    for unit in ["bytes", "KiB", "MiB", "GiB", "TiB"]:
        if value < 1024:
            if unit == "bytes": return str(bytes) + " bytes"
            return "%.1f " % value + unit
        value = value / 1024
    return "%.1f PiB" % value

def plural(count, one, many):
    if count == 1: return "1 " + one
    return "%,i " % count + many

def rows(table, namer):
    "List of (name, files, bytes, allocated); groups whose names agree are one."
    merged = {}
    for key, counters in list(table):
        name = namer(key)
        if name in merged:
            old = merged[name]
            counters = [old[0] + counters[0], old[1] + counters[1], old[2] + counters[2]]
        merged[name] = counters
    result = []
    for name, counters in list(merged):
        result.append((name, counters[0], counters[1], counters[2]))
    return result

def heading(title):
    print
    print title

def line(name, files, bytes, space):
    print "%,12i %,20i %,20i  " % [files, bytes, space] + name

def table(title, entries, top):
    "The first `top` rows, and what the others come to."
    heading(title)
    print "%-12s %-20s %-20s  " % ["files", "bytes", "allocated"]
    shown = 0
    files = 0
    bytes = 0
    space = 0
    for row in entries:
        if shown < top:
            line(row[0], row[1], row[2], row[3])
        else:
            files = files + row[1]
            bytes = bytes + row[2]
            space = space + row[3]
        shown = shown + 1
    if shown > top:
        line("(" + plural(shown - top, "other", "others") + ")", files, bytes, space)

def by_bytes(entries):
    entries.isort([(2, "D"), (0, "A")])
    return entries

def newest_first(entries):
    entries.isort([(0, "D")])
    return entries

def unchanged(key):
    return key

def summary(walk, options):
    print "Usage of " + walk.folder
    if options.made <> None: print "As it was on " + options.made + ", kept in " + options.store
    print
    print "%,12i %,20i %,20i  files: " % [walk.files, walk.size, walk.space] + human(walk.size) + ", " + human(walk.space) + " allocated"
    print "%,12i %20s %,20i  folders below it, their own space" % [walk.folders, "", walk.folder_space]
    print "%,12i %20s %20s  symbolic links, not followed" % [walk.links, "", ""]
    print "%,12i %20s %20s  special files (devices, pipes, sockets)" % [walk.special, "", ""]
    print "%,12i %,20i %20s  further names of files with hard links; each file is counted once, at its first name" % [walk.extra_names, walk.extra_size, ""]
    print "%,12i %20s %20s  mounted file systems, not entered" % [len(walk.mounts), "", ""]
    print "%,12i %20s %20s  folders that could not be read" % [len(walk.unreadable), "", ""]

def show(walk, options):
    walk.cut_largest()
    summary(walk, options)
    heading("Largest files")
    for size, path in walk.largest:
        print "%,20i  " % size + path
    table("By extension", by_bytes(rows(walk.by_extension, lower)), options.top)
    table("By owner", by_bytes(rows(walk.by_owner, usage.accounts.name)), options.top)
    table("By year of the last change", newest_first(rows(walk.by_year, str)), 1000)
    table("By first-level tree", by_bytes(rows(walk.by_tree, unchanged)), options.top)
    if len(walk.mounts) > 0:
        heading("Not entered: mounted file systems")
        for path in walk.mounts:
            print "    " + path
    if len(walk.unreadable) > 0:
        heading("Not read")
        for path, reason in walk.unreadable:
            print "    " + path + ": " + reason
