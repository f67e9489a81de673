#!/usr/bin/env bash
# Runs scripts/demo.sh and scripts/test.sh in an empty Debian system that it creates in a folder: first
# as root, then as an ordinary user, both in a home that nobody else can enter. Needs root.
#
# Usage: clean_system.sh CODENAME FOLDER
# CODENAME names a Debian release, such as trixie. FOLDER keeps the empty system for the next run and,
# if a command fails, the system in which it failed. Packages come from this machine's Debian mirrors.
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
  echo "clean_system.sh: $*" >&2
  exit 2
}
[ $# = 2 ] || fail "usage: clean_system.sh CODENAME FOLDER"
codename=$1
[ "$(id -u)" = 0 ] || fail "setting up a Debian system in a folder needs root"
unshare --mount true 2>/dev/null || fail "mounting is not permitted here; run it as root outside a container"
bash scripts/install.sh clean-system
mkdir -p "$2"
folder=$(realpath "$2")
exec 9>"$folder/lock"
flock --nonblock 9 || fail "$folder: another run is using it; wait for it to finish"
empty=$folder/empty
system=$folder/system

# Mounts made by this script disappear with its processes. Refuses if anything else is mounted below $1.
remove() {
  local mounts
  mounts=$(findmnt --list --noheadings --output TARGET)
  [[ $mounts != *"$1/"* ]] || fail "$1: something is mounted in it; unmount that first"
  rm -rf --one-file-system "$1"
}

# This machine's Debian archives as sources.list lines for the release; empty if apt knows none.
sources() {
  local uri name
  # shellcheck disable=SC2016  # apt-get expands the fields
  apt-get indextargets --format '$(REPO_URI) $(CODENAME)' 'Created-By: Packages' 'Origin: Debian' \
    'Component: main' "Architecture: $(dpkg --print-architecture)" |
    while read -r uri name; do
      case "$uri $name" in
        http*' '*-proposed-updates) ;;
        http*' '*-updates | http*' '*-security) echo "deb $uri $codename-${name##*-} main" ;;
        http*' '*-*) ;;
        http*) echo "deb $uri $codename main" ;;
      esac
    done | sort -u
}

# This machine's settings for downloads, such as a proxy.
download_settings() {
  apt-config dump | grep -E '^Acquire::(https?::|Check-|Retries )' | grep -v 'Auto-\?Detect' || true
}

make_empty_system() {
  [ ! -d "$empty" ] || return 0
  remove "$empty.part"
  local archives
  archives=$(sources)
  if [ -z "$archives" ]; then
    apt-get update -q
    archives=$(sources)
  fi
  download_settings >"$folder/apt.conf"
  local options=(--mode=root --variant=minbase --aptopt="$folder/apt.conf")
  [[ $archives != *https:* ]] || options+=(--include=ca-certificates)
  # Without archives, mmdebstrap uses its default mirror.
  unshare --mount mmdebstrap "${options[@]}" "$codename" "$empty.part" ${archives:+-} <<<"$archives"
  mv "$empty.part" "$empty"
}

# The tracked files in their current state; without git, all files except build output.
files() {
  local file
  { git -c safe.directory="$PWD" ls-files -z 2>/dev/null ||
    find . \( -path ./build -o -path ./.cache \) -prune -o -type f -print0; } |
    while IFS= read -r -d '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done
}

# Creates a new system with the project in root's home.
make_system() {
  remove "$system"
  cp -a "$empty" "$system"
  local file
  for file in resolv.conf hosts; do
    [ ! -e "/etc/$file" ] || cp --remove-destination "/etc/$file" "$system/etc/$file"
  done
  chmod 0700 "$system/root"
  mkdir "$system/root/corvan"
  files | tar --null --files-from=- --create | tar --extract --no-same-owner --directory "$system/root/corvan"
}

# in_system SCRIPT: runs it in the system. Mounts and processes end with the script.
in_system() {
  local variable kept=()
  for variable in http_proxy https_proxy no_proxy; do
    [ -z "${!variable:-}" ] || kept+=("$variable=${!variable}")
  done
  # shellcheck disable=SC2016  # for the inner shell
  unshare --mount --pid --fork --kill-child bash -euc '
    mount -t proc proc "$0/proc"
    mount --rbind /dev "$0/dev"
    mount -t tmpfs tmpfs "$0/dev/shm"
    exec chroot "$0" "$@"' "$system" \
    env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 "${kept[@]}" bash -euc "$1" </dev/null
}

# run_as USER COMMAND
run_as() {
  local start=$SECONDS
  echo "== $codename, as $1: $2 =="
  in_system "cd /root/corvan && setpriv --reuid $1 --regid $1 --clear-groups $2"
  echo "== $codename, as $1: $2: $((SECONDS - start)) s =="
}

make_empty_system
make_system
run_as root "bash scripts/demo.sh"
run_as root "bash scripts/test.sh"
# The ordinary user takes over root's home with the build in it, so that the build's paths stay valid.
in_system "useradd --home-dir /root tester && chown -R tester: /root"
run_as tester "bash scripts/demo.sh"
run_as tester "bash scripts/test.sh"
remove "$system"
