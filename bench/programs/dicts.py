# Inserting into dicts and looking up.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

def work(n):
    table = {}
    for i in range(0, n):
        table[i * 7] = i
        table["key" + i] = i
    found = 0
    for i in range(0, n * 7):
        if i in table: found = found + table[i]
    for i in range(0, n):
        found = found + table["key" + i]
    return [len(table), found]

print work(400000)
