#!/usr/bin/env bash
# Installs what is missing, builds Fentra and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
exe=${FENTRA_BUILD_DIR:-build}/fentra/fentra
if [ ! -x "$exe" ]; then
  echo "Fentra built its libraries, but the program itself is not yet runnable in this version."
  exit 1
fi
exec "$exe"
