#!/usr/bin/env bash
# Downloads a source package of this machine's Debian and unpacks it. Uses package lists of its own: the
# machine's package sources stay as they are, and it needs no root. The machine needs dpkg-dev and
# debian-archive-keyring.
#
# Usage: debian_source.sh PACKAGE FOLDER
#   PACKAGE  name of the source package
#   FOLDER   is deleted and created again; FOLDER/source receives the sources
set -euo pipefail

fail() {
  echo "debian_source.sh: $*" >&2
  exit 1
}
[ $# = 2 ] || { echo "usage: debian_source.sh PACKAGE FOLDER" >&2; exit 2; }
package=$1
rm -rf "$2"
mkdir -p "$2"/{lists,cache}/partial
folder=$(realpath "$2")

# quietly COMMAND...: shows its output only if it fails.
quietly() {
  "$@" >"$folder/log" 2>&1 || { tail -n 40 "$folder/log" >&2; fail "failed: $*"; }
}

# private_apt ARGUMENT...: apt-get with sources, lists and cache of its own.
private_apt() {
  apt-get -q -o "Dir::Etc::SourceList=$folder/sources.list" -o Dir::Etc::SourceParts=/dev/null \
    -o "Dir::State::Lists=$folder/lists" -o "Dir::Cache=$folder/cache" -o Dir::State::status=/dev/null \
    -o APT::Sandbox::User=root -o Debug::NoLocking=true "$@"
}

# The Debian archives that this machine's apt uses, as lines of a sources.list for source packages.
debian_sources() {
  # shellcheck disable=SC2016  # apt-get expands the fields
  apt-get indextargets --format \
    'deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $(REPO_URI) $(RELEASE) main' \
    'Created-By: Packages' 'Origin: Debian' 'Component: main' | sort -u
}

debian_sources >"$folder/sources.list"
[ -s "$folder/sources.list" ] || fail "apt knows no Debian archive; run apt-get update first"
quietly private_apt update
(cd "$folder" && quietly private_apt source --download-only "$package")
quietly dpkg-source --extract "$folder/$package"_*.dsc "$folder/source"
