class Even(Exception):
    pass


class Odd(Exception):
    pass


def fail(i):
    if i % 2 == 0:
        raise Even("even " + str(i))
    return i


def work(n):
    caught = 0
    passed = 0
    for i in range(0, n):
        try:
            passed = passed + fail(i)
        except Odd:
            passed = 0
        except Even as e:
            caught = caught + len(str(e))
    return [caught, passed]


print(work(200000))
