#!/usr/bin/env bash
# Installs the libraries, and builds, links and runs programs against them from a folder outside the
# source tree: static and shared; through the CMake package, pkg-config, add_subdirectory and the
# Debian packages; with the default base and with a host's own. Prints one line per check and stops at
# the first failure.
#
# Usage: consumers.sh [--build FOLDER] [--tool] [--dpkg] [--sqlite FOLDER]
#   --build  build folder for the libraries (default: build/consumers)
#   --tool   also builds the tool and its package; takes two more minutes
#   --dpkg   also installs the Debian packages on this machine, and purges them again; needs root
#   --sqlite compiles the SQLite in FOLDER into the libraries: -DCORVAN_SQLITE_AMALGAMATION=FOLDER
# CXX selects the compiler.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/consumers
tool=OFF
dpkg=
sqlite=
while [ $# -gt 0 ]; do
  case "$1" in
    --build)
      [ $# -ge 2 ] || { echo "consumers.sh: --build needs a folder" >&2; exit 2; }
      build=$2
      shift
      ;;
    --sqlite)
      [ $# -ge 2 ] || { echo "consumers.sh: --sqlite needs a folder" >&2; exit 2; }
      sqlite=$(realpath "$2")
      shift
      ;;
    --tool) tool=ON ;;
    --dpkg) dpkg=yes ;;
    *)
      echo "consumers.sh: unknown argument: $1;" \
        "usage: consumers.sh [--build FOLDER] [--tool] [--dpkg] [--sqlite FOLDER]" >&2
      exit 2
      ;;
  esac
  shift
done
if [ -n "$dpkg" ] && [ "$(id -u)" != 0 ]; then
  echo "consumers.sh: --dpkg needs root" >&2
  exit 2
fi

