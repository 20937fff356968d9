#!/usr/bin/env bash
# Runs a command on a real GNOME Wayland desktop without a screen: mutter headless (one virtual
# 1280 x 720 monitor, XWayland started on demand), xdg-desktop-portal with the GNOME backend,
# PipeWire, WirePlumber and an unlocked keyring, in a private D-Bus session and runtime folder.
# Screen sharing is already granted (VANTALO_SCREENCAST_TOKEN names the grant), and a native
# Wayland client that repaints all the time (weston-simple-shm) is on screen. The command gets
# WAYLAND_DISPLAY, and DISPLAY and XAUTHORITY for XWayland.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../private-home.sh"
export XDG_CURRENT_DESKTOP=GNOME XDG_SESSION_TYPE=wayland VANTALO_TEST_KEYRING=1
only_portals gnome gtk
dbus-run-session -- bash -c '
  set -euo pipefail
  trap "kill \$(jobs -p) 2>/dev/null || true" EXIT
  s=$VANTALO_SCRATCH
  eval "$(printf pw | gnome-keyring-daemon --unlock --components=secrets)"
  export GNOME_KEYRING_CONTROL
  pipewire >"$s/pipewire.log" 2>&1 &
  wait_for "PipeWire'"'"'s socket" 60 test -S "$XDG_RUNTIME_DIR/pipewire-0"
  wireplumber >"$s/wireplumber.log" 2>&1 &
  mutter --wayland --headless --virtual-monitor 1280x720 --wayland-display=wayland-vantalo \
    >"$s/mutter.log" 2>&1 &
  wait_for "mutter" 60 grep -q "Using public X11 display" "$s/mutter.log" || { cat "$s/mutter.log"; exit 1; }
  export WAYLAND_DISPLAY=wayland-vantalo
  export DISPLAY=$(sed -n "s/.*Using public X11 display \(:[0-9]*\).*/\1/p" "$s/mutter.log")
  export XAUTHORITY=$(ls "$XDG_RUNTIME_DIR"/.mutter-Xwaylandauth.* | head -1)
  [ -n "$DISPLAY" ] || { echo "mutter did not start"; cat "$s/mutter.log"; exit 1; }
  dbus-update-activation-environment WAYLAND_DISPLAY DISPLAY XAUTHORITY XDG_CURRENT_DESKTOP XDG_SESSION_TYPE
  /usr/libexec/xdg-desktop-portal-gnome >"$s/portal-gnome.log" 2>&1 &
  wait_for "the GNOME portal backend" 60 busctl --user status org.freedesktop.impl.portal.desktop.gnome
  # The frontend as the session bus starts it, once: the first caller would start it anyway.
  busctl --user --timeout=60 call org.freedesktop.portal.Desktop /org/freedesktop/portal/desktop \
    org.freedesktop.DBus.Peer Ping >/dev/null
  export VANTALO_SCREENCAST_TOKEN=$(/usr/bin/python3 "'"$here"'/seed_screencast.py")
  weston-simple-shm >"$s/client.log" 2>&1 &
  "$@"
' _ "$@"
