#!/usr/bin/env bash
# Writes the manual page of the tool to standard output. What it says of the commands is what the
# program says itself, so the page is made anew when a help text changes; a test compares the two.
#
# Usage: man.sh PROGRAM > docs/man/corvan.1
set -euo pipefail

if [ $# != 1 ] || ! program=$(command -v "$1"); then
  echo "man.sh: usage: man.sh PROGRAM, the corvan that was built" >&2
  exit 2
fi

# The texts of --help as roff: a paragraph for each option, the other lines as they stand.
roff() {
  sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^\\([.']\\)/\\\\\\&\\1/"
}

help_of() {
  COLUMNS=80 "$program" "$@" --help
}

command_names() {
  help_of | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'
}

cat <<'HEAD'
.TH CORVAN 1 "" "Corvan message store" "User Commands"
.SH NAME
corvan \- look into, check, repair and rescue message stores
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
a negative answer, which the command tells of
.TP
.B 2
bad usage, bad input, a store that cannot be read or written, or output that cannot be written; what was
done all the same is said on standard error
.SH ENVIRONMENT
.TP
.B TMPDIR
where copies for looking are made; they take as much room as the store
.TP
.B SQLITE_TMPDIR
where SQLite makes its temporary files, before TMPDIR
.SH EXAMPLES
.TP
.B corvan backup FOLDER safe
before anything else, a copy of a store with its log inside
.TP
.B corvan verify FOLDER
what is wrong with its rows, counters and schema
.TP
.B corvan verify FOLDER \-\-repair counters \-\-dry\-run
what mending the counters would change
.TP
.B corvan salvage damaged/corvan rescued
what can still be read of a damaged file, in a new store
.TP
.B corvan export FOLDER \-\-format html \-\-output pages
the conversations as pages for a browser
.SH NOTES
Opening a store with the library marks messages that are being sent as failed, and deletes a file that
SQLite calls damaged. The commands that look work on a copy and do neither.
TAIL