purposes=(build packages search)
[ "$tool" = OFF ] || purposes+=(tools)
bash scripts/install.sh "${purposes[@]}"
export CXX=${CXX:-g++}
unset CCACHE_BASEDIR  # it would change the paths on the compiler's command line, and so in the output
source=$PWD
version=$(sed -n 's/^project(corvan_store VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
minor=${version%.*}
mkdir -p "$build"
build=$(realpath "$build")
work=$(mktemp -d "${TMPDIR:-/tmp}/corvan-consumers-XXXXXX")
trap 'rm -rf "$work"' EXIT
cp -r tests/consumers "$work/consumers"
cp -r examples/own_base "$work/own_base"
cd "$work"

fail() {
  echo "consumers.sh: $check: $*" >&2
  if [ -s "$work/log" ]; then tail -n 40 "$work/log" >&2; fi
  exit 1
}
# quietly COMMAND...: shows its output only if it fails.
quietly() {
  "$@" >"$work/log" 2>&1 || fail "failed: $*"
}
# refused TEXT COMMAND...: the command must fail and print TEXT.
refused() {
  local text=$1
  shift
  if "$@" >"$work/log" 2>&1; then fail "did not fail: $*"; fi
  [[ "$(tr -s '\n ' ' ' <"$work/log")" == *"$text"* ]] || fail "does not say \"$text\": $*"
}
passed() {
  echo "passed: $check"
}

# run PROGRAM: runs one of the consumers in an empty folder.
run() {
  local printed
  rm -rf run
  mkdir run
  printed=$(cd run && "$1" 2>&1) || fail "failed: $1: $printed"
  [ "$printed" = "peer: Hello!"$'\n'"headers $version, $version; schema 1" ] ||
    fail "printed: $printed"
}
# loads PROGRAM yes|no [NAME]: whether it loads our shared library NAME (default: db), and finds it.
loads() {
  local found=no
  [[ "$(ldd "$1")" != *"libcorvan_${3:-db}.so.$minor => /"* ]] || found=yes
  [ "$found" = "$2" ] || fail "loads the shared library: $found, wanted: $2"
}

# consumer_cmake FLAVOUR|"" PREFIX OPTION...: configures and builds the consumer in the folder "program".
consumer_cmake() {
  rm -rf program
  quietly cmake -S consumers/cmake_package -B program -G Ninja -DCORVAN_FLAVOUR="$1" \
    -DCMAKE_PREFIX_PATH="$2" "${@:3}"
  quietly cmake --build program
}
# with_pkg_config PREFIX COMMAND...
with_pkg_config() {
  local folder
  folder=$(find "$(realpath "$1")" -name corvan.pc -printf '%h')
  PKG_CONFIG_PATH=$folder "${@:2}"
}
consumer_pkg_config() {
  rm -f consumers/pkg_config/consumer
  quietly with_pkg_config "$1" make -C consumers/pkg_config "${@:2}"
}
# The folder of the shared libraries below a prefix.
library_folder() {
  find "$1" -name "libcorvan_db.so.$minor" -printf '%h'
}

# tree NAME OPTION...: builds and installs the project, then moves the installation to tree-NAME, so that
# nothing can depend on the configured prefix. -O1 halves the build time and affects no check.
# --no-undefined is what some toolchains pass for all shared libraries.
tree() {
  quietly cmake -S "$source" -B "$build/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_FLAGS_RELEASE=-O1 -DCMAKE_CXX_COMPILER="$CXX" -DCORVAN_WERROR=ON -DCORVAN_BUILD_TESTS=OFF \
    -DCORVAN_BUILD_EXAMPLES=OFF -DCMAKE_INSTALL_PREFIX=/usr -DCORVAN_LIBRARY="$1" \
    -DCMAKE_SHARED_LINKER_FLAGS=-Wl,--no-undefined -DCORVAN_SQLITE_AMALGAMATION="$sqlite" "${@:2}"
  quietly cmake --build "$build/$1"
  quietly env DESTDIR="$work/staged-$1" cmake --install "$build/$1"
  mv "staged-$1/usr" "tree-$1"
}

# ---- What is installed -----------------------------------------------------------------------------

for library in static shared both; do
  check="build and install: $library"
  tree "$library" -DCORVAN_BUILD_TOOLS="$([ "$library" = both ] && echo "$tool" || echo OFF)"
  [ -z "$(find "staged-$library" -type f)" ] || fail "files outside of the prefix"
  # Installed files must not contain paths of this build.
  if grep -rlF -e "$build" -e "$source" -e "$work" "tree-$library" >log; then
    fail "files contain a path of the build"
  fi
  passed
done

check="install under another prefix"
quietly cmake --install "$build/static" --prefix "$work/elsewhere"
diff -r elsewhere tree-static >log || fail "differs from what DESTDIR installs"
passed

# The shared libraries export every function of the archives except private members, and nothing else
# except inline members of the same classes.
check="exported symbols"
folder=$(library_folder tree-both)
shared_libraries=(base db db_cached)
[ -n "$sqlite" ] || shared_libraries+=(encryption search)
for name in "${shared_libraries[@]}"; do
  nm -C --defined-only --extern-only "$folder/libcorvan_$name.a" |
    sed -n 's/^[0-9a-f]* [TBD] //p' | grep -vxF -e 'Corvan::CvDbSingleton::~CvDbSingleton()' \
      -e 'Corvan::CvDbSingleton::prepare(char const*, int&)' \
      -e 'Corvan::CvDbSingleton::instance_' |
    grep -v '^corvan_cached_\|^Corvan::\(statement_cache\|encryption\|search\)::' | sort -u >functions
  nm -DC --defined-only "$folder/libcorvan_$name.so" |
    grep -v -e " A CORVAN_$minor\$" -e ' W \(Corvan\|cvrtc\)::' |
    sed "s/^[0-9a-f]* . //; s/@@CORVAN_$minor\$//" | sort -u >exported
  [ -s functions ] || fail "$name: the archive has no functions"
  diff functions exported >log || fail "libcorvan_$name.so: differs from the archive (<)"
done
passed

check="names of the shared libraries"
for name in base db db_cached; do
  [[ "$(readelf -d "$folder/libcorvan_$name.so")" == *"soname: [libcorvan_$name.so.$minor]"* ]] ||
    fail "libcorvan_$name.so: not libcorvan_$name.so.$minor"
done
for name in db db_cached; do
  [[ "$(readelf -d "$folder/libcorvan_$name.so")" != *corvan_base* ]] ||
    fail "libcorvan_$name.so: depends on the default base"
done
passed

if [ "$tool" = ON ]; then
  check="the tool"
  [[ "$(tree-both/bin/corvan --version 2>&1)" == "corvan $version"* ]] ||
    fail "does not name its version"
  passed
fi

# ---- The CMake package -----------------------------------------------------------------------------

for flavour in static shared; do
  for library in "$flavour" both; do
    check="CMake package: $flavour, where $library is installed"
    consumer_cmake "$flavour" "$work/tree-$library" -DCORVAN_WANTED="$minor"
    wanted=$([ "$flavour" = shared ] && echo yes || echo no)
    loads program/consumer "$wanted"
    run "$work/program/consumer"
    loads program/cached no
    loads program/cached "$wanted" db_cached
    run "$work/program/cached"
    if [ "$flavour" = shared ] && [ -n "$sqlite" ]; then
      # The shared store keeps its SQLite to itself.
      [ ! -e program/encrypted ] || fail "offers encryption for another SQLite than the store's"
      [ ! -e program/searching ] || fail "offers search with another SQLite than the store's"
    else
      loads program/encrypted "$wanted" encryption
      run "$work/program/encrypted"
      loads program/searching "$wanted" search
      run "$work/program/searching"
    fi
    passed
  done
done

check="CMake package: without a component, static"
consumer_cmake "" "$work/tree-both"
loads program/consumer no
passed

check="CMake package: without a component, shared with BUILD_SHARED_LIBS=ON"
consumer_cmake "" "$work/tree-both" -DBUILD_SHARED_LIBS=ON
loads program/consumer yes
passed

check="CMake package: an optional component that is not installed"
consumer_cmake "OPTIONAL_COMPONENTS;shared" "$work/tree-static"
loads program/consumer no
passed

check="CMake package: shared, on a machine without SQLite's headers"
consumer_cmake shared "$work/tree-shared" -DCMAKE_DISABLE_FIND_PACKAGE_SQLite3=ON
run "$work/program/consumer"
passed

check="CMake package: static, on a machine without utf8proc's headers"
consumer_cmake static "$work/tree-static" -DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON
[ ! -e program/searching ] || fail "offers search without utf8proc"
run "$work/program/consumer"
passed

if [ -n "$sqlite" ]; then
  check="CMake package: static, with SQLite in it, on a machine without SQLite's headers"
  consumer_cmake static "$work/tree-static" -DCMAKE_DISABLE_FIND_PACKAGE_SQLite3=ON
  [[ "$(ldd program/consumer)" != *libsqlite3* ]] || fail "loads an SQLite of the system"
  run "$work/program/consumer"
  passed
fi

check="CMake package: refuses a missing component or version, and both libraries of the store"
rm -rf program
refused "not installed here: shared" cmake -S consumers/cmake_package -B program -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/tree-static" -DCORVAN_FLAVOUR=shared
refused "CORVAN_STORE" cmake -S consumers/cmake_package -B program -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/tree-static" -DCORVAN_FLAVOUR=static -DBOTH_STORES=ON
next=${minor%.*}.$((${minor#*.} + 1))
refused "version \"$next\"" cmake -S consumers/cmake_package -B program -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/tree-static" -DCORVAN_WANTED="$next"
passed

# ---- pkg-config ------------------------------------------------------------------------------------

check="pkg-config: static alone"
consumer_pkg_config tree-static
loads consumers/pkg_config/consumer no
run "$work/consumers/pkg_config/consumer"
passed

for library in shared both; do
  check="pkg-config: shared, where $library is installed"
  consumer_pkg_config "tree-$library"
  LD_LIBRARY_PATH=$(library_folder "$work/tree-$library")
  export LD_LIBRARY_PATH
  loads consumers/pkg_config/consumer yes
  run "$work/consumers/pkg_config/consumer"
  unset LD_LIBRARY_PATH
  passed
done

check="pkg-config: with the statement cache, static and shared"
cached=(PACKAGE=corvan-cached CXXFLAGS=-DWITH_STATEMENT_CACHE)
consumer_pkg_config tree-static "${cached[@]}"
run "$work/consumers/pkg_config/consumer"
consumer_pkg_config tree-shared "${cached[@]}"
LD_LIBRARY_PATH=$(library_folder "$work/tree-shared")
export LD_LIBRARY_PATH
loads consumers/pkg_config/consumer yes db_cached
run "$work/consumers/pkg_config/consumer"
unset LD_LIBRARY_PATH
passed

check="pkg-config: with encryption, static and shared"
encrypted=(PACKAGE="corvan-encryption corvan" CXXFLAGS=-DWITH_ENCRYPTION)
consumer_pkg_config tree-static "${encrypted[@]}"
run "$work/consumers/pkg_config/consumer"
if [ -z "$sqlite" ]; then
  consumer_pkg_config tree-shared "${encrypted[@]}"
  LD_LIBRARY_PATH=$(library_folder "$work/tree-shared")
  export LD_LIBRARY_PATH
  loads consumers/pkg_config/consumer yes encryption
  run "$work/consumers/pkg_config/consumer"
  unset LD_LIBRARY_PATH
fi
passed

check="pkg-config: with search, static and shared"
searching=(PACKAGE="corvan-search corvan" CXXFLAGS=-DWITH_SEARCH)
consumer_pkg_config tree-static "${searching[@]}"
run "$work/consumers/pkg_config/consumer"
if [ -z "$sqlite" ]; then
  consumer_pkg_config tree-shared "${searching[@]}"
  LD_LIBRARY_PATH=$(library_folder "$work/tree-shared")
  export LD_LIBRARY_PATH
  loads consumers/pkg_config/consumer yes search
  run "$work/consumers/pkg_config/consumer"
  unset LD_LIBRARY_PATH
fi
passed

check="pkg-config: shared alone, on a machine without SQLite's headers"
folder=$(find "$work/tree-shared" -name corvan.pc -printf '%h')
quietly env -u PKG_CONFIG_PATH PKG_CONFIG_LIBDIR="$folder" pkg-config --cflags --libs corvan
[ -n "$sqlite" ] ||
  quietly env -u PKG_CONFIG_PATH PKG_CONFIG_LIBDIR="$folder" pkg-config --cflags --libs corvan-search
passed

# No linking here: the other libraries that SQLite's .pc file names for static programs may be missing.
check="pkg-config --static: names SQLite, after the store"
named=$(with_pkg_config tree-both pkg-config --static --libs corvan)
library=sqlite3
[ -z "$sqlite" ] || library=corvan_sqlite
[[ "$named " == *"-lcorvan_db -lcorvan_base -l$library "* ]] || fail "names: $named"
passed

# ---- Part of another project -----------------------------------------------------------------------

for shared in OFF ON; do
  check="add_subdirectory: BUILD_SHARED_LIBS=$shared"
  rm -rf program installed
  quietly cmake -S consumers/subdirectory -B program -G Ninja -DCORVAN_SOURCE="$source" \
    -DCMAKE_BUILD_TYPE=Debug -DBUILD_SHARED_LIBS="$shared"
  quietly cmake --build program
  wanted=$([ "$shared" = ON ] && echo yes || echo no)
  loads program/consumer "$wanted"
  run "$work/program/consumer"
  loads program/cached "$wanted" db_cached
  run "$work/program/cached"
  loads program/searching "$wanted" search
  run "$work/program/searching"
  quietly cmake --install program --prefix "$work/installed"
  [ "$(cd installed && find . -type f)" = ./bin/consumer ] || fail "installs files of the store"
  passed
done

check="add_subdirectory: an SQLite of the project's own"
rm -rf program
quietly cmake -S consumers/subdirectory -B program -G Ninja -DCORVAN_SOURCE="$source" \
  -DCMAKE_BUILD_TYPE=Debug -DOWN_SQLITE=ON -DCMAKE_DISABLE_FIND_PACKAGE_SQLite3=ON
quietly cmake --build program
run "$work/program/consumer"
passed

# ---- A base of the host's own ----------------------------------------------------------------------

# own_base PROGRAM MAP [NAME]: checks that it runs on its own base and that nothing of ours was linked in.
own_base() {
  quietly cmake -DPROGRAM="$1" -DFOLDER="$work/own_store" -DMAP="$2" -DSTORE="libcorvan_${3:-db}" \
    -DBASE=libcorvan_base -P own_base/check.cmake
}
for library in static shared; do
  check="a host's own base: $library, CMake package"
  consumer_cmake "$library" "$work/tree-$library" -DOWN_BASE="$work/own_base"
  own_base "$work/program/own_base" program/own_base.map
  own_base "$work/program/own_base_cached" program/own_base_cached.map db_cached
  passed

  check="a host's own base: $library, in a plug-in"
  quietly cmake --build program --target plug_in
  refused "Corvan::Timestamp()" cmake --build program --target plug_in_without
  passed

  check="a host's own base: $library, pkg-config"
  libraries=$(with_pkg_config "tree-$library" pkg-config --libs corvan-own-base)
  flags=$(with_pkg_config "tree-$library" pkg-config --cflags corvan-own-base)
  LD_LIBRARY_PATH=$(library_folder "$work/tree-$library")
  export LD_LIBRARY_PATH
  # shellcheck disable=SC2086  # several words on purpose
  {
    refused "Corvan::Timestamp()" "$CXX" -std=c++17 $flags own_base/main.cpp $libraries
    quietly "$CXX" -std=c++17 $flags own_base/*.cpp $libraries -Wl,-Map=own_base.map -o own
  }
  own_base "$work/own" own_base.map
  libraries=$(with_pkg_config "tree-$library" pkg-config --libs corvan-cached-own-base)
  # shellcheck disable=SC2086
  quietly "$CXX" -std=c++17 $flags own_base/*.cpp $libraries -Wl,-Map=own_base.map -o own
  own_base "$work/own" own_base.map db_cached
  unset LD_LIBRARY_PATH
  passed
done

# ---- Debian packages -------------------------------------------------------------------------------

check="Debian packages: build"
rm -f "$build"/both/*.deb
(cd "$build/both" && quietly cpack -G DEB)
mapfile -t packages < <(find "$build/both" -maxdepth 1 -name '*.deb' | sort)
names=$(for package in "${packages[@]}"; do dpkg-deb -f "$package" Package; done | tr '\n' ' ')
wanted="libcorvan-dev libcorvan$minor "
[ "$tool" = OFF ] || wanted="corvan-tools $wanted"
[ "$names" = "$wanted" ] || fail "are: $names"
for package in "${packages[@]}"; do
  depends="$(dpkg-deb -f "$package" Package): $(dpkg-deb -f "$package" Depends)"
  case "${sqlite:+own} $depends" in
    "own "*libsqlite3*) fail "depends on an SQLite of the system: $depends" ;;
    "own libcorvan-dev:"*"libcorvan$minor (= $version)"*libutf8proc-dev*) ;;
    " libcorvan-dev:"*"libcorvan$minor (= $version)"*"libsqlite3-dev"*libutf8proc-dev*) ;;
    *" libcorvan-dev:"*) fail "depends: $depends" ;;
    "own "*libc6*libstdc++6* | " corvan-tools:"*libc6*libsqlite3-0*libstdc++6* | " "*libc6*libsqlite3-0*libstdc++6*libutf8proc*) ;;
    *) fail "depends: $depends" ;;
  esac
done
passed

# consumers_of PREFIX: builds and runs programs with the libraries there.
consumers_of() {
  consumer_cmake static "$1"
  run "$work/program/consumer"
  run "$work/program/cached"
  consumer_cmake shared "$1"
  loads program/consumer yes
  run "$work/program/consumer"
  loads program/cached yes db_cached
  run "$work/program/cached"
  LD_LIBRARY_PATH=$(library_folder "$1")
  export LD_LIBRARY_PATH
  consumer_pkg_config "$1"
  run "$work/consumers/pkg_config/consumer"
  consumer_pkg_config "$1" "${cached[@]}"
  run "$work/consumers/pkg_config/consumer"
  unset LD_LIBRARY_PATH
}

check="Debian packages: programs build and run with the unpacked files"
for package in "${packages[@]}"; do dpkg-deb -x "$package" unpacked; done
[ "$tool" = OFF ] || quietly unpacked/usr/bin/corvan --version
consumers_of "$work/unpacked/usr"
passed

if [ -n "$dpkg" ]; then
  check="Debian packages: programs build and run with the installed packages"
  # shellcheck disable=SC2086  # several names on purpose
  trap 'dpkg --purge $names >/dev/null; rm -rf "$work"' EXIT
  quietly dpkg -i "${packages[@]}"
  [ "$tool" = OFF ] || quietly corvan --version
  consumer_cmake shared ""
  run "$work/program/consumer"
  rm -f consumers/pkg_config/consumer
  quietly make -C consumers/pkg_config
  run "$work/consumers/pkg_config/consumer"
  passed
fi
