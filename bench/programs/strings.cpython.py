def work(n):
    line = "alpha,beta,gamma,delta,epsilon,zeta,eta,theta"
    length = 0
    for i in range(0, n):
        parts = line.split(",")
        text = "-".join(parts)
        text = text.replace("a-", "a+")
        text = "%s:%i:%s" % (text, i, parts[3])
        length = length + len(text)
    return [length, text]


print(str(work(600000)).replace("'", '"'))
