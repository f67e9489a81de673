#!/usr/bin/env bash
# Installs what is missing, builds with clang++'s coverage, runs the tests and prints how much of
# each file of db/ and base/ they reach, then each line and each branch that they do not reach.
# Fails when a test does, when tests/coverage_exclusions.txt does not name one of them, and when it
# names something that is not there or is reached. In HTML: build/coverage/html/index.html.
#
# Usage: coverage.sh [--report]
#   --report  reports on the last run again, as after an edit of the exclusions
#
# A branch is an outcome, true or false, of a condition that stands in the source; the ways of an
# exception are none. A condition in a template counts once, whatever the template is used for; one
# in a macro counts where the macro is used. What follows a call that throws is counted as if it had
# been reached: of the suite in which memory ends only what lies in exception handlers counts.
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

# Runs one suite. It counts in the file itself (%c), so that a process that aborts counts, too.
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

  # The stores lie in memory where there is room, and go with the script.
  memory=${TMPDIR:-/tmp}
  [ ! -w /dev/shm ] || memory=/dev/shm
  TMPDIR=$(mktemp -d "$memory/corvan-coverage-XXXXXX")
  chmod 755 "$TMPDIR"  # some tests give up the rights of root
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
  echo "coverage.sh: there is no last run to report on" >&2
  exit 2
fi

objects=()
for suite in "${suites[@]}"; do
  object=$(program "$suite")
  [ -z "$object" ] || objects+=(-object "$object")
done
# cov COMMAND PROFILE...: the tests' own functions of equal names do not match, which is no matter.
cov() {
  local command=$1 profile=$2
  shift 2
  llvm-cov "$command" -instr-profile="$out/$profile.profdata" "$@" "${objects[@]:1}" db base \
    2> >(grep -v -e 'functions have mismatched data' -e $'^\033\\[0m$' >&2)
}
rm -rf "$out/html"
cov show all -format=html -output-dir="$out/html" -show-branches=count \
  -show-instantiations=false >/dev/null

# "L file line count" for each line with code, "B file line column number true false" for each use
# of a condition: columns and numbers tell several on a line apart, counts are how often each
# outcome was. "H file line count" for the lines that count in handlers.
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
    # Where a macro is used, by the number that its text has among the files.
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
  # Reads a file of the source, and marks what lies in its exception handlers.
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
  # The number of the line, or 0 when it is not there.
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
  # One line or outcome that the tests do not reach, under its key.
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
      complain(exclusions ":" FNR ": is not: file | in | line | what | reason")
      next
    }
    load(part[1])
    line = find(part[1], part[2], part[3])
    if (line == 0) {
      complain(exclusions ":" FNR ": this line is not there: " part[3])
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
      # One that was never asked follows from a line or an outcome that was not reached.
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
      complain(source[key] ": is reached, or no outcome: " part[1] ":" part[2] ", " part[3])
    }
    exit failed
  }' "$exclusions" "$out/counts.tsv" || failed=yes
[ -z "$failed" ]
