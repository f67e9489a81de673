#!/usr/bin/env bash
# Installs what is missing, builds with clang++'s coverage, runs the tests and prints how many lines and
# branches of each file in db/ and base/ they reach, then each line and branch that they miss. HTML
# report: build/coverage/html/index.html.
#
# Fails if a test fails, if a missed line or branch is not listed in tests/coverage_exclusions.txt, or if
# an entry of that list does not exist or is reached.
#
# Usage: coverage.sh [--report]
#   --report  reports on the last run again, for example after an edit of the exclusions
#
# A branch is one outcome, true or false, of a condition in the source; exceptional control flow does not
# count. A condition in a template counts once for all instances; a condition in a macro counts at each
# use of the macro. clang++ counts the code after a throwing call as reached. So the suite that makes
# allocations fail contributes only the code in exception handlers.
set -euo pipefail
cd "$(dirname "$0")/.."

failed=
run=yes
for argument in "$@"; do
  case "$argument" in
    --report) run= ;;
    *)
      echo "coverage.sh: not understood: $argument; usage: coverage.sh [--report]" >&2
      exit 2
      ;;
  esac
done

export out=build/coverage
exclusions=tests/coverage_exclusions.txt
suites=(base_test db_test model_test fault_test memory_test damage_test)

program() {
  find "$out/tests" -name "$1" -type f -perm -u+x -print -quit
}

