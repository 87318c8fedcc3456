# The program of a serving quillsrv. It says that the server stands, and leaves; the server then stays in its loop
# until it is told to stop. With --once among the arguments it ends the server at once, with exit code 0: a trial
# start.

class startup:

def say(text):
    "Standard output may be a socket, which no script can open, or closed: then nobody reads it."
    try:
        out = open("/dev/stdout", "a")
        out.write(text + "\n")
        out.close()
    except IOError:
        pass

def state():
    if global_get("server_paused", False): return "paused"
    return "running"

say("quillsrv serves on " + hostos("name") + ", " + state() + ", since " + strftime(localtime()))

if "--once" in global_get("__program_args"):
    global_set("__rc", 0)
    say("quillsrv ends on request")
    sys_exit()
