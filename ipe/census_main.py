# The reports as a program: options, census, reports, tables.

class census.main:

import census.complaint, census.console, census.options, census.reports, census.run, census.show, census.source

def selection_of(wish, source):
    "What opens the census. Without --epoch ages count back from the end of the scan, so that they stay the same."
    if source["epoch"] <> None: wish.selection.getset("epoch", source["epoch"])
    return wish.selection

def show(run, entry, options, table, cache, wish, console):
    if wish.form == "text":
        rows = run.rows(entry.query, table, cache)
        columns = census.show.resolved(entry.columns, options)
        title = census.show.plain(census.reports.title_of(entry, options))
        if entry.name == "spacemap":
            census.show.map(console, title, rows, columns[3][1], 2, wish.top)
        else:
            census.show.table(console, title, columns, rows, wish.top)
        return
    names, rows = run.all(table, cache)
    if wish.form == "csv":
        census.show.csv(console, names, rows)
    else:
        census.show.json(console, names, rows)

def one(run, name, source, wish, console):
    "A report; tells whether it went well."
    entry = census.reports.catalog[name]
    paths = wish.paths
    if len(paths) == 0: paths = source.paths
    options = census.reports.options_of(entry, wish.options, paths)
    console.label = name + ": "
    try:
        table, cache = run.report(name, options)
    except SystemExit, e:
        raise (e.details)
    except Exception, e:
        console.clear()
        census.console.complain(name + ": " + census.complaint.text(e))
        return False
    if wish.quiet == False: show(run, entry, options, table, cache, wish, console)
    return True

def reports(wish, console):
    source = census.source.read(wish.census)
    database = wish.out
    if database == None: database = ":memory:"
    run = census.run(wish.census, selection_of(wish, source), database, console)
    if wish.form == "text" and wish.quiet == False: census.show.census_line(console, wish.census, source, wish.selection)
    try:
        for name in wish.reports:
            # Other scanners need not write rights; only who asks for the report by name is told.
            if name == "dacl_search" and len(wish.reports) > 1 and "PathDACL" not in source.tables: continue
            if one(run, name, source, wish, console) == False: global_set("__rc", 1)
    finally:
        run.close()

def program(console):
    wish = census.options.read(global_get("__program_args"))
    if wish.help:
        console.write(census.options.usage)
    elif wish.list:
        for name in census.reports.order:
            console.write("%18s  " % [name] + census.reports.catalog[name].title + "\n")
    else:
        reports(wish, console)

def run():
    "Leaves the exit code."
    try:
        console = census.console()
        program(console)
        console.close()
    except SystemExit, e:
        raise (e.details)
    except Exception, e:
        global_set("__rc", 1)
        if e.raised == "UsageError": global_set("__rc", 2)
        # Who reads standard output has seen enough.
        if e.raised == "IOError" and e.numbers.get("errno", 0) == 32: return
        census.console.complain(census.complaint.text(e))
