# A small server: a listener, a queue of workers, timers and a log. Ask it by lines ("help" lists the words), or with a
# browser or curl by HTTP.
#
#   listener                    accepts connections and hands each to a worker
#   connections                 workers; each speaks with one peer until it goes, or is silent for too long
#   pulse_1, pulse_7, pulse_31  timers: the rate, a line for the log, old log files
#   logger                      writes the records of all threads to standard error and to a file
#
# Every thread has an interpreter of its own; what they share stands in the process's store, under names that begin
# with "serve_". startup.py runs this with --serve among the arguments, which may also be --port N, --address A,
# --workers N, --timeout MILLISECONDS and --log FILE. With --census FILE and --out FILE.sqlite it makes reports on that
# census for its clients, --report-workers N (2) at a time, masked by --hide-users and --hide-paths: see census_jobs.py.

class serve.settings:

def argument(name, default):
    "The word behind an argument, such as --port 80."
    words = global_get("__program_args")
    for i in range(0, len(words) - 1):
        if words[i] == name: return words[i + 1]
    return default

def number(name, default):
    "long() takes a word without digits for 0."
    text = str(argument(name, default))
    if str(long(text)) != text: raise ValueError, name + " wants a number, got " + text
    return long(text)

def absolute(path):
    "A relative path is meant from where the server was started; it works in its own folder."
    if path == None or path[:1] == "/": return path
    return fs("get_env", "PWD", fs("pwd")) + "/" + path

def read():
    "Plain data, which travels with the jobs."
    settings = {"address": "127.0.0.1", "backlog": 512, "longest_line": 8192, "most_reads": 64, "most_headers": 100, "log_size": 1000000, "log_files": 5}
    settings["address"] = argument("--address", settings["address"])
    settings["port"] = number("--port", 8731)
    settings["workers"] = number("--workers", 60)
    settings["timeout"] = number("--timeout", 15000)
    settings["log"] = argument("--log", "quillsrv.log")
    settings["report_workers"] = number("--report-workers", 2)
    settings["census"] = absolute(argument("--census", None))
    settings["out"] = absolute(argument("--out", None))
    settings["selection"] = {}
    for word, option in [("--hide-users", "hide_users"), ("--hide-paths", "hide_paths")]:
        if word in global_get("__program_args"): settings.selection[option] = 1
    if settings["census"] <> None and settings["out"] == None: raise ValueError, "--census wants --out FILE.sqlite for the reports"
    return settings

class serve.main:

import ipe.thread
import census.complaint, census.jobs, census.source, serve.settings

def make_queue(name, module, settings, threads):
    queue = ipe.thread.queue(name, {"module": module, "settings": settings})
    queue.set_threads(threads)
    return queue

def checked():
    "The settings, or None and a line on standard error when something is wrong with them."
    try:
        settings = serve.settings.read()
        if settings.census <> None: census.source.read(settings.census)
    except SystemExit, e:
        raise (e.details)
    except Exception, e:
        errors = open("/dev/stderr", "a")
        errors.write("quillsrv: " + census.complaint.text(e) + "\n")
        errors.close()
        global_set("__rc", 2)
        return None
    return settings

def start():
    "Makes the queues. Their workers begin when the start-up program has ended."
    settings = checked()
    if settings == None:
        sys_exit()
        return
    global_set("serve_started", timer())
    for name in ["serve_requests", "serve_connections", "serve_refused", "serve_rate", "serve_open"]:
        global_set(name, 0)
    make_queue("logger", "serve.logwriter", settings, 1)
    for name in ["pulse_1", "pulse_7", "pulse_31"]:
        make_queue(name, "serve.timers", {"timer": name, "log": settings.log, "log_files": settings.log_files, "census": settings.census}, 1)
    make_queue("connections", "serve.connection", settings, settings.workers)
    if settings.census <> None: census.jobs.start(settings)
    make_queue("listener", "serve.listener", settings, 1).enqueue({})

class serve.log:

