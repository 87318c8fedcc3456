# Reports on a census:  quillsrv OPTIONS --custom ipe/report.py
#
# quillsrv --help --custom ipe/report.py, or the manual page quillsrv-report(1), lists the options. The program is
#
#   census_main        options, census, reports, tables
#   census_options     the command line, and which options reports have
#   census_source      what was scanned
#   census_host        what the census code asks of the application: schema scripts, columns, users
#   census_reports     the reports, with sensible options
#   census_run         runs a report into a database, or finds what an earlier run has left there
#   census_statement   what a report writes through
#   census_show        tables as text, CSV and JSON
#   census_console     standard output, progress on a terminal
#   census_complaint   what a user is told of an exception

class startup_custom:

def beside():
    "The folder of this source file, with its separator."
    parts = beside.source[0].replace("\\", "/").split("/")
    del parts[len(parts) - 1]
    parts.append("")
    return parts.join("/")

for time, name, size in fs("ls_files", beside() + "census_*.py"):
    interpreter("load", beside() + name)

import census.main
census.main.run()
