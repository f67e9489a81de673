#!/usr/bin/env bash
# Installs what is missing, builds the benchmarks and runs them; arguments are those of Google
# Benchmark, such as --benchmark_filter=save. Stores lie in the folder that TMPDIR names.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install.sh build bench
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DCORVAN_WERROR=ON \
  -DCORVAN_BUILD_BENCH=ON -DCORVAN_BUILD_TESTS=OFF -DCORVAN_BUILD_TOOLS=OFF
cmake --build build/bench
build/bench/bench/store_bench "$@"
