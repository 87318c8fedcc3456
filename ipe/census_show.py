# What the reports found, as text for people, as CSV or as JSON.

class census.show:

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
    "Control characters would disturb the terminal."
    if value == None: return ""
    return str(value).replace("\n", "?").replace("\r", "?").replace("\t", " ").replace("\x1B", "?")

forms = {"bytes": bytes, "number": number, "text": plain, "when": plain}

def cell(form, value):
    function = forms[form]
    return function(value)

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

def json(out, names, rows):
    "A list of objects, a line each."
    out.write("[")
    between = "\n"
    for row in rows:
        entry = {}
        for i in range(0, len(names)):
            entry[names[i]] = row[i]
        out.write(between + repr(entry, json=1))
        between = ",\n"
    out.write("\n]\n")

# --- The space map, drawn: each node's share of the whole as a bar, children below their parents.

def map(out, rows, top):
    "`rows` are (id, parent, name, size, mode) in the order of ids."
    children = {}
    for row in rows:
        children.getset(row[1], []).append(row)
    if children.has_key(0) == 0: return
    for root in children[0]:
        branch(out, children, root, 0, root[3], top)

def branch(out, children, node, depth, whole, top):
    id, parent, name, size, mode = node
    if mode == 2: name = "(smaller ones)"
    if mode == 1 and depth > 0: name = name + "/"
    share = 0
    if whole > 0: share = float(size) * 100 / whole
    bar = "#" * long(share / 2.5)
    out.write("  %10s %5s%% %-40s  %s%s\n".replace("%-40s", "%40s") % [bytes(size), "%.1f" % [share], bar, "  " * depth, plain(name)])
    if depth >= top or children.has_key(id) == 0: return
    nodes = children[id]
    nodes.isort([(3, "D")])
    for child in nodes.isort([(3, "D")]):
        branch(out, children, child, depth + 1, whole, top)
