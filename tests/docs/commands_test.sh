#!/bin/sh
# Checks that every command of the tool that a document names exists. Usage: commands_test.sh PROGRAM,
# in the project's root folder.
set -eu
# Finds `corvan COMMAND ...` in text, and in code blocks at the start of a line, after a prompt or a ";".
named=$(find . -name '*.md' ! -path './build*/*' ! -path './.git/*' -exec \
  sed -nE 's/`corvan /\n&/g; s/; corvan /\n&/g; s/^(\$ )?corvan /\n&/; T; p' {} + |
  sed -nE 's/^(`|; |\$ )?corvan ([a-z-]+)([^a-z=-].*)?$/\2/p' | sort -u)
status=0
for command in $named; do
  if ! "$1" "$command" --help >/dev/null 2>&1; then
    echo "the documents name a command that the tool does not have: corvan $command"
    status=1
  fi
done
[ "$(printf '%s\n' "$named" | wc -l)" -ge 7 ] || { echo "too few commands found: $named"; status=1; }
exit $status
