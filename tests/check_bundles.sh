#!/usr/bin/env bash
# Servers that start from bundles: what tools/bundle.py packs is what runs, and which bundle wins. usage: SOURCE BUILD
. "$(dirname "$0")/checks.sh"
export LC_ALL=C.UTF-8 TZ=Europe/Berlin
app=$work/app/bin
own_server "$app"
mkdir "$work/app/ipe"
printf 'class startup:\n\nout = open("/dev/stderr", "a")\nout.write("from source " + global_get("startup_type"))\nout.close()\nsys_exit()\n' \
  >"$work/app/ipe/startup.py"

bundle() { "$server" "$@" --custom "$source_dir/tools/bundle.py" 2>&1 </dev/null; }
serve() { timeout 60 "$server" --standalone "$@" 2>&1 </dev/null; }

module() { # FILE TEXT: a bundle with a start-up module that says the text, made a while ago
  mkdir -p "$work/src"
  printf 'class startup:\n\nout = open("/dev/stderr", "a")\nout.write("%s " + global_get("startup_type"))\nout.close()\nsys_exit()\n' "$2" \
    >"$work/src/startup.py"
  bundle --output "$app/$1" --source "$work/src/startup.py" >/dev/null
  touch -d '2020-01-02 03:04:05' "$app/$1"
}

# --- Which one runs
same "no bundle" "$(serve)" "from source py"
module b.dat second
module c.dat third
module a.dat first
same "of one age, the later name" "$(serve)" "third dat"
touch -d '2020-01-02 03:04:06' "$app/a.dat"
same "the newest" "$(serve)" "first dat"
rm "$app"/?.dat

# --- Nothing in it
cat >"$work/empty.py" <<'END'
class startup_custom:

import smf.writer

def text(name):
    return {"type": 0, "name": name, "tags": {"Format": "S"}}

def store(path, rows):
    writer = smf.writer.create()
    writer.open(path)
    modules = writer.table("modules", ({"size": 4096, "zero": 10}, [text("source")]))
    for row in rows:
        modules.append([row])
    writer.table("resources", ({"size": 4096, "zero": 10}, [text("name"), text("hash"), text("base")]))
    writer.close()

store("empty.dat", [])
store("faulty.data", ["{'module': 'one', 'tokens': []}", "{'module': "])
END
"$server" --custom "$work/empty.py" </dev/null
same "empty tables" "$(serve | tr -d '\n')" "ImportError: startup"
module full.dat full
same "an empty bundle beside another" "$(serve)" "full dat"
rm "$app"/*.dat

# --- Damage
module good.dat good
printf 'no store at all' >"$app/bad.dat"
same "a damaged bundle" "$(serve | head -2)" "$(printf 'DatabaseError: The database has a corrupt header\n%s/bad.dat (0)' "$app")"
same "--custom reads none" "$("$server" --custom "$work/empty.py" 2>&1 </dev/null)" ""
mv "$app/faulty.data" "$app/bad.dat"
rm -f "$app/empty.dat"
same "a faulty module names its record" "$(serve | grep -c "^$app/bad.dat (2)$")" 1
rm "$app"/*.dat

# --- Resources
mkdir -p "$work/res/deep"
head -c 70000 /dev/urandom >"$work/res/Logo.PNG"
: >"$work/res/deep/Größe.txt"
cat >"$work/src/startup.py" <<'END'
class startup:

out = open("/dev/stderr", "a")
out.write(global_get("__resource_names"))
for key in global_get("__resource_values").keys("A"):
    out.write("\n" + key + " " + global_get("__resource_hashes")[key] + " " + global_get("__resource_values")[key])
out.close()
sys_exit()
END
same "packing says what it packed" "$(bundle --output "$app/app.dat" --source "$work/src" --resource "$work/res")" \
  "$app/app.dat: 1 modules, 2 resources"
sum() { sha1sum <"$1" | cut -d' ' -f1; }
same "resources" "$(serve | tr -d '\r')" "$(printf "['Logo.PNG', 'deep/Größe.txt']\ndeep/größe.txt %s \nlogo.png %s %s" \
  "$(sum "$work/res/deep/Größe.txt")" "$(sum "$work/res/Logo.PNG")" "$(base64 -w0 "$work/res/Logo.PNG")")"
printf 'newer' >"$work/res/LOGO.png"
bundle --output "$app/more.dat" --resource "$work/res/LOGO.png" >/dev/null
touch -d '2020-01-01' "$app/app.dat"
same "a newer resource of the same name" "$(serve | tail -1)" "logo.png $(printf newer | sha1sum | cut -d' ' -f1) bmV3ZXI="
same "both names are listed" "$(serve | head -1)" "['Logo.PNG', 'deep/Größe.txt', 'LOGO.png']"
rm "$app"/*.dat

# --- The demo of the language, from source and from bundles
"$server" --top 5 --dir /usr/include --custom "$source_dir/ipe/usage.py" >"$work/want" </dev/null
for pack in "" --pack; do
  bundle --output "$app/demo.dat" $pack --source "$source_dir/ipe" >/dev/null
  "$server" --standalone --usage --top 5 --dir /usr/include >"$work/got" 2>"$work/notes" </dev/null
  same "the exit code from a bundle $pack" "$?" 0
  same "the usage report from a bundle $pack" "$(cat "$work/got")" "$(cat "$work/want")"
  same "serving from a bundle $pack" "$(serve --once | tail -1)" "quillsrv ends on request"
done

# --- The command line of the tool
wrong() { # WHAT PATTERN ARGUMENTS...
  local what=$1 pattern=$2
  shift 2
  says "$what" 2 "$pattern" bundle "$@"
}
wrong "no arguments" "^usage: quillsrv --output"
wrong "an unknown option" "unknown option '--outptu'" --outptu "$app/x.dat"
wrong "another ending" "ends in .dat" --output "$app/x.zip" --source "$work/src"
wrong "a missing source" "No such file or directory: '$work/absent'" --output "$app/x.dat" --source "$work/absent"
wrong "a module twice" "the module startup stands in startup.py and in startup.py" --output "$app/x.dat" \
  --source "$work/src" --source "$work/src"
same "nothing is left of a failure" "$(cd "$app" && ls)" "$(printf 'demo.dat\nquillsrv')"

[ "$failed" -eq 0 ] && echo "bundles run as their sources do"
exit "$failed"
