# Integers, floats, None, True, False.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *

most = 9223372036854775807
least = -9223372036854775807 - 1

def add(a, b):
    return a + b

def sub(a, b):
    return a - b

def mul(a, b):
    return a * b

def div(a, b):
    return a / b

def mod(a, b):
    return a % b

same("sums", [1 + 2, most + -1, 5 - 7, 6 * -7, add(least, most)], [3, 9223372036854775806, -2, -42, -1])
fault("sum too large", "SafeIntArithmeticOverflow: ", add, most, 1)
fault("sum too small", "SafeIntArithmeticOverflow: ", sub, least, 1)
fault("difference too large", "SafeIntArithmeticOverflow: ", sub, 0, least)
fault("product too large", "SafeIntArithmeticOverflow: ", mul, 4294967296, 2147483648)
same("product at the edge", [mul(4294967296, -2147483648), mul(least, 1), mul(most, -1)], [least, least, least + 1])
fault("negated lowest", "SafeIntArithmeticOverflow: ", mul, least, -1)
fault("lowest by minus one", "SafeIntArithmeticOverflow: ", div, least, -1)
same("quotients are cut", [7 / 2, -7 / 2, 7 / -2, -7 / -2, 0 / 5], [3, -3, -3, 3, 0])
same("remainders follow the dividend", [7 % 2, -7 % 2, 7 % -2, 5 % -1, least % -1], [1, -1, 1, 0, 0])
fault("division by zero", "SafeIntDivideByZero: ", div, 5, 0)
fault("zero by zero", "SafeIntDivideByZero: ", div, 0, 0)
fault("remainder by zero", "NumericError: Divide by Zero", mod, 5, 0)
same("the right side becomes an integer", [7 + 2.9, 7 - "3x", 7 * True, 5 + "37x"], [9, 4, 7, 42])
fault("unless it can't", "TypeError: __int__ is not supported", add, 1, None)
fault("a list can't", "TypeError: __int__ is not supported", add, 1, [1])

same("representation and text", [repr(2147483647), repr(2147483648), repr(-2147483647), repr(-2147483648), str(2147483648), str(least)], ["2147483647", "2147483648L", "-2147483647", "-2147483648L", "2147483648", "-9223372036854775808"])
same("no suffix in JSON", repr(2147483648, json=1), "2147483648")

# Floats
same("float sums", [1.5 + 2, 2.5 - 0.5, 0.5 * 4, 7.0 / 2], [3.5, 2.0, 2.0, 3.5])
same("float text", [str(2.5), str(0.1), str(-1.0)], ["2.50000000000000000", "0.10000000000000001", "-1.00000000000000000"])
fault("float by zero", "NumericError: Divide by Zero", div, 1.0, 0)
same("a string on the right of a float", 1.5 + "2.25", 3.75)
fault("None on the right of a float", "TypeError: __float__ is not supported", add, 1.5, None)
fault("nor True", "TypeError: __float__ is not supported", add, 1.5, True)
same("cut", [long(2.9), long(-2.9), long("42nd"), long(True)], [2, -2, 42, 1])
same("widened", [float(2), float("2.5x"), float("none")], [2.0, 2.5, 0.0])

same("integers", [compare(1, 2), compare(2, 2), compare(3, 2), compare(least, most)], [-1, 0, 1, -1])
same("an integer sees a float cut", [compare(2, 2.7), compare(3, 2.7)], [0, 1])
same("a float sees the integer", [compare(2.7, 2), compare(2.0, 2), compare(1.5, 2)], [1, 0, -1])
same("other kinds are greater", [compare(1, "1"), compare(1, None), compare(1.0, "1.0"), compare(None, 0)], [1, 1, 1, 1])

# True, False and None
same("True equals what is not zero", [compare(True, 1), compare(True, 5), compare(True, 0), compare(5, True)], [0, 0, 1, 1])
same("False equals zero", [compare(False, 0), compare(False, None), compare(None, None), compare(False, True), compare(None, False)], [0, 1, 0, 1, 1])
same("their texts", [str(None), str(True), repr(False), str([None, True, False]), type(True)], ["None", "True", "False", "[None, True, False]", "TrueType"])
same("JSON", repr([None, True, False], json=1), "[null,true,false]")
same("as integers", repr([None, True, False], booleans_as_integers=1), "[None, 1, 0]")
same("both options", repr([None, True, False], booleans_as_integers=1, json=1), "[null,1,0]")

# Hashes: equal keys of a dict
table = {1: "int", 1.5: "float", None: "none", True: "true"}
same("numbers as keys", [table[1], table[1.5], table[None], table[True]], ["int", "float", "none", "true"])
same("functions of numbers", [abs(-5), abs(most), sqrt(16), sqrt(2), long("-0012x"), long(-7.9)], [5, most, 4.0, 1.4142135623730951, -12, -7])
fault("no number for it", "SafeIntArithmeticOverflow: ", abs, least)
same("bits", [bits(10), bits(0), bits(2147483653), len(bits(-1))], [[2, 8], [], [1, 4, 2147483648], 32])
same("bytes", [byteswap_U32(1), byteswap_U32(16909060), byteswap_U32(255), byteswap_U32(30064771072)], [16777216, 67305985, 4278190080, 0])
same("timeout of nothing", timeout().sleep(0), None)
