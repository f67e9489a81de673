#!/usr/bin/env bash
# Installs missing packages, builds the tool, imports a conversation log into a new store and shows its
# content. Usage: demo.sh [--user ID] [FILE...]
# Without FILE, imports a generated log. The default user is "me".
set -euo pipefail

user=me
if [ "${1:-}" = --user ]; then
  [ $# -ge 2 ] || { echo "demo.sh: --user needs an id" >&2; exit 2; }
  user=$2
  shift 2
fi
files=()
for file in "$@"; do
  [ -r "$file" ] || { echo "demo.sh: $file: cannot be read" >&2; exit 2; }
  files+=("$(realpath "$file")")
done
cd "$(dirname "$0")/.."

if [ -e build ] && [ ! -w build ]; then
  echo "demo.sh: $PWD/build: owned by another user; remove it or make it writable" >&2
  exit 2
fi
bash scripts/install.sh build tools
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DCORVAN_BUILD_TESTS=OFF
cmake --build build/demo --target corvan
corvan=build/demo/tools/corvan
store=build/demo/store

rm -rf "$store"
mkdir -p "$store"
if [ ${#files[@]} = 0 ]; then
  bash scripts/sample_log.sh >build/demo/sample.jsonl
  files=(build/demo/sample.jsonl)
fi

show() {
  printf '\n$ %s\n' "$*"
  "$@"
}
show "$corvan" import "$store" --user "$user" "${files[@]}"
show "$corvan" list "$store" --limit 12
newest=$("$corvan" list "$store" --limit 1 --json)
session=$(sed -n 's/^    "session_id": "\(.*\)",$/\1/p' <<<"$newest" | head -n 1)
kind=$(sed -n 's/^    "session_type": \(.*\),$/\1/p' <<<"$newest" | head -n 1)
# Skip ids that JSON escapes: sed does not unescape them.
if [ -n "$session" ] && [[ "$session" != *\\* ]]; then
  show "$corvan" history "$store" "$session" --type "$kind" --limit 8
fi
show "$corvan" unread "$store"
show "$corvan" check "$store"
show "$corvan" verify "$store"
show "$corvan" stats "$store" --limit 3
rm -rf build/demo/pages
show "$corvan" export "$store" --format html --output build/demo/pages
printf '\nTo read the conversations, open %s/build/demo/pages/index.html in a browser.\n' "$PWD"
