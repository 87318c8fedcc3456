# The reports as a program: options, census, reports, tables.

class census.main:

import fsi.reader, ipe.sqlite
import census.console, census.options, census.reports, census.run, census.show

def roots(file):
    "What was scanned: the column Path of the table Root."
    reader = fsi.reader.create({"fsi": file}, None)
    if reader.tables().index("Root") < 0: return ["/"]
    table = reader.table("Root")
    table.get_header()
    found = []
    for row in table.record_as_list(batch=1000):
        found.append(row[1])
    return found

def options_of(entry, wish):
    "The options of a report: its own, then what the command line says."
    options = {}
    for key in entry.options.keys():
        options[key] = entry.options[key]
    for key in wish.options.keys():
        options[key] = wish.options[key]
    paths = []
    for path in wish.paths:
        paths.append({"name": path})
    options["paths"] = paths
    return options

def show(run, entry, cache, wish, console):
    if wish.form == "text":
        rows = run.rows(entry.query, entry.name, cache)
        if entry.name == "spacemap":
            console.write("\n" + entry.title + "\n")
            census.show.map(console, rows, 2)
        else:
            census.show.table(console, entry.title, entry.columns, rows, wish.top)
        return
    names, rows = run.all(entry.name, cache)
    if wish.form == "csv":
        census.show.csv(console, names, rows)
    else:
        census.show.json(console, names, rows)

def reports(wish, console):
    if len(wish.paths) == 0: wish["paths"] = roots(wish.census)
    database = wish.out
    if database == None: database = ":memory:"
    run = census.run(wish.census, wish.selection, database, console)
    failed = 0
    for name in wish.reports:
        entry = census.reports.catalog[name]
        console.label = name + ": "
        try:
            cache = run.report(name, options_of(entry, wish))
            if wish.quiet == False: show(run, entry, cache, wish, console)
        except SystemExit, e:
            raise (e.details)
        except Exception, e:
            failed = failed + 1
            console.complain(name + ": " + e.raised + ": " + e.decode + " (" + e.file + " " + e.line + ")")
    run.close()
    if failed > 0: global_set("__rc", 1)

def run(usage):
    console = census.console()
    try:
        wish = census.options.read(global_get("__program_args"))
        if wish.help:
            console.write(usage)
        elif wish.list:
            for name in census.reports.order:
                console.write(name + "  " + census.reports.catalog[name].title + "\n")
        else:
            reports(wish, console)
    except UsageError, e:
        console.complain(e.decode)
        global_set("__rc", 2)
    except SystemExit, e:
        raise (e.details)
    except Exception, e:
        console.complain(e.raised + ": " + e.decode + " (" + e.file + " " + e.line + ")")
        global_set("__rc", 1)
    console.close()
