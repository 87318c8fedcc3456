# The reports as this application runs them: what each is for, its options when none are given, and how its rows read.
#
#   title      what the printed table is called
#   options    the report's options; the command line's stand above them
#   query      the rows that are printed, in order, out of the report's tables; $cache picks those of this run
#   columns    (heading, form) for each column of the query: "text", "bytes", "number", "when", and "measure", which is
#              bytes or a number by the options

class census.reports:

extension = "\\.([^./]+)$"

owners_script = """
-- Files and bytes by owner, in the global `totals`.
function before(options) totals = {} end
function during(path, name, values, row)
    local owner, size = values[1], values[2]
    local entry = totals[owner] or {0, 0}
    entry[1], entry[2] = entry[1] + 1, entry[2] + size
    totals[owner] = entry
end
function after(options, fields) end
"""

catalog = {}

def add(name, title, options, query, columns):
    catalog[name] = {"name": name, "title": title, "options": options, "query": query, "columns": columns}

add("file_largest", "Largest files", {}, "select value, path || name from $table where cache = $cache order by value desc, path, name", [("size", "measure"), ("file", "text")])
add("tree_summary", "Trees", {}, "select size, space, files, lastmodified, path from $table where cache = $cache order by size desc, path", [("size", "bytes"), ("on disk", "bytes"), ("files", "number"), ("modified", "when"), ("path", "text")])
add("path_summary", "Folders with the most files, without what is below them", {}, "select files, size, space, lastmodified, path from $table where cache = $cache order by files desc, path", [("files", "number"), ("size", "bytes"), ("on disk", "bytes"), ("tree modified", "when"), ("path", "text")])
add("path_largest", "Largest folders, without what is below them", {"field": "Size"}, "select value, path from $table where cache = $cache order by value desc, path", [("size", "measure"), ("path", "text")])
add("file_ages", "Ages: when the bytes were made, changed and read", {"mode": "size"}, "select case when date like '0000%' then '(unknown)' else substr(date, 1, 4) end, sum(created), sum(modified), sum(accessed) from $table where cache = $cache group by 1 order by 1 desc", [("year", "text"), ("created", "measure"), ("modified", "measure"), ("accessed", "measure")])
add("group_by_pcre", "Extensions", {"regex": extension, "regex_dvalue": "(none)"}, "select size, space, count, value from $table where cache = $cache order by size desc, value", [("size", "bytes"), ("on disk", "bytes"), ("files", "number"), ("extension", "text")])
add("group_by_pcre_date", "Kinds of files", {"xform": "kind_of_file", "pivot": "modified"}, "select size, space, value from $table where cache = $cache order by size desc, value", [("size", "bytes"), ("on disk", "bytes"), ("kind", "text")])
add("file_duplicated", "Likely duplicates: files of 1 MB and more of the same name, size and date", {"filter": "Size >= 1MB"}, "select wasted, copies, size, name, path from $table where cache = $cache order by wasted desc, name", [("wasted", "bytes"), ("copies", "number"), ("size", "bytes"), ("name", "text"), ("first in", "text")])
add("file_search", "Files left over: logs, backups, temporary files", {"filter": "Name = '[.](log|bak|old|tmp|orig|swp)$|~$'"}, "select filteredsize, filteredcount, path from $table where cache = $cache and filteredcount > 0 order by filteredsize desc, path", [("size", "bytes"), ("files", "number"), ("path", "text")])
add("dacl_search", "Folders that everybody may write to", {"filter": "Type = '^other$' and Rights in [(2, 1), (6, 1)]"}, "select path, count from $table where cache = $cache and filteredcount > 0 order by path", [("path", "text"), ("entries", "number")])
add("path_search", "Folders without any file below them", {"filter": "TreeFiles = 0"}, "select totalcount, filteredcount, path from $table where cache = $cache order by path", [("folders", "number"), ("found", "number"), ("path", "text")])
add("path_names", "Folders by name: caches", {"filter": "Path = '/[.]?cache/$'"}, "select path from $table where cache = $cache order by path", [("path", "text")])
add("path_index", "Where the trees stand in the table Path", {"mode": "pathrange"}, "select start, count, path from $table where cache = $cache order by number", [("row", "number"), ("folders below", "number"), ("path", "text")])
add("iterate", "Owners", {"script": owners_script, "fields": ["Owner", "Size"]}, "select size, files, name from $table where cache = $cache order by size desc, name", [("size", "bytes"), ("files", "number"), ("owner", "text")])
add("spacemap", "Space map", {"field": "space", "threshold": 20000}, "select id, parent_id, name, size, mode from $table where cache = $cache order by id", [("id", "number"), ("in", "number"), ("name", "text"), ("size", "measure"), ("mode", "number")])

# The order in which all of them run and are printed.
order = ["tree_summary", "spacemap", "file_largest", "file_ages", "group_by_pcre", "group_by_pcre_date", "file_duplicated", "path_largest", "path_summary", "file_search", "dacl_search", "path_search", "path_names", "path_index", "iterate"]

def is_bytes(options):
    "Whether what the report measures are bytes."
    if options.get("mode", "") == "count": return False
    if lower(options.get("field", "size")) in ["size", "space", "savings", "linksize", "linkspace", "treesize", "treespace", "ownsize", "ownspace", "foldersize"]: return True
    return False

def title_of(entry, options):
    "What the printed table is called. A title may speak of the report's own filter, so another one takes its place."
    filter = options.get("filter", "")
    if filter == entry.options.get("filter", filter): return entry.title
    if filter == "": return entry.name
    return entry.name + ": " + filter

def options_of(entry, options, paths):
    "The options of a run: the report's own, those that are given, and the paths."
    found = {}
    for given in [entry.options, options]:
        for key in given.keys():
            found[key] = given[key]
    # A transform brings its own expression; whoever gives one does not want the report's.
    if options.has_key("regex") and options.has_key("xform") == 0: found["xform"] = None
    found["paths"] = []
    for path in paths:
        found.paths.append({"name": path})
    return found
