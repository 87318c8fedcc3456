# Reports for the clients of a server: `quillsrv --serve --census FILE --out FILE.sqlite` (see serve.py). Words of the
# line protocol, each answered by a line of JSON:
#
#   report NAME [OPTIONS]     puts a report into the queue; OPTIONS is JSON, such as {"count": 5, "paths": ["/usr/lib"]}
#   job N                     how job N stands: waiting, running (with progress), done or failed
#   rows N [FROM [COUNT]]     rows of the result of job N, from 0; 100 unless told, 10000 at most
#   jobs                      the last jobs
#
# The process's store holds a dict for each of the last jobs, written by the thread that has it in hand.

class census.jobs:

import ipe.thread
import census.complaint, census.options, census.reports, census.run, census.show

kept = 1000
most_waiting = 100
words = ["report", "job", "rows", "jobs"]

def start(settings):
    "Makes the queue and its workers."
    queue = ipe.thread.queue("reports", {"module": "census.worker", "settings": settings})
    queue.set_threads(settings.report_workers)

def get(number):
    job = global_get("report_job_" + number, None)
    if job == None: raise ReportError, "there is no job " + number
    return job

def put(job):
    global_set("report_job_" + job.number, job)

def reply(word, rest, settings):
    try:
        if word == "report": return repr(report(rest), json=1)
        if word == "jobs": return repr(jobs(), json=1)
        if word == "job": return repr(told(get(number_in(rest, 0, 0))), json=1)
        return repr(rows(rest, settings), json=1)
    except SystemExit, e:
        raise (e.details)
    except Exception, e:
        return repr({"error": unicode_sanitize(census.complaint.text(e))}, json=1)

def number_in(text, at, absent):
    "A number among words."
    parts = text.split(" ")
    if len(parts) <= at: return absent
    return census.options.whole("a job", parts[at], 0, 1000000000000)

def options_in(text):
    "What clients may say: any option, but no scripts. Everything else is refused."
    options = {}
    paths = []
    given = {}
    try:
        if text.strip() <> "": given = eval(text, json=1)
    except Exception:
        raise UsageError, "the options are no JSON"
    if type(given) <> "DictType": raise UsageError, "the options are no object"
    for name in given.keys():
        if name == "script": raise UsageError, "there is no option 'script'"
        if name == "paths":
            for path in census.options.list_of(given["paths"]):
                if type(path) <> "StringType": raise UsageError, "paths wants a list of texts"
                paths.append(path)
        else:
            options[name] = census.options.check(name, given[name])
    return (options, paths)

def report(rest):
    parts = rest.split(" ", 1)
    name = ""
    text = ""
    if len(parts) > 0: name = parts[0]
    if len(parts) > 1: text = parts[1]
    if census.reports.catalog.has_key(name) == 0: raise UsageError, "there is no report named '" + name + "'"
    options, paths = options_in(text)
    if ipe.thread.queue().reports.waiting >= most_waiting: raise ReportError, "too many reports are waiting"
    number = global_execute("inc", "report_jobs")
    put({"number": number, "report": name, "state": "waiting"})
    if number > kept: global_delete("report_job_" + (number - kept)[0])
    ipe.thread.queue("reports").enqueue({"number": number, "report": name, "options": options, "paths": paths})
    return {"job": number}

def told(job):
    "A job as clients see it."
    found = {"job": job.number}
    for name in ["report", "state", "seconds", "count", "error"]:
        if job.has_key(name): found[name] = job[name]
    if job.state == "running": found["progress"] = global_get("report_progress", {}).get(job.number, "")
    return found

def jobs():
    last = global_get("report_jobs", 0)
    found = []
    for back in range(0, 20):
        job = global_get("report_job_" + (last - back)[0], None)
        if job <> None: found.append(told(job))
    return found

def rows(rest, settings):
    job = get(number_in(rest, 0, 0))
    if job.state <> "done": raise ReportError, "job " + job.number + " is " + job.state
    most = number_in(rest, 2, 100)
    if most > 10000: most = 10000
    run = census.run(settings.census, {}, settings.out)
    try:
        names, rows = run.all(job.table, job.cache, number_in(rest, 1, 0), most)
    finally:
        run.close()
    for row in rows:
        for i in range(0, len(row)):
            row[i] = census.show.text_of(row[i])
    return {"job": job.number, "columns": names, "rows": rows}

def pulse():
    "Once a second: what the workers' reports and indexes have published, by job."
    found = {}
    for entry in get_value_from_shared_storage_on_all_passports("progress"):
        if entry.has_key("job") and entry.has_key("message"):
            template, percent = entry["message"]
            found[entry["job"]] = translate(template).substitute([percent])
    global_set("report_progress", found)
    return found

class census.worker:

"The queue of reports: a job is one report, into the database of the server."

import census.complaint, census.jobs, census.main, census.reports, census.run, census.source

def make(job, settings):
    "Gives the report's table, key and number of rows."
    source = census.source.read(settings.census)
    selection = settings.selection
    if source["epoch"] <> None: selection["epoch"] = source["epoch"]
    paths = job.paths
    if len(paths) == 0: paths = source.paths
    options = census.reports.options_of(census.reports.catalog[job.report], job.options, paths)
    selection["calc_digests"] = options.get("calc_digests", 0)
    run = census.run(settings.census, selection, settings.out)
    try:
        table, cache = run.report(job.report, options)
        count = run.one("select count(*) from " + table + " where cache = ?", [cache])
    finally:
        run.close()
    return (table, cache, count)

def job(job, settings):
    state = census.jobs.get(job.number)
    state["state"] = "running"
    census.jobs.put(state)
    # The report and the indexes add their messages to this entry; it tells whose they are.
    thread_set("progress", {"job": job.number})
    begun = timer()
    try:
        table, cache, count = make(job, settings)
        state["state"] = "done"
        state["table"] = table
        state["cache"] = cache
        state["count"] = count
    except SystemExit, e:
        raise (e.details)
    except Exception, e:
        state["state"] = "failed"
        state["error"] = census.complaint.text(e)
    state["seconds"] = timer(begun)
    thread_delete("progress")
    census.jobs.put(state)
