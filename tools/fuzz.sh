#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz with clang (address and undefined-behaviour checks)
# into build-fuzz/ (or $FENTRA_FUZZ_BUILD_DIR) and runs each for N seconds, one at a time in a
# single process, starting from the committed corpus tests/fuzz/corpus/<target>/ and the inputs
# that once failed, tests/fuzz/regressions/<target>/. New inputs go to a scratch corpus in the
# build directory; with --merge the committed corpus is then minimised afresh from itself and
# the scratch corpus (only inputs that add coverage are kept). A crash leaves its input in
# <build>/tests/fuzz/artifacts/ and the script ends with status 1.
# Usage: bash tools/fuzz.sh [seconds, default 60] [--merge] [target ...]   (targets: file names
# in tests/fuzz without .cpp, e.g. lattice markup; all of them when none is given)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=60
merge=0
targets=()
for arg in "$@"; do
  case "$arg" in
    --merge) merge=1 ;;
    ''|*[!0-9]*) targets+=("$arg") ;;
    *) seconds=$arg ;;
  esac
done
if [ ${#targets[@]} -eq 0 ]; then
  for src in tests/fuzz/*.cpp; do targets+=("$(basename "$src" .cpp)"); done
fi

build_dir=${FENTRA_FUZZ_BUILD_DIR:-build-fuzz}
mkdir -p "$build_dir"
# Warnings are errors here too, as in the main g++ build.
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DFENTRA_FUZZ=ON -DFENTRA_WERROR=ON > "$build_dir/configure.log" 2>&1 || { cat "$build_dir/configure.log"; exit 1; }
cmake --build "$build_dir" --target "${targets[@]/#/fuzz_}"

fuzz_dir=$build_dir/tests/fuzz
mkdir -p "$fuzz_dir/logs" "$fuzz_dir/artifacts"
failed=()
for t in "${targets[@]}"; do
  exe=$fuzz_dir/fuzz_$t
  corpus=tests/fuzz/corpus/$t
  scratch=$fuzz_dir/corpus/$t
  mkdir -p "$corpus" "$scratch"
  inputs=("$scratch" "$corpus")
  [ -d "tests/fuzz/regressions/$t" ] && inputs+=("tests/fuzz/regressions/$t")
  log=$fuzz_dir/logs/$t.log
  echo "== $t: ${seconds} s"
  if "$exe" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$fuzz_dir/artifacts/$t-" \
       "${inputs[@]}" > "$log" 2>&1; then
    grep -aE '^#[0-9]+[[:space:]]+DONE' "$log" | tail -1 || true
    grep -aE '^stat::(number_of_executed_units|new_units_added)' "$log" || true
  else
    echo "   FAILED: see $log and $fuzz_dir/artifacts/"
    grep -aE 'check failed|ERROR:|runtime error' "$log" | head -5 || true
    failed+=("$t")
    continue
  fi
  if [ $merge -eq 1 ]; then
    fresh=$(mktemp -d)
    "$exe" -merge=1 "$fresh" "$corpus" "$scratch" > "$fuzz_dir/logs/$t.merge.log" 2>&1
    find "$corpus" -type f -delete
    cp "$fresh"/* "$corpus"/
    rm -rf "$fresh"
    echo "   corpus: $(find "$corpus" -type f | wc -l) files, $(du --apparent-size -sb "$corpus" | cut -f1) bytes"
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "Fuzz targets that failed: ${failed[*]}"
  exit 1
fi
