#!/usr/bin/env bash
# Installs what is missing, builds the fuzzers and runs each for SECONDS (120 unless given), on a
# copy of its corpus under build/fuzz/corpus that gathers new inputs from run to run. Prints one line
# a fuzzer: runs, new corpus files, crashes. A crash fails the script; its input is kept and named.
#
# Usage: fuzz.sh [--regression] [SECONDS]
#   --regression  runs the corpus that the project keeps and nothing else, within ten seconds
set -euo pipefail
cd "$(dirname "$0")/.."

regression=
seconds=120
for argument in "$@"; do
  case "$argument" in
    --regression) regression=yes ;;
    *[!0-9]* | "" | 0)
      echo "fuzz.sh: not understood: $argument; usage: fuzz.sh [--regression] [SECONDS]" >&2
      exit 2
      ;;
    *) seconds=$argument ;;
  esac
done

bash scripts/install.sh build tools tests fuzz
cmake --preset fuzz
cmake --build --preset fuzz

out=build/fuzz
mkdir -p "$out/crashes"
export ASAN_OPTIONS=detect_stack_use_after_return=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}

# The stores lie in memory where there is room, and go with the script.
memory=${TMPDIR:-/tmp}
[ ! -w /dev/shm ] || memory=/dev/shm
TMPDIR=$(mktemp -d "$memory/corvan-fuzz-XXXXXX")
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

files() {
  find "$1" -type f | wc -l
}

# run NAME FUZZER LONGEST: one fuzzer on tests/fuzz/corpus/NAME, with inputs of up to LONGEST bytes.
run() {
  local name=$1 fuzzer=$out/tests/fuzz/$2 log=$out/$1.log
  local corpus=tests/fuzz/corpus/$name
  local options=(-max_len="$3" -timeout=30 -rss_limit_mb=2048 -malloc_limit_mb=64)
  options+=(-print_final_stats=1 -artifact_prefix="$out/crashes/$name-")
  if [ -n "$regression" ]; then
    options+=(-runs=0)
  else
    mkdir -p "$out/corpus/$name"
    cp "$corpus"/* "$out/corpus/$name/"
    corpus=$out/corpus/$name
    options+=(-max_total_time="$seconds")
  fi
  local before status=0
  before=$(files "$corpus")
  touch "$log.start"
  "$fuzzer" "${options[@]}" "$corpus" >"$log" 2>&1 || status=$?

  local runs crashes
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  crashes=$(find "$out/crashes" -name "$name-*" ! -name '*-slow-unit-*' -newer "$log.start")
  rm "$log.start"
  echo "$name: ${runs:-an unknown number of} runs, $(($(files "$corpus") - before)) new corpus" \
    "files, $(grep -c . <<<"$crashes" || true) crashes"
  [ "$status" != 0 ] || return 0
  failed=yes
  echo "fuzz.sh: $2 failed; input: ${crashes:-none was kept}; what it said: $log" >&2
  grep -v -E '^(#|INFO)' "$log" | cut -c 1-500 | head -n 60 >&2
}

failed=
run operations fuzz_operations 600
run import fuzz_import_line 4096
[ -z "$failed" ]
