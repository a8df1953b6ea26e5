#!/usr/bin/env bash
# Builds the benchmarks optimised and runs them all, printing their tables.
#   tools/bench.sh [benchmark-filter-regex]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/tools/setup.sh" --preset release
filter=${1:-.}
status=0
for bench in "$root"/build/release/benchmarks/*; do
  [ -x "$bench" ] || continue
  echo "== $(basename "$bench")"
  "$bench" --benchmark_filter="$filter" --benchmark_counters_tabular=true || status=1
done
# Edits end to end: a real server, a warm edit helper, the files on disk.
echo "== edit_bench.py"
python3 "$root/tools/edit_bench.py" --bin "$root/build/release/full-demo" || status=1
# The viewport's processes: frame rate, surface hand-over and previews, software GL where no GPU.
echo "== viewport_bench.py"
python3 "$root/tools/viewport_bench.py" --bin "$root/build/release/full-demo" --server || status=1
exit $status
