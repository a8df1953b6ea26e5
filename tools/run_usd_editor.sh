#!/usr/bin/env bash
# The run command: installs what is missing, builds, and opens the editor.
#   tools/run_usd_editor.sh [--screenshot FILE] [editor arguments...]
# --screenshot FILE renders the window offscreen, writes a PNG once it has settled, and exits.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
editor_args=()
screenshot=""
while [ $# -gt 0 ]; do
  case "$1" in
    --screenshot) screenshot=${2:?--screenshot needs a file name}; shift 2 ;;
    *) editor_args+=("$1"); shift ;;
  esac
done
"$root/tools/setup.sh" >&2
editor="$root/apps/usd_editor/bin/OrvanUsdEditor"
if [ -n "$screenshot" ]; then
  QT_QPA_PLATFORM=offscreen exec "$editor" "${editor_args[@]}" --screenshot "$screenshot"
fi
exec "$editor" "${editor_args[@]}"
