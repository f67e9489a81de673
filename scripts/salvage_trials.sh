#!/usr/bin/env bash
# Makes a store, damages it in fixed ways and salvages each: prints a table of what came back
# against what the sound pages hold; docs/reliability.md shows one. Fails when a row is missed that
# lies on sound pages alone. Usage: salvage_trials.sh [MESSAGES]
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
