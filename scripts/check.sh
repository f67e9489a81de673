#!/usr/bin/env bash
# Runs all checks that do not run the tests. Prints one line per check and, if it fails, what to fix.
#
# Usage: check.sh [NAME...]; without a name, all checks:
#   format     the layout of every C++ file
#   scripts    the syntax of every script, and shellcheck's warnings
#   includes   includes of base/, db/, addons/ and tools/ point downwards; no two headers of tools/ define
#              a class of one name
#   links      the relative links and headings in the documents
#   unicode    the search's table of characters is that of the Unicode data
#   reference  Doxygen's reference of the headers, without warnings
#   headers    every header compiles alone, with g++ and with clang++
#   cppcheck   cppcheck on the library, the tool and the examples
#   tidy       clang-tidy on the same; its path-sensitive analysis, the slowest part, skips a file if
#              neither the file nor anything it includes has changed since it passed
set -euo pipefail
cd "$(dirname "$0")/.."

results=build/check
export results

# The matching files of the project, including new files that are not committed, without deleted ones.
files() {
  git ls-files --cached --others --exclude-standard "$@" | sort -u |
    while IFS= read -r file; do [ ! -e "$file" ] || printf '%s\n' "$file"; done
}

check_format() { files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror; }

check_scripts() {
  local script
  files '*.sh' .ci/run | while read -r script; do bash -n "$script" || exit 1; done
  # SC1090: mutate.sh sources a file that it has written itself.
  files '*.sh' .ci/run | xargs shellcheck --severity=warning --exclude=SC1090
}

check_includes() {
  files 'base/*.h' 'base/*.cpp' 'db/*.h' 'db/*.cpp' 'addons/*.h' 'addons/*.cpp' 'tools/*.h' 'tools/*.cpp' |
    xargs awk -f scripts/includes.awk
}

check_links() { files '*.md' | xargs awk -f scripts/links.awk; }

check_unicode() { bash scripts/unicode_ranges.sh --check; }

check_reference() { bash scripts/docs.sh; }

# Generates compile_commands.json and the generated headers. Without precompiled headers: only the
# compiler that wrote them can read them.
configure() {
  cmake --preset clang -B "$results/clang" -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
    >"$results/configure.log" 2>&1 || { cat "$results/configure.log"; return 1; }
}

# If X.cpp includes X.h first, compiling X.cpp already shows that X.h compiles alone.
is_first_in_its_unit() {
  local unit=${1%.h}.cpp
  [ -e "$unit" ] && [ "$(grep -m 1 '^#include' "$unit")" = "#include \"$1\"" ]
}

check_headers() {
  configure
  local headers
  headers=$(files 'base/*.h' 'db/*.h' 'addons/*.h' 'tools/*.h' 'examples/*.h' |
    while read -r header; do is_first_in_its_unit "$header" || echo "$header"; done)
  for compiler in g++ clang++; do
    xargs -P 2 -I{} "$compiler" -std=c++17 -fsyntax-only -Wall -Wextra -Werror -I. \
      -I"$results/clang/include" -include {} -x c++ /dev/null <<<"$headers"
  done
}

check_cppcheck() {
  files 'base/*.cpp' 'db/*.cpp' 'addons/*.cpp' 'tools/*.cpp' 'examples/*.cpp' |
    xargs cppcheck --quiet --std=c++17 --language=c++ --enable=style,performance,portability \
      --suppressions-list=scripts/cppcheck.txt --inline-suppr --error-exitcode=1 -I . -j 2
}

# Files for Windows do not compile here. The leg windows of test_matrix.sh compiles them, with warnings as
# errors.
compiled_here() { grep -v '_windows\.cpp$'; }

# Runs the path-sensitive analysis on one file, unless all its input is unchanged since it last passed.
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

# Runs all other clang-tidy checks on a unity file, which includes several files. These checks process
# each header once per file that includes it, and the JSON library's header is slow.
match() {
  clang-tidy -p "$results/together" --quiet --warnings-as-errors='*' \
    --checks='-clang-analyzer-*,-bugprone-suspicious-include' \
    --header-filter='/(base|db|addons|tools|examples)/([^/]*/)*[^/]*\.(h|cpp)$' "$1" 2>"$2.err" ||
    { cat "$2.err"; return 1; }
}
export -f analyze match

check_tidy() {
  configure
  cmake --preset clang -B "$results/together" -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
    -DCMAKE_UNITY_BUILD=ON -DCORVAN_BUILD_TESTS=OFF >>"$results/configure.log" 2>&1 ||
    { cat "$results/configure.log"; return 1; }
  mkdir -p "$results/tidy"
  # The largest files first, so that both processors finish at about the same time.
  {
    files 'base/*.cpp' 'db/*.cpp' 'addons/*.cpp' 'tools/*.cpp' 'examples/*.cpp' | compiled_here |
      xargs ls -S | sed 's/^/analyze /'
    sed -n 's/^ *"file": "\(.*\)".*/\1/p' "$results/together/compile_commands.json" |
      awk -v results="$results" '{ print "match", $0, results "/tidy/together-" NR }'
  } | xargs -P 2 -I{} bash -c '{}'
}

declare -A advice=(
  [format]="clang-format -i FILE"
  [scripts]="fix the script; shellcheck FILE explains"
  [includes]="move the common code to a lower folder, or rename one of the classes"
  [links]="fix the link, or the heading that it names"
  [unicode]="run scripts/unicode_ranges.sh, and increase the version in addons/search/tokenizer.cpp"
  [reference]="document the named member in its header, with a /// comment"
  [headers]="include everything that the header uses"
  [cppcheck]="fix the code, or add a false positive to scripts/cppcheck.txt with the reason"
  [tidy]="fix the code, or mark a false positive: // NOLINT(name): reason"
)
order=(format scripts includes links unicode reference headers cppcheck tidy)

names=("$@")
[ $# -gt 0 ] || names=("${order[@]}")
for name in "${names[@]}"; do
  if [ -z "${advice[$name]:-}" ]; then
    echo "check.sh: unknown check: $name; checks: ${order[*]}" >&2
    exit 2
  fi
done
if [ -e build ] && [ ! -w build ]; then
  echo "check.sh: $PWD/build: owned by another user; remove it or make it writable" >&2
  exit 2
fi
bash scripts/install.sh build tools tests lint docs
mkdir -p "$results"

failed=()
for name in "${names[@]}"; do
  began=$SECONDS
  # In the background: as the condition of an if, the function would ignore set -e.
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
    echo "    -> ${advice[$name]}"
  fi
done
[ ${#failed[@]} = 0 ] || { echo "check.sh: failed: ${failed[*]}" >&2; exit 1; }
