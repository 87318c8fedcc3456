# What the reports found, as text for people, as CSV or as JSON.

class census.show:

import census.complaint, census.reports

units = ["B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"]

def bytes(value):
    "Three digits and a unit."
    if value == None: return ""
    number = float(value)
    unit = 0
    while number >= 1000 and unit < len(units) - 1:
        number = number / 1024
        unit = unit + 1
    if unit == 0: return "%,i B" % [value]
    if number < 10: return "%.2f " % [number] + units[unit]
    if number < 100: return "%.1f " % [number] + units[unit]
    return "%.0f " % [number] + units[unit]

def number(value):
    if value == None: return ""
    return "%,i" % [value]

def plain(value):
    "A text on one line."
    if value == None: return ""
    return census.complaint.plain(str(value).replace("\n", "?"))

forms = {"bytes": bytes, "number": number, "text": plain, "when": plain}

# In a column that is not the last, longer texts end in dots.
widest = 40

def cell(form, value):
    function = forms[form]
    return function(value)

def shortened(text):
    if len(text) > widest: return text[:widest - 3] + "..."
    return text

def resolved(columns, options):
    "The columns, with what the run measures."
    measure = "number"
    if census.reports.is_bytes(options): measure = "bytes"
    found = []
    for heading, form in columns:
        if form == "measure":
            form = measure
            if heading == "size" and options.has_key("field"): heading = options.field.lower()
        found.append((heading, form))
    return found

def share(value, whole):
    "A part of a whole in per cent."
    if whole <= 0: return "0.0%"
    part = float(value) * 100 / whole
    return "%.1f%%" % [part]

def table(out, title, columns, rows, top):
    "The first `top` rows; all columns but the last are padded, numbers to the right."
    out.write("\n" + title + "\n")
    if len(rows) == 0:
        out.write("  (none)\n")
        return
    lines = []
    widths = []
    for heading, form in columns:
        widths.append(len(heading))
    for row in rows[:top]:
        line = []
        for i in range(0, len(columns)):
            text = cell(columns[i][1], row[i])
            if i < len(columns) - 1: text = shortened(text)
            if len(text) > widths[i]: widths[i] = len(text)
            line.append(text)
        lines.append(line)
    heads = []
    for heading, form in columns:
        heads.append(heading)
    out.write(padded(heads, columns, widths))
    for line in lines:
        out.write(padded(line, columns, widths))
    if len(rows) > top: out.write("  ... and " + number(len(rows) - top) + " more\n")

def padded(line, columns, widths):
    text = " "
    for i in range(0, len(columns)):
        blanks = " " * (widths[i] - len(line[i]))[0]
        if columns[i][1] == "text":
            if i == len(columns) - 1: blanks = ""
            text = text + " " + line[i] + blanks
        else:
            text = text + " " + blanks + line[i]
        text = text + " "
    return text.rstrip() + "\n"

def quoted(value):
    "A field of CSV, RFC 4180."
    if value == None: return ""
    text = str(value)
    if text.find(",") < 0 and text.find("\"") < 0 and text.find("\n") < 0 and text.find("\r") < 0: return text
    return "\"" + text.replace("\"", "\"\"") + "\""

def csv(out, names, rows):
    line = []
    for name in names:
        line.append(quoted(name))
    out.write(line.join(",") + "\r\n")
    for row in rows:
        line = []
        for value in row:
            line.append(quoted(value))
        out.write(line.join(",") + "\r\n")

def text_of(value):
    "JSON holds Unicode alone: a byte that is none becomes U+10FFF0, 2 and its two hexadecimal digits."
    if type(value) == "StringType": return unicode_sanitize(value)
    return value

def json(out, names, rows):
    "A list of objects, a line each."
    out.write("[")
    between = "\n"
    for row in rows:
        parts = []
        for i in range(0, len(names)):
            parts.append(repr(names[i], json=1) + ": " + repr(text_of(row[i]), json=1))
        out.write(between + "{" + parts.join(", ") + "}")
        between = ",\n"
    out.write("\n]\n")

# --- What the census is.

def census_line(out, file, source, selection):
    "One line for each root."
    out.write("Census " + plain(file) + "\n")
    for root in source.roots:
        # Masked names must not show here.
        name = "a folder of " + root["Host"]
        if selection.get("hide_paths", 0) == 0: name = root["Path"] + " on " + root["Host"]
        out.write("  %s, scanned %s: %s files in %s folders, %s, %s on disk\n" % [plain(name), root["Finished"], number(root["Files"]), number(root["Folders"]), bytes(root["Size"]), bytes(root["Space"])])
        if root["Unreadable"] > 0: out.write("  " + number(root["Unreadable"]) + " folders could not be read; the table Problem of the census lists them\n")

# --- The space map, drawn: each node's share of the whole as a bar, children below their parents.

def map(out, title, rows, form, depth, top):
    "`rows` are (id, parent, name, size, mode) in the order of ids; the `top` largest of each folder are drawn."
    children = {}
    for row in rows:
        children.getset(row[1], []).append(row)
    out.write("\n" + title + "\n")
    if children.has_key(0) == 0: out.write("  (none)\n")
    for root in children.get(0, []):
        branch(out, children, root, form, 0, root[3], depth, top)

def named(node, depth):
    if node[4] == 2: return "(smaller ones)"
    if node[4] == 1 and depth > 0: return plain(node[2]) + "/"
    return plain(node[2])

def branch(out, children, node, form, depth, whole, deepest, top):
    part = 0
    if whole > 0: part = float(node[3]) / whole
    bar = "#" * long(part * 40 + 0.5)
    out.write("  %-8s %-6s %40s %s%s\n" % [cell(form, node[3]), share(node[3], whole), bar, "  " * depth, named(node, depth)])
    if depth >= deepest: return
    nodes = children.get(node[0], [])
    # What is left of a folder says nothing when it is all.
    if len(nodes) == 1 and nodes[0][4] == 2: return
    for child in nodes.isort([(3, "D"), (2, "A")])[:top]:
        branch(out, children, child, form, depth + 1, whole, deepest, top)
