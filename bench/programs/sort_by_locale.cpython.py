import functools
import locale

locale.setlocale(locale.LC_COLLATE, "")


def work(n):
    seed = 1
    words = []
    for i in range(0, n):
        seed = (seed * 1103515 + 12345) % 2147483648
        words.append("w%x" % seed)
    words.sort(key=functools.cmp_to_key(locale.strcoll))
    return words[0] + " " + words[-1] + " " + words[n // 2]


print(work(100000))
