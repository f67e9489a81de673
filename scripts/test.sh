#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors and runs all tests, plainly and under the
# address, undefined-behaviour and leak checkers.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install.sh build tools tests
for preset in debug asan; do
  cmake --preset "$preset"
  cmake --build --preset "$preset"
done
for preset in debug asan; do
  echo "== tests, $preset =="
  ctest --preset "$preset"
done
