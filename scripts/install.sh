#!/usr/bin/env bash
# Installs the missing Debian packages for the given purposes and prints their names. Never removes a
# package.
# Usage: install.sh build|tools|search|tests|checkers|bench|fuzz|coverage|docs|html|packages|size|lint|
#                   tests-source|libc++|cross-arm64|cross-armhf|windows|clean-system|sqlite|sqlite-upstream|
#                   sqlite-cipher|sqlcipher|unicode...
set -euo pipefail

packages=()
for purpose in "$@"; do
  case "$purpose" in
    build) packages+=(g++ cmake ninja-build libsqlite3-dev) ;;
    tools) packages+=(pkg-config libcli11-dev libfmt-dev nlohmann-json3-dev libutf8proc-dev) ;;
    search) packages+=(pkg-config libutf8proc-dev) ;;
    tests) packages+=(libgtest-dev) ;;
    tests-source) packages+=(googletest) ;;
    libc++) packages+=(clang libc++-dev libc++abi-dev) ;;
    cross-arm64) packages+=(pkg-config googletest g++-aarch64-linux-gnu qemu-user-static) ;;
    cross-armhf) packages+=(pkg-config googletest g++-arm-linux-gnueabihf qemu-user-static) ;;
    windows)
      packages+=(pkg-config googletest g++-mingw-w64-x86-64-posix wine64 dpkg-dev debian-archive-keyring)
      ;;
    clean-system) packages+=(mmdebstrap debian-archive-keyring) ;;
    bench)
      packages+=(libbenchmark-dev nlohmann-json3-dev valgrind gnuplot-nox jq)
      packages+=(libsqlitecpp-dev libsoci-dev libsoci-sqlite3-4.0 liblmdb-dev libleveldb-dev)
      ;;
    checkers | fuzz) packages+=(clang libclang-rt-dev) ;;
    coverage) packages+=(clang libclang-rt-dev llvm jq) ;;
    packages) packages+=(binutils dpkg-dev file make pkg-config) ;;
    size) packages+=(clang) ;;
    sqlite) packages+=(gcc make tcl dpkg-dev debian-archive-keyring) ;;
    sqlite-upstream) packages+=(npm) ;;
    sqlite-cipher) packages+=(npm patch) ;;
    sqlcipher) packages+=(libsqlcipher-dev) ;;
    unicode) packages+=(unicode-data) ;;
    docs) packages+=(doxygen) ;;
    html) packages+=(chromium fonts-noto-color-emoji fonts-wqy-microhei) ;;
    lint) packages+=(git clang clang-format clang-tidy cppcheck shellcheck) ;;
    *)
      echo "install.sh: unknown purpose: $purpose" >&2
      exit 2
      ;;
  esac
done

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  # Another package may provide these programs: pkgconf, or a nodejs that contains npm.
  case "$package" in
    pkg-config | npm) ! command -v "$package" >/dev/null || status=installed ;;
  esac
  [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" != 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "install.sh: neither root nor sudo; install yourself: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -q -y --no-remove --no-install-recommends "${missing[@]}"
