#!/usr/bin/env bash
# Installs what is missing, builds everything and runs the whole test suite headless (under a
# virtual X server, so GL and end-to-end tests get a 1920x1080 screen), twice: a normal build in
# build/, then a build with the address and undefined-behaviour sanitizers in build-asan/ (no
# benchmarks there); then the display-free tests cross-built for arm64 in build-arm64/ and run
# under qemu; then static analysis; then the web build and its browser tests. Everything
# always runs; the script fails if any part does.
# FENTRA_BUILD_DIR and FENTRA_ASAN_BUILD_DIR choose other build directories.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh test

# run_suite <build dir> <labels to leave out>
run_suite() {
  xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" \
    ctest --test-dir "$1" --output-on-failure -j2 -LE "$2"
}

build_dir=${FENTRA_BUILD_DIR:-build}
asan_build_dir=${FENTRA_ASAN_BUILD_DIR:-build-asan}

status=0
FENTRA_BUILD_DIR=$build_dir bash scripts/build.sh
run_suite "$build_dir" 'fuzz|manual' || status=1

# Sanitizer findings stop the program at the first one, with its stack. Leaks count too,
# except the ones system libraries keep until exit (tests/lsan.supp).
export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
FENTRA_BUILD_DIR=$asan_build_dir bash scripts/build.sh -DFENTRA_SANITIZE=ON -DFENTRA_BENCHMARKS=OFF
# The two-minute soak runs in the normal build only.
run_suite "$asan_build_dir" 'fuzz|manual|soak' || status=1

# The display-free tests (physics, formats, reports, text markup) built for 64-bit ARM with
# Debian's cross compiler and run under qemu-user: the same results, bit for bit.
# On a 64-bit ARM machine the builds above already ran them natively.
arm64_build_dir=${FENTRA_ARM64_BUILD_DIR:-build-arm64}
unset ASAN_OPTIONS LSAN_OPTIONS UBSAN_OPTIONS
if [ "$(dpkg --print-architecture)" != arm64 ]; then
  FENTRA_BUILD_DIR=$arm64_build_dir bash scripts/build.sh \
    -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake -DFENTRA_DISPLAY=OFF -DFENTRA_BENCHMARKS=OFF
  ctest --test-dir "$arm64_build_dir" --output-on-failure -j2 || status=1
fi

# Static analysis (clang-tidy and cppcheck) over the compile commands of the normal build.
FENTRA_BUILD_DIR=$build_dir bash tools/analyse.sh || status=1

# The web build (build-web/) in headless Chromium: its scenes against the normal build's
# pictures, then the program's start, keys, screenshot download and end.
bash tests/web/run.sh "$build_dir" || status=1

exit $status
