#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors and runs all tests, plainly and under the
# address, undefined-behaviour and leak checkers.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ -e build ] && [ ! -w build ]; then
  echo "test.sh: $PWD/build: belongs to somebody else; remove it or make it writable" >&2
  exit 2
fi
bash scripts/install.sh build tools tests
for preset in debug asan; do
  cmake --preset "$preset"
  cmake --build --preset "$preset"
done
for preset in debug asan; do
  echo "== tests, $preset =="
  ctest --preset "$preset"
done
