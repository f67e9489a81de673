#!/usr/bin/env bash
# Checks that two builds of the program store_exchange read each other's stores alike: each writes a store,
# closed and with an open write-ahead log, and both read a copy of it. What they print must be the same,
# whoever wrote and read. Prints the numbers of rows.
#
# Usage: exchange.sh FOLDER COMMAND... -- COMMAND...
#   FOLDER   is deleted and created again; the stores and what was printed stay in it
#   COMMAND  the program, with an emulator before it if it needs one
set -euo pipefail

fail() {
  echo "exchange.sh: $*" >&2
  exit 1
}
usage() {
  echo "usage: exchange.sh FOLDER COMMAND... -- COMMAND..." >&2
  exit 2
}
[ $# -ge 4 ] || usage
folder=$1
shift
first=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
  first+=("$1")
  shift
done
[ $# -ge 2 ] && [ ${#first[@]} -gt 0 ] || usage
# shellcheck disable=SC2034  # run() takes it by its name
second=("${@:2}")

# run first|second ARGUMENT...
run() {
  local -n command=$1
  "${command[@]}" "${@:2}" || fail "failed: ${command[*]} ${*:2}"
}

rm -rf "$folder"
mkdir -p "$folder"
printed=()
for writer in first second; do
  for how in write write-open; do
    store="$folder/$writer $how 消息 📨"
    run "$writer" "$how" "$store"
    case "$how" in
      write) [ ! -e "$store/corvan-wal" ] || fail "$store: the store was not closed" ;;
      write-open) [ -s "$store/corvan-wal" ] || fail "$store: no write-ahead log" ;;
    esac
    for reader in first second; do
      copy="$store, $reader"
      cp -r "$store" "$copy"
      run "$reader" print "$copy" "$copy.txt"
      printed+=("$copy.txt")
    done
  done
done

for file in "${printed[@]:1}"; do
  diff "${printed[0]}" "$file" >"$folder/differences" ||
    { head -n 20 "$folder/differences" >&2; fail "different: ${printed[0]} (<) and $file (>)"; }
done
counts=()
for table in t_message t_session t_sync t_version; do
  counts+=("$(grep -c "^$table: " "${printed[0]}" || true) $table")
done
printf -v text '%s, ' "${counts[@]}"
echo "exchange.sh: equal: ${text%, }"
