#!/usr/bin/env bash
# Fentra soak: runs a copy of the program from a fresh directory under an X server of its own
# and drives it with random keys and pointer moves for the given number of minutes (soak.py does
# the driving and the checks). The seed is printed first; give it again to replay the same key
# sequence. Exits non-zero when the program dies, hangs, grows its peak memory by more than
# 10 %, leaves strange files or does not end with status 0 on Q.
# Usage: bash soak.sh <path to the fentra executable> [minutes, default 30] [seed]
set -u
exe=$(readlink -f "$1")
minutes=${2:-30}
seed=${3:-${FENTRA_SOAK_SEED:-$(( $(date +%s%N) % 1000000007 ))}}
here=$(cd "$(dirname "$0")" && pwd)
echo "soak: seed $seed, $minutes min (replay: bash $here/soak.sh $exe $minutes $seed)"

work=$(mktemp -d)
mkdir "$work/run"
cp "$exe" "$work/run/fentra"

# Its own server, so no other test's window can take the keyboard focus; the bound covers the
# run, the start and the wait for the exit.
limit=$(python3 -c "print(int($minutes * 60 + 240))")
timeout -k 5 "$limit" xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" \
    python3 "$here/soak.py" "$work/run" "$minutes" "$seed" "$work"
status=$?

if [ "$status" -eq 0 ]; then
    rm -rf "$work"
else
    rm -f "$work"/run/Fentra_*.bmp
    echo "soak: FAILED (status $status); seed $seed; actions and output kept in $work"
fi
exit "$status"
