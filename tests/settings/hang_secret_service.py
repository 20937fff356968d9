#!/usr/bin/python3
"""A Secret Service that takes the bus name and never answers, as a locked keyring waiting on
its password prompt looks to a client."""
import dbus
import dbus.lowlevel
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()


def swallow(_bus, message):
    if message.get_type() == dbus.lowlevel.MESSAGE_TYPE_METHOD_CALL:
        return dbus.lowlevel.HANDLER_RESULT_HANDLED  # keep it, answer nothing
    return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED


bus.add_message_filter(swallow)
name = dbus.service.BusName("org.freedesktop.secrets", bus)
print("ready", flush=True)
GLib.timeout_add_seconds(120, GLib.MainLoop().quit)
GLib.MainLoop().run()
