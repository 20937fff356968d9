#!/usr/bin/env python3
"""A Secret Service that takes the bus name and never answers, as a locked keyring waiting on
its password prompt looks to a client."""
import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()


def swallow(_bus, message):
    if message.get_type() == 1:  # method call: keep it, answer nothing
        return True
    return False


bus.add_message_filter(swallow)
name = dbus.service.BusName("org.freedesktop.secrets", bus)
print("ready", flush=True)
GLib.timeout_add_seconds(120, GLib.MainLoop().quit)
GLib.MainLoop().run()
