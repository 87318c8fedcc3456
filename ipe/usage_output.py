# Standard output, complaints, and progress on a terminal.

class usage.output:

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
    self.file = open("/dev/stdout", "a")
    self.shown = 0
    self.started = timer()
    self.last = self.started
    self.terminal = False
    if is_terminal(1):
        self.terminal = is_terminal(2)

def close(self):
    self.file.close()

def complain(self, text):
    errors = open("/dev/stderr", "a")
    errors.write("usage: " + text + "\n")
    errors.close()

def draw(self, text):
    "Rewrites the terminal's line; the file is opened for each, since only its end makes sure that it shows."
    length = len(text)
    blanks = " " * 200
    errors = open("/dev/stderr", "a")
    errors.write("\r" + text + blanks[length:self.shown] + "\r")
    errors.close()
    self.shown = length

def progress(self, walk):
    "Called for every folder; draws about twice a second."
    if not self.terminal: return
    if timer(self.last) < 0.5: return
    self.last = timer()
    text = "%,i files, %,i folders, %.0f s" % [walk.files, walk.folders, timer(self.started)]
    self.draw(text)

def clear_progress(self):
    if self.shown > 0: self.draw("")
