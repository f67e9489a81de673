#!/usr/bin/env bash
# Measures the bytes that the store adds to a program: the stripped executable of a small host with the
# static library, minus the same host without it. Both are compiled for size, without unused code.
# SQLite, utf8proc and the standard library are linked dynamically and do not count. Prints a table.
# Fails if a row exceeds its bound, which is 10 % above the size measured when the bound was set.
#
# Usage: size.sh [--build FOLDER] [FLAG...]
#   --build  build folder (default: build/size)
#   FLAG     compiler flag, added to those of the preset "size", such as -O3 or -flto; disables the
#            bounds. With -flto, "every operation" includes only the operations that are called.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/size
if [ "${1:-}" = --build ]; then
  [ $# -ge 2 ] || { echo "size.sh: --build needs a folder" >&2; exit 2; }
  build=$2
  shift 2
fi
for flag in "$@"; do
  [[ $flag == -* ]] || { echo "size.sh: not a compiler flag: $flag" >&2; exit 2; }
done

bash scripts/install.sh build search size
declare -A bounds=(
  [g++ four]=59200 [g++ cached]=63900 [g++ search]=176900 [g++ all]=95400
  [clang++ four]=81700 [clang++ cached]=86400 [clang++ search]=231000 [clang++ all]=122400
)
flags=(-Os -DNDEBUG -ffunction-sections -fdata-sections "$@")

# host NAME OPTION...: builds the host and prints the size of the stripped program.
host() {
  "$cxx" -std=c++17 "${flags[@]}" tests/consumers/size/host.cpp -o "$folder/$1" -s \
    -Wl,--gc-sections "${@:2}"
  stat -c %s "$folder/$1"
}

failed=
# row OPERATIONS TEXT BYTES
row() {
  local bound=${bounds[$cxx $1]} verdict=
  if [ $# -gt 3 ]; then
    bound=-
  elif [ "$3" -gt "$bound" ]; then
    verdict="above its bound"
    failed=yes
  fi
  printf '%-8s  %-44s %8d %8s  %s\n' "$cxx" "$2" "$3" "$bound" "$verdict"
}

printf '%-8s  %-44s %8s %8s\n' compiler "the host calls" bytes bound
for cxx in g++ clang++; do
  folder=$build/$cxx
  cmake --preset size -B "$folder" -DCMAKE_CXX_COMPILER="$cxx" -DCORVAN_BUILD_EXAMPLES=OFF \
    -DCMAKE_CXX_FLAGS_MINSIZEREL="${flags[*]}" >/dev/null
  cmake --build "$folder" >/dev/null
  store=(-DWITH_STORE -I.)
  libraries=("$folder/base/libcorvan_base.a" -lsqlite3)

  alone=$(host alone)
  bytes=$(host four "${store[@]}" "$folder/db/libcorvan_db.a" "${libraries[@]}")
  row four "opening, a save, a page of list and history" $((bytes - alone)) "$@"

  bytes=$(host cached "${store[@]}" "$folder/addons/statement_cache/libcorvan_db_cached.a" \
    "${libraries[@]}")
  row cached "the same with the statement cache" $((bytes - alone)) "$@"

  bytes=$(host search "${store[@]}" -DWITH_SEARCH "$folder/addons/search/libcorvan_search.a" \
    "$folder/db/libcorvan_db.a" "${libraries[@]}" -lutf8proc)
  row search "the same with Corvan::db, and the search" $((bytes - alone)) "$@"

  alone=$(host alone -Wl,--no-gc-sections)
  bytes=$(host all "${store[@]}" -Wl,--no-gc-sections -Wl,--whole-archive \
    "$folder/db/libcorvan_db.a" -Wl,--no-whole-archive "${libraries[@]}")
  row all "every operation" $((bytes - alone)) "$@"
done
[ -z "$failed" ]
