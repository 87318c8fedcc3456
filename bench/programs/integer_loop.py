# Integer arithmetic in a while loop.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

def work(n):
    i = 0
    total = 0
    while i < n:
        total = total + i * 3 % 1000003
        i = i + 1
    return total

print work(8000000)
