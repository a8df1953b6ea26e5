#!/usr/bin/env bash
# The run command: installs what is missing, builds, and opens the editor.
#   tools/run_usd_editor.sh [--local SCENE] [--screenshot FILE] [editor arguments...]
# --local SCENE   opens SCENE through the local stage inspector, with no project server.
# --screenshot FILE renders the window offscreen, writes a PNG once the stage has loaded (or
#                 failed to), and exits. With --local, the first prim is selected for the picture.
# --no-setup      uses the editor as it is built, without installing or building first.
# Any other argument goes to the editor as it is (for example --inspector PATH).
# With no scene and no editor arguments at all, the demo scene opens locally: the reference
# project server that a plain launch talks to is not part of the engine yet.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
editor_args=()
screenshot=""
scene=""
setup=1
while [ $# -gt 0 ]; do
  case "$1" in
    --screenshot) screenshot=${2:?--screenshot needs a file name}; shift 2 ;;
    --local) scene=${2:?--local needs a scene file}; shift 2 ;;
    --no-setup) setup=0; shift ;;
    *) editor_args+=("$1"); shift ;;
  esac
done
if [ -z "$scene" ] && [ ${#editor_args[@]} -eq 0 ]; then
  scene="$root/demo/hello_world.usda"
fi
if [ -n "$scene" ]; then
  case "$scene" in
    /*) ;;
    *) scene="$PWD/$scene" ;;
  esac
  # The editor reports a scene it cannot open itself; a missing file is only worth a warning here.
  [ -e "$scene" ] || echo "run_usd_editor: $scene does not exist" >&2
  editor_args=(--project-server-url "" --scene "$scene" --local-mode "${editor_args[@]}")
fi
if [ -n "$screenshot" ]; then
  case "$screenshot" in
    /*) ;;
    *) screenshot="$PWD/$screenshot" ;;
  esac
fi
[ "$setup" -eq 0 ] || "$root/tools/setup.sh" >&2
editor="$root/apps/usd_editor/bin/OrvanUsdEditor"
if [ -n "$screenshot" ]; then
  QT_QPA_PLATFORM=offscreen exec "$editor" "${editor_args[@]}" --screenshot "$screenshot"
fi
exec "$editor" "${editor_args[@]}"
