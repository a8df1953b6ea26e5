#!/usr/bin/env bash
# The test command: installs what is missing, builds, and runs every test through CTest.
#   tools/test.sh            the dev build (strict warnings)
#   tools/test.sh --asan     the same tests under AddressSanitizer and UndefinedBehaviorSanitizer
#   extra arguments after -- go to ctest, for example: tools/test.sh -- -L unit
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
preset=dev
if [ "${1:-}" = "--asan" ]; then preset=asan; shift; fi
[ "${1:-}" = "--" ] && shift
"$root/tools/setup.sh" --preset "$preset"
cd "$root"
# Tests never reach a desktop session: widgets render offscreen and secrets use the file store.
export QT_QPA_PLATFORM=offscreen
if [ "$preset" = asan ]; then
  export LSAN_OPTIONS="suppressions=$root/tools/lsan.supp:print_suppressions=0"
fi
ctest --preset "$preset" --output-on-failure -j "$(nproc)" "$@"
