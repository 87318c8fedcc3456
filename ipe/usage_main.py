# The usage report as a program: options, walk, report. Its modules are loaded already, from source or from a bundle.

class usage.main:

import usage.options, usage.output, usage.live, usage.keeper, usage.replay, usage.walk, usage.report

def write(text):
    "What print calls: lines end as they do on this system."
    file.write(text.replace("\r\n", "\n"))

def exists(path):
    "Anything under that name, so that nothing is ever taken for absent and replaced."
    try:
        open(path)
    except IOError, e:
        if e.numbers["errno"] == 2: return False
    return True

def source(options):
    "Where the walk reads, by what the options say of a store."
    if options.store == None: return usage.live()
    if options.rescan == False:
        if exists(options.store):
            found = usage.replay(options.store)
            if options.given and found.folder <> options.folder:
                found.refuse("it is of '" + found.folder + "'")
            options["folder"] = found.folder
            options["made"] = found.made
            return found
    return usage.keeper(options.store, options.folder)

def report(out):
    options = usage.options.read(global_get("__program_args"))
    if options.help:
        out.file.write("usage: quillsrv [--top N] [--dir FOLDER] [--store FILE [--rescan]] --custom usage.py\n")
        return
    reading = source(options)
    if options.store == None: reading.require(options.folder)
    walk = usage.walk(options.folder, options.top, reading, out)
    walk.run()
    out.clear_progress()
    usage.report.show(walk, options)
    if len(walk.unreadable) > 0: global_set("__rc", 1)

def run():
    out = usage.output()
    _G.file = out.file
    _B.__stdout__ = write
    try:
        report(out)
    except UsageError, e:
        out.clear_progress()
        out.complain(e.decode)
        global_set("__rc", 2)
        return
    except Exception, e:
        raise (e.details)
    out.close()
