#!/usr/bin/env bash
# Runs one fuzzer of the client core or the engine for a number of seconds under AddressSanitizer
# and UndefinedBehaviorSanitizer, in a clang build of its own (build/fuzz).
#   tools/fuzz.sh <target> <seconds>
# targets: deep_link, target_address, scene_reference (client core); viewport_output (editor
# core); usda_reader, stage_composer, stdio_line, edit_request, viewport_line (engine).
# New inputs collect in build/fuzz/corpus/<target>; a crashing input is written to
# build/fuzz/artifacts/<target>/. Add an input worth keeping to the seed corpus of the target
# (apps/usd_editor/Tests/VelkClientStateBridge/Fuzz/corpus/<target>,
# apps/usd_editor/Tests/OrvanUsdEditorCore/Fuzz/corpus/<target> or
# engine/Tests/Fuzz/corpus/<target>), which every test run replays.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

usage() {
  echo "usage: tools/fuzz.sh" \
    "deep_link|target_address|scene_reference|viewport_output|usda_reader|stage_composer|stdio_line|edit_request|viewport_line" \
    "<seconds>" >&2
}
target=${1:-}
seconds=${2:-}
case "$target" in
  deep_link | target_address | scene_reference)
    folder="apps/usd_editor/Tests/VelkClientStateBridge/Fuzz" ;;
  viewport_output) folder="apps/usd_editor/Tests/OrvanUsdEditorCore/Fuzz" ;;
  usda_reader | stage_composer | stdio_line | edit_request | viewport_line) folder="engine/Tests/Fuzz" ;;
  *) usage; exit 2 ;;
esac
if ! [[ "$seconds" =~ ^[0-9]+$ ]] || [ "$seconds" -eq 0 ]; then usage; exit 2; fi

for tool in clang clang++; do
  command -v "$tool" >/dev/null || { echo "fuzz.sh: $tool is missing" >&2; exit 1; }
done

build="$root/build/fuzz"
# Everything is instrumented for coverage and checked by the sanitizers; only the fuzzer
# executables link the libFuzzer driver.
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined"
flags="$flags -fno-omit-frame-pointer"
if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DORVAN_BUILD_TESTS=ON -DORVAN_BUILD_BENCHMARKS=OFF -DORVAN_BUILD_FUZZERS=ON \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DORVAN_EDITOR_BIN_DIR="$build/bin" -DORVAN_ENGINE_BIN_DIR="$build/full-demo" >/dev/null
fi
cmake --build "$build" --target "fuzz_$target" -j2

seeds="$root/$folder/corpus/$target"
corpus="$build/corpus/$target"
artifacts="$build/artifacts/$target"
mkdir -p "$corpus" "$artifacts"
exec "$build/$folder/fuzz_$target" \
  -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$artifacts/" \
  "$corpus" "$seeds"
