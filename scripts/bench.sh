#!/usr/bin/env bash
# Installs missing packages, builds the benchmarks and runs them, in 10 to 20 minutes. Prints the
# environment and the tables; writes build/bench/results.json and pictures (SVG) beside it. Fails if
# a result is wrong or a bound is exceeded.
#
# Usage: bench.sh [--quick|--full] [NAME...]
#   --quick  the smallest sizes, without bounds on times: a test of the benchmarks in seconds
#   --full   also the largest sizes: ten million messages, an import of 400,000
#   NAME     only these: environment calls index_cost bytes growth floor instructions peers import
#            encryption search
# Stores are created in TMPDIR if it is set, otherwise in build/bench/stores. If build/sqlite has the
# amalgamation that scripts/sqlite.sh makes, both libraries are also measured on that SQLite. encryption
# fetches an SQLite with a cipher into build/sqlite-cipher and installs SQLCipher, unless they are there.
# search also measures on the logs in CORVAN_DATA_DIR, or else ../shared/data, if they are there.
set -euo pipefail
cd "$(dirname "$0")/.."

size=()
names=()
for argument in "$@"; do
  case "$argument" in
    --quick | --full) size=("$argument") ;;
    -*)
      echo "bench.sh: unknown option: $argument; usage: bench.sh [--quick|--full] [NAME...]" >&2
      exit 2
      ;;
    *) names+=("$argument") ;;
  esac
done
all=(environment calls index_cost bytes growth floor instructions peers import encryption search)
for name in "${names[@]}"; do
  if [[ " ${all[*]} " != *" $name "* ]]; then
    echo "bench.sh: unknown benchmark: $name; benchmarks: ${all[*]}" >&2
    exit 2
  fi
done
[ ${#names[@]} -gt 0 ] || names=("${all[@]}")

bash scripts/install.sh build tools bench
tool=OFF
[[ " ${names[*]} " != *" import "* ]] || tool=ON
amalgamation=
if [ -e build/sqlite/sqlite3.c ]; then
  amalgamation=$PWD/build/sqlite
else
  echo "bench.sh: no figures for a built SQLite; bash scripts/sqlite.sh makes what they need"
fi
cipher=
if [[ " ${names[*]} " == *" encryption "* ]]; then
  cipher=$PWD/build/sqlite-cipher
  bash scripts/sqlite.sh --cipher "$cipher"
  # Newer releases of Debian have another SQLCipher; its rows are for orientation.
  bash scripts/install.sh sqlcipher
fi
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DCORVAN_WERROR=ON \
  -DCORVAN_BUILD_BENCH=ON -DCORVAN_BUILD_TESTS=OFF -DCORVAN_BUILD_TOOLS=$tool \
  -DCORVAN_BUILD_EXAMPLES=OFF -DCORVAN_BENCH_AMALGAMATION="$amalgamation" \
  -DCORVAN_BENCH_CIPHER="$cipher" -DCORVAN_DATA_DIR="${CORVAN_DATA_DIR:-$PWD/../shared/data}"
cmake --build build/bench

programs=build/bench/bench
results=build/bench/results
rm -rf "$results"
mkdir -p "$results"

# On a disk: on a file system in memory, syncs would cost nothing.
stores=${TMPDIR:-$PWD/build/bench/stores}
mkdir -p "$stores"
memory=$stores
[ ! -w /dev/shm ] || memory=/dev/shm

# run NAME PROGRAM: writes the results to $results/NAME.json. Status 1 means that a bound was exceeded.
run() {
  local name=$1
  shift
  echo
  echo "== $name"
  local status=0
  TMPDIR=$stores "$@" "${size[@]}" --json "$results/$name.json" || status=$?
  [ "$status" -le 1 ] || exit "$status"
  [ "$status" = 0 ] || failed+=("$name")
}

failed=()
for name in "${names[@]}"; do
  case "$name" in
    environment) run environment $programs/environment ;;
    calls)
      echo
      echo "== calls"
      time=()
      [ "${size[*]}" != --quick ] || time=(--benchmark_min_time=0.01)
      TMPDIR=$stores $programs/store_bench "${time[@]}" --benchmark_out_format=json \
        --benchmark_out="$results/calls.json"
      ;;
    index_cost) run index_cost $programs/index_cost ;;
    # In memory, for speed: it counts bytes.
    bytes) stores=$memory run bytes $programs/write_volume ;;
    growth) run growth $programs/growth ;;
    # In memory: syncs on a disk would hide the difference.
    floor) stores=$memory run floor $programs/floor/floor_bench ;;
    instructions) run instructions $programs/floor/instruction_bench ;;
    peers) run peers $programs/peers/peers_bench ;;
    import) run import $programs/import_bench ;;
    encryption)
      folder=$stores
      [ "${size[*]}" != --quick ] || folder=$memory  # its thousands of syncs take long on a disk
      stores=$folder run encryption $programs/encryption/encryption_bench
      ;;
    search) run search $programs/search/search_bench ;;
  esac
done

jq -n 'reduce inputs as $part ({}; .[input_filename | split("/")[-1] | rtrimstr(".json")] = $part)' \
  "$results"/*.json >build/bench/results.json
bash bench/plots/plot.sh build/bench/results.json build/bench
echo
echo "Results: build/bench/results.json; pictures: build/bench/*.svg"
if [ ${#failed[@]} -gt 0 ]; then
  echo "bench.sh: bounds exceeded by: ${failed[*]}" >&2
  exit 1
fi
