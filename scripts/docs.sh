#!/usr/bin/env bash
# Builds the reference of the library's headers, build/docs/api/html/index.html. Any Doxygen warning is
# an error. Usage: docs.sh
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install.sh docs
mkdir -p build/docs/api
doxygen docs/api/Doxyfile
echo "build/docs/api/html/index.html"
