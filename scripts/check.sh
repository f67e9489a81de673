#!/usr/bin/env bash
# Checks everything that needs no run of the tests: one line a check, and below it what to mend.
#
# Usage: check.sh [NAME...]; without a name all of them:
#   format     the layout of every C++ file
#   scripts    the syntax of every script, and shellcheck's warnings
#   includes   every include of base/, db/, addons/ and tools/ points downwards
#   links      the relative links and headings in the documents
#   reference  the reference of the headers, without a warning
#   headers    every header compiles alone, with g++ and with clang++
#   cppcheck   cppcheck on the library, the tool and the examples
#   tidy       clang-tidy on the same; its search for paths that fail, which takes the longest, skips a
#              file while nothing that it includes has changed since it passed
set -euo pipefail
cd "$(dirname "$0")/.."

results=build/check
export results

# The files of the project that match: also those not committed yet, but none that has been removed.
files() {
  git ls-files --cached --others --exclude-standard "$@" | sort -u |
    while IFS= read -r file; do [ ! -e "$file" ] || printf '%s\n' "$file"; done
}

check_format() { files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror; }

check_scripts() {
  local script
  files '*.sh' .ci/run | while read -r script; do bash -n "$script" || exit 1; done
  # SC1090: the mutants' script reads what it has written itself.
  files '*.sh' .ci/run | xargs shellcheck --severity=warning --exclude=SC1090
}

check_includes() {
  files 'base/*.h' 'base/*.cpp' 'db/*.h' 'db/*.cpp' 'addons/*.h' 'addons/*.cpp' 'tools/*.h' 'tools/*.cpp' |
    xargs awk -f scripts/includes.awk
}

check_links() { files '*.md' | xargs awk -f scripts/links.awk; }

check_reference() { bash scripts/docs.sh; }

# What each file is compiled with, and the headers that CMake makes. Without precompiled headers, which
# only the compiler that made them reads.
configure() {
  cmake --preset clang -B "$results/clang" -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
    >"$results/configure.log" 2>&1 || { cat "$results/configure.log"; return 1; }
}

# A header that a unit of its name includes before all else is compiled alone whenever that unit is.
is_first_in_its_unit() {
  local unit=${1%.h}.cpp
  [ -e "$unit" ] && [ "$(grep -m 1 '^#include' "$unit")" = "#include \"$1\"" ]
}

check_headers() {
  configure
  local headers
  headers=$(files 'base/*.h' 'db/*.h' 'tools/*.h' 'examples/*.h' |
    while read -r header; do is_first_in_its_unit "$header" || echo "$header"; done)
  for compiler in g++ clang++; do
    xargs -P 2 -I{} "$compiler" -std=c++17 -fsyntax-only -Wall -Wextra -Werror -I. \
      -I"$results/clang/include" -include {} -x c++ /dev/null <<<"$headers"
  done
}

check_cppcheck() {
  files 'base/*.cpp' 'db/*.cpp' 'tools/*.cpp' 'examples/*.cpp' |
    xargs cppcheck --quiet --std=c++17 --language=c++ --enable=style,performance,portability \
      --suppressions-list=scripts/cppcheck.txt --inline-suppr --error-exitcode=1 -I . -j 2
}

# Looks for paths that fail, a file at a time, unless all that it reads is as it was when it last passed.
analyze() {
  local file=$1
  local stamp=$results/tidy/${file//\//_}
  local now
  now=$({ clang++ -E -C -std=c++17 -I. -I"$results/clang/include" "$file" 2>&1 || true
          cat .clang-tidy cmake/CorvanTarget.cmake; clang-tidy --version; } | sha256sum)
  [ "$(cat "$stamp" 2>/dev/null)" != "$now" ] || return 0
  clang-tidy -p "$results/clang" --quiet --warnings-as-errors='*' --checks='-*,clang-analyzer-*' "$file" \
    2>"$stamp.err" || { cat "$stamp.err"; return 1; }
  echo "$now" >"$stamp"
}

# All other checks see a header as often as it is included, and the JSON library's takes them long:
# several files at once, through one that includes them.
match() {
  clang-tidy -p "$results/together" --quiet --warnings-as-errors='*' \
    --checks='-clang-analyzer-*,-bugprone-suspicious-include' \
    --header-filter='/(base|db|tools|examples)/([^/]*/)*[^/]*\.(h|cpp)$' "$1" 2>"$2.err" ||
    { cat "$2.err"; return 1; }
}
export -f analyze match

check_tidy() {
  configure
  cmake --preset clang -B "$results/together" -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
    -DCMAKE_UNITY_BUILD=ON -DCORVAN_BUILD_TESTS=OFF >>"$results/configure.log" 2>&1 ||
    { cat "$results/configure.log"; return 1; }
  mkdir -p "$results/tidy"
  # The largest first, so that both processors end together.
  {
    files 'base/*.cpp' 'db/*.cpp' 'tools/*.cpp' 'examples/*.cpp' | xargs ls -S | sed 's/^/analyze /'
    sed -n 's/^ *"file": "\(.*\)".*/\1/p' "$results/together/compile_commands.json" |
      awk -v results="$results" '{ print "match", $0, results "/tidy/together-" NR }'
  } | xargs -P 2 -I{} bash -c '{}'
}

declare -A mend=(
  [format]="clang-format -i FILE"
  [scripts]="mend the script; shellcheck FILE explains"
  [includes]="move what both need into a folder below"
  [links]="mend the link, or the heading that it names"
  [reference]="document what is named, in the header or, for what its name says, in docs/api/names.dox"
  [headers]="include in the header what it uses"
  [cppcheck]="mend the code; a finding that is none goes into scripts/cppcheck.txt with its reason"
  [tidy]="mend the code; a finding that is none: // NOLINT(name): and its reason"
)
order=(format scripts includes links reference headers cppcheck tidy)

names=("$@")
[ $# -gt 0 ] || names=("${order[@]}")
for name in "${names[@]}"; do
  if [ -z "${mend[$name]:-}" ]; then
    echo "check.sh: unknown check: $name; there are: ${order[*]}" >&2
    exit 2
  fi
done
if [ -e build ] && [ ! -w build ]; then
  echo "check.sh: $PWD/build: belongs to somebody else; remove it or make it writable" >&2
  exit 2
fi
bash scripts/install.sh build tools tests lint docs
mkdir -p "$results"

failed=()
for name in "${names[@]}"; do
  began=$SECONDS
  # A shell of its own, which ends at its first failure; as a condition it would go on.
  "check_$name" >"$results/$name.log" 2>&1 &
  if wait $!; then
    verdict=ok
  else
    verdict=FAILED
  fi
  printf '%-10s %-6s %3d s\n' "$name" "$verdict" $((SECONDS - began))
  if [ $verdict = FAILED ]; then
    failed+=("$name")
    sed 's/^/    /' "$results/$name.log"
    echo "    -> ${mend[$name]}"
  fi
done
[ ${#failed[@]} = 0 ] || { echo "check.sh: failed: ${failed[*]}" >&2; exit 1; }
