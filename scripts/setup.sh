#!/usr/bin/env bash
# Installs, from Debian's packages, what is missing for one purpose:
#   play  what building and running Fentra needs (scripts/run.sh)
#   test  that, and everything the tests and tools need (scripts/test.sh; the default)
# Safe to run again: it installs nothing when everything is present.
# --list prints the packages instead of installing them, e.g. `setup.sh play --list`.
set -euo pipefail

purpose=test
list_only=0
for arg in "$@"; do
  case "$arg" in
    play|test) purpose=$arg ;;
    --list) list_only=1 ;;
    *) echo "usage: setup.sh [play|test] [--list]" >&2; exit 2 ;;
  esac
done

# Compiler and build tools, the window (SDL2) and OpenGL with Mesa's drivers, and ImageMagick,
# which turns the Ctrl+S screenshots into PNG files.
packages=(
  g++ cmake ninja-build pkg-config
  libsdl2-dev libgl-dev libgl1-mesa-dri
  imagemagick
)

if [ "$purpose" = test ]; then
  packages+=(
    libgtest-dev libbenchmark-dev libpng-dev
    xvfb xauth xdotool x11-apps
    libfreetype-dev fonts-dejavu-core
    clang-tidy cppcheck
    clang libclang-rt-14-dev
    emscripten chromium
  )
  # The display-free tests are also built for 64-bit ARM: with a cross compiler and an
  # emulator on other machines.
  [ "$(dpkg --print-architecture)" = arm64 ] || packages+=(g++-aarch64-linux-gnu qemu-user)
  # npm drives the browser tests (playwright-core); Debian's only when no node is installed.
  command -v npm >/dev/null 2>&1 || packages+=(npm)
fi

if [ $list_only -eq 1 ]; then
  printf '%s\n' "${packages[@]}"
  exit 0
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -q
"${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
