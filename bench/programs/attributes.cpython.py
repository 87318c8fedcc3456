class Point:
    def __init__(self):
        self.x = 1
        self.y = 2
        self.z = 3


def work(n):
    p = Point()
    q = Point()
    i = 0
    while i < n:
        p.x = q.y + 1
        q.y = i - p.x
        p.z = q.x + i
        q.x = p.z - q.z
        i = i + 1
    return [p.x, p.y, p.z, q.x, q.y, q.z]


print(work(2400000))
