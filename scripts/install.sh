#!/usr/bin/env bash
# Installs the Debian packages that the named purposes need and this machine lacks; says which.
# Never removes a package. Usage: install.sh build|tools|tests|bench|fuzz|coverage|lint...
set -euo pipefail

packages=()
for purpose in "$@"; do
  case "$purpose" in
    build) packages+=(g++ cmake ninja-build libsqlite3-dev) ;;
    tools) packages+=(pkg-config libcli11-dev nlohmann-json3-dev libutf8proc-dev) ;;
    tests) packages+=(libgtest-dev) ;;
    bench)
      packages+=(libbenchmark-dev nlohmann-json3-dev valgrind gnuplot-nox jq)
      packages+=(libsqlitecpp-dev libsoci-dev libsoci-sqlite3-4.0 liblmdb-dev libleveldb-dev)
      ;;
    fuzz) packages+=(clang libclang-rt-dev) ;;
    coverage) packages+=(clang libclang-rt-dev llvm jq) ;;
    lint) packages+=(git clang clang-format clang-tidy) ;;
    *)
      echo "install.sh: unknown purpose: $purpose" >&2
      exit 2
      ;;
  esac
done

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  # pkg-config is a virtual package where pkgconf provides it.
  if [ "$package" = pkg-config ] && command -v pkg-config >/dev/null; then status=installed; fi
  [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" != 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "install.sh: neither root nor sudo; please install: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -q -y --no-remove --no-install-recommends "${missing[@]}"
