#!/usr/bin/env bash
# Installs what is missing, builds everything and runs the whole test suite headless
# (under a virtual X server, so GL and end-to-end tests get a 1920x1080 screen).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
xvfb-run -a -s "-screen 0 1920x1080x24" \
  ctest --test-dir build --output-on-failure -j2 -LE 'fuzz|manual'
