#!/usr/bin/env bash
# The options that end before a window opens work without any display: the optics as text,
# the version, a lattice file that does not load (status 1, its place named, no window tried),
# a bad option (status 2 with the usage), and a run without a window that writes its CSV.
exe=$(readlink -f "$1")
cd "$(mktemp -d)" && trap 'rm -rf "$PWD"' EXIT || exit 1
unset DISPLAY WAYLAND_DISPLAY SDL_VIDEODRIVER
status=0
printf 'qf: quadrupole, l = 0.5, k1 = 1;\nring: line = (qf, nowhere);\n' > bad.madx
while IFS='|' read -r name rc expected args; do
    eval "timeout -k 5 60 \"$exe\" $args" > out.txt 2>&1 < /dev/null
    got=$?
    if [ $got -ne "$rc" ] || ! grep -qF -- "$expected" out.txt || grep -qF "Window Creation Error" out.txt; then
        echo "FAIL $name: status $got:"; cat out.txt; status=1
    fi
done << 'EOF'
optics|0|Qx: 4.4036|--optics kora
version|0|fentra |--version
bad ring|1|bad.madx:2:|--lattice bad.madx
bad option|2|Usage: fentra|--colour red
run|0|fentra: 90 % of 3 m tracked|--setup 'lattice=fodo' --run 3 --export bunch.csv
EOF
[ "$(grep -vc '^#' bunch.csv 2> /dev/null)" = 10001 ] || { echo "FAIL run: bunch.csv has no 10000 rows"; status=1; }
exit $status
