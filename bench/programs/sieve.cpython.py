def work(n):
    marks = []
    i = 0
    while i < n:
        marks.append(1)
        i = i + 1
    i = 2
    while i * i < n:
        if marks[i] == 1:
            j = i * i
            while j < n:
                marks[j] = 0
                j = j + i
        i = i + 1
    return sum(marks) - 2


print(work(2000000))
