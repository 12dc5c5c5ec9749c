#!/usr/bin/env bash
# Fentra end to end: the built program starts full screen under the test's X server, writes its
# lattice file beside itself, answers the keys of the key table, saves a screenshot on Ctrl+S
# that shows the title, the beam and the heads-up display, and exits with status 0 on Q.
# Usage: bash app_run.sh <path to the fentra executable>
set -u
exe=$(readlink -f "$1")
here=$(cd "$(dirname "$0")" && pwd)
lattice="$here/../../data/kora_sp.txt"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; [ -n "${pid:-}" ] && kill "$pid" 2>/dev/null; exit 1; }

# The program writes into its own directory: run a copy from a fresh one.
cp "$exe" "$work/fentra"
cd "$work"
timeout -k 5 120 ./fentra > out.txt 2>&1 &
pid=$!

wid=$(timeout 20 xdotool search --sync --onlyvisible --class fentra | head -1)
[ -n "$wid" ] || fail "no window"
timeout 5 xdotool windowfocus --sync "$wid" > /dev/null 2>&1 || true
sleep 0.5
kill -0 "$pid" 2>/dev/null || fail "the program ended early: $(cat out.txt)"

cmp -s kora_sp.txt "$lattice" || fail "kora_sp.txt differs from the built-in lattice"

# Holds a key (or a combination "ctrl+s") for 0.2 s, then lets go.
hold() {
    local keys=(${1//+/ }) k
    for k in "${keys[@]}"; do xdotool keydown "$k"; done
    sleep 0.2
    for ((i = ${#keys[@]} - 1; i >= 0; i--)); do xdotool keyup "${keys[$i]}"; done
    sleep 0.15
    kill -0 "$pid" 2>/dev/null || fail "the program ended after $1: $(cat out.txt)"
}

for key in p k g w i f d l a h s c 4 5 KP_Add KP_Subtract; do hold "$key"; done
# Luminous particles and the graphs off again, so the screenshot shows plain dots at the centre.
hold l
hold a
sleep 0.5
hold ctrl+s

shot=""
for _ in $(seq 1 50); do
    shot=$(ls Fentra_*.bmp 2>/dev/null | head -1)
    [ -n "$shot" ] && break
    sleep 0.1
done
[ -n "$shot" ] || fail "no screenshot"
sleep 0.3

xdotool keydown q
sleep 0.2
xdotool keyup q
wait "$pid"
status=$?
[ "$status" -eq 0 ] || fail "exit status $status: $(cat out.txt)"

# ---- The screenshot: a bottom-up 24-bit BMP --------------------------------------------------
le32() { od -An -tu4 -j "$2" -N4 "$1" | tr -d ' '; }
width=$(le32 "$shot" 18)
height=$(le32 "$shot" 22)
[ "$(head -c2 "$shot")" = "BM" ] || fail "not a BMP"
stride=$(( (width * 3 + 3) / 4 * 4 ))
[ "$(stat -c %s "$shot")" -eq $((54 + stride * height)) ] || fail "BMP size"

# The pixels of a rectangle as "r g b" lines.
pixels() {   # x y w h
    local x=$1 y=$2 w=$3 h=$4 row
    for ((row = y; row < y + h; row++)); do
        od -An -v -tu1 -w3 -j $((54 + (height - 1 - row) * stride + 3 * x)) -N $((3 * w)) "$shot" |
            awk '{print $3, $2, $1}'
    done
}
count() { awk "$1" | wc -l; }   # lines of pixels that match an awk condition

# FENTRA_E2E_KEEP names a place to keep the screenshot for a look.
[ -n "${FENTRA_E2E_KEEP:-}" ] && cp "$shot" "$FENTRA_E2E_KEEP"
W=$width
H=$height
echo "screenshot $shot: ${W} x ${H}"
[ "$W" -gt 200 ] && [ "$H" -gt 200 ] || fail "screenshot too small"

lit=$(pixels $((W / 2 - 60)) $((H / 2 - 60)) 120 120 | count '$1 + $2 + $3 > 0')
[ "$lit" -gt 40 ] || fail "no beam near the centre ($lit lit pixels)"
coloured=$(pixels $((W / 2 - 60)) $((H / 2 - 60)) 120 120 | count '$1 != $2 || $2 != $3')
[ "$coloured" -gt 10 ] || fail "momentum spread (D) does not colour the beam ($coloured)"

hud=$(pixels $((3 * W / 4)) 0 120 10 | count '$1 == 0 && $3 == 0 && $2 >= 128')
[ "$hud" -gt 20 ] || fail "no magnet strengths at (3W/4, 0) ($hud green pixels)"
lum=$(pixels $((3 * W / 4)) 50 150 16 | count '$1 > 100 && $2 > 100')
[ "$lum" -gt 20 ] || fail "no luminosity line at (3W/4, 50) ($lum pixels)"
fodo=$(pixels $((W / 2)) 0 80 8 | count '$1 == 0 && $2 == 255 && $3 == 255')
[ "$fodo" -gt 10 ] || fail "no cyan FODO cell / Space-Charge line at (W/2, 0) ($fodo)"
title=$(pixels 0 0 120 20 | count '$1 > 200 && $2 > 200 && $3 > 200')
[ "$title" -gt 20 ] || fail "no title at the top left ($title white pixels)"
# The bar and the peak's outline rise from the bottom edge between 0.94 W and 0.99 W; at the
# luminosity of a wide beam they are only a few pixels high.
bar=$(pixels $((W * 94 / 100 - 1)) $((H - 4)) $((W * 5 / 100 + 2)) 4 | count '$1 + $2 + $3 > 0')
[ "$bar" -ge 2 ] || fail "no luminosity bar at the right edge ($bar)"
scraper_x=$((W / 2 + (H * 3 * 100 / 15) / 100))   # W/2 + 0.03 m x H / 0.15 m
scraper=$(pixels $((scraper_x - 2)) $((H / 2)) 5 1 | count '$1 == 128 && $2 == 0 && $3 == 0')
[ "$scraper" -gt 0 ] || fail "no scraper line at x = $scraper_x (S)"

echo "PASS"
