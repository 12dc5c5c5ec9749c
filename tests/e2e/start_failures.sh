#!/usr/bin/env bash
# Start-up failures end the program within seconds with status 1, the fatal message and the
# reason on the console: no display at all (SDL would otherwise draw off screen, unseen), no
# GL library, and a GL context the driver cannot give.
set -u
exe=$(readlink -f "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
status=0
# expect <name> <message> <reason> -- <env arguments...>
expect() {
    local name=$1 message=$2 reason=$3
    shift 4
    local start=$SECONDS rc
    env "$@" timeout -k 5 20 "$exe" > out.txt 2>&1
    rc=$?
    if [ $rc -ne 1 ] || ! grep -qF "$message" out.txt || ! grep -qF "$reason" out.txt \
        || [ $((SECONDS - start)) -gt 10 ]; then
        echo "FAIL $name: status $rc after $((SECONDS - start)) s:"; cat out.txt; status=1
    else
        echo "ok $name"
    fi
}
expect "no display" "[FATAL ERROR] Window Creation Error." "needs a graphical desktop (an X11 or Wayland session, with DISPLAY or WAYLAND_DISPLAY set)" \
    -- -u DISPLAY -u WAYLAND_DISPLAY -u SDL_VIDEODRIVER
expect "no GL library" "[FATAL ERROR] Can't Find A Suitable PixelFormat." "SDL: Failed loading /nonexistent/libGL.so" \
    -- SDL_OPENGL_LIBRARY=/nonexistent/libGL.so
expect "no GL 1.x context" "[FATAL ERROR] Can't Create A GL Rendering Context." "SDL: Could not create GL context" \
    -- MESA_GL_VERSION_OVERRIDE=1.0
exit $status
