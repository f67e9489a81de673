#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors and runs all tests; with an option also under
# the address, undefined-behaviour and leak checkers.
#
# Usage: test.sh [--thorough|--everything]
#   --thorough  all tests of the library plainly and under the checkers; the suites that try the store
#               at random or point by point go further, the one against the model under the checkers, the others plainly; the threads
#               also run under the checker of data races
#   --everything  the same, and the tests of the tool under the checkers
set -euo pipefail
cd "$(dirname "$0")/.."

thorough=
tool=OFF
case "${1:-}" in
  "") ;;
  --thorough) thorough=yes ;;
  --everything)
    thorough=yes
    tool=ON
    ;;
  *)
    echo "test.sh: unknown option: $1; usage: test.sh [--thorough|--everything]" >&2
    exit 2
    ;;
esac

if [ -e build ] && [ ! -w build ]; then
  echo "test.sh: $PWD/build: belongs to somebody else; remove it or make it writable" >&2
  exit 2
fi
bash scripts/install.sh build tools tests
# Debug information takes a fifth of the build, and a failed test names its line without. To debug:
# cmake --preset debug -DCMAKE_CXX_FLAGS_DEBUG=-g
cmake --preset debug -DCMAKE_CXX_FLAGS_DEBUG=-O0
cmake --build --preset debug --target all ${thorough:+long_tests}
if [ -z "$thorough" ]; then
  echo "== tests, debug =="
  ctest --preset debug
  exit
fi
cmake --preset asan -DCORVAN_BUILD_TOOLS="$tool"
cmake --build --preset asan --target all long_tests

echo "== tests, debug, every point =="
CORVAN_BOUNDS=thorough CORVAN_MODEL_SEQUENCES=300 ctest --preset debug
echo "== tests, asan, 5,000 sequences of operations =="
CORVAN_MODEL_SEQUENCES=5000 ctest --preset asan
echo "== threads, tsan =="
cmake --preset tsan
cmake --build --preset tsan --target threads_test
CORVAN_BOUNDS=thorough ctest --preset tsan -R threads_test
