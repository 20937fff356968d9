#!/usr/bin/env bash
# Runs a test against a real Secret Service: a private D-Bus session with gnome-keyring-daemon,
# its login keyring created and unlocked non-interactively in a temporary HOME.
set -euo pipefail
source "$(dirname "$0")/private-home.sh"
export VANTALO_TEST_KEYRING=1
dbus-run-session -- bash -c '
  eval "$(printf pw | gnome-keyring-daemon --unlock --components=secrets)"
  export GNOME_KEYRING_CONTROL
  exec "$@"' _ "$@"
