# What lies where in a folder tree: the largest files, totals by extension, owner, year and first-level tree.
#
#     quillsrv [--top N] [--dir FOLDER] [--store FILE [--rescan]] --custom ipe/usage.py
#
# With --store the walk is kept in FILE, and the next report is made from FILE alone; --rescan walks again and replaces
# it. The text behind --custom is the script's path to the end of the line, so the options stand before it. Exit code:
# 0, 1 when a folder could not be read, 2 when there is nothing to report on.

class startup_custom:

def beside():
    "The folder of this source file, with its separator."
    parts = beside.source[0].replace("\\", "/").split("/")
    del parts[len(parts) - 1]
    parts.append("")
    return parts.join("/")

for name in ["usage_options", "usage_output", "usage_accounts", "usage_store", "usage_walk", "usage_report", "usage_main"]:
    interpreter("load", beside() + name + ".py")

import usage.main
usage.main.run()
