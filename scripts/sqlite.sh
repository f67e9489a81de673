#!/usr/bin/env bash
# Gets the SQLite amalgamation for -DCORVAN_SQLITE_AMALGAMATION=FOLDER and compiles it, with the options
# that the project would use, into a static library. Prints where both are. Installs missing packages,
# but does not change the machine's package sources. Quick if FOLDER already has the amalgamation; remove
# FOLDER to fetch it again.
#
# Usage: sqlite.sh [--upstream | --cipher] [--source] [FOLDER]
#   --upstream  the release of SQLite in the npm package better-sqlite3, version below
#   --cipher    a release of SQLite that can encrypt its files, SQLite3 Multiple Ciphers, in the npm
#               package better-sqlite3-multiple-ciphers, version below; sqlite_cipher.patch mends it
#   --source    only gets the amalgamation, without compiling it
#   FOLDER      receives sqlite3.c and sqlite3.h, and library/ with the library; default: build/sqlite,
#               build/sqlite-upstream or build/sqlite-cipher
# Without --upstream and --cipher: the source package of this machine's Debian.
set -euo pipefail
cd "$(dirname "$0")/.."

upstream_package=better-sqlite3@12.11.1
upstream_sha256=ebf0ed75a7a59dbcb3b24bbd014ef49d9f15bc328e4adcbf516f2a8fadfa2835
cipher_package=better-sqlite3-multiple-ciphers@13.0.3
cipher_sha256=24a11e221247fc003f755ad0f82126bc6b0295d0be1c06f3cb3e48d9db8eb898
cipher_patch=$PWD/scripts/sqlite_cipher.patch
npm_folder=package/deps/sqlite3  # in either package

fail() {
  echo "sqlite.sh: $*" >&2
  exit 1
}
usage() {
  echo "sqlite.sh: $*; usage: sqlite.sh [--upstream | --cipher] [--source] [FOLDER]" >&2
  exit 2
}

kind=
source_only=
folder=
for argument in "$@"; do
  case "$argument" in
    --upstream | --cipher)
      [ -z "$kind" ] || usage "more than one of --upstream and --cipher"
      kind=${argument#--}
      ;;
    --source) source_only=yes ;;
    -*) usage "unknown option: $argument" ;;
    *)
      [ -z "$folder" ] || usage "more than one folder"
      folder=$argument
      ;;
  esac
done
# The origin is noted in the folder, to tell whether its amalgamation is the one that is wanted.
case "$kind" in
  upstream) package=$upstream_package sha256=$upstream_sha256 origin=$package ;;
  cipher)
    package=$cipher_package sha256=$cipher_sha256
    origin="$package, patch $(sha256sum <"$cipher_patch")"
    ;;
  *) origin=debian ;;
esac
[ -n "$folder" ] || folder=build/sqlite${kind:+-$kind}
mkdir -p "$folder"
folder=$(realpath "$folder")
work=$folder/work

# quietly COMMAND...: shows its output only if it fails.
quietly() {
  "$@" >"$work/log" 2>&1 || { tail -n 40 "$work/log" >&2; fail "failed: $*"; }
}

# Fetches Debian's source package and makes the amalgamation in $work/made.
make_from_debian() {
  bash scripts/install.sh sqlite
  mkdir -p "$work/made"
  echo "Fetching Debian's source package of SQLite"
  bash scripts/debian_source.sh sqlite3 "$work/debian"
  echo "Making the amalgamation"
  (cd "$work/made" && quietly "$work/debian/source/configure" --disable-tcl && quietly make sqlite3.c)
}

# Fetches the npm package and unpacks its amalgamation into $work/made.
unpack_from_npm() {
  bash scripts/install.sh "sqlite-$kind"
  mkdir -p "$work/made"
  echo "Fetching SQLite in the npm package $package"
  (cd "$work" && quietly npm pack --ignore-scripts "$package")
  quietly sha256sum --check - <<<"$sha256  $(echo "$work"/*.tgz)"
  quietly tar -xf "$work"/*.tgz -C "$work/made" --strip-components=3 "$npm_folder"
  [ "$kind" != cipher ] || quietly patch --fuzz=0 -d "$work/made" -p1 -i "$cipher_patch"
}

if [ -e "$folder/sqlite3.c" ] && [ ! -e "$folder/origin" ]; then
  fail "$folder has an sqlite3.c that is not from this script; choose another folder"
fi
if [ "$(cat "$folder/origin" 2>/dev/null)" != "$origin" ] || [ ! -e "$folder/sqlite3.c" ]; then
  rm -rf "$folder"/{origin,sqlite3.c,sqlite3.h} "$work"
  if [ "$origin" = debian ]; then make_from_debian; else unpack_from_npm; fi
  echo "$origin" >"$folder/origin"
  mv "$work/made/sqlite3.h" "$work/made/sqlite3.c" "$folder"
fi

# The project's own rules compile it, so that the options are in one place.
compile() {
  bash scripts/install.sh build
  mkdir -p "$work"
  quietly cmake -S . -B "$folder/library" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCORVAN_SQLITE_AMALGAMATION="$folder" -DCORVAN_LIBRARY=static -DCORVAN_BUILD_TOOLS=OFF \
    -DCORVAN_BUILD_TESTS=OFF -DCORVAN_BUILD_EXAMPLES=OFF
  quietly cmake --build "$folder/library" --target corvan_sqlite
}
[ -n "$source_only" ] || compile
rm -rf "$work"

# defined NAME FILE: the string that the file defines as NAME; empty if it defines none.
defined() {
  sed -n "s/^#define $1 *\"\(.*\)\"/\1/p" "$2"
}

cipher=$(defined SQLITE3MC_VERSION_STRING "$folder/sqlite3.c")
echo "SQLite $(defined SQLITE_VERSION "$folder/sqlite3.h")${cipher:+ with $cipher}: $folder/sqlite3.c and sqlite3.h"
[ -n "$source_only" ] || echo "compiled: $folder/library/libcorvan_sqlite.a"
echo "for CMake: -DCORVAN_SQLITE_AMALGAMATION=$folder"
