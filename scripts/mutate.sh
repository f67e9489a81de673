#!/usr/bin/env bash
# Mutation testing: applies each fault of tests/mutants/mutants.txt to a copy of db/cv_db_singleton.cpp,
# one at a time, and runs the tests until one fails. Prints one line per fault: its name and the first
# test that fails, or SURVIVED. Fails if a fault survives. Exits with status 2 if a fault cannot be
# applied or compiled, or if a test fails without a fault.
#
# Usage: mutate.sh [--list] [NAME...]
#   --list  prints the names of the faults and what they change
#   NAME    tries only these faults
# Builds in build/mutants, from a copy of the tree. The suites' environment variables, such as
# CORVAN_FAULT_SHARE, apply here too.
set -euo pipefail
cd "$(dirname "$0")/.."

unit=db/cv_db_singleton.cpp
list_file=tests/mutants/mutants.txt
export out=$PWD/build/mutants
# In the order of the runs: the quick suites, which test one operation at a time, come first.
export suites="db_test model_test fault_test memory_test"
export CORVAN_FAULT_SHARE=${CORVAN_FAULT_SHARE:-20}

# faults COMMAND [NAME]: reads the list of faults. "names" prints all names, "show" the change of NAME,
# "apply" the whole unit with this change, "first" the filter for the tests of its section.
faults() {
  awk -v command="$1" -v name="${2:-}" -v faults="$list_file" '
    function trimmed(text) {
      gsub(/^[ \t]+|[ \t]+$/, "", text)
      return text
    }
    function fail(text) {
      print "mutate.sh: " faults ": " current ": " text >"/dev/stderr"
      exit (failed = 2)
    }
    # The first line of the text to replace, which must occur once in the function, or in the unit.
    function find(  at, from, i, found) {
      from = 1
      if (inside != "") {
        from = 0
        for (at = 1; at <= lines; ++at) {
          if (index(line[at], inside) == 0) continue
          if (from != 0) fail("more than one line holds: " inside)
          from = at
        }
        if (from == 0) fail("no line holds: " inside)
      }
      for (at = from; at <= lines; ++at) {
        if (inside != "" && at > from && line[at] ~ /^}/) break
        for (i = 1; i <= olds && trimmed(line[at + i - 1]) == old[i]; ++i);
        if (i <= olds) continue
        if (found) fail("occurs more than once: " old[1])
        found = at
      }
      if (!found) fail("does not occur: " old[1])
      return found
    }
    function finish(  at, i, start) {
      if (current == "") return
      if (command == "names") print current
      if (current != name) return
      if (command == "first") {
        print current_first
        return
      }
      if (command == "show") {
        print current ":"
        for (i = 1; i <= olds; ++i) print "  - " old[i]
        for (i = 1; i <= news; ++i) print "  + " trimmed(new[i])
        return
      }
      start = find()
      for (at = 1; at <= lines; ++at) {
        if (at == start) for (i = 1; i <= news; ++i) print new[i]
        if (at < start || at >= start + olds) print line[at]
      }
    }
    FILENAME != faults { line[++lines] = $0; next }
    /^#/ || /^$/ { next }
    /^\[.*\]$/ {
      finish()
      current = substr($0, 2, length($0) - 2)
      if (current in seen) fail("occurs twice")
      seen[current] = 1
      current_first = first
      inside = ""
      olds = news = 0
      next
    }
    /^first / {
      finish()
      current = ""
      first = substr($0, 7)
      next
    }
    /^in / { inside = substr($0, 4); next }
    /^-/ { old[++olds] = trimmed(substr($0, 2)); next }
    /^\+/ { new[++news] = substr($0, 2); next }
    { fail("unknown line: " $0) }
    END {
      if (!failed) finish()
      exit failed
    }' "$unit" "$list_file"
}

