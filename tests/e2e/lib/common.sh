# Shared by the end-to-end scripts (sourced, not a test itself): the program started from a
# fresh directory, keys held with xdotool, screenshots taken and read back, and the exit on Q.
# FENTRA_E2E_KEEP names a directory to keep the pictures in for a look.
set -u
fail() { echo "FAIL: $*"; [ -n "${pid:-}" ] && kill "$pid" 2>/dev/null; exit 1; }

# start_fentra <executable> <time limit in seconds>: runs a copy of the program from a fresh
# directory (it writes beside itself) and waits for its window to take the keyboard.
start_fentra() {
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    cp "$(readlink -f "$1")" "$work/fentra"
    cd "$work" || fail "no work directory"
    timeout -k 5 "$2" ./fentra > out.txt 2>&1 &
    pid=$!
    local wid
    wid=$(timeout 20 xdotool search --sync --onlyvisible --class fentra | head -1)
    [ -n "$wid" ] || fail "no window"
    timeout 5 xdotool windowfocus --sync "$wid" > /dev/null 2>&1 || true
    sleep 0.5
    kill -0 "$pid" 2>/dev/null || fail "the program ended early: $(cat out.txt)"
}

# hold <key or combination such as ctrl+s>: down for 0.2 s, then up and $hold_pause s more.
hold_pause=0.3
hold() {
    local keys=(${1//+/ }) k i
    for k in "${keys[@]}"; do xdotool keydown "$k"; done
    sleep 0.2
    for ((i = ${#keys[@]} - 1; i >= 0; i--)); do xdotool keyup "${keys[$i]}"; done
    sleep "$hold_pause"
    kill -0 "$pid" 2>/dev/null || fail "the program ended after $1: $(cat out.txt)"
}

# Ctrl+S writes Fentra_NNNNN.bmp and, where ImageMagick is installed, turns it into
# Fentra_NNNNN.png and deletes the BMP. A screenshot is done when its final file is there.
converter=$(command -v magick || command -v convert || true)
shots() { ls Fentra_*.bmp Fentra_*.png 2>/dev/null | sed 's/\.[a-z]*$//' | sort -u; }
shot_done() { if [ -n "$converter" ]; then [ -f "$1.png" ] && [ ! -f "$1.bmp" ]; else [ -f "$1.bmp" ]; fi; }

# screenshot <label>: Ctrl+S, then $shot names the new screenshot as a 24-bit BMP to read.
screenshot() {
    local before new=""
    before=$(shots)
    hold ctrl+s
    for _ in $(seq 1 100); do
        new=$(comm -13 <(echo "$before") <(shots) | head -1)
        [ -n "$new" ] && shot_done "$new" && break
        sleep 0.1
    done
    [ -n "$new" ] || fail "no screenshot after Ctrl+S ($1)"
    shot_done "$new" || fail "$new: no finished screenshot ($(ls "$new".*))"
    sleep 0.2
    shot=$new.bmp
    if [ -n "$converter" ]; then
        keep "$new.png" "$1.png"
        "$converter" "$new.png" -type TrueColor "BMP3:read_$new.bmp" || fail "cannot read $new.png"
        shot=read_$new.bmp
    else
        keep "$shot" "$1.bmp"
    fi
}

keep() { [ -z "${FENTRA_E2E_KEEP:-}" ] || cp "$1" "$FENTRA_E2E_KEEP/$(basename "$0" .sh)_$2"; }

quit_fentra() {
    xdotool keydown q
    sleep 0.2
    xdotool keyup q
    wait "$pid"
    local status=$?
    [ "$status" -eq 0 ] || fail "exit status $status: $(cat out.txt)"
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
    local stride=$(((W * 3 + 3) / 4 * 4))
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

# expect <what> <x> <y> <w> <h> <awk condition on r g b> <test> <number>: the count of matching
# pixels in the rectangle passes the test (-gt, -ge, -eq) against the number.
expect() {
    local got
    got=$(pixels "$2" "$3" "$4" "$5" | count "$6")
    [ "$got" "$7" "$8" ] || fail "$1 ($got pixels)"
}
white='$1 == 255 && $2 == 255 && $3 == 255'
grey='$1 == 128 && $2 == 128 && $3 == 128'
text='$1 > 0 && $1 == $2 && $2 == $3'   # white glyphs, blended at their edges
