#!/usr/bin/env bash
# Installs what is missing, builds the fuzzers and runs each for SECONDS (default 120). Each works on a
# copy of its seeds, build/fuzz/corpus, which keeps the inputs that it finds from run to run. Prints one
# line per fuzzer: runs, new corpus files, crashes. If a fuzzer crashes, the script fails, keeps the input
# and prints its name. The test fuzz_corpus_test runs the seeds without a fuzzer.
#
# Usage: fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-120}
case "$seconds" in
  *[!0-9]* | "" | 0)
    echo "fuzz.sh: not a number of seconds: $seconds; usage: fuzz.sh [SECONDS]" >&2
    exit 2
    ;;
esac

bash scripts/install.sh build tools tests fuzz
cmake --preset fuzz
cmake --build --preset fuzz

out=build/fuzz
mkdir -p "$out/crashes"
export ASAN_OPTIONS=detect_stack_use_after_return=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}

# Stores are kept in memory where that is possible, and removed when the script ends.
memory=${TMPDIR:-/tmp}
[ ! -w /dev/shm ] || memory=/dev/shm
TMPDIR=$(mktemp -d "$memory/corvan-fuzz-XXXXXX")
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

files() {
  find "$1" -type f | wc -l
}

# run NAME FUZZER LONGEST: runs one fuzzer with the seeds of tests/fuzz/corpus/NAME. LONGEST limits the
# size of its inputs, in bytes.
run() {
  local name=$1 fuzzer=$out/tests/fuzz/$2 log=$out/$1.log
  local corpus=$out/corpus/$name
  local options=(-max_len="$3" -timeout=30 -rss_limit_mb=2048 -malloc_limit_mb=64)
  options+=(-print_final_stats=1 -artifact_prefix="$out/crashes/$name-")
  options+=(-max_total_time="$seconds")
  mkdir -p "$corpus"
  cp "tests/fuzz/corpus/$name"/* "$corpus/"
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
  echo "fuzz.sh: $2 failed; input: ${crashes:-none was kept}; its output: $log" >&2
  grep -v -E '^(#|INFO)' "$log" | cut -c 1-500 | head -n 60 >&2
}

failed=
run operations fuzz_operations 600
run import fuzz_import_line 4096
run search_query fuzz_search_query 1024
run search_tokenizer fuzz_search_tokenizer 1024
[ -z "$failed" ]
