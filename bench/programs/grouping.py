# A real program: the usage report's grouping over recorded rows of files.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

def row(table, key):
    if key in table: return table[key]
    counters = [0, 0, 0]
    table[key] = counters
    return counters

def extension(name):
    parts = name.split(".")
    count = len(parts)
    if count < 2: return "(none)"
    if count == 2:
        if parts[0] == "": return "(none)"
    return parts[-1]

def add(table, key, size, space):
    counters = row(table, key)
    counters[0] = counters[0] + 1
    counters[1] = counters[1] + size
    counters[2] = counters[2] + space

def show(title, table):
    print title
    rows = []
    for key in table.keys():
        counters = table[key]
        rows.append((counters[1], str(key), counters[0], counters[2]))
    rows.isort([(0, "D"), (1, "A")])
    for size, key, count, space in rows[:10]:
        print "%8i %14i %14i %s" % (count, size, space, key)

def work(path):
    by_extension = {}
    by_owner = {}
    by_year = {}
    by_tree = {}
    largest = []
    least = 0
    file = open(path)
    while True:
        line = file.readline()
        if line == "": break
        fields = line.strip().split("\t")
        size = fields[1].integer()
        space = fields[2].integer()
        add(by_extension, extension(fields[0]), size, space)
        add(by_owner, fields[3].integer(), size, space)
        add(by_year, fields[4].integer(), size, space)
        add(by_tree, fields[5], size, space)
        if size > least:
            largest.append((size, fields[0]))
            if len(largest) == 200:
                largest.isort([(0, "D"), (1, "A")])
                largest = largest[:20]
                least = largest[19][0]
    file.close()
    show("extensions", by_extension)
    show("owners", by_owner)
    show("years", by_year)
    show("trees", by_tree)
    largest.isort([(0, "D"), (1, "A")])
    for size, name in largest[:20]:
        print size, name

work(fs("get_env", "BENCH_ROWS"))
