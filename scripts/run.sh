#!/usr/bin/env bash
# Builds and runs Vantalo. Without a display it starts a virtual one (Xvfb) with a tray host.
set -euo pipefail
cd "$(dirname "$0")/.."
# Only Vantalo itself: the tests and benchmarks are make test's.
VANTALO_TARGETS=vantalo bash scripts/build.sh build -DCMAKE_BUILD_TYPE=RelWithDebInfo
binary="$PWD/build/src/vantalo"

if [ -n "${DISPLAY:-}" ]; then
  exec "$binary"
fi

display=99
while [ -e "/tmp/.X${display}-lock" ] || [ -e "/tmp/.X11-unix/X${display}" ]; do
  display=$((display + 1))
done
export DISPLAY=":${display}"
if [ -z "${XDG_RUNTIME_DIR:-}" ]; then
  XDG_RUNTIME_DIR=$(mktemp -d)
  export XDG_RUNTIME_DIR
fi

cleanup() {
  [ -n "${xvfb:-}" ] && kill "$xvfb" 2>/dev/null
  wait 2>/dev/null || true
}
trap cleanup EXIT
trap 'exit 130' INT TERM

Xvfb "$DISPLAY" -screen 0 1920x1080x24 -nolisten tcp -noreset >/dev/null 2>&1 &
xvfb=$!
for _ in $(seq 300); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
xdpyinfo >/dev/null 2>&1 || { echo "The virtual display did not start"; exit 1; }

echo "No display found: Vantalo runs inside a virtual display ($DISPLAY, 1920×1080) with a tray host,"
echo "and plays a first recording as a demo: shortcut, region, Start, three seconds, shortcut."
echo "Look at it with:  DISPLAY=$DISPLAY import -window root vantalo.png"
echo "Drive it with:    DISPLAY=$DISPLAY xdotool key ctrl+g"
# The demo uploads only to a bucket you configured (and whose credentials the keyring holds).
upload=()
config="${XDG_CONFIG_HOME:-$HOME/.config}/Vantalo/Vantalo.conf"
if [ -f "$config" ] && grep -q '^s3BucketName=.' "$config"; then
  upload=(--demo-upload)
fi
# Without a session bus, a bus of the demo's own that ends with it (else D-Bus autolaunch would
# start one for the virtual display that outlives the demo).
bus=()
if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
  bus=(dbus-run-session --)
fi
"${bus[@]}" /usr/bin/python3 tests/e2e/flow.py --demo "${upload[@]}" --binary "$binary" --artifacts "$PWD/build/demo"
