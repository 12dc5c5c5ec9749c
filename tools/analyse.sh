#!/usr/bin/env bash
# Static analysis of Fentra's own sources (Morvane/, fentra/, tools/): clang-tidy with the
# checks of .clang-tidy and cppcheck with tools/cppcheck.supp. Both must come out clean.
# Uses the compile commands of build/ (or $FENTRA_BUILD_DIR), configuring it when needed.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${FENTRA_BUILD_DIR:-build}
jobs=${ANALYSE_JOBS:-2}

if [ ! -f "$build_dir/compile_commands.json" ]; then
  mkdir -p "$build_dir"
  cmake -S . -B "$build_dir" -G Ninja -DFENTRA_WERROR=ON > "$build_dir/configure.log" 2>&1 \
    || { cat "$build_dir/configure.log"; exit 1; }
fi

# The web platform (Morvane/gfx_opengl/web, fentra/web_page.cpp) is built by Emscripten only: no desktop compile
# commands to analyse it with.
sources=$(git ls-files --cached --others --exclude-standard -- \
  'Morvane/*.cpp' 'fentra/*.cpp' 'tools/*.cpp' ':!Morvane/gfx_opengl/web/*' ':!fentra/web_page.cpp')

status=0
echo "clang-tidy: $(echo "$sources" | wc -w) files"
# shellcheck disable=SC2086
if ! echo "$sources" | xargs -P "$jobs" -n 4 clang-tidy -p "$build_dir" --quiet 2> /dev/null; then
  echo "clang-tidy: findings above"
  status=1
fi

echo "cppcheck"
if ! cppcheck --project="$build_dir/compile_commands.json" --quiet --inline-suppr \
    --enable=warning,style,performance,portability --error-exitcode=1 -j "$jobs" \
    --suppressions-list=tools/cppcheck.supp \
    --file-filter='Morvane/*' --file-filter='fentra/*' --file-filter='tools/*' \
    --template='{file}:{line}: {severity} [{id}] {message}'; then
  echo "cppcheck: findings above"
  status=1
fi

[ $status -eq 0 ] && echo "analysis clean"
exit $status
