# What lies where in a folder tree: the largest files, totals by extension, owner, year and first-level tree.
#
#     quillsrv [--top N] [--dir FOLDER] --custom ipe/usage.py
#
# The text behind --custom is the script's path to the end of the line, so the options stand before it. Exit code:
# 0, 1 when a folder could not be read, 2 when there is nothing to report on.

class startup_custom:

def beside():
    "The folder of this source file, with its separator."
    parts = beside.source[0].replace("\\", "/").split("/")
    del parts[len(parts) - 1]
    parts.append("")
    return parts.join("/")

for name in ["usage_options", "usage_output", "usage_accounts", "usage_walk", "usage_report"]:
    interpreter("load", beside() + name + ".py")

import usage.options, usage.output, usage.walk, usage.report

def write(text):
    "What print calls: lines end as they do on this system."
    file.write(text.replace("\r\n", "\n"))

def main():
    out = usage.output()
    _G.file = out.file
    _B.__stdout__ = write
    try:
        options = usage.options.read(global_get("__program_args"))
        walk = usage.walk(options.folder, options.top, out)
    except UsageError, e:
        out.complain(e.decode)
        global_set("__rc", 2)
        return
    walk.run()
    out.clear_progress()
    usage.report.show(walk, options)
    if len(walk.unreadable) > 0: global_set("__rc", 1)
    out.close()

main()