# Runs one suite. Counters are updated in the profile itself (%c), so that aborted processes count too.
run_suite() {
  local name=${1##*/}
  LLVM_PROFILE_FILE="$PWD/$out/profiles/$name-%p%c.profraw" \
    "$1" --gtest_brief=1 >"$out/$name.log" 2>&1 && return
  echo "coverage.sh: $name failed; all of its output: $out/$name.log" >&2
  tail -n 40 "$out/$name.log" >&2
  return 1
}
export -f run_suite

if [ -n "$run" ]; then
  bash scripts/install.sh build tests coverage
  cmake --preset coverage
  known=$(cmake --build "$out" --target help)
  targets=()
  for suite in "${suites[@]}"; do
    ! grep -q "^$suite: " <<<"$known" || targets+=("$suite")
  done
  cmake --build "$out" --target "${targets[@]}"

  # Stores are kept in memory where that is possible, and removed when the script ends.
  memory=${TMPDIR:-/tmp}
  [ ! -w /dev/shm ] || memory=/dev/shm
  TMPDIR=$(mktemp -d "$memory/corvan-coverage-XXXXXX")
  chmod 755 "$TMPDIR"  # for tests that give up root's privileges
  export TMPDIR
  trap 'rm -rf "$TMPDIR"' EXIT
  rm -rf "$out/profiles"
  mkdir -p "$out/profiles"
  for suite in "${targets[@]}"; do program "$suite"; done |
    xargs -P "$(nproc)" -I '{}' bash -c 'run_suite "{}"' || failed=yes
  profiles() {
    find "$out/profiles" -name '*.profraw' "$@" -print0
  }
  profiles | xargs -0 llvm-profdata merge -sparse -o "$out/all.profdata"
  profiles ! -name 'memory_test-*' | xargs -0 llvm-profdata merge -sparse -o "$out/returns.profdata"
fi
if [ ! -e "$out/all.profdata" ] || [ ! -e "$out/returns.profdata" ]; then
  echo "coverage.sh: no earlier run to report on" >&2
  exit 2
fi

objects=()
for suite in "${suites[@]}"; do
  object=$(program "$suite")
  [ -z "$object" ] || objects+=(-object "$object")
done
# cov COMMAND PROFILE...: suppresses warnings about test functions that have equal names.
cov() {
  local command=$1 profile=$2
  shift 2
  llvm-cov "$command" -instr-profile="$out/$profile.profdata" "$@" "${objects[@]:1}" db base \
    2> >(grep -v -e 'functions have mismatched data' -e $'^\033\\[0m$' >&2)
}
rm -rf "$out/html"
cov show all -format=html -output-dir="$out/html" -show-branches=count \
  -show-instantiations=false >/dev/null

# Prints "L file line count" per line of code, "H file line count" per line that counts in handlers, and
# "B file line column number true false" per use of a condition. Column and number distinguish several
# conditions in one line; the last two fields say how often each outcome occurred.
lines() {
  cov export "$1" -format=lcov |
    awk -F '[:,]' -v OFS='\t' -v kind="$2" '
      /^SF:/ { file = $2 }
      /^DA:/ { print kind, file, $2, $3 }'
}
conditions() {
  cov export "$1" -format=text | jq -r '
    .data[0].functions[]
    | .filenames as $files
    # The place where each macro is used, by the number of its expansion in the files.
    | (reduce (.regions[] | select(.[7] == 1)) as $r ({}; .[$r[6] | tostring] = $r)) as $uses
    | def place($at): $uses[$at[2] | tostring] as $use
        | if $use then place([$use[0], $use[1], $use[5]]) else $at end;
      .branches[]
    | place([.[0], .[1], .[6]]) as $at
    | ["B", $files[$at[2]], $at[0], $at[1], "\(.[0]) \(.[1])", .[4], .[5]]
    | @tsv'
}
{
  lines returns L
  lines all H
  conditions returns
} | sed "s|\t$PWD/|\t|" | grep -P '^.\t(db|base)/' | LC_ALL=C sort -t $'\t' -k 2,2 -k 3n -k 4n \
  >"$out/counts.tsv"

awk -F '\t' -v exclusions="$exclusions" '
  function trimmed(text) {
    gsub(/^[ \t]+|[ \t]+$/, "", text)
    return text
  }
  # Reads a source file and marks the lines in its exception handlers.
  function load(file,  text, at, end) {
    if (file in length_of) return
    while ((getline text < file) > 0) {
      lines[file, ++at] = text
      if (end != "") handler[file, at] = 1
      if (text == end) end = ""
      if (text ~ /^ *} catch \(.*{$/) {
        end = text
        sub(/}.*/, "}", end)
      }
    }
    length_of[file] = at + 0
  }
  # The number of the line; 0 if there is no such line.
  function find(file, inside, text,  at, from) {
    for (at = 1; at <= length_of[file]; ++at) {
      if (index(lines[file, at], inside) == 0) continue
      if (from != 0) return 0
      from = at
    }
    if (from == 0) return 0
    for (at = from; at <= length_of[file] && (at == from || lines[file, at] !~ /^}/); ++at) {
      if (trimmed(lines[file, at]) == text) return at
    }
    return 0
  }
  function complain(text) {
    print text
    failed = 1
  }
  # Notes one line or outcome that the tests miss.
  function missed(key, place, what,  line) {
    missing[key] = 1
    split(key, line, SUBSEP)
    if (key in reason) {
      used = used place ": " what ", excluded: " reason[key] "\n"
      ++excluded
    } else {
      found = found place ": " what ": " trimmed(lines[line[1], line[2]]) "\n"
    }
  }
  function percent(part, all) { return all == 0 ? "-" : sprintf("%.1f %%", 100 * part / all) }
  function row(name, l, lh, b, bh) {
    printf "%-28s %5d of %5d %8s   %5d of %5d %8s\n", name, lh, l, percent(lh, l), bh, b,
      percent(bh, b)
  }

  # The exclusions: file | in | line | what | reason
  FILENAME == exclusions {
    if ($0 ~ /^#/ || $0 ~ /^$/) next
    count = split($0, part, / \| /)
    if (count != 5 || part[4] !~ /^(sometimes )?(line|([1-9] )?(true|false))$/) {
      complain(exclusions ":" FNR ": expected: file | in | line | what | reason")
      next
    }
    load(part[1])
    line = find(part[1], part[2], part[3])
    if (line == 0) {
      complain(exclusions ":" FNR ": no such line: " part[3])
      next
    }
    sometimes = sub(/^sometimes /, "", part[4])
    if (part[4] ~ /^(true|false)$/) part[4] = "1 " part[4]
    key = part[1] SUBSEP line SUBSEP part[4]
    reason[key] = part[5]
    source[key] = exclusions ":" FNR
    by_chance[key] = sometimes
    next
  }

  { load($2); files[$2] = 1 }
  $1 == "L" { line_count[$2, $3] += $4; next }
  $1 == "H" && (($2, $3) in handler) { line_count[$2, $3] += $4 }
  $1 == "H" { next }
  {
    condition = $2 SUBSEP $3 SUBSEP $4 SUBSEP $5
    if (!(condition in number)) {
      number[condition] = ++conditions[$2, $3]
      order[++all] = condition
    }
    yes[condition] += $6
    no[condition] += $7
  }

  END {
    for (key in line_count) {
      split(key, part, SUBSEP)
      ++l[part[1]]
      if (line_count[key] > 0) ++lh[part[1]]
    }
    for (i = 1; i <= all; ++i) {
      split(order[i], part, SUBSEP)
      # A condition that was never evaluated follows a line or an outcome that is missed already.
      if (yes[order[i]] + no[order[i]] == 0) continue
      b[part[1]] += 2
      bh[part[1]] += (yes[order[i]] > 0) + (no[order[i]] > 0)
      outcome[part[1], part[2], number[order[i]] " true"] = yes[order[i]]
      outcome[part[1], part[2], number[order[i]] " false"] = no[order[i]]
    }
    printf "%-28s %23s   %23s\n", "", "lines reached", "branches reached"
    for (file in files) sorted[++n] = file
    for (i = 2; i <= n; ++i) {
      for (j = i; j > 1 && sorted[j] < sorted[j - 1]; --j) {
        swap = sorted[j]; sorted[j] = sorted[j - 1]; sorted[j - 1] = swap
      }
    }
    for (i = 1; i <= n; ++i) {
      file = sorted[i]
      row(file, l[file], lh[file], b[file], bh[file])
      tl += l[file]; tlh += lh[file]; tb += b[file]; tbh += bh[file]
      for (at = 1; at <= length_of[file]; ++at) {
        place = file ":" at
        if ((file, at) in line_count && line_count[file, at] == 0) {
          missed(file SUBSEP at SUBSEP "line", place, "line not reached")
        }
        for (c = 1; c <= conditions[file, at]; ++c) {
          which = conditions[file, at] > 1 ? "condition " c : "condition"
          if ((file, at, c " true") in outcome) {
            if (outcome[file, at, c " true"] == 0) {
              missed(file SUBSEP at SUBSEP c " true", place, which " never true")
            }
            if (outcome[file, at, c " false"] == 0) {
              missed(file SUBSEP at SUBSEP c " false", place, which " never false")
            }
          }
        }
      }
    }
    row("all", tl, tlh, tb, tbh)
    if (used != "") printf "\n%s", used
    if (found != "") {
      printf "\nNot reached:\n%s", found
      failed = 1
    }
    for (key in reason) {
      if (key in missing || by_chance[key]) continue
      split(key, part, SUBSEP)
      complain(source[key] ": is reached, or does not exist: " part[1] ":" part[2] ", " part[3])
    }
    exit failed
  }' "$exclusions" "$out/counts.tsv" || failed=yes
[ -z "$failed" ]
