# Where the benchmark programs print.

class bench_output:

_B.bench_output = open("/dev/stdout", "a")
_B.__stdout__ = _B.bench_output.write
