#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors and runs all tests; with an option also under
# the checkers of addresses, undefined behaviour, leaks and data races.
#
# Usage: test.sh [--checked|--thorough]
#   --checked   all tests plainly and under the first three checkers; the threads under the last
#   --thorough  the same, and the suites that try the store at random or point by point go further:
#               the one against the model and the threads under the checkers, the others plainly
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
  echo "test.sh: $PWD/build: belongs to somebody else; remove it or make it writable" >&2
  exit 2
fi
bash scripts/install.sh build tools tests ${checked:+checkers}

# Several files at once, and without debug information: it halves the time, and a failed test names
# its line anyway. To debug: cmake --preset debug -DCMAKE_UNITY_BUILD=OFF -DCMAKE_CXX_FLAGS_DEBUG=-g
cmake --preset debug -DCMAKE_UNITY_BUILD=ON -DCMAKE_CXX_FLAGS_DEBUG=-O0
cmake --build --preset debug

# The suite against the model goes further where the checkers watch it.
echo "== tests, debug =="
CORVAN_BOUNDS=${thorough:+thorough} CORVAN_MODEL_SEQUENCES=300 ctest --preset debug
[ -n "$checked" ] || exit 0

echo "== tests, asan =="
cmake --preset asan -DCMAKE_UNITY_BUILD=ON
cmake --build --preset asan
CORVAN_MODEL_SEQUENCES=$([ -n "$thorough" ] && echo 5000 || echo 300) ctest --preset asan

echo "== threads, tsan =="
cmake --preset tsan
cmake --build --preset tsan --target threads_test
CORVAN_BOUNDS=${thorough:+thorough} ctest --preset tsan -R threads_test
