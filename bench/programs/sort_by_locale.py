# Sorting strings by the locale's collation.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

def work(n):
    seed = 1
    words = []
    for i in range(0, n):
        seed = seed * 1103515 + 12345 % 2147483648
        words.append("w%x" % seed)
    words.sort()
    return words[0] + " " + words[-1] + " " + words[n / 2]

print work(100000)