"What the other modules say to the log."

import ipe.logger

debug = 10
info = 20
warning = 30
error = 40

def exists(path):
    try:
        file = open(path)
    except IOError:
        return False
    file.close()
    return True

def write(level, text):
    record = {"name": "serve", "levelno": level, "pathname": "", "lineno": 0, "excinfo": None, "msg": text, "args": ()}
    ipe.logger.get().addrecord(record)

class serve.logwriter:

"""The queue "logger": takes the records of one second at a time. The file is renamed to FILE.1 when it is large, and the
older ones move on to FILE.2 and so forth."""

import serve.log

words = {10: "debug", 20: "info", 30: "warning", 40: "error"}

def line(record):
    return strftime(localtime()) + " " + words.get(record.levelno, str(record.levelno)) + " " + record.name + ": " + str(record.msg).replace("\n", " | ") + "\n"

def size_of(path):
    if serve.log.exists(path): return len_of(path)
    return 0

def len_of(path):
    "The listing knows the size of a file without reading it."
    listing = fs("ls_details", path).file
    for name in listing.keys():
        return listing[name]["size"]
    return 0

def rotate(path, keep):
    for i in range(0, keep):
        number = keep - i
        older = path + "." + str(number)
        newer = path + "." + str(number - 1)
        if number == 1: newer = path
        if serve.log.exists(older): fs("erase", older)
        if serve.log.exists(newer): fs("rename", newer, older)

def append(path, text):
    file = open(path, "a")
    file.write(text)
    file.close()

def job(job, settings):
    lines = []
    for record in job.logevents:
        lines.append(line(record))
    text = lines.join("")
    try:
        append("/dev/stderr", text)
    except IOError:
        # It may be closed. The file has the records all the same.
        pass
    try:
        if size_of(settings.log) > settings.log_size: rotate(settings.log, settings.log_files)
    except Exception, e:
        # The records matter more than the size of the file; this one tells why it grows.
        text = text + strftime(localtime()) + " error serve: the log file cannot be renamed: " + e + "\n"
    append(settings.log, text)

class serve.timers:

"The queues pulse_1, pulse_7 and pulse_31."

import census.jobs, serve.log

before = 0
told = 0

def every_second(settings):
    if settings.census <> None: report_progress()
    requests = global_get("serve_requests", 0)
    global_set("serve_rate", requests - before)
    _G.before = requests

def report_progress():
    found = census.jobs.pulse()
    for number in found.keys():
        serve.log.write(serve.log.debug, "report job " + number + ": " + found[number])

def every_eighth():
    requests = global_get("serve_requests", 0)
    if requests > told:
        text = "%i requests, %i connections open, %i requests in the last second"
        serve.log.write(serve.log.info, text % [requests, global_get("serve_open", 0), global_get("serve_rate", 0)])
    _G.told = requests

def every_thirty_second(settings):
    "Log files beyond the number to keep, as an earlier run with other settings may have left them."
    number = settings.log_files + 1
    while serve.log.exists(settings.log + "." + str(number)):
        fs("erase", settings.log + "." + str(number))
        number = number + 1

def job(job, settings):
    if settings.timer == "pulse_1":
        every_second(settings)
    elif settings.timer == "pulse_7":
        every_eighth()
    else:
        every_thirty_second(settings)

class serve.listener:

"The queue listener: one job, which lasts as long as the server."

import ipe.thread
import ipe.serversocket
import serve.log

def say(text):
    "Standard output may be closed: then nobody reads it."
    try:
        out = open("/dev/stdout", "a")
        out.write(text + "\n")
        out.close()
    except IOError:
        pass

def accept_one(server, settings, connections):
    socket = server.accept(timeout=settings.timeout, shutdown=1)
    if socket == None: return 0
    try:
        connections.enqueue({"socket": socket})
    except RuntimeError:
        global_execute("inc", "serve_refused")
        socket.close()
    return 1

