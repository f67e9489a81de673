#!/usr/bin/env bash
# Installs missing packages, builds with warnings as errors and runs all tests.
#
# Usage: test.sh [--checked|--thorough]
#   --checked   also runs all tests under the address, undefined-behaviour and leak sanitizers, and the
#               threads suite, with and without the statement cache, under the thread sanitizer
#   --thorough  as --checked, and the random and exhaustive suites run longer: model and threads under
#               the sanitizers, the others without. Then the suites of the store run with encrypted
#               stores, and the tests of encryption run longer; sqlite.sh --cipher fetches the SQLite
set -euo pipefail
cd "$(dirname "$0")/.."

checked=
thorough=
case "${1:-}" in
  "") ;;
  --checked) checked=yes ;;
  --thorough) checked=yes thorough=yes ;;
  *)
    echo "test.sh: unknown option: $1; usage: test.sh [--checked|--thorough]" >&2
    exit 2
    ;;
esac

if [ -e build ] && [ ! -w build ]; then
  echo "test.sh: $PWD/build: owned by another user; remove it or make it writable" >&2
  exit 2
fi
bash scripts/install.sh build tools tests ${checked:+checkers}

# A unity build without debug information takes half the time; a failed test prints its line anyway.
# To debug: cmake --preset debug -DCMAKE_UNITY_BUILD=OFF -DCMAKE_CXX_FLAGS_DEBUG=-g
cmake --preset debug -DCMAKE_UNITY_BUILD=ON -DCMAKE_CXX_FLAGS_DEBUG=-O0
cmake --build --preset debug

# The model suite runs longer under the sanitizers, below.
echo "== tests, debug =="
CORVAN_BOUNDS=${thorough:+thorough} CORVAN_MODEL_SEQUENCES=300 ctest --preset debug
[ -n "$checked" ] || exit 0

echo "== tests, asan =="
cmake --preset asan -DCMAKE_UNITY_BUILD=ON
cmake --build --preset asan
CORVAN_MODEL_SEQUENCES=$([ -n "$thorough" ] && echo 5000 || echo 300) ctest --preset asan

echo "== threads, tsan =="
cmake --preset tsan
cmake --build --preset tsan --target threads_test threads_test_cached statement_cache_threads_test
CORVAN_BOUNDS=${thorough:+thorough} ctest --preset tsan -R threads_test
[ -n "$thorough" ] || exit 0

echo "== store, encrypted =="
bash scripts/sqlite.sh --cipher
cmake --preset debug -B build/encrypted -DCMAKE_UNITY_BUILD=ON -DCMAKE_CXX_FLAGS_DEBUG=-O0 \
  -DCORVAN_SQLITE_AMALGAMATION="$PWD/build/sqlite-cipher"
cmake --build build/encrypted
# Between the usual and the thorough bounds, which were tried above: this takes a few minutes more.
cd build/encrypted
CORVAN_TEST_ENCRYPTED=1 CORVAN_KILL_CYCLES=500 CORVAN_DAMAGE_POINTS=550 CORVAN_FAULT_SHARE=4 \
  ctest -L store --output-on-failure --no-tests=error -j 2
CORVAN_BOUNDS=thorough ctest -L keys --output-on-failure --no-tests=error -j 2
