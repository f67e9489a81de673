#!/usr/bin/env bash
# Runs the random and exhaustive suites in their long forms, for SECONDS in total, divided equally. Each
# run has a new seed, unless CORVAN_SOAK_SEED sets it. Prints one line per suite: points tried, faults
# injected, lost, aborted. Fails if a suite fails, or if anything was lost or aborted. Logs, with the
# seeds, are in build/soak/SUITE.log.
#
# Usage: soak.sh SECONDS [SUITE...]
#   SUITE  only these: model faults power memory kill damage threads twins fuzz; SUITE_cached, such as
#          model_cached, is the suite with the statement cache
# SECONDS does not include building. An exhaustive suite ends after its last point, which may be earlier
# or later.
set -euo pipefail
cd "$(dirname "$0")/.."

usage="usage: soak.sh SECONDS [SUITE...]"
seconds=${1:-}
if ! [[ $seconds =~ ^[1-9][0-9]{0,6}$ ]]; then
  echo "soak.sh: not a number of seconds: '$seconds'; $usage" >&2
  exit 2
fi
shift
all=(model faults power memory kill damage threads twins fuzz)
cached=(model_cached faults_cached power_cached memory_cached kill_cached damage_cached threads_cached)
for name in "$@"; do
  if [[ " ${all[*]} ${cached[*]} " != *" $name "* ]]; then
    echo "soak.sh: unknown suite: $name; suites: ${all[*]} ${cached[*]}" >&2
    exit 2
  fi
done
suites=("$@")
[ ${#suites[@]} -gt 0 ] || suites=("${all[@]}")
share=$(((seconds + ${#suites[@]} - 1) / ${#suites[@]}))

# The threads suite runs under the thread sanitizer, the others as fast as possible.
preset_of() {
  case "$1" in
    threads*) echo tsan ;;
    *) echo release ;;
  esac
}
# The name of the program, which is the same as its target's, such as fault_test_cached.
target_of() {
  local suite=${1%_cached}
  echo "${suite/faults/fault}_test${1#"$suite"}"
}
program_of() {
  case "$1" in
    faults* | power* | memory*) echo "tests/faults/$(target_of "$1")" ;;
    *) echo "tests/${1%_cached}/$(target_of "$1")" ;;
  esac
}

bash scripts/install.sh build tools tests
out=build/soak
mkdir -p "$out"
for suite in "${suites[@]}"; do
  [ "$suite" != fuzz ] || continue
  preset=$(preset_of "$suite")
  {
    cmake --preset "$preset"
    cmake --build --preset "$preset" --target "$(target_of "$suite")"
  } >"$out/build.log" 2>&1 || { cat "$out/build.log" >&2; exit 1; }
done

seed=${CORVAN_SOAK_SEED:-$(date +%s)}
echo "seed $seed, $share s for each of ${#suites[@]} suites"
export CORVAN_BOUNDS=thorough CORVAN_SECONDS=$share
for variable in MODEL FAULT POWER MEMORY KILL DAMAGE THREADS TWINS; do
  export "CORVAN_${variable}_SEED=$seed"
done

failed=
for suite in "${suites[@]}"; do
  log=$out/$suite.log
  status=0
  if [ "$suite" = fuzz ]; then
    bash scripts/fuzz.sh $(((share + 1) / 2)) >"$log" 2>&1 || status=$?
    sed -n 's/^\(operations\|import\): \([0-9]*\) runs.* \([0-9]*\) crashes$/fuzz of \1: points tried \2, faults injected 0, lost 0, aborted \3/p' "$log"
  else
    "build/$(preset_of "$suite")/$(program_of "$suite")" >"$log" 2>&1 || status=$?
    # A suite with several tests prints one tally line per test: add them up.
    sum=$(sed -n 's/^\[ tally \] .*: points tried \([0-9]*\), faults injected \([0-9]*\), lost \([0-9]*\), aborted \([0-9]*\)$/\1 \2 \3 \4/p' "$log" |
      awk '{ p += $1; f += $2; l += $3; a += $4 }
           END { printf "points tried %d, faults injected %d, lost %d, aborted %d", p, f, l, a }')
    echo "$suite: $sum"
    [[ $sum == *"lost 0, aborted 0" ]] || status=1
  fi
  if [ "$status" != 0 ]; then
    failed=yes
    echo "soak.sh: $suite failed: see $log" >&2
  fi
done
[ -z "$failed" ]
