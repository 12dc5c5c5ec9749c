#!/usr/bin/env bash
# Builds Fentra for web browsers into build-web/ (or $FENTRA_WEB_BUILD_DIR): a folder of static
# files (index.html, fentra.js, fentra.wasm) that works from any web server. Installs Debian's
# emscripten when it is missing. Then serves the folder on 127.0.0.1 and prints the address,
# unless --build-only is given. The port is $FENTRA_WEB_PORT, 8080 unless set.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v emcc >/dev/null 2>&1; then
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -q
  "${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends emscripten
fi
# Emscripten's JavaScript passes need Debian's acorn, which a node from elsewhere cannot find.
export NODE_PATH=/usr/share/nodejs${NODE_PATH:+:$NODE_PATH}
build_dir=${FENTRA_WEB_BUILD_DIR:-build-web}
mkdir -p "$build_dir"
emcmake cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DFENTRA_WERROR=ON \
  > "$build_dir/configure.log" 2>&1 || { cat "$build_dir/configure.log"; exit 1; }
cmake --build "$build_dir" -j2
[ "${1:-}" = "--build-only" ] && exit 0
port=${FENTRA_WEB_PORT:-8080}
echo "Fentra in the browser: http://127.0.0.1:$port/"
exec python3 -m http.server --bind 127.0.0.1 --directory "$build_dir" "$port"
