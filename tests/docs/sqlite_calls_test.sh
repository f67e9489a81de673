#!/bin/sh
# Checks that the document names exactly the functions of SQLite that the built store calls.
# Usage: sqlite_calls_test.sh NM LIBRARY DOCUMENT
set -eu
called=$("$1" -u "$2" | grep -o 'sqlite3_[a-z0-9_]*' | sort -u)
named=$(grep '^|' "$3" | grep -o 'sqlite3_[a-z0-9_]*' | sort -u)
[ -n "$called" ]
if [ "$called" != "$named" ]; then
  echo "called: $(echo "$called" | tr '\n' ' ')"
  echo "named in $3: $(echo "$named" | tr '\n' ' ')"
  exit 1
fi
