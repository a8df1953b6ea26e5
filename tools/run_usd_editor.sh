#!/usr/bin/env bash
# The run command: installs what is missing, builds, and opens the editor.
#   tools/run_usd_editor.sh [--local SCENE] [--screenshot FILE] [editor arguments...]
# --local SCENE   opens SCENE through the local stage inspector, with no project server.
# --screenshot FILE renders the window offscreen, writes a PNG once the stage has loaded (or
#                 failed to) and the viewport has shown its first frame (at most 20 s later; the
#                 editor says so when none came), and exits. With --local, the first prim is
#                 selected for the picture.
# --no-setup      uses the editor as it is built, without installing or building first.
# Any other argument goes to the editor as it is (for example --inspector PATH).
# With no scene and no editor arguments at all, the reference project server starts on a free
# loopback port serving demo/, the editor opens it as a hosted project, and the server stops when
# the editor ends. When the server cannot start, the demo scene opens locally instead.
# A local scene whose folder holds a project.json opens with that folder as its project.
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
hosted_demo=0
if [ -z "$scene" ] && [ ${#editor_args[@]} -eq 0 ]; then
  hosted_demo=1
fi
if [ -n "$screenshot" ]; then
  case "$screenshot" in
    /*) ;;
    *) screenshot="$PWD/$screenshot" ;;
  esac
fi
[ "$setup" -eq 0 ] || "$root/tools/setup.sh" >&2
editor="$root/apps/usd_editor/bin/OrvanUsdEditor"
server="$root/build/full-demo/orvan_project_server"
server_pid=""
server_url=""
stop_server() {
  if [ -n "$server_pid" ]; then
    kill -TERM "$server_pid" 2>/dev/null || true
    wait "$server_pid" 2>/dev/null || true
    server_pid=""
  fi
}
trap stop_server EXIT INT TERM

# Starts the reference server on a free port for demo/ and sets server_url once it listens.
start_demo_server() {
  [ -x "$server" ] || { echo "run_usd_editor: $server is not built" >&2; return 1; }
  local log
  log=$(mktemp)
  "$server" --project "$root/demo" --port 0 >"$log" 2>&1 &
  server_pid=$!
  local line=""
  for _ in $(seq 100); do
    line=$(grep -m1 '^listening on ' "$log" || true)
    [ -n "$line" ] && break
    kill -0 "$server_pid" 2>/dev/null || break
    sleep 0.1
  done
  if [ -z "$line" ]; then
    echo "run_usd_editor: the project server did not start:" >&2
    sed 's/^/  /' "$log" >&2
    stop_server
    rm -f "$log"
    return 1
  fi
  rm -f "$log"
  server_url=${line#listening on }
}

if [ "$hosted_demo" -eq 1 ]; then
  if start_demo_server; then
    echo "run_usd_editor: project server at $server_url" >&2
    editor_args=(--project-server-url "$server_url")
  else
    echo "run_usd_editor: opening the demo scene locally instead" >&2
    scene="$root/demo/hello_world.usda"
  fi
fi
if [ -n "$scene" ]; then
  case "$scene" in
    /*) ;;
    *) scene="$PWD/$scene" ;;
  esac
  # The editor reports a scene it cannot open itself; a missing file is only worth a warning here.
  [ -e "$scene" ] || echo "run_usd_editor: $scene does not exist" >&2
  project_args=()
  [ -f "$(dirname "$scene")/project.json" ] && project_args=(--project "$(dirname "$scene")")
  editor_args=(--project-server-url "" --scene "$scene" --local-mode "${project_args[@]}" "${editor_args[@]}")
fi
status=0
if [ -n "$screenshot" ]; then
  QT_QPA_PLATFORM=offscreen "$editor" "${editor_args[@]}" --screenshot "$screenshot" || status=$?
else
  "$editor" "${editor_args[@]}" || status=$?
fi
exit "$status"
