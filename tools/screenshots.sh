#!/usr/bin/env bash
# Makes the pictures of docs/guide.md and the README from the real program: builds Fentra if
# needed, runs it full screen at 1920x1080 under a virtual X server, drives each scene with
# xdotool, saves it with Ctrl+S and writes docs/images/NAME.png scaled to 960 pixels wide.
# Run it again after a change to the drawing: every picture is made anew.
# Usage: bash tools/screenshots.sh [scene ...]   (default: every scene)
# FENTRA_SCREENSHOTS_RAW=DIR also keeps each full-size screenshot in DIR.
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

# shoot <name> [keys held while saving]: Ctrl+S, then the PNG scaled into docs/images. With
# crop set to a geometry (960x1080+960+0), that part of the screen at full size instead: the
# optics panel's figures are only legible unscaled.
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
    [ -z "${FENTRA_SCREENSHOTS_RAW:-}" ] || cp "$shot" "$FENTRA_SCREENSHOTS_RAW/$name.png"
    cp "$shot" last_shot.png
    if [ -n "${crop:-}" ]; then "$converter" "$shot" -crop "$crop" +repage "$top/docs/images/$name.png"
    else "$converter" "$shot" -resize 960x "$top/docs/images/$name.png"; fi
    echo "docs/images/$name.png ($(stat -c %s "$top/docs/images/$name.png") bytes)"
}

# shoot_smallest <name> <shots> <seconds between> [keys held]: a series of shots, keeping the
# one with the most lit pixels in the middle of the pipe (middle, a geometry): the beam at its
# smallest, which is hard to time, as its size changes fast.
shoot_smallest() {
    local name=$1 n=$2 gap=$3 i lit most=-1; shift 3
    for i in $(seq 1 "$n"); do
        shoot "$name" "$@" > /dev/null
        lit=$("$converter" last_shot.png -crop "${middle:-240x240+840+260}" -colorspace gray \
              -threshold 40% -format '%[fx:mean]' info:)
        if awk -v a="$lit" -v b="$most" 'BEGIN { exit !(a > b) }'; then
            most=$lit
            cp "$top/docs/images/$name.png" smallest.png
        fi
        sleep "$gap"
    done
    cp smallest.png "$top/docs/images/$name.png"
    echo "docs/images/$name.png (the smallest beam of $n shots)"
}

# scene <name>: a fresh program from a scratch directory, driven by scene_<name>. When a
# function args_<name> exists, it sets the array args to the program's arguments (a setup
# string, a ring: give files by absolute path, since the program runs in the scratch directory).
scene() {
    local work pid args=()
    if declare -F "args_$1" > /dev/null; then "args_$1"; fi
    work=$(mktemp -d)
    cp build/fentra/fentra "$work/"
    (cd "$work" && exec ./fentra "${args[@]}" > out.txt 2>&1) &
    pid=$!
    local wid
    wid=$(timeout 60 xdotool search --sync --onlyvisible --class fentra | head -1) ||
        { echo "no window for $1"; exit 1; }
    timeout 5 xdotool windowfocus --sync "$wid" > /dev/null 2>&1 || true
    sleep 1
    (cd "$work" && "scene_$1")
    tap q
    wait "$pid" || true
    rm -rf "$work"
}

# ---- The scenes -------------------------------------------------------------------------------
# On a slow or busy machine a frame lasts longer than 12 ms, and with it the step the tracking
# takes (the step is the frame's duration times the speed). Scenes whose picture depends on
# the tracking wait with Shift held (slow motion, a fifth of the step), so that the step stays
# near the default one; slow motion is not shown on the screen.
slow() { hold "$1" shift; }
# The first frames of a start are long: a lattice scene makes its beam again once running.
fresh() { local k; down shift; for k in "$@"; do sleep 0.5; hold 0.4 "$k"; done; sleep 0.5; up shift; }
setup() { args=(--setup "$1"); }
right_half=960x1080+960+0      # the optics panel beside the right half of the pipe
panel_top=960x540+960+0        # the same with the graphs shown, where the panel is shorter

args_game() { setup 'beam=game'; }
scene_game() { tap space; hold 0.3 4; hold 0.6 5; middle=240x240+840+420 shoot_smallest game 4 0; }
args_quadrupole() { setup 'beam=P&graphs=1'; }
scene_quadrupole() { down shift; tap p; down 4; sleep 1.5; shoot quadrupole 4 shift; up shift; }
args_fodo() { setup 'lattice=fodo&graphs=1&panel=1'; }
scene_fodo() { fresh f f; slow 20; shoot fodo shift; }
args_mismatch() { setup 'lattice=fodo&graphs=1&panel=1'; }
scene_mismatch() { fresh f f; slow 5; tap p; down shift; shoot_smallest mismatch 30 0; up shift; }
args_stability() { setup 'lattice=fodo&panel=1'; }
scene_stability() { fresh f f; slow 10; crop=$right_half shoot stability shift 4; }
args_emittance() { setup 'lattice=fodo&graphs=1&panel=1&speed=0.5'; }
scene_emittance() { fresh f f; slow 12; shoot emittance shift; }
args_betatron() { setup 'lattice=fodo&graphs=1&highlight=1&panel=1'; }
scene_betatron() { fresh f f; slow 25; shoot betatron shift; }
args_kora() { setup 'lattice=kora&beam=K&graphs=1&panel=1'; }
scene_kora() { fresh i i; sleep 20; shoot kora; }
args_spread() { setup 'beam=P&graphs=1&spread=1'; }
scene_spread() { down shift; tap p; hold 2 4; sleep 2.5; shoot spread shift; up shift; }
args_chromaticity() { setup 'lattice=kora&beam=K&spread=1&panel=1'; }
scene_chromaticity() { fresh i i; sleep 40; crop=960x720+960+0 shoot chromaticity; }
args_structure() { setup 'lattice=kora&beam=K&spread=1&graphs=1&panel=1'; }
scene_structure() { fresh i i; sleep 40; crop=$panel_top shoot structure; }
args_multipoles() { setup 'beam=P&graphs=1'; }
scene_multipoles() { tap p; hold 2.5 6 8; shoot multipoles 6 8; }
args_space_charge() { setup 'beam=G&graphs=1'; }
scene_space_charge() { sleep 1; tap g; tap c; sleep 2.5; shoot space_charge; }
args_space_charge_tunes() { setup 'lattice=fodo&panel=1&spacecharge=1'; }
scene_space_charge_tunes() { fresh f f; sleep 4; crop=$right_half shoot space_charge_tunes; }
args_scraper() { setup 'beam=game&scraper=1'; }
scene_scraper() { tap space; sleep 2; shoot scraper; }
args_coupling() { setup 'beam=K&graphs=1'; }
scene_coupling() { tap k; hold 1.5 o; shoot coupling o; }
args_ring() { args=(--lattice "$top/data/examples/unstable_ring.madx" --setup 'beam=K&panel=1'); }
scene_ring() { fresh i; sleep 5; crop=$panel_top shoot ring; }

scenes=("$@")
[ ${#scenes[@]} -gt 0 ] || scenes=(game quadrupole fodo mismatch stability emittance betatron kora spread chromaticity structure
                                    multipoles space_charge space_charge_tunes scraper coupling ring)
for s in "${scenes[@]}"; do scene "$s"; done
echo "Pictures written to docs/images/."
