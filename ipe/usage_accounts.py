# Names of accounts by user id, from the account file of the system.

class usage.accounts:

names = {}

def load(path):
    "Fills `names`. Without the file, the ids stay."
    try:
        file = open(path)
    except IOError:
        return
    while True:
        line = file.readline()
        if line == "": break
        parts = line.split(":")
        if len(parts) > 2: names.getset(parts[2], parts[0])
    file.close()

def name(owner):
    "The name that belongs to an owner as a listing tells it: a user id, or its SID."
    text = str(owner)
    if text[:9] == "S-1-22-1-": text = text[9:]
    return names.get(text, text)

load("/etc/passwd")
