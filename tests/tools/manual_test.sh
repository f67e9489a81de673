#!/usr/bin/env bash
# Checks that the manual page is valid roff, and has a section and every option of every command.
# Usage: manual_test.sh MAN_SCRIPT PROGRAM
set -euo pipefail

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
page=$folder/corvan.1
bash "$1" "$2" "$page"

failed=
fail() {
  echo "manual_test.sh: $1" >&2
  failed=yes
}

if command -v man >/dev/null; then
  man --warnings -E UTF-8 -l "$page" 2>"$folder/warnings" >/dev/null || fail "man cannot show it"
  [ ! -s "$folder/warnings" ] || fail "warnings: $(cat "$folder/warnings")"
fi

plain=$(sed 's/\\-/-/g' "$page")
commands=$("$2" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -ge 14 ] || fail "--help lists too few commands: $commands"
for command in $commands; do
  section=$(sed -n "/^\.SS $command\$/,/^\.S[SH] /p" <<<"$plain")
  [ -n "$section" ] || fail "no section for $command"
  for option in $("$2" "$command" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | grep -oE -e '--[a-z-]+'); do
    grep -qE "^\.B .*$option" <<<"$section" || fail "$command: no $option"
  done
done

# A failure leaves no page, and no half of one.
if bash "$1" "$folder/no-such-program" "$folder/other.1" 2>/dev/null; then fail "no program, no error"; fi
[ -z "$(find "$folder" -name "other*")" ] || fail "a page was left behind"
[ -z "$failed" ]
