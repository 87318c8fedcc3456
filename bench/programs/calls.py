# Function calls with defaults and keywords.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

def three(a, b=2, c=3):
    return a + b + c

def two(a, b):
    return three(a, c=b)

def work(n):
    total = 0
    i = 0
    while i < n:
        total = total + three(i) + three(i, 1) + two(i, 4) + three(a=1, b=2)
        i = i + 1
    return total

print work(1200000)