def listen(settings):
    connections = ipe.thread.queue("connections")
    server = ipe.serversocket.create(settings.port, settings.backlog, settings.address)
    global_set("serve_port", server.port)
    address = settings.address + ":" + str(server.port)
    serve.log.write(serve.log.info, "serves on " + address)
    say("quillsrv serves on http://" + address + "/")
    going = 1
    while going == 1:
        going = 0
        try:
            going = accept_one(server, settings, connections)
        except WSAEMFILE:
            # No descriptor is free: workers give some back.
            timeout().sleep(100)
            going = 1
        except WSAENOBUFS:
            timeout().sleep(100)
            going = 1

def job(job, settings):
    try:
        listen(settings)
    except SystemExit, e:
        raise (e.details)
    except Exception, e:
        serve.log.write(serve.log.error, "The listener ends: " + e.raised + ": " + e)
        say("quillsrv cannot serve: " + e)
        global_set("__rc", 1)
        sys_exit()

class serve.status:

"Figures of the server, for both protocols."

import ipe.thread

def figures():
    queues = ipe.thread.queue()
    return {"uptime": long(timer(global_get("serve_started"))), "requests": global_get("serve_requests", 0), "connections": global_get("serve_connections", 0), "open": global_get("serve_open", 0), "refused": global_get("serve_refused", 0), "rate": global_get("serve_rate", 0), "waiting": queues.connections.waiting, "system": hostos("name")}

class serve.connection:

"The queue connections: one job is one peer."

import serve.log
import serve.lines
import serve.http

def speak(socket, settings):
    input = socket.get_istream()
    output = socket.get_ostream()
    state = {"going": 1, "http": 0}
    while state.going == 1:
        text = input(maxlength=settings.longest_line, maxloops=settings.most_reads, assertoneof=1)
        global_execute("inc", "serve_requests")
        if serve.http.is_request(text):
            serve.http.answer(text, input, output, settings, state)
        else:
            serve.lines.answer(text, output, settings, state)
    output(shutdown=1)

def careful(socket, settings):
    "What peers do wrong ends their connection and nothing else."
    try:
        speak(socket, settings)
    except IOReachedEOFError:
        pass
    except IOLineLengthError:
        serve.log.write(serve.log.warning, socket.get_address() + " sent a line without end")
    except IOLineLoopsError:
        serve.log.write(serve.log.warning, "a slow connection is closed")
    except UnicodeError:
        serve.log.write(serve.log.warning, "a connection that sends no UTF-8 text is closed")
    except WSAETIMEDOUT:
        serve.log.write(serve.log.debug, "a silent connection is closed")
    except WSAECONNRESET:
        pass
    except SystemExit, e:
        raise (e.details)
    except ValueError:
        # The connection was closed under us: the server ends.
        pass
    except Exception, e:
        serve.log.write(serve.log.error, e.raised + ": " + e)

def job(job, settings):
    socket = job.socket
    global_execute("inc", "serve_connections")
    global_execute("inc", "serve_open")
    try:
        careful(socket, settings)
    finally:
        socket.close()
        global_execute("dec", "serve_open")

class serve.lines:

"The line protocol: a word, a blank and its argument; one line answers."

import census.jobs, serve.status

def answer(text, output, settings, state):
    parts = text.split(" ", 1)
    word = ""
    rest = ""
    if len(parts) > 0: word = parts[0].lower()
    if len(parts) > 1: rest = parts[1]
    output(reply(word, rest, settings, state), "\n", flush=1)

def knows(word):
    if word in ["ping", "echo", "time", "stats", "help", "quit"] or word in census.jobs.words: return True
    return False

def help_with(settings):
    if settings.census == None: return ""
    return ", report NAME [JSON], job N, rows N [FROM [COUNT]], jobs"

def reply(word, rest, settings, state):
    if word == "ping": return "pong"
    if word == "echo": return rest
    if word == "time": return strftime(localtime())
    if word == "stats": return repr(serve.status.figures(), json=1)
    if word == "help": return "ping, echo TEXT, time, stats, quit" + help_with(settings)
    if settings.census <> None and word in census.jobs.words: return census.jobs.reply(word, rest, settings)
    if word == "quit":
        state["going"] = 0
        return "bye"
    return "error: unknown word, ask help"

