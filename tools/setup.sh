#!/usr/bin/env bash
# Installs the missing Debian packages of tools/debian-packages.txt, then configures and builds.
# Safe to run again: it installs nothing that is present and rebuilds only what changed.
#   tools/setup.sh [--preset NAME] [--no-build]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
preset=dev
build=1
while [ $# -gt 0 ]; do
  case "$1" in
    --preset) preset=${2:?--preset needs a name}; shift 2 ;;
    --no-build) build=0; shift ;;
    *) echo "setup.sh: unknown option '$1'" >&2; exit 2 ;;
  esac
done

missing=()
while read -r package; do
  package=${package%%#*}
  package=$(echo "$package" | tr -d '[:space:]')
  [ -n "$package" ] || continue
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$package")
done < "$root/tools/debian-packages.txt"

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup.sh: installing ${missing[*]}"
  if [ "$(id -u)" -eq 0 ]; then
    apt_get=(apt-get)
  elif command -v sudo >/dev/null 2>&1; then
    apt_get=(sudo -n apt-get)
  else
    echo "setup.sh: these packages are missing and this user can neither install them (not root)" >&2
    echo "nor use sudo: ${missing[*]}" >&2
    echo "Install them as root with: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  "${apt_get[@]}" update -qq
  "${apt_get[@]}" install -y -qq --no-install-recommends "${missing[@]}"
fi

[ "$build" -eq 1 ] || exit 0
cd "$root"
# Configuring every time applies preset changes to an existing tree; it is quick when nothing
# changed.
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
