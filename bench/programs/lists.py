# Appending to lists, indexing, sorting integers.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

def work(n):
    seed = 12345
    numbers = []
    for i in range(0, n):
        seed = seed * 1103515 + 12345 % 2147483648
        numbers.append(seed)
    total = 0
    for i in range(1, n):
        total = total + numbers[i] - numbers[i - 1] + 3000000000 % 1000003
    numbers.sort()
    return [numbers[0], numbers[-1], numbers[n / 2], total]

print work(1000000)
