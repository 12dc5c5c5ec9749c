#!/usr/bin/env bash
# The browser tests: builds the web version (scripts/web.sh), installs playwright-core as pinned
# in package-lock.json, saves the desktop build's scenes (its web_scenes program under a virtual
# X server), then drives Debian's Chromium with browser_test.js. Pictures that fail are kept in
# $FENTRA_WEB_KEEP when it names a directory.
# Usage: bash tests/web/run.sh [desktop build dir]
#        bash tests/web/run.sh --bench [desktop build dir]   (the frame intervals, beside the
#        desktop's from its build's bench_frame)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
desktop_build=$root/${1:-build}
[ "${1:-}" = "--bench" ] && desktop_build=""
web_build=$root/${FENTRA_WEB_BUILD_DIR:-build-web}
FENTRA_WEB_BUILD_DIR=$web_build bash "$root/scripts/web.sh" --build-only
(cd "$here" && PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund --silent)
if [ -z "$desktop_build" ]; then
  node "$here/browser_test.js" "$web_build" --bench
  # The desktop's frames on the same machine, from the desktop build's frame benchmark.
  desktop_bench=$root/${2:-build}/bench/bench_frame
  if [ -x "$desktop_bench" ]; then
    echo "The desktop build (Mesa's llvmpipe), for comparison:"
    xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" "$desktop_bench" \
      --benchmark_filter='BM_frame_(default|kora)' 2>/dev/null | grep -E '^BM_'
  else
    echo "No desktop frame benchmark at $desktop_bench: build it (scripts/build.sh) to compare."
  fi
  exit 0
fi
scenes=$(mktemp -d)
trap 'rm -rf "$scenes"' EXIT
timeout -k 5 120 xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" \
  "$desktop_build/tests/web_scenes" "$scenes"
timeout -k 5 900 node "$here/browser_test.js" "$web_build" "$scenes" ${FENTRA_WEB_KEEP:+"$FENTRA_WEB_KEEP"}
