#!/usr/bin/env bash
# Fentra soak: a copy of the program, run from a fresh directory under an X server of its own,
# is driven for the given minutes with seeded random key presses and holds (up to three keys
# down at once) and pointer moves from its whole key table, with Ctrl+S and the help page now and
# then. Fails when the program dies, stops answering Ctrl+S, grows its peak memory by more than
# 10 % after the first minute, leaves files other than its own, or does not end with status 0
# on Q. The seed is printed first; give it again to replay the same key sequence.
# Usage: bash soak.sh <path to the fentra executable> [whole minutes, default 30] [seed]
minutes=${2:-30}
seed=${3:-${FENTRA_SOAK_SEED:-$((RANDOM * 32768 + RANDOM))}}
if [ -z "${FENTRA_SOAK_X:-}" ]; then
    echo "soak: seed $seed, $minutes min (replay: bash $0 $1 $minutes $seed)"
    FENTRA_SOAK_X=1 exec timeout -k 5 $((minutes * 60 + 240)) \
        xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" bash "$0" "$1" "$minutes" "$seed"
fi
source "$(dirname "$0")/../e2e/lib/common.sh"
start_fentra "$1" $((minutes * 60 + 120))
RANDOM=$seed
# The keys: edge keys act once a press, the others (magnets, R, Shift, arrows) in every frame
# while down. A key listed twice is picked twice as often.
table=(p k w g space d f i h a l s c KP_Add KP_Subtract 2 3 4 4 5 5 6 7 8 9 o 0 Left Left Right Right r Shift_L)
tour=("${table[@]}")   # every key once first: the memory after the first minute has them all
speed=0   # net keypad + presses, kept in -6 .. 3 so that the beam moves, in short steps
read -r program < /proc/$pid/task/$pid/children   # the program, below its timeout
peak() { awk '/^VmHWM/ { print $2 }' /proc/$program/status; }
end=$((SECONDS + minutes * 60)) first_peak_at=$((SECONDS + (minutes > 1 ? 60 : 30)))
next_shot=$((SECONDS + 10)) next_help=$((SECONDS + 20)) keys=0 shots=0 first_peak=""
while [ $SECONDS -lt $end ]; do
    alive "$keys keys (seed $seed)"
    [ -n "$first_peak" ] || [ $SECONDS -lt $first_peak_at ] || first_peak=$(peak)
    if [ $SECONDS -ge $next_shot ]; then
        screenshot   # fails when no finished screenshot comes within 30 s
        use_bmp "$shot"
        rm -f Fentra_* read_*
        shots=$((shots + 1)) next_shot=$((SECONDS + 10 + RANDOM % 20))
        echo "$((SECONDS / 60)) min: peak RSS $(peak) kB, keys $keys, screenshots $shots"
    elif [ $SECONDS -ge $next_help ]; then
        hold F1
        sleep 0.$((RANDOM % 9 + 1))
        hold space
        next_help=$((SECONDS + 30 + RANDOM % 60))
    elif [ $((RANDOM % 100)) -lt 15 ]; then
        xdotool mousemove $((RANDOM % 1920)) $((RANDOM % 1080))
    else   # one to three keys down together
        chord=()
        for _ in $(seq $((1 + RANDOM % 3))); do
            key=${table[RANDOM % ${#table[@]}]}
            [ ${#tour[@]} -eq 0 ] || { key=${tour[-1]}; unset 'tour[-1]'; }
            case $key in
            KP_Add) if [ $speed -lt 3 ]; then speed=$((speed + 1)); else key=KP_Subtract speed=$((speed - 1)); fi ;;
            KP_Subtract) if [ $speed -gt -6 ]; then speed=$((speed - 1)); else key=KP_Add speed=$((speed + 1)); fi ;;
            i) speed=$((speed > 0 ? speed : 0)) ;;   # leaving the KORA lattice resets the speed to 1 m/s
            esac
            chord+=("$key")
        done
        hold_for=0.$((RANDOM % 3))$((RANDOM % 10))
        [ $((RANDOM % 10)) -gt 0 ] || hold_for=$((1 + RANDOM % 3))   # now and then a long hold
        xdotool keydown "${chord[@]}" sleep $hold_for keyup "${chord[@]}"
        keys=$((keys + ${#chord[@]}))
    fi
done
last_peak=$(peak)
echo "peak RSS: $first_peak kB after the first minute, $last_peak kB at the end; $keys keys, $shots screenshots"
[ -n "$first_peak" ] && [ "$last_peak" -le $((first_peak * 110 / 100)) ] || fail "peak RSS grew by more than 10 %"
quit_fentra
strays=$(ls | grep -vxE 'fentra|kora_sp\.txt|warnings\.log|graphics_error\.log|out\.txt')
[ -z "$strays" ] || fail "files the program should not leave: $strays"
echo "PASS"
