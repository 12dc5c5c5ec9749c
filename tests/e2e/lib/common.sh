# Shared by the end-to-end scripts and the soak (sourced, not a test itself): the program started
# from a fresh directory, keys held with xdotool, screenshots taken and read back, the exit on Q.
set -u
fail() { echo "FAIL: $*"; [ -n "${pid:-}" ] && kill "$pid" 2>/dev/null; exit 1; }
alive() { kill -0 "$pid" 2>/dev/null || fail "the program ended after $1: $(tail -15 out.txt)"; }

# start_fentra <executable> <time limit in seconds>: runs a copy of the program from a fresh
# directory (it writes beside itself) and waits for its window to take the keyboard.
start_fentra() {
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    cp "$(readlink -f "$1")" "$work/fentra"
    cd "$work" || fail "no work directory"
    timeout -k 5 "$2" ./fentra > out.txt 2>&1 &
    pid=$!
    local wid=$(timeout 20 xdotool search --sync --onlyvisible --class fentra | head -1)
    [ -n "$wid" ] || fail "no window"
    timeout 5 xdotool windowfocus --sync "$wid" > /dev/null 2>&1
    sleep 0.5
    alive "the start"
}

# hold <key or combination such as ctrl+s>: down for 0.2 s, up in reverse order, $hold_pause s more.
hold_pause=0.3
hold() {
    xdotool keydown ${1//+/ }
    sleep 0.2
    xdotool keyup $(tr + '\n' <<< "$1" | tac)
    sleep "$hold_pause"
    alive "$1"
}

# screenshot: Ctrl+S, then $shot names the new screenshot as a 24-bit BMP to read. The program
# writes Fentra_NNNNN.bmp and, where ImageMagick is installed, turns it into Fentra_NNNNN.png and
# deletes the BMP: the screenshot is done when its final file alone is there.
converter=$(command -v magick || command -v convert)
shots() { ls Fentra_* 2>/dev/null | sed 's/\.[a-z]*$//' | sort -u; }
screenshot() {
    local before new="" final=bmp gone=png
    [ -z "$converter" ] || final=png gone=bmp
    before=$(shots)
    hold ctrl+s
    for _ in $(seq 300); do   # up to 30 s: a loaded machine converts slowly
        new=$(comm -13 <(echo "$before") <(shots) | head -1)
        [ -n "$new" ] && [ -f "$new.$final" ] && [ ! -f "$new.$gone" ] && break
        sleep 0.1
    done
    [ -f "$new.$final" ] && [ ! -f "$new.$gone" ] || fail "no finished screenshot after Ctrl+S: $(ls Fentra_*)"
    sleep 0.2
    shot=$new.bmp
    [ -z "$converter" ] || "$converter" "$new.png" -type TrueColor "BMP3:read_$shot" || fail "cannot read $new.png"
    [ -z "$converter" ] || shot=read_$shot
}

quit_fentra() {
    xdotool keydown q sleep 0.2 keyup q
    wait "$pid" || fail "exit status $?: $(tail -15 out.txt)"
}

# ---- Reading pictures: $pic has $W x $H pixels, its top row at byte $top and $step bytes from
# row to row (negative for bottom-up files), $bpp bytes a pixel, red, green and blue at the
# bytes $red, $green and $blue of a pixel.
u32() { od -An -tu4 ${2:-} -j "$1" -N4 "$pic" | tr -d ' '; }

use_bmp() {   # a bottom-up 24-bit BMP
    pic=$1
    W=$(u32 18) H=$(u32 22) bpp=3 red=2 green=1 blue=0
    local stride=$(((W * 3 + 3) / 4 * 4))
    [ "$(head -c2 "$pic")" = BM ] && [ "$(stat -c %s "$pic")" -eq $((54 + stride * H)) ] || fail "$pic: no whole BMP"
    top=$((54 + (H - 1) * stride)) step=$((-stride))
}

use_xwd() {   # an X window dump of a 24-bit screen, 32 bits a pixel
    pic=$1
    local be=--endian=big
    [ "$(u32 44 $be)" -eq 32 ] || fail "$pic: expected 32 bits a pixel"
    W=$(u32 16 $be) H=$(u32 20 $be) top=$(($(u32 0 $be) + 12 * $(u32 76 $be))) step=$(u32 48 $be) bpp=4
    if [ "$(u32 28 $be)" -eq 0 ]; then red=2 green=1 blue=0; else red=1 green=2 blue=3; fi
}

# expect <what> <x> <y> <w> <h> <awk condition on $1 $2 $3 = r g b> <test> <number>: the count of
# matching pixels in the rectangle passes the test (-gt, -ge, -eq) against the number.
expect() {
    local size=${step#-} first=$((top + $3 * step)) got
    [ "$step" -gt 0 ] || first=$((top + ($3 + $5 - 1) * step))
    got=$(od -An -v -tu1 -w"$size" -j "$first" -N $(($5 * size)) "$pic" |
        awk -v x="$2" -v w="$4" -v n="$bpp" -v r="$red" -v g="$green" -v b="$blue" \
            '{ for (i = x; i < x + w; i++) print $(i * n + r + 1), $(i * n + g + 1), $(i * n + b + 1) }' |
        awk "$6" | wc -l)
    [ "$got" "$7" "$8" ] || fail "$1 ($got pixels)"
}
white='$1 == 255 && $2 == 255 && $3 == 255'
grey='$1 == 128 && $2 == 128 && $3 == 128'
text='$1 > 0 && $1 == $2 && $2 == $3'   # white glyphs, blended at their edges
