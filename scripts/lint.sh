#!/usr/bin/env bash
# Checks the format of all sources, and the code of the library and the tool with clang-tidy.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install.sh build tools tests lint
git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror
cmake --preset clang
git ls-files 'base/*.cpp' 'db/*.cpp' 'tools/*.cpp' |
  xargs -P 2 -n 1 clang-tidy -p build/clang --quiet --warnings-as-errors='*'
