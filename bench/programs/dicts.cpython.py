def work(n):
    table = {}
    for i in range(0, n):
        table[i * 7] = i
        table["key" + str(i)] = i
    found = 0
    for i in range(0, n * 7):
        if i in table:
            found = found + table[i]
    for i in range(0, n):
        found = found + table["key" + str(i)]
    return [len(table), found]


print(work(400000))
