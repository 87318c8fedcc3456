class Account:
    def __init__(self, amount):
        self.amount = amount

    def deposit(self, amount):
        self.amount = self.amount + amount

    def withdraw(self, amount):
        self.amount = self.amount - amount

    def balance(self):
        return self.amount


def work(n):
    first = Account(0)
    second = Account(5)
    i = 0
    while i < n:
        first.deposit(i)
        second.withdraw(first.balance())
        i = i + 1
    return [first.balance(), second.balance()]


print(work(1800000))
