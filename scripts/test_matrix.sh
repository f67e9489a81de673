#!/usr/bin/env bash
# Builds everything and runs all tests with each supported compiler, standard library and architecture,
# one leg after the other. Installs missing packages.
#
# Usage: test_matrix.sh [LEG...]
#   g++              g++ with libstdc++
#   clang++          clang++ with libc++
#   sqlite           as g++, with SQLite compiled into the project, from Debian's source package
#   sqlite-upstream  as sqlite, from a current release of SQLite
#   cipher           as sqlite, from a release of SQLite that can encrypt its files; here without a key
#   sqlcipher        as g++, with Debian's SQLCipher in place of SQLite: the store and its tests; with
#                    Debian 12's, without Corvan::db_cached, the tool and tests that need a newer SQLite
#   encrypted        the build of cipher; the suites of the store with a key for each store, then the other
#                    tests as they are
#   arm64            cross-built with g++, run under QEMU's user-mode emulation
#   armhf            as arm64, 32 bits
#   windows          cross-built with mingw-w64 for 64-bit Windows, run under Wine, with the SQLite of the
#                    leg sqlite; tests/windows_skips.txt lists what it leaves out. Then exchange.sh
#                    compares a store's rows on Linux and Windows
#   debian12         scripts/demo.sh and scripts/test.sh in an empty Debian 12, created in a folder; needs
#                    root
#   debian13         as debian12, with Debian 13
# Without LEG: all legs. arm64 and armhf take long, because programs run about ten times slower there.
set -euo pipefail
cd "$(dirname "$0")/.."

all=(g++ clang++ sqlite sqlite-upstream cipher sqlcipher encrypted arm64 armhf windows debian12
  debian13)
wine_prefix=build/matrix/windows/wine
legs=("$@")
[ ${#legs[@]} -gt 0 ] || legs=("${all[@]}")
for leg in "${legs[@]}"; do
  case "$leg" in
    g++ | clang++ | sqlite | sqlite-upstream | cipher | sqlcipher | encrypted | arm64 | armhf | windows) ;;
    debian12 | debian13)
      if [ "$(id -u)" != 0 ]; then
        echo "test_matrix.sh: $leg: needs root; run it as root, or choose other legs: ${all[*]:0:10}" >&2
        exit 2
      fi
      ;;
    *)
      echo "test_matrix.sh: unknown leg: $leg; legs: ${all[*]}" >&2
      exit 2
      ;;
  esac
done

# build LEG CMAKE_ARGUMENT...
build() {
  local leg=$1
  shift
  # A unity build without debug information, because nobody debugs this build.
  cmake -S . -B "build/matrix/$leg" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 \
    -DCMAKE_UNITY_BUILD=ON -DCORVAN_WERROR=ON -DCORVAN_GTEST_SOURCE=/usr/src/googletest "$@"
  cmake --build "build/matrix/$leg"
}

# test_leg LEG SECONDS [CTEST_ARGUMENT...]
test_leg() {
  local leg=$1 seconds=$2
  shift 2
  (cd "build/matrix/$leg" && ctest --output-on-failure --no-tests=error -j 2 --timeout "$seconds" "$@")
}

# use_lists ARCHITECTURE FOLDER: sets `apt` to a command with package lists of its own in FOLDER, which it
# fetches, so that packages of any architecture can be downloaded without root and without changing this
# machine's package database.
use_lists() {
  local architecture=$1 folder=$2
  mkdir -p "$folder"/{lists,cache}/partial
  apt=(apt-get -q -o "APT::Architecture=$architecture" -o "APT::Architectures=$architecture"
    -o "Dir::State::Lists=$PWD/$folder/lists" -o "Dir::Cache=$PWD/$folder/cache"
    -o Dir::State::status=/dev/null -o APT::Sandbox::User=root -o Debug::NoLocking=true)
  # A mirror may lack one of the lists. The packages may still be found in the others.
  "${apt[@]}" update || echo "test_matrix.sh: some lists are missing; trying without them" >&2
}

