#!/usr/bin/env bash
# Fentra end to end: the built program starts full screen under the test's X server, writes its
# lattice file beside itself, answers the keys of the key table, saves a screenshot on Ctrl+S
# that shows the title, the beam and the heads-up display, and exits with status 0 on Q.
# Usage: bash app_run.sh <path to the fentra executable>
lattice=$(cd "$(dirname "$0")/../../data" && pwd)/kora_sp.txt
source "$(dirname "$0")/lib/common.sh"
start_fentra "$1" 120

hold_pause=0.15
# Every key once; L and A twice, so that luminous particles and the graphs are off again and the
# screenshot shows plain dots at the centre.
for key in p k g w i f d l a h s c 4 5 KP_Add KP_Subtract l a; do hold "$key"; done
sleep 0.5
screenshot
quit_fentra
cmp -s kora_sp.txt "$lattice" || fail "kora_sp.txt differs from the built-in lattice"
use_bmp "$shot"
centre="$((W / 2 - 60)) $((H / 2 - 60)) 120 120"
expect "no beam near the centre" $centre '$1 + $2 + $3 > 0' -gt 40
expect "momentum spread (D) does not colour the beam" $centre '$1 != $2 || $2 != $3' -gt 10
expect "no magnet strengths at (3W/4, 0) in green" $((3 * W / 4)) 0 120 10 '$1 == 0 && $3 == 0 && $2 >= 128' -gt 20
expect "no luminosity line at (3W/4, 50)" $((3 * W / 4)) 50 150 16 '$1 > 100 && $2 > 100' -gt 20
expect "no cyan FODO cell / Space-Charge line at (W/2, 0)" $((W / 2)) 0 80 8 '$1 == 0 && $2 == 255 && $3 == 255' -gt 10
expect "no title at the top left" 0 0 120 20 '$1 > 200 && $2 > 200 && $3 > 200' -gt 20
# The bar and the peak's outline rise from the bottom edge between 0.94 W and 0.99 W; at the
# luminosity of a wide beam they are only a few pixels high.
expect "no luminosity bar at the right edge" $((W * 94 / 100 - 1)) $((H - 4)) $((W * 5 / 100 + 2)) 4 '$1 + $2 + $3 > 0' -ge 2
scraper_x=$((W / 2 + (H * 3 * 100 / 15) / 100))   # W/2 + 0.03 m x H / 0.15 m
expect "no scraper line at x = $scraper_x (S)" $((scraper_x - 2)) $((H / 2)) 5 1 '$1 == 128 && $2 == 0 && $3 == 0' -gt 0
echo "PASS"