class serve.http:

"Enough of HTTP/1.1 for a browser and curl: GET and HEAD, connections that stay open."

import serve.lines
import serve.status

reasons = {200: "OK", 400: "Bad Request", 404: "Not Found", 405: "Method Not Allowed", 408: "Request Timeout", 431: "Request Header Fields Too Large"}

def is_request(text):
    if wildmatch("* HTTP/1.*", text):
        if serve.lines.knows(text.split(" ", 1)[0].lower()): return False
        return True
    return False

def read_headers(input, settings, headers):
    "Fills in the headers, their names in small letters. Gives the code of the answer that this much is worth."
    begin = timer()
    for i in range(0, settings.most_headers):
        text = input(maxlength=settings.longest_line, maxloops=settings.most_reads, assertoneof=1)
        if text == "": return 200
        if settings.timeout > 0 and timer(begin) * 1000 > settings.timeout: return 408
        parts = text.split(":", 1)
        if len(parts) == 2: headers[parts[0].strip().lower()] = parts[1].strip()
    return 431

def answer(text, input, output, settings, state):
    parts = text.split(" ")
    headers = {}
    code = read_headers(input, settings, headers)
    kind = "text/html; charset=utf-8"
    body = ""
    if code != 200:
        pass
    elif len(parts) != 3:
        code = 400
    elif parts[2] != "HTTP/1.1" and parts[2] != "HTTP/1.0":
        code = 400
    elif parts[0] != "GET" and parts[0] != "HEAD":
        code = 405
    else:
        path = parts[1].split("?")[0]
        if path == "/":
            body = page()
        elif path == "/status.json":
            kind = "application/json"
            body = repr(serve.status.figures(), json=1) + "\n"
        else:
            code = 404
    if code != 200: body = problem(code)
    state["going"] = 1
    if code == 400 or code == 405 or code == 408 or code == 431 or last_request(parts, headers): state["going"] = 0
    send(output, code, kind, body, parts[0], state)

def last_request(parts, headers):
    "A body that nobody reads would be taken for requests, so a request with one is the last."
    wanted = headers.get("connection", "").lower()
    if wanted.find("close") > -1: return True
    if headers.get("content-length", "0") != "0" or len(headers.get("transfer-encoding", "")) > 0: return True
    if parts[2] == "HTTP/1.0" and wanted != "keep-alive": return True
    return False

def byte_length(text):
    "len() counts characters."
    encoded = base64_encode(text).replace("\r", "").replace("\n", "").replace("=", "")
    return len(encoded) * 3 / 4

def send(output, code, kind, body, method, state):
    connection = "keep-alive"
    if state.going == 0: connection = "close"
    lines = ["HTTP/1.1 " + str(code) + " " + reasons[code], "Content-Type: " + kind, "Content-Length: " + str(byte_length(body)), "Cache-Control: no-store", "Connection: " + connection]
    if code == 405: lines.append("Allow: GET, HEAD")
    lines.append("")
    lines.append("")
    output(lines.join("\r\n"))
    if method != "HEAD": output(body)
    output(flush=1)

def problem(code):
    return "<!doctype html><title>" + str(code) + "</title><p>" + str(code) + " " + reasons[code] + "</p>\n"

def page():
    figures = serve.status.figures()
    rows = []
    for name in figures.keys():
        rows.append("<tr><th>%h</th><td>%h</td></tr>" % [name, str(figures[name])])
    head = "<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\"><title>quillsrv</title><style>body{font:16px sans-serif;margin:3em}th{text-align:left;padding-right:2em}</style></head>"
    return head + "<body><h1>quillsrv</h1><table>" + rows.join("") + "</table><p><a href=\"/status.json\">status.json</a></p></body></html>\n"
