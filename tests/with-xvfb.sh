#!/usr/bin/env bash
# Runs a test inside its own X server (1920×1080) with private runtime, home and settings folders.
set -euo pipefail
# An X11 session, whatever the desktop the tests are started from. The server never resets: a
# reset (when its last client leaves) refuses the clients that come meanwhile.
source "$(dirname "$0")/private-home.sh"
xvfb-run -a -s "-screen 0 1920x1080x24 -nolisten tcp -noreset" "$@"
