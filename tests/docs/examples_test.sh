#!/bin/sh
# The most used operations have an example in the reference, and the reference shows every example.
# Run from the project's top.
set -eu
tags=$(sed -n 's/^ *\/\/! \[\(.*\)\]$/\1/p' examples/operations.cpp)
# The examples whose @snippet line stands directly before the declaration of the same name.
shown=$(sed -n '/@snippet operations.cpp/{N;s/.*@snippet operations.cpp \([a-z_]*\)\n.*[ *]\1(.*/\1/p;}' \
  db/cv_db_singleton.h)
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
