#!/usr/bin/env bash
# Runs a program for Windows under Wine.
#
# Usage: wine.sh PREFIX PROGRAM [ARGUMENT...]
#   PREFIX   folder with Wine's registry and drive C, about 700 MB; created if it is missing
#   PROGRAM  path of an .exe file, or the name of one of Wine's own programs
# wine.sh PREFIX --start  creates PREFIX and starts Wine's own processes, which otherwise start with a
#                         program and keep its output open for about two seconds after its end
# wine.sh PREFIX --end    ends them; without it, they end after ten minutes without a program
set -euo pipefail

[ $# -ge 2 ] || { echo "usage: wine.sh PREFIX PROGRAM [ARGUMENT...]" >&2; exit 2; }
mkdir -p "$1"
WINEPREFIX=$(realpath "$1")
shift
# Debian's package wine64 does not install its programs into the PATH.
PATH=$PATH:/usr/lib/wine
WINESERVER=$(command -v wineserver64 || command -v wineserver) &&
  wine=$(command -v wine64 || command -v wine) ||
  { echo "wine.sh: Wine is not installed: bash scripts/install.sh windows" >&2; exit 1; }
WINEDEBUG=-all                   # no messages of Wine's own between those of the program
WINEDLLOVERRIDES=mscoree,mshtml=  # no questions about installing .NET and a browser
LC_ALL=C.UTF-8                   # Wine takes the encoding of file names on Linux from the locale
export WINEPREFIX WINESERVER WINEDEBUG WINEDLLOVERRIDES LC_ALL

case "$1" in
  --start)
    "$WINESERVER" -p600 >/dev/null 2>&1 || true  # fails if it runs already
    exec "$wine" wineboot >"$WINEPREFIX/wineboot.log" 2>&1
    ;;
  --end)
    "$WINESERVER" -k || true  # fails if nothing runs
    exec "$WINESERVER" -w
    ;;
  *) exec "$wine" "$@" ;;
esac
