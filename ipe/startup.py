# The program of a serving quillsrv. It says that the server stands, and leaves; the server then stays in its loop
# until it is told to stop. With --once among the arguments it ends the server at once, with exit code 0: a trial
# start. With --usage it makes the report of usage.py first and ends with its exit code, from source and from a bundle
# alike. With --serve it listens: see serve.py. With --census it makes reports as report.py does, and ends; with both it
# makes them for its clients.

class startup:

def beside():
    "The folder of this source file, with its separator."
    parts = beside.source[0].replace("\\", "/").split("/")
    del parts[len(parts) - 1]
    parts.append("")
    return parts.join("/")

def load(pattern):
    "A bundle has the modules in it; from source they are loaded first."
    if global_get("startup_type") <> "py": return
    for time, name, size in fs("ls_files", beside() + pattern):
        interpreter("load", beside() + name)

def report_usage():
    load("usage_*.py")
    import usage.main
    usage.main.run()
    sys_exit()

def report_census():
    load("census_*.py")
    import census.main
    census.main.run()
    sys_exit()

def listen():
    load("census_*.py")
    load("serve.py")
    import serve.main
    serve.main.start()

def say(text):
    "Standard output may be closed: then nobody reads it."
    try:
        out = open("/dev/stdout", "a")
        out.write(text + "\n")
        out.close()
    except IOError:
        pass

def state():
    if global_get("server_paused", False): return "paused"
    return "running"

def stand():
    say("quillsrv serves on " + hostos("name") + ", " + state() + ", since " + strftime(localtime()))
    if "--once" in global_get("__program_args"):
        global_set("__rc", 0)
        say("quillsrv ends on request")
        sys_exit()

if "--usage" in global_get("__program_args"):
    report_usage()
elif "--serve" in global_get("__program_args"):
    listen()
elif "--census" in global_get("__program_args"):
    report_census()
else:
    stand()
