#!/usr/bin/env bash
# Start-up failures end the program within seconds with status 1, the fatal message and the
# reason on the console: no display at all (SDL would otherwise draw off screen, unseen), no
# GL library, and a GL context the driver cannot give.
exe=$(readlink -f "$1")
cd "$(mktemp -d)" && trap 'rm -rf "$PWD"' EXIT || exit 1
status=0
while IFS='|' read -r name environment message reason; do
    start=$SECONDS
    env $environment timeout -k 5 20 "$exe" > out.txt 2>&1 < /dev/null
    rc=$?
    if [ $rc -ne 1 ] || ! grep -qF "$message" out.txt || ! grep -qF "$reason" out.txt || [ $((SECONDS - start)) -gt 10 ]; then
        echo "FAIL $name: status $rc after $((SECONDS - start)) s:"; cat out.txt; status=1
    fi
done << 'EOF'
no display|-u DISPLAY -u WAYLAND_DISPLAY -u SDL_VIDEODRIVER|[FATAL ERROR] Window Creation Error.|needs a graphical desktop (an X11 or Wayland session, with DISPLAY or WAYLAND_DISPLAY set)
no GL library|SDL_OPENGL_LIBRARY=/nonexistent/libGL.so|[FATAL ERROR] Can't Find A Suitable PixelFormat.|SDL: Failed loading /nonexistent/libGL.so
no GL 1.x context|MESA_GL_VERSION_OVERRIDE=1.0|[FATAL ERROR] Can't Create A GL Rendering Context.|SDL: Could not create GL context
EOF
exit $status
