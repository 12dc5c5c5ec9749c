#!/usr/bin/env bash
# Installs, from Debian's packages, whatever Fentra's build, tests and tools need and is missing.
# Safe to run again: it installs nothing when everything is present.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  libsdl2-dev libgl-dev libgl1-mesa-dri
  libgtest-dev libbenchmark-dev libpng-dev
  xvfb xauth xdotool x11-apps imagemagick
  libfreetype-dev fonts-dejavu-core
  clang-tidy cppcheck
  clang libclang-rt-14-dev
  g++-aarch64-linux-gnu qemu-user
  emscripten chromium
)

# npm drives the browser tests (playwright-core); Debian's only when no node is installed.
command -v npm >/dev/null 2>&1 || packages+=(npm)

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
