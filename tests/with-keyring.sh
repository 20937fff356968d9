#!/usr/bin/env bash
# Runs a test against a real Secret Service: a private D-Bus session with gnome-keyring-daemon,
# its login keyring created and unlocked non-interactively in a temporary HOME.
set -euo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -m 700 -p "$scratch/runtime" "$scratch/home"
export XDG_RUNTIME_DIR="$scratch/runtime" HOME="$scratch/home"
export XDG_CONFIG_HOME="$scratch/home/.config" XDG_DATA_HOME="$scratch/home/.local/share"
unset DISPLAY WAYLAND_DISPLAY
export VANTALO_TEST_KEYRING=1
exec dbus-run-session -- bash -c '
  eval "$(printf pw | gnome-keyring-daemon --unlock --components=secrets)"
  export GNOME_KEYRING_CONTROL
  exec "$@"' _ "$@"
