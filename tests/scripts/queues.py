# Queues in a run that never releases its workers: names, settings, figures, errors. The log's object.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import ipe.thread
import ipe.logger

def figures(name):
    row = ipe.thread.queue()[name]
    return [row.priority, row.threads, row.waiting, row.entered]

same("no queues", ipe.thread.queue(), {})
fault("missing", "RuntimeError: Queue does not exist", ipe.thread.queue, "jobs")
fault("settings", "TypeError: Require a 'DictType' but given a 'IntType'", ipe.thread.queue, "jobs", 1)
fault("name", "TypeError: Index 0 requires StringType arguments, IntType given", ipe.thread.queue, 1)

jobs = ipe.thread.queue("jobs", {"module": "work"})
same("figures at first", figures("jobs"), [0, 0, 0, 0])
fault_class("no job", "TypeError", jobs.enqueue)
fault_class("no number", "TypeError", jobs.set_threads, "two")
fault_class("no word", "TypeError", jobs.set_priority, 1)

job = {"list": [1]}
jobs.enqueue(job)
jobs.enqueue(None)
ipe.thread.queue("jobs", {"module": "other"}).enqueue("the same queue")
same("waiting", figures("jobs"), [0, 0, 3, 3])
for word, priority in [("highest", 2), ("higher", 1), ("lower", -1), ("lowest", -2), ("normal", 0), ("sideways", 0)]:
    jobs.set_priority(word)
    same(word, figures("jobs")[0], priority)

jobs.set_threads(0)
same("at least one", figures("jobs"), [0, 1, 3, 3])
jobs.set_threads(65)
same("at most 64", figures("jobs"), [0, 64, 3, 3])
jobs.set_threads(62)
same("ends are queued", figures("jobs"), [0, 64, 5, 5])

def set_attribute(object):
    object.mine = 1

fault_class("queues are shared", "TypeError", set_attribute, jobs)
fault_class("so is the log", "TypeError", set_attribute, ipe.logger.get())
fault_class("a record", "TypeError", ipe.logger.get().addrecord)
same("names", len(ipe.thread.queue().keys()), 1)
