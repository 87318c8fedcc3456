# Attributes read and written.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

import bench.point

def work(n):
    p = bench.point()
    q = bench.point()
    i = 0
    while i < n:
        p.x = q.y + 1
        q.y = i - p.x
        p.z = q.x + i
        q.x = p.z - q.z
        i = i + 1
    return [p.x, p.y, p.z, q.x, q.y, q.z]

print work(2400000)

class bench.point:

x = 1
y = 2
z = 3
