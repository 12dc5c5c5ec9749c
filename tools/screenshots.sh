#!/usr/bin/env bash
# Makes the pictures of docs/guide.md and the README from the real program: builds Fentra if
# needed, runs it full screen at 1920x1080 under a virtual X server, drives each scene with
# xdotool, saves it with Ctrl+S and writes docs/images/NAME.png scaled to 960 pixels wide.
# Run it again after a change to the drawing: every picture is made anew.
# Usage: bash tools/screenshots.sh [scene ...]   (default: every scene)
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD
if [ -z "${FENTRA_SCREENSHOTS_X:-}" ]; then
    bash scripts/setup.sh
    [ -x build/fentra/fentra ] || bash scripts/build.sh
    FENTRA_SCREENSHOTS_X=1 exec xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" bash "$0" "$@"
fi
mkdir -p docs/images
converter=$(command -v magick || command -v convert) || { echo "ImageMagick is needed"; exit 1; }

down() { for k in "$@"; do xdotool keydown "$k"; done; }
up() { for k in "$@"; do xdotool keyup "$k"; done; }
tap() { down "$@"; sleep 0.25; up "$@"; sleep 0.25; }
hold() { local t=$1; shift; down "$@"; sleep "$t"; up "$@"; sleep 0.2; }   # hold <seconds> <keys>

# shoot <name> [keys held while saving]: Ctrl+S, then the PNG scaled into docs/images.
shoot() {
    local name=$1 shot=""; shift
    rm -f Fentra_*.png Fentra_*.bmp
    down "$@" ctrl
    sleep 0.2
    tap s
    up ctrl "$@"
    for _ in $(seq 1 100); do
        shot=$(ls Fentra_*.png 2> /dev/null | head -1)
        [ -n "$shot" ] && [ -z "$(ls Fentra_*.bmp 2> /dev/null)" ] && break
        sleep 0.1
    done
    [ -n "$shot" ] || { echo "no screenshot for $name"; exit 1; }
    "$converter" "$shot" -resize 960x "$top/docs/images/$name.png"
    echo "docs/images/$name.png ($(stat -c %s "$top/docs/images/$name.png") bytes)"
}

# scene <name>: a fresh program from a scratch directory, driven by scene_<name>.
scene() {
    local work pid
    work=$(mktemp -d)
    cp build/fentra/fentra "$work/"
    (cd "$work" && exec ./fentra > out.txt 2>&1) &
    pid=$!
    local wid
    wid=$(timeout 20 xdotool search --sync --onlyvisible --class fentra | head -1)
    timeout 5 xdotool windowfocus --sync "$wid" > /dev/null 2>&1 || true
    sleep 1
    (cd "$work" && "scene_$1")
    tap q
    wait "$pid" || true
    rm -rf "$work"
}

# ---- The scenes -------------------------------------------------------------------------------
scene_game() { sleep 1; hold 0.4 4; hold 0.4 5; sleep 0.6; shoot game; }
scene_quadrupole() { tap p; tap a; sleep 1; hold 0.5 4; shoot quadrupole 4; }
scene_fodo() { tap f; tap a; sleep 6; shoot fodo; }
scene_mismatch() { tap f; tap a; sleep 1; tap p; sleep 5; shoot mismatch; }
scene_kora() { tap i; sleep 1; tap a; tap d; tap l; sleep 4; shoot kora; }
scene_spread() { tap d; tap a; sleep 1; hold 0.4 4; sleep 0.3; shoot spread; }
scene_multipoles() { tap p; tap a; sleep 1; hold 2.5 6 8; shoot multipoles 6 8; }
scene_space_charge() { tap g; tap a; tap c; sleep 2.5; shoot space_charge; }
scene_scraper() { tap s; sleep 0.5; hold 0.35 Left; sleep 1; shoot scraper; }
scene_coupling() { tap a; sleep 0.5; hold 0.4 4; hold 0.4 5; hold 0.3 2; sleep 0.3; hold 1 o; shoot coupling o; }

scenes=("$@")
[ ${#scenes[@]} -gt 0 ] || scenes=(game quadrupole fodo mismatch kora spread multipoles space_charge scraper coupling)
for s in "${scenes[@]}"; do scene "$s"; done
echo "Pictures written to docs/images/."
