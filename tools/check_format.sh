#!/usr/bin/env bash
# Fails when a tracked C or C++ file differs from what clang-format makes of it (.clang-format at
# the root). Changes nothing; prints each file and line that would change.
#   tools/check_format.sh [REPO_ROOT]
set -euo pipefail
root=${1:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)}
cd "$root"
if ! command -v clang-format >/dev/null 2>&1; then
  echo "check_format.sh: clang-format is missing (tools/debian-packages.txt lists it)" >&2
  exit 1
fi
mapfile -t files < <(git ls-files -- '*.c' '*.cc' '*.cpp' '*.h' '*.hpp')
if [ ${#files[@]} -eq 0 ]; then
  echo "check_format.sh: no tracked C or C++ files under $root" >&2
  exit 1
fi
if clang-format --dry-run --Werror "${files[@]}"; then
  echo "check_format.sh: ${#files[@]} files, all formatted"
  exit 0
fi
echo "check_format.sh: files above are not formatted; run clang-format -i on them" >&2
exit 1
