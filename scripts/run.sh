#!/usr/bin/env bash
# Installs what playing needs and is missing, builds the program alone (no tests, no
# benchmarks, warnings allowed) into build-play/ (or $FENTRA_BUILD_DIR) and starts it.
# The same on x86-64 and 64-bit ARM (Raspberry Pi OS, Debian 12 arm64).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh play
build_dir=${FENTRA_BUILD_DIR:-build-play}
mkdir -p "$build_dir"
cmake -S . -B "$build_dir" -G Ninja -DFENTRA_TESTS=OFF -DFENTRA_BENCHMARKS=OFF \
  > "$build_dir/configure.log" 2>&1 || { cat "$build_dir/configure.log"; exit 1; }
cmake --build "$build_dir" --target fentra
exec "$build_dir/fentra/fentra"
