# Reports on a census:  quillsrv OPTIONS --custom ipe/report.py
#
# quillsrv --help --custom ipe/report.py, or the manual page quillsrv-report(1), lists the options.

class startup_custom:

usage = """usage: quillsrv --census FILE [OPTION]... --custom report.py

Reports on a census that quillscan has written. Without --out the results go to
standard output alone.

  --census FILE        the census
  --report NAME        a report, or several with commas between; "all" (the
                       default) runs every one with sensible options
  --list               lists the reports
  --path PATH          a folder to report on; repeat it for more. Default: all
                       roots of the scan
  --filter QUERY       takes only rows that pass, such as "Size >= 5MB"
  --count N            rows wanted, 1 to 100000 (default 200)
  --field NAME         what the report measures, such as Space
  --set KEY=VALUE      any further option of the report
  --epoch SECONDS      the moment from which "within" counts back
  --digests            adds digests to the summaries
  --hide-paths         masks the names of folders from the fifth level on
  --hide-users         masks users and groups
  --base TEXT          stands in front of all paths, such as a server's name
  --out FILE           a SQLite database that keeps the tables; what stands
                       there already is not worked out again
  --top N              rows to print of each table (default 15)
  --csv, --json        prints all rows of one report in that form
  --quiet              prints no tables
  --help        prints this text

Exit codes: 0 done, 1 a report failed, 2 the command line is wrong.
"""

def beside():
    "The folder of this source file, with its separator."
    parts = beside.source[0].replace("\\", "/").split("/")
    del parts[len(parts) - 1]
    parts.append("")
    return parts.join("/")

for name in ["census_host", "census_reports", "census_statement", "census_run", "census_show", "census_console", "census_options", "census_main"]:
    interpreter("load", beside() + name + ".py")

import census.main
census.main.run(usage)
