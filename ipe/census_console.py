# Standard output, complaints, and progress on a terminal.

class census.console:

def is_terminal(number):
    "Whether a descriptor of this process is a terminal, told by where its link leads."
    try:
        links = fs("ls_details", "/proc/self/fd/" + str(number), {"resolve_links": True})
        target = str(links.soft[str(number)].target).replace("\\", "/")
    except Exception:
        return False
    for pattern in ["/dev/pts/*", "/dev/tty*", "/dev/console"]:
        if wildmatch(pattern, target): return True
    return False

def __init__(self):
    self.out = open("/dev/stdout", "a")
    self.terminal = is_terminal(2)
    self.shown = 0
    self.label = ""

def write(self, text):
    self.clear()
    self.out.write(text)

def complain(text):
    errors = open("/dev/stderr", "a")
    errors.write("report: " + text + "\n")
    errors.close()

def __call__(self, message, percent):
    "A message of progress: the translated template and the percentage."
    if self.terminal == False: return
    self.draw(self.label + translate(message).substitute([percent]))

def draw(self, text):
    "Rewrites the terminal's line; the file is opened for each, since only its end makes sure that it shows."
    length = len(text)
    blanks = " " * 200
    errors = open("/dev/stderr", "a")
    errors.write("\r" + text + blanks[length:self.shown] + "\r")
    errors.close()
    self.shown = length

def clear(self):
    if self.shown > 0: self.draw("")

def close(self):
    self.clear()
    self.out.close()
