#!/usr/bin/python3
"""Grants screen sharing of the first monitor to unsandboxed applications on a GNOME desktop, as
the user's "remember" choice in the portal's dialog would: a restore token in the permission
store that xdg-desktop-portal-gnome takes without asking. Prints the token.

    seed_screencast.py
"""
import uuid

import dbus

bus = dbus.SessionBus()
display = dbus.Interface(bus.get_object("org.gnome.Mutter.DisplayConfig", "/org/gnome/Mutter/DisplayConfig"),
                         "org.gnome.Mutter.DisplayConfig")
_, monitors, _, _ = display.GetCurrentState()
connector, vendor, product, serial = monitors[0][0]
token = str(uuid.uuid4())
store = dbus.Interface(bus.get_object("org.freedesktop.impl.portal.PermissionStore",
                                      "/org/freedesktop/impl/portal/PermissionStore"),
                       "org.freedesktop.impl.portal.PermissionStore")
store.SetPermission("screencast", True, token, "", dbus.Array(["yes"], signature="s"))
# (desktop, version, (creation time, last use, [(stream id, MONITOR, monitor match)]))
streams = dbus.Array([dbus.Struct((dbus.UInt32(0), dbus.UInt32(1), dbus.String(f"{vendor}:{product}:{serial}",
                                                                               variant_level=1)))],
                     signature="(uuv)")
data = dbus.Struct((dbus.Int64(0), dbus.Int64(0), streams), variant_level=1)
store.SetValue("screencast", True, token, dbus.Struct((dbus.String("GNOME"), dbus.UInt32(1), data), variant_level=1))
print(token)