# unpack FOLDER PACKAGE...: downloads the packages and unpacks them into FOLDER.
unpack() {
  local folder=$1 package
  (cd "$folder/apt" && "${apt[@]}" download "${@:2}")
  for package in "$folder"/apt/*.deb; do dpkg-deb -x "$package" "$folder"; done
}

# sysroot ARCHITECTURE FOLDER: gets the libraries of another architecture.
sysroot() {
  local architecture=$1 folder=$2
  [ ! -e "$folder/complete" ] || return 0
  rm -rf "$folder"
  echo "Unpacking libraries for $architecture into $folder"
  use_lists "$architecture" "$folder/apt"
  # The names of these libraries differ from release to release.
  local runtime
  runtime=$(apt-cache "${apt[@]:1}" depends libutf8proc-dev libfmt-dev |
    sed -n 's/^ *Depends: \(lib\(utf8proc\|fmt\)[0-9]*\)$/\1/p')
  [ "$(wc -w <<<"$runtime")" = 2 ] || { echo "test_matrix.sh: libraries not found in the lists" >&2; return 1; }
  # shellcheck disable=SC2086
  unpack "$folder" libsqlite3-0 libsqlite3-dev $runtime libutf8proc-dev libfmt-dev libcli11-dev \
    nlohmann-json3-dev
  touch "$folder/complete"
}

# cross ARCHITECTURE TRIPLET PROCESSOR EMULATOR
cross() {
  local architecture=$1
  if [ "$(dpkg --print-architecture)" = "$architecture" ]; then
    echo "== $architecture: this machine's own architecture; covered by the leg g++ =="
    return 0
  fi
  bash scripts/install.sh build "cross-$architecture"
  local folder="build/matrix/sysroot-$architecture"
  sysroot "$architecture" "$folder"
  build "$architecture" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/debian-cross.cmake" \
    -DCORVAN_CROSS_TRIPLET="$2" -DCORVAN_CROSS_PROCESSOR="$3" -DCORVAN_CROSS_EMULATOR="$4" \
    -DCORVAN_CROSS_SYSROOT="$PWD/$folder"
  test_leg "$architecture" 1800
}

# windows_sysroot FOLDER: gets the headers of the libraries without code of their own, and builds utf8proc.
windows_sysroot() {
  local folder=$1
  [ ! -e "$folder/complete" ] || return 0
  rm -rf "$folder"
  echo "Making libraries for Windows in $folder"
  use_lists "$(dpkg --print-architecture)" "$folder/apt"
  unpack "$folder" libcli11-dev libfmt-dev nlohmann-json3-dev
  # The CMake package of fmt names a compiled library for Linux here. The one in headers remains.
  find "$folder" -name 'fmt-targets-*.cmake' -delete
  bash scripts/debian_source.sh utf8proc "$folder/utf8proc"
  cmake -S "$folder/utf8proc/source" -B "$folder/utf8proc/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DBUILD_SHARED_LIBS=OFF -DCMAKE_INSTALL_PREFIX="$PWD/$folder/usr" -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/debian-mingw.cmake"
  cmake --build "$folder/utf8proc/build" --target install
  # The header takes utf8proc for a DLL unless it is told otherwise. The library here is always static,
  # so its .pc file is the place to say so.
  # shellcheck disable=SC2016  # pkg-config expands it
  sed -i 's/^Cflags:.*/Cflags: -I${includedir} -DUTF8PROC_STATIC/' "$folder/usr/lib/pkgconfig/libutf8proc.pc"
  touch "$folder/complete"
}

# native_exchange FOLDER: builds the program that exchange.sh needs, for this machine and its SQLite.
native_exchange() {
  cmake -S . -B "$1" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DCMAKE_CXX_COMPILER=g++ \
    -DCORVAN_WERROR=ON -DCORVAN_BUILD_TOOLS=OFF -DCORVAN_BUILD_EXAMPLES=OFF \
    -DCORVAN_GTEST_SOURCE=/usr/src/googletest
  cmake --build "$1" --target store_exchange
}

