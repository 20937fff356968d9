#!/usr/bin/env bash
# Runs a test inside its own X server (1920×1080) with private runtime, home and settings folders.
set -euo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -m 700 -p "$scratch/runtime" "$scratch/home"
export XDG_RUNTIME_DIR="$scratch/runtime" HOME="$scratch/home"
export XDG_CONFIG_HOME="$scratch/home/.config" XDG_DATA_HOME="$scratch/home/.local/share"
# An X11 session, whatever the desktop the tests are started from.
unset WAYLAND_DISPLAY XDG_SESSION_TYPE
exec xvfb-run -a -s "-screen 0 1920x1080x24 -nolisten tcp" "$@"
