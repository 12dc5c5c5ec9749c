#!/usr/bin/env bash
# Fentra's secondary views end to end: I shows the ring map, A the phase-space graphs, F1 the
# help page (captured from the X server while the program waits in it) and Space closes it
# again; Ctrl+S after each saves a screenshot whose pixels are checked here.
# Usage: bash views.sh <path to the fentra executable>
# It runs on an X server of its own, so it cannot take keys meant for another program.
# FENTRA_E2E_KEEP names a directory to keep the pictures in for a look.
set -u
if [ -z "${FENTRA_VIEWS_PRIVATE_X:-}" ]; then
    FENTRA_VIEWS_PRIVATE_X=1 exec xvfb-run -a -s "-screen 0 1920x1080x24" bash "$0" "$@"
fi
exe=$(readlink -f "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; [ -n "${pid:-}" ] && kill "$pid" 2>/dev/null; exit 1; }
command -v xwd > /dev/null || fail "xwd is needed to capture the help page (Debian package x11-apps)"

cp "$exe" "$work/fentra"
cd "$work"
timeout -k 5 240 ./fentra > out.txt 2>&1 &
pid=$!
wid=$(timeout 20 xdotool search --sync --onlyvisible --class fentra | head -1)
[ -n "$wid" ] || fail "no window"
timeout 5 xdotool windowfocus --sync "$wid" > /dev/null 2>&1 || true
sleep 0.5
kill -0 "$pid" 2>/dev/null || fail "the program ended early: $(cat out.txt)"

# Holds a key (or a combination "ctrl+s") for 0.2 s, then lets go.
hold() {
    local keys=(${1//+/ }) k i
    for k in "${keys[@]}"; do xdotool keydown "$k"; done
    sleep 0.2
    for ((i = ${#keys[@]} - 1; i >= 0; i--)); do xdotool keyup "${keys[$i]}"; done
    sleep 0.3
    kill -0 "$pid" 2>/dev/null || fail "the program ended after $1: $(cat out.txt)"
}

# Ctrl+S, then the name of the new screenshot.
screenshot() {
    local before after new
    before=$(ls Fentra_*.bmp 2>/dev/null)
    hold ctrl+s
    for _ in $(seq 1 50); do
        after=$(ls Fentra_*.bmp 2>/dev/null)
        new=$(comm -13 <(echo "$before") <(echo "$after") | head -1)
        [ -n "$new" ] && break
        sleep 0.1
    done
    [ -n "$new" ] || fail "no screenshot after Ctrl+S ($1)"
    sleep 0.2
    [ -n "${FENTRA_E2E_KEEP:-}" ] && cp "$new" "$FENTRA_E2E_KEEP/views_$1.bmp"
    echo "$new"
}

# ---- Reading pictures ------------------------------------------------------------------------
# A picture is described by: file, offset of the top row, step from row to row (negative for
# bottom-up files), bytes a pixel, and where red, green and blue lie within a pixel.
le32() { od -An -tu4 -j "$2" -N4 "$1" | tr -d ' '; }
be32() { od -An -tu4 --endian=big -j "$2" -N4 "$1" | tr -d ' '; }

use_bmp() {   # a bottom-up 24-bit BMP
    pic=$1
    [ "$(head -c2 "$pic")" = "BM" ] || fail "$pic is not a BMP"
    W=$(le32 "$pic" 18)
    H=$(le32 "$pic" 22)
    local stride=$(( (W * 3 + 3) / 4 * 4 ))
    [ "$(stat -c %s "$pic")" -eq $((54 + stride * H)) ] || fail "$pic: BMP size"
    top=$((54 + (H - 1) * stride)); step=$((-stride)); bpp=3; red=2; green=1; blue=0
}

use_xwd() {   # an X window dump of a 24-bit screen, 32 bits a pixel
    pic=$1
    local header=$(be32 "$pic" 0) colours=$(be32 "$pic" 76) byte_order=$(be32 "$pic" 28)
    [ "$(be32 "$pic" 44)" -eq 32 ] || fail "$pic: expected 32 bits a pixel"
    W=$(be32 "$pic" 16)
    H=$(be32 "$pic" 20)
    top=$((header + 12 * colours)); step=$(be32 "$pic" 48); bpp=4
    if [ "$byte_order" -eq 0 ]; then red=2; green=1; blue=0; else red=1; green=2; blue=3; fi
}

# The pixels of a rectangle as "r g b" lines (rows in file order).
pixels() {   # x y w h
    local x=$1 y=$2 w=$3 h=$4 first size=${step#-}
    if [ "$step" -gt 0 ]; then first=$((top + y * step)); else first=$((top + (y + h - 1) * step)); fi
    od -An -v -tu1 -w"$size" -j "$first" -N $((h * size)) "$pic" |
        awk -v x="$x" -v w="$w" -v n="$bpp" -v r="$red" -v g="$green" -v b="$blue" \
            '{ for (i = x; i < x + w; i++) print $(i * n + r + 1), $(i * n + g + 1), $(i * n + b + 1) }'
}
count() { awk "$1" | wc -l; }   # pixels that match an awk condition on $1 $2 $3 = r g b

# ---- I: the ring map -------------------------------------------------------------------------
hold i
sleep 0.5
use_bmp "$(screenshot ring)"
echo "ring map: $W x $H"
# The beam pipe (radius 504 pixels round the centre) covers the middle of the map; the rest of
# the ring shows round it, left of the pipe and above it.
pixels 0 0 $((W / 4)) $H > left_quarter.txt
orbit=$(count '$1 == 128 && $2 == 0 && $3 == 128' < left_quarter.txt)
[ "$orbit" -gt 300 ] || fail "no purple orbit line left of the pipe ($orbit pixels)"
focusing=$(count '$1 == 128 && $2 == 0 && $3 == 0' < left_quarter.txt)
defocusing=$(count '$1 == 0 && $2 == 128 && $3 == 128' < left_quarter.txt)
[ "$focusing" -gt 50 ] || fail "no focusing magnets in dark red ($focusing pixels)"
[ "$defocusing" -gt 50 ] || fail "no defocusing magnets in teal ($defocusing pixels)"
# The KORA block of text at (W/4, 20) and the pipe's wall stay where they were.
kora=$(pixels $((W / 4)) 20 200 48 | count '$1 > 0 && $1 == $2 && $2 == $3')
[ "$kora" -gt 50 ] || fail "no KORA lines at (W/4, 20) ($kora white pixels)"

# ---- A: the phase-space graphs -------------------------------------------------------------
hold a
sleep 0.5
use_bmp "$(screenshot graphs)"
row=$((3 * H / 4))
grey='$1 == 128 && $2 == 128 && $3 == 128'
# The axes, partly covered by the dots and the map's lines.
axis=$( (pixels 0 $((row - 1)) $((W / 3)) 2) | count "$grey")
[ "$axis" -gt $((W / 6)) ] || fail "no left horizontal axis on row $row ($axis grey pixels)"
raxis=$( (pixels $((2 * W / 3)) $((row - 1)) $((W / 3)) 2) | count "$grey")
[ "$raxis" -gt $((W / 6)) ] || fail "no right horizontal axis ($raxis grey pixels)"
gap=$( (pixels $((W / 3 + 10)) $((row - 1)) $((W / 3 - 20)) 2) | count "$grey")
[ "$gap" -eq 0 ] || fail "an axis between the graphs ($gap grey pixels)"
vaxis=$( (pixels $((W / 6 - 1)) $((H / 2)) 2 $((H / 2))) | count "$grey")
[ "$vaxis" -gt $((H / 4)) ] || fail "no left vertical axis ($vaxis grey pixels)"
# With the graphs the pipe is smaller and the map's marker shows: the small white diamond at
# the anchor (W/4 + 0.5, H/3 + 0.5), where the camera has brought the beam's point by now.
marker=$(pixels $((W / 4 - 10)) $((H / 3 - 10)) 20 20 | count '$1 == 255 && $2 == 255 && $3 == 255')
[ "$marker" -eq 8 ] || fail "no marker diamond at the anchor ($marker white pixels)"
# Dots: the K-V beam of the KORA lattice fills both graphs round their origins, in white.
ldots=$(pixels $((W / 6 - 100)) $((row - 100)) 200 200 | count '$1 == 255 && $2 == 255 && $3 == 255')
rdots=$(pixels $((5 * W / 6 - 100)) $((row - 100)) 200 200 | count '$1 == 255 && $2 == 255 && $3 == 255')
[ "$ldots" -gt 200 ] || fail "no dots in the x-x' graph ($ldots)"
[ "$rdots" -gt 200 ] || fail "no dots in the y-y' graph ($rdots)"
above=$(pixels 0 $((H / 2 - 40)) $((W / 3)) 38 | count '$1 == 255 && $2 == 255 && $3 == 255')
[ "$above" -eq 0 ] || fail "graph dots above mid-screen ($above)"
stats=$(pixels $((45 * W / 100)) $row 220 48 | count '$1 > 0 && $1 == $2 && $2 == $3')
[ "$stats" -gt 100 ] || fail "no statistics text at (0.45 W, 3H/4) ($stats white pixels)"

# ---- F1: the help page, then Space -----------------------------------------------------------
xdotool keydown F1
sleep 0.5
xwd -root -silent > help.xwd || fail "xwd"
xdotool keyup F1
sleep 0.2
[ -n "${FENTRA_E2E_KEEP:-}" ] && cp help.xwd "$FENTRA_E2E_KEEP/views_help.xwd"
use_xwd help.xwd
echo "help page: $W x $H"
lit='$1 + $2 + $3 > 0'
heading=$(pixels 100 90 120 12 | count '$1 > 0 && $1 == $2 && $2 == $3')
[ "$heading" -gt 30 ] || fail "no white \"Key list:\" at (100, 90) ($heading)"
cyan='$1 == 0 && $2 > 128 && $2 == $3'   # brighter than the map's teal magnets
keys=$(pixels 100 120 500 200 | count "$cyan")
[ "$keys" -gt 500 ] || fail "no cyan key list from (100, 120) ($keys)"
press=$(pixels 100 500 300 14 | count '$1 == 0 && $2 == 0 && $3 > 0')
[ "$press" -gt 30 ] || fail "no blue \"Press space to continue...\" at (100, 500) ($press)"
left=$(pixels 0 0 99 $H | count "$lit")
[ "$left" -eq 0 ] || fail "the help page has something left of x = 100 ($left)"
hold ctrl+s   # the page waits for Space alone: no screenshot is taken
[ -z "$(ls Fentra_*.bmp | sed -n 3p)" ] || fail "a screenshot was taken on the help page"

hold space
sleep 0.5
use_bmp "$(screenshot after_help)"
keys=$(pixels 100 120 500 200 | count "$cyan")
[ "$keys" -eq 0 ] || fail "the key list is still shown after Space ($keys cyan pixels)"
title=$(pixels 0 0 120 20 | count '$1 > 200 && $2 > 200 && $3 > 200')
[ "$title" -gt 20 ] || fail "no title after the help page ($title)"
axis=$( (pixels $((2 * W / 3)) $((row - 1)) $((W / 3)) 2) | count "$grey")
[ "$axis" -gt $((W / 6)) ] || fail "the graphs are gone after the help page ($axis)"
orbit=$(pixels 0 0 $((W / 4)) $H | count '$1 == 128 && $2 == 0 && $3 == 128')
[ "$orbit" -gt 300 ] || fail "the ring map is gone after the help page ($orbit)"

xdotool keydown q
sleep 0.2
xdotool keyup q
wait "$pid"
status=$?
[ "$status" -eq 0 ] || fail "exit status $status: $(cat out.txt)"
echo "PASS"
