# Nested for loops with if, elif, else.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

def work(n):
    small = 0
    middle = 0
    large = 0
    columns = range(0, n)
    for i in columns:
        for j in columns:
            d = i - j
            if d < 0:
                small = small + 1
            elif d < 100 and j > 10:
                middle = middle + d
            else:
                large = large + 2
    return [small, middle, large]

print work(2800)
