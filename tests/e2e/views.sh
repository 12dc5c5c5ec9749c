#!/usr/bin/env bash
# Fentra's secondary views end to end: I shows the ring map, A the phase-space graphs, F1 the
# help page (captured from the X server while the program waits in it) and Space closes it
# again; Ctrl+S after each saves a screenshot whose pixels are checked here.
# Usage: bash views.sh <path to the fentra executable>
# It runs on an X server of its own, so it cannot take keys meant for another program.
if [ -z "${FENTRA_VIEWS_PRIVATE_X:-}" ]; then
    FENTRA_VIEWS_PRIVATE_X=1 exec xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" bash "$0" "$@"
fi
source "$(dirname "$0")/lib/common.sh"
start_fentra "$1" 240

# ---- I: the ring map -------------------------------------------------------------------------
hold i
sleep 0.5
screenshot
use_bmp "$shot"
# The beam pipe (radius 504 pixels round the centre) covers the middle of the map; the rest of
# the ring shows round it, left of the pipe and above it.
orbit='$1 == 128 && $2 == 0 && $3 == 128'
expect "no purple orbit line left of the pipe" 0 0 $((W / 4)) $H "$orbit" -gt 300
expect "no focusing magnets in dark red" 0 0 $((W / 4)) $H '$1 == 128 && $2 == 0 && $3 == 0' -gt 50
# The KORA block of text at (W/4, 20).
expect "no KORA lines at (W/4, 20)" $((W / 4)) 20 200 48 "$text" -gt 50

# ---- A: the phase-space graphs -------------------------------------------------------------
hold a
sleep 0.5
screenshot
use_bmp "$shot"
row=$((3 * H / 4))
# The axis of the x-x' graph, partly covered by the dots and the map's lines.
expect "no left horizontal axis on row $row" 0 $((row - 1)) $((W / 3)) 2 "$grey" -gt $((W / 6))
# With the graphs the pipe is smaller and the map's marker shows: the small white diamond at
# the anchor (W/4 + 0.5, H/3 + 0.5), where the camera has brought the beam's point by now.
expect "no marker diamond at the anchor" $((W / 4 - 10)) $((H / 3 - 10)) 20 20 "$white" -eq 8
# Dots: the K-V beam of the KORA lattice fills both graphs round their origins, in white.
expect "no dots in the x-x' graph" $((W / 6 - 100)) $((row - 100)) 200 200 "$white" -gt 200
expect "no statistics text at (0.45 W, 3H/4)" $((45 * W / 100)) $row 220 48 "$text" -gt 100

# ---- F1: the help page, then Space -----------------------------------------------------------
xdotool keydown F1
sleep 0.5
xwd -root -silent > help.xwd || fail "xwd (Debian package x11-apps) cannot capture the help page"
xdotool keyup F1
sleep 0.2
use_xwd help.xwd
cyan='$1 == 0 && $2 > 128 && $2 == $3'   # brighter than the map's teal magnets
expect "no white \"Key list:\" at (100, 90)" 100 90 120 12 "$text" -gt 30
expect "no cyan key list from (100, 120)" 100 120 500 200 "$cyan" -gt 500
expect "cyan above the key list, from y = 110" 100 110 500 10 "$cyan" -eq 0
expect "no blue \"Press space to continue...\" at (100, 500)" 100 500 300 14 '$1 == 0 && $2 == 0 && $3 > 0' -gt 30
hold ctrl+s   # the page waits for Space alone: no screenshot is taken
[ -z "$(shots | sed -n 3p)" ] || fail "a screenshot was taken on the help page"

hold space
sleep 0.5
screenshot
use_bmp "$shot"
expect "the key list is still shown after Space" 100 120 500 200 "$cyan" -eq 0
expect "the graphs are gone after the help page" $((2 * W / 3)) $((row - 1)) $((W / 3)) 2 "$grey" -gt $((W / 6))

quit_fentra
echo "PASS"
