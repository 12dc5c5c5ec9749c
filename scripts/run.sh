#!/usr/bin/env bash
# Installs what is missing, builds Fentra and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
exec "${FENTRA_BUILD_DIR:-build}/fentra/fentra"