windows_build() {
  local folder=build/matrix/sysroot-windows sqlite=build/matrix/sqlite-amalgamation
  bash scripts/install.sh build tests-source windows
  bash scripts/sqlite.sh --source "$sqlite"
  windows_sysroot "$folder"
  build windows -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/debian-mingw.cmake" \
    -DCORVAN_WINDOWS_SYSROOT="$PWD/$folder" -DCORVAN_WINE_PREFIX="$PWD/$wine_prefix" \
    -Dfmt_DIR="$(find "$PWD/$folder" -name fmt-config.cmake -printf %h)" \
    -DCORVAN_SQLITE_AMALGAMATION="$PWD/$sqlite"
}

end_wine() {
  bash scripts/wine.sh "$wine_prefix" --end
}

windows_tests() {
  trap end_wine EXIT
  bash scripts/wine.sh "$wine_prefix" --start
  test_leg windows 300
  bash scripts/exchange.sh build/matrix/windows/exchange \
    build/matrix/windows-native/tests/exchange/store_exchange -- \
    bash scripts/wine.sh "$wine_prefix" build/matrix/windows/tests/exchange/store_exchange.exe
  end_wine
  trap - EXIT
}

# build_with_sqlite LEG [ARGUMENT...]: the arguments are those of sqlite.sh.
build_with_sqlite() {
  local leg=$1
  bash scripts/install.sh build tools tests-source
  bash scripts/sqlite.sh --source "${@:2}" "build/matrix/$leg-amalgamation"
  build "$leg" -DCMAKE_CXX_COMPILER=g++ \
    -DCORVAN_SQLITE_AMALGAMATION="$PWD/build/matrix/$leg-amalgamation"
}

# with_sqlite LEG [ARGUMENT...]: as build_with_sqlite, and runs the tests.
with_sqlite() {
  build_with_sqlite "$@"
  test_leg "$1" 120
}

for leg in "${legs[@]}"; do
  echo "== $leg =="
  start=$SECONDS
  case "$leg" in
    g++)
      bash scripts/install.sh build tools tests-source
      build "$leg" -DCMAKE_CXX_COMPILER=g++
      test_leg "$leg" 120
      ;;
    clang++)
      bash scripts/install.sh build tools tests-source libc++
      build "$leg" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DCMAKE_CXX_FLAGS=-stdlib=libc++
      test_leg "$leg" 120
      ;;
    sqlite) with_sqlite "$leg" ;;
    sqlite-upstream) with_sqlite "$leg" --upstream ;;
    cipher) with_sqlite "$leg" --cipher ;;
    sqlcipher)
      bash scripts/install.sh build tests-source sqlcipher
      build "$leg" -DCMAKE_CXX_COMPILER=g++ -DCORVAN_BUILD_TOOLS=OFF \
        -DSQLite3_INCLUDE_DIR=/usr/include/sqlcipher \
        -DSQLite3_LIBRARY="$(g++ -print-file-name=libsqlcipher.so)"
      test_leg "$leg" 120
      ;;
    encrypted)
      build_with_sqlite cipher --cipher
      CORVAN_TEST_ENCRYPTED=1 test_leg cipher 120 -L store
      test_leg cipher 120 -LE store
      ;;
    arm64) cross arm64 aarch64-linux-gnu aarch64 qemu-aarch64-static ;;
    armhf) cross armhf arm-linux-gnueabihf arm qemu-arm-static ;;
    windows)
      windows_build
      native_exchange build/matrix/windows-native
      windows_tests
      ;;
    debian12) bash scripts/clean_system.sh bookworm build/matrix/debian12 ;;
    debian13) bash scripts/clean_system.sh trixie build/matrix/debian13 ;;
  esac
  echo "== $leg: passed, $((SECONDS - start)) s =="
done
