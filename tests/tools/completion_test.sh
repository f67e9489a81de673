#!/usr/bin/env bash
# What bash completes after words of a command line. Usage: completion_test.sh SCRIPT PROGRAM
set -euo pipefail

# shellcheck source=tools/completion/corvan.bash
source "$1"
program=$2
failures=0

# The last word is the one being completed. expect "WORDS EXPECTED" WORD...
expect() {
  local expected=$1
  shift
  COMP_WORDS=("$program" "$@")
  COMP_CWORD=$#
  _corvan
  if [ "${COMPREPLY[*]}" != "$expected" ]; then
    echo "corvan $*: completed as \"${COMPREPLY[*]}\", not \"$expected\""
    failures=$((failures + 1))
  fi
}

expect "import" imp
expect "search search-index" sea
expect "search-index" search-
expect "--remove" search-index folder --r
expect "verify" ver
expect "--version" --v
expect "--ignore-case" search --ig
expect "--literal" search folder text --lit
expect "--limit" search folder text --lim
expect "private" search --type p
expect "html" export folder --format h
expect "latest" verify folder --repair la
expect "counters,latest" verify folder --repair counters,la
expect "rekey" --key-file my-key rek
expect "--passphrase" --pass
expect "--new-passphrase" rekey --new-p
(cd "$(dirname "$1")" && expect "corvan.bash" --key-file corvan.b && [ "$failures" = 0 ]) || failures=1
expect "" nothing --x
HOME=$(dirname "$2")
# shellcheck disable=SC2088 # as bash hands it on
program='~/'$(basename "$2")
expect "import" imp
if complete -p corvan | grep -q filenames; then
  echo "corvan: commands are completed as names of files"
  failures=$((failures + 1))
fi
[ "$failures" = 0 ]
echo "completion: as expected"
