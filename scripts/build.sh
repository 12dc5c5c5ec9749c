#!/usr/bin/env bash
# Configures and builds Fentra, its tests and benchmarks into build/ (or $FENTRA_BUILD_DIR).
# Extra arguments go to the CMake configure step, e.g. -DFENTRA_SANITIZE=ON.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${FENTRA_BUILD_DIR:-build}
mkdir -p "$build_dir"
cmake -S . -B "$build_dir" -G Ninja -DFENTRA_WERROR=ON "$@" > "$build_dir/configure.log" 2>&1 \
  || { cat "$build_dir/configure.log"; exit 1; }
cmake --build "$build_dir"
