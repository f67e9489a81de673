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
expect "search" sea
expect "verify" ver
expect "--version" --v
expect "--ignore-case" search --ig
expect "--limit" search folder text --lim
expect "private" search --type p
expect "html" export folder --format h
expect "" nothing --x
[ "$failures" = 0 ]
echo "completion: as expected"
