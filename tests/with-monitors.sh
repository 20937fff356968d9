#!/usr/bin/env bash
# Runs a test on one X server split into two monitors of different sizes and scales, as a laptop
# beside an external monitor: A (primary, 1280 x 1024 at +1920+0, one pixel a point) and B
# (1920 x 1080 at +0+320, two pixels a point), so that B lies at negative x in the y-up space.
set -euo pipefail
source "$(dirname "$0")/private-home.sh"
export QT_SCREEN_SCALE_FACTORS="A=1;B=2"
xvfb-run -a -s "-screen 0 3200x1400x24 -nolisten tcp -noreset" bash -c '
  xrandr --setmonitor "*A" 1280/339x1024/271+1920+0 screen >/dev/null
  xrandr --setmonitor B 1920/508x1080/286+0+320 none >/dev/null
  wait_for "the two monitors" 30 sh -c "xrandr --listmonitors | grep -q \"Monitors: 2\""
  exec "$@"' _ "$@"