# try_one NAME: builds and runs one fault, prints its line and stores the outcome in its folder.
try_one() {
  local name=$1
  export folder=$out/faults/$name TMPDIR=$memory/$name
  mkdir -p "$TMPDIR"
  local result outcome
  result=$(first_failure)
  case "$result" in
    "") outcome=survived ;;
    "cannot "*) outcome=broken ;;
    *) outcome=caught ;;
  esac
  echo "$outcome" >"$folder/outcome"
  echo "$name: ${result:-SURVIVED}"
  rm -rf "$TMPDIR" "$folder"/*_test "$folder/unit.o"
}

# Builds the unit in $folder and runs one suite after the other until a test fails. Prints that test, or
# that the unit cannot be built, or nothing.
first_failure() {
  local suite
  if ! (cd "$out/build" && . "$out/compile") >"$folder/build.log" 2>&1; then
    echo "cannot be compiled: $(grep -m 1 'error' "$folder/build.log")"
    return
  fi
  for suite in $suites; do
    if ! (cd "$out/build" && . "$out/link_$suite") >"$folder/build.log" 2>&1; then
      echo "cannot be linked: $(grep -m 1 'error' "$folder/build.log")"
      return
    fi
    if [ "$suite" = db_test ] && [ -s "$folder/first" ]; then
      fails "$suite" "$(<"$folder/first")" && return
    fi
    fails "$suite" "*" && return
  done
  return 0
}

# fails SUITE FILTER: runs these tests until one fails, and prints its name.
fails() {
  local suite=$1 test status=0
  timeout -k 5 120 "$folder/$suite" --gtest_fail_fast --gtest_filter="$2" \
    >"$folder/$suite.log" 2>&1 || status=$?
  [ "$status" != 0 ] || return 1
  # The test that failed, or during which the process ended.
  test=$(sed -n 's/^\[  FAILED  \] \([^ ,]*\).*/\1/p' "$folder/$suite.log" | head -n 1)
  [ -n "$test" ] || test=$(sed -n 's/^\[ RUN      \] //p' "$folder/$suite.log" | tail -n 1)
  case $status in
    1) ;;
    124 | 137) test+=", which does not end" ;;
    *) test+=", which ends with $status" ;;
  esac
  echo "$suite, $test"
}

list=
names=()
for argument in "$@"; do
  case "$argument" in
    --list) list=yes ;;
    -*)
      echo "mutate.sh: unknown option: $argument; usage: mutate.sh [--list] [NAME...]" >&2
      exit 2
      ;;
    *) names+=("$argument") ;;
  esac
done
all=$(faults names)
for name in "${names[@]}"; do
  if ! grep -qxF -e "$name" <<<"$all"; then
    echo "mutate.sh: unknown fault: $name; --list prints their names" >&2
    exit 2
  fi
done
[ ${#names[@]} -gt 0 ] || mapfile -t names <<<"$all"
if [ -n "$list" ]; then
  for name in "${names[@]}"; do faults show "$name"; done
  exit
fi

# One folder per fault, and one for the unchanged unit.
rm -rf "$out/faults" "$out/tree"
for name in "${names[@]}"; do
  mkdir -p "$out/faults/$name"
  faults apply "$name" >"$out/faults/$name/unit.cpp"
  faults first "$name" >"$out/faults/$name/first"
done
mkdir -p "$out/faults/none" "$out/tree"
cp "$unit" "$out/faults/none/unit.cpp"

# Copying keeps the files' times, so that only what has changed since the last run is built.
bash scripts/install.sh build tests
cp -a CMakeLists.txt README.md bench cmake base db docs tests "$out/tree/"
cmake -S "$out/tree" -B "$out/build" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS=-O0 \
  -DCORVAN_BUILD_ADDONS=OFF -DCORVAN_BUILD_TOOLS=OFF -DCORVAN_BUILD_EXAMPLES=OFF \
  -DCORVAN_INSTALL=OFF \
  -DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST
# shellcheck disable=SC2086
cmake --build "$out/build" --target $suites

# From here on only the unit and the suites are built, with the commands of this build.
ninja -C "$out/build" -t commands db/libcorvan_db.a | grep "/$unit\$" |
  sed 's| -MD .*| -o "$folder/unit.o" -c "$folder/unit.cpp"|' >"$out/compile"
grep -qF '$folder/unit.cpp' "$out/compile"
for suite in $suites; do
  built=$(cd "$out/build" && find tests -name "$suite" -type f -perm -u+x -print -quit)
  ninja -C "$out/build" -t commands "$built" | tail -n 1 |
    sed "s|db/libcorvan_db.a|\"\$folder/unit.o\"|g; s|-o $built |-o \"\$folder/$suite\" |" \
      >"$out/link_$suite"
  grep -qF "\$folder/$suite" "$out/link_$suite"
  grep -qF '$folder/unit.o' "$out/link_$suite"
done

# Stores are kept in memory where that is possible, and removed when the script ends.
memory=${TMPDIR:-/tmp}
[ ! -w /dev/shm ] || memory=/dev/shm
memory=$(mktemp -d "$memory/corvan-mutants-XXXXXX")
export memory
trap 'rm -rf "$memory"' EXIT
ulimit -c 0
export -f try_one first_failure fails

echo
outcome=$(try_one none)
if [ "$outcome" != "none: SURVIVED" ]; then
  echo "mutate.sh: the tests fail without a fault: $outcome" >&2
  exit 2
fi
printf '%s\n' "${names[@]}" | xargs -P "$(nproc)" -I '{}' bash -c 'try_one "{}"'

count() {
  grep -lx "$1" "$out"/faults/*/outcome | grep -cv /none/ || true
}
broken=$(count broken)
survived=$(count survived)
echo
echo "${#names[@]} faults: $(count caught) caught, $survived survived, $broken cannot be built"
[ "$broken" = 0 ] || exit 2
[ "$survived" = 0 ]
