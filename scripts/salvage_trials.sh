#!/usr/bin/env bash
# Damages copies of a store in fixed ways and salvages each. Prints a table of the recovered rows and of
# those that are on sound pages; docs/reliability.md shows one. Fails if a row that is entirely on sound
# pages is missed. Usage: salvage_trials.sh [MESSAGES]
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install.sh build tools tests
folder=${CORVAN_TRIALS_FOLDER:-build/salvage-trials}
cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$folder" --target corvan salvage_trials >/dev/null

store=$folder/store
rm -rf "$store"
# Every hundredth message is longer than a page.
bash scripts/sample_log.sh "${1:-50000}" |
  awk 'NR % 100 == 0 { long = sprintf("%6000s", ""); gsub(/ /, "long ", long)
                       sub(/"content":"/, "&" long) } { print }' |
  "$folder/tools/corvan" import "$store" --user me -
"$folder/tests/tools/salvage_trials" "$folder/tools/corvan" "$store"
