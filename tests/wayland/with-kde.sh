#!/usr/bin/env bash
# Runs a command on a real KDE Plasma Wayland session without a screen, for its global shortcuts:
# kwin_wayland --virtual, xdg-desktop-portal with the KDE backend, and KDE's shortcut daemon
# (kglobalaccel, started by the backend), in a private D-Bus session and runtime folder.
set -euo pipefail
source "$(dirname "$0")/../private-home.sh"
mkdir -p "$scratch/bin"
export XDG_CURRENT_DESKTOP=KDE XDG_SESSION_TYPE=wayland KDE_FULL_SESSION=true
only_portals kde
# kwin_wayland carries a file capability (cap_sys_resource) that a container's bounding set may
# not hold, and then it cannot be started at all; a copy carries none. Its name must stay.
cp /usr/bin/kwin_wayland "$scratch/bin/kwin_wayland"
dbus-run-session -- bash -c '
  set -euo pipefail
  trap "kill \$(jobs -p) 2>/dev/null || true" EXIT
  s=$VANTALO_SCRATCH
  "$s/bin/kwin_wayland" --virtual --width 1280 --height 720 --socket wayland-vantalo --no-lockscreen \
    >"$s/kwin.log" 2>&1 &
  wait_for "kwin" 60 test -S "$XDG_RUNTIME_DIR/wayland-vantalo" || { cat "$s/kwin.log"; exit 1; }
  export WAYLAND_DISPLAY=wayland-vantalo
  dbus-update-activation-environment WAYLAND_DISPLAY XDG_CURRENT_DESKTOP XDG_SESSION_TYPE KDE_FULL_SESSION
  QT_QPA_PLATFORM=wayland /usr/lib/x86_64-linux-gnu/libexec/xdg-desktop-portal-kde >"$s/portal-kde.log" 2>&1 &
  wait_for "the KDE portal backend" 60 busctl --user status org.freedesktop.impl.portal.desktop.kde
  # The frontend as the session bus starts it, once: the first caller would start it anyway.
  busctl --user --timeout=60 call org.freedesktop.portal.Desktop /org/freedesktop/portal/desktop \
    org.freedesktop.DBus.Peer Ping >/dev/null
  "$@"
' _ "$@"
