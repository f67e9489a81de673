#!/bin/sh
# The operations used most have an example in the reference, and every example is shown there.
# Usage: examples_test.sh AWK, from the project's top.
set -eu
tags=$(sed -n 's/^ *\/\/! \[\(.*\)\]$/\1/p' examples/operations.cpp)
shown=$("$1" -f docs/api/filter.awk db/cv_db_singleton.h | sed -n 's/.*@snippet operations.cpp //p')
status=0
for tag in $(printf '%s\n' "$tags" | sort -u); do
  if [ "$(printf '%s\n' "$tags" | grep -cx "$tag")" != 2 ]; then
    echo "examples/operations.cpp: [$tag] does not stand before and after one example"
    status=1
  fi
  if [ "$(printf '%s\n' "$shown" | grep -cx "$tag")" != 1 ]; then
    echo "db/cv_db_singleton.h: no operation for the example [$tag]"
    status=1
  fi
done
if [ "$(printf '%s\n' "$shown" | wc -l)" -lt 10 ]; then
  echo "examples/operations.cpp: fewer than ten operations have an example"
  status=1
fi
exit $status
