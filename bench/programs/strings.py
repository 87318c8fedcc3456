# Splitting, joining, replacing and formatting strings.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

def work(n):
    line = "alpha,beta,gamma,delta,epsilon,zeta,eta,theta"
    length = 0
    for i in range(0, n):
        parts = line.split(",")
        text = parts.join("-")
        text = text.replace("a-", "a+")
        text = "%s:%i:%s" % (text, i, parts[3])
        length = length + len(text)
    return [length, text]

print work(600000)
