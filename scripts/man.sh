#!/usr/bin/env bash
# Writes the manual page of the tool to FILE. The page consists of the program's own help texts.
#
# Usage: man.sh PROGRAM FILE
set -euo pipefail

if [ $# != 2 ] || ! program=$(command -v "$1"); then
  echo "man.sh: usage: man.sh PROGRAM FILE; PROGRAM is the corvan that was built" >&2
  exit 2
fi
trap 'rm -f "$2.new"' EXIT
exec 3>&1 >"$2.new"

# Escapes plain text for roff.
roff() {
  sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^\\([.']\\)/\\\\\\&\\1/"
}

help_of() {
  COLUMNS=80 "$program" "$@" --help
}

command_names() {
  help_of | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'
}

cat <<'HEAD'
.TH CORVAN 1 "" "Corvan message store" "User Commands"
.SH NAME
corvan \- inspect, check, repair and rescue message stores
.SH SYNOPSIS
.B corvan
.I COMMAND
.RI [ OPTION ...]
.I FOLDER
.RI [ ARGUMENT ...]
.SH DESCRIPTION
HEAD
help_of | sed -n '1p' | roff
cat <<'TEXT'
.PP
A store is one SQLite file named
.I corvan
with its write\-ahead log
.I corvan\-wal
beside it.
TEXT
help_of | sed -n '/^Subcommands:/,$p' | sed '1,/^$/d' | roff
echo ".SH COMMANDS"
for command in $(command_names); do
  help_of "$command" | roff | awk -v command="$command" '
    /^Usage: / { sub(/^Usage: /, ""); sub(/ \\\[OPTIONS\]/, " [OPTIONS]"); usage = $0; next }
    NR == 1 { summary = $0; next }
    /^(Positionals|Options):$/ { in_list = 1; next }
    /^$/ { in_list = 0; if (footer != "") footer = footer "\n"; next }
    in_list && /^  [^ ]/ {
      name = $0; sub(/^  /, "", name); text = name
      if (match(name, /   */)) { text = substr(name, RSTART + RLENGTH); name = substr(name, 1, RSTART - 1) }
      else text = ""
      list = list ".TP\n.B " name "\n" (text == "" ? "" : text "\n"); next
    }
    in_list { sub(/^ */, ""); list = list $0 "\n"; next }
    { footer = footer $0 "\n" }
    END {
      sub(/\n*$/, "", footer)
      printf ".SS %s\n%s.\n.PP\n.B %s\n%s.PP\n.nf\n%s\n.fi\n", command, summary, usage, list, footer
    }'
done
cat <<'TAIL'
.SH EXIT STATUS
.TP
.B 0
success
.TP
.B 1
a negative answer, as each command describes
.TP
.B 2
bad usage, bad input, a store that cannot be read or written, or output that cannot be written. If
something was changed or created nevertheless, standard error says what
.SH ENVIRONMENT
.TP
.B TMPDIR
folder for temporary copies of stores; they take as much room as the store
.TP
.B SQLITE_TMPDIR
folder for temporary files of SQLite; used in preference to TMPDIR
.SH EXAMPLES
.TP
.B corvan backup FOLDER safe
copy a store, with the contents of its log in the one file; do this before anything else
.TP
.B corvan verify FOLDER
check its rows, counters and schema
.TP
.B corvan verify FOLDER \-\-repair counters \-\-dry\-run
show which counters a repair would change
.TP
.B corvan salvage damaged/corvan rescued
copy everything that can still be read in a damaged file into a new store
.TP
.B corvan export FOLDER \-\-format html \-\-output pages
write the conversations as pages for a browser
.SH NOTES
Opening a store with the library marks messages that are being sent as failed, and deletes a file that
SQLite reports as damaged. Commands that only read work on a copy and do neither.
TAIL
exec >&3
mv "$2.new" "$2"
