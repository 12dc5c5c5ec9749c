#!/usr/bin/env bash
# Fentra soak, short form for the test suite: two minutes of random keys and pointer moves
# (tests/soak/soak.sh), checked for crashes, hangs, memory growth, stray files and a clean exit.
# Usage: bash soak_short.sh <path to the fentra executable>
here=$(cd "$(dirname "$0")" && pwd)
exec bash "$here/../soak/soak.sh" "$1" 2
