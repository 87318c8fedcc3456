# Method calls on instances.

class startup_custom:

interpreter("load", fs("get_env", "BENCH_OUTPUT"))
import bench_output

import bench.account

def work(n):
    first = bench.account(0)
    second = bench.account(5)
    i = 0
    while i < n:
        first.deposit(i)
        second.withdraw(first.balance())
        i = i + 1
    return [first.balance(), second.balance()]

print work(1800000)

class bench.account:

def __init__(self, amount):
    self.amount = amount

def deposit(self, amount):
    self.amount = self.amount + amount

def withdraw(self, amount):
    self.amount = self.amount - amount

def balance(self):
    return self.amount
