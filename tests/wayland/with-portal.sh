#!/usr/bin/env bash
# Runs a test inside a private desktop session with the real screen-cast portal frontend
# (xdg-desktop-portal), the test backend beside this script, PipeWire and WirePlumber, and
# PipeWire video sources of known content (640 x 480, BGRx, colour bars at 30 fps; and #33cc66
# that sends a frame every 3 s). The test finds the sources' nodes in VANTALO_TEST_NODES (three
# of the bars, shared in turn: GStreamer's pipewiresink loses the buffers it lent to a stream that
# goes away, so each source serves few streams) and VANTALO_TEST_STILL_NODE, the backend's log of requests in VANTALO_PORTAL_LOG, and steers the
# backend's next answer through VANTALO_PORTAL_MODE (a file); VANTALO_TEST_SOURCE_PICTURE holds
# the bars' bytes. The desktop offers the ScreenCast and GlobalShortcuts portals.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../private-home.sh"
mkdir -p "$scratch/portals"
cat >"$scratch/portals/vantalo-test.portal" <<EOF
[portal]
DBusName=org.freedesktop.impl.portal.desktop.vantalotest
Interfaces=org.freedesktop.impl.portal.ScreenCast;org.freedesktop.impl.portal.GlobalShortcuts;
UseIn=vantalo-test
EOF
export XDG_CURRENT_DESKTOP=vantalo-test XDG_DESKTOP_PORTAL_DIR="$scratch/portals"
export VANTALO_PORTAL_LOG="$scratch/requests.jsonl" VANTALO_PORTAL_MODE="$scratch/mode"
dbus-run-session -- bash -c '
  set -euo pipefail
  trap "kill \$(jobs -p) 2>/dev/null || true" EXIT
  s=$VANTALO_SCRATCH
  pipewire >"$s/pipewire.log" 2>&1 &
  wait_for "PipeWire'"'"'s socket" 60 test -S "$XDG_RUNTIME_DIR/pipewire-0"
  wireplumber >"$s/wireplumber.log" 2>&1 &
  # A screen that sends 30 fps and one that hardly sends anything (a frame every 3 s).
  source() {
    gst-launch-1.0 videotestsrc is-live=true $2 \
      ! video/x-raw,format=BGRx,width=640,height=480,framerate=$3 \
      ! pipewiresink mode=provide stream-properties="props,media.class=Video/Source,node.name=$1" \
      >"$s/$1.log" 2>&1 &
  }
  node_id() {
    local deadline=$((SECONDS + 60))
    until ((SECONDS >= deadline)); do
      pw-dump 2>/dev/null | /usr/bin/python3 -c "
import json, sys
nodes = [o[\"id\"] for o in json.load(sys.stdin) if o.get(\"type\", \"\").endswith(\"Node\")
         and o.get(\"info\", {}).get(\"props\", {}).get(\"node.name\") == \"$1\"]
print(nodes[0] if nodes else \"\")" | grep . && return
      sleep 0.1
    done
    echo "timed out after 60 s waiting for the test source $1" >&2; cat "$s/$1.log" >&2; exit 1
  }
  for n in 1 2 3; do source vantalo-test-screen-$n pattern=smpte 30/1; done
  # The same bars as raw BGRx bytes, straight from GStreamer, to check cuts against.
  gst-launch-1.0 -q videotestsrc pattern=smpte num-buffers=1 \
    ! video/x-raw,format=BGRx,width=640,height=480,framerate=30/1 ! filesink location="$s/source.bgrx"
  export VANTALO_TEST_SOURCE_PICTURE="$s/source.bgrx"
  source vantalo-test-still "pattern=solid-color foreground-color=0xff33cc66" 1/3
  nodes=$(node_id vantalo-test-screen-1),$(node_id vantalo-test-screen-2),$(node_id vantalo-test-screen-3)
  still=$(node_id vantalo-test-still)
  export VANTALO_TEST_NODES=$nodes VANTALO_TEST_STILL_NODE=$still
  /usr/bin/python3 "'"$here"'/portal_backend.py" "$nodes" "$still" "$VANTALO_PORTAL_LOG" "$VANTALO_PORTAL_MODE" \
    >"$s/backend.log" 2>&1 &
  wait_for "the test portal backend" 60 grep -q ready "$s/backend.log"
  /usr/libexec/xdg-desktop-portal -r >"$s/portal.log" 2>&1 &
  wait_for "the portal frontend" 60 busctl --user status org.freedesktop.portal.Desktop
  "$@"
' _ "$@"
