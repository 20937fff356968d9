#!/usr/bin/python3
"""The desktop's side of the ScreenCast portal, for tests: xdg-desktop-portal (the real frontend)
hands it every request. It shares one monitor, the PipeWire node given, 640 x 480 at (0, 0), and
writes each request's options as a line to LOG. Before each Start it reads MODE_FILE: "cancel"
(the user says no), "error", "hang" (never answers) or anything else (shares).

    portal_backend.py NODE LOG MODE_FILE
"""
import json
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

NODE, LOG, MODE_FILE = int(sys.argv[1]), sys.argv[2], sys.argv[3]
IFACE = "org.freedesktop.impl.portal.ScreenCast"
PROPERTIES = {"AvailableSourceTypes": dbus.UInt32(1), "AvailableCursorModes": dbus.UInt32(3),
              "version": dbus.UInt32(4)}


def log(method, options):
    with open(LOG, "a") as f:
        f.write(json.dumps({"method": method, "options": {str(k): str(v) for k, v in options.items()}}) + "\n")


def mode():
    try:
        with open(MODE_FILE) as f:
            return f.read().strip()
    except FileNotFoundError:
        return ""


class Session(dbus.service.Object):
    @dbus.service.method("org.freedesktop.impl.portal.Session", in_signature="", out_signature="")
    def Close(self):
        log("Close", {})
        self.remove_from_connection()


class ScreenCast(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/portal/desktop")
        self.bus = bus

    @dbus.service.method(IFACE, in_signature="oosa{sv}", out_signature="ua{sv}")
    def CreateSession(self, handle, session_handle, app_id, options):
        log("CreateSession", options)
        Session(self.bus, session_handle)
        return 0, {}

    @dbus.service.method(IFACE, in_signature="oosa{sv}", out_signature="ua{sv}")
    def SelectSources(self, handle, session_handle, app_id, options):
        log("SelectSources", options)
        return 0, {}

    @dbus.service.method(IFACE, in_signature="oossa{sv}", out_signature="ua{sv}",
                         async_callbacks=("reply", "error"))
    def Start(self, handle, session_handle, app_id, parent_window, options, reply, error):
        log("Start", options)
        what = mode()
        if what == "hang":
            return
        if what in ("cancel", "error"):
            reply(1 if what == "cancel" else 2, {})
            return
        stream = dbus.Struct((dbus.UInt32(NODE), dbus.Dictionary({
            "position": dbus.Struct((dbus.Int32(0), dbus.Int32(0))),
            "size": dbus.Struct((dbus.Int32(640), dbus.Int32(480))),
            "source_type": dbus.UInt32(1)}, signature="sv")))
        reply(0, {"streams": dbus.Array([stream], signature="(ua{sv})"),
                  "persist_mode": dbus.UInt32(2),
                  "restore_data": dbus.Struct(("vantalo-test", dbus.UInt32(1),
                                               dbus.String("monitor-0", variant_level=1)))})

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return PROPERTIES[name]

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return PROPERTIES


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
name = dbus.service.BusName("org.freedesktop.impl.portal.desktop.vantalotest", bus)
ScreenCast(bus)
print("ready", flush=True)
GLib.MainLoop().run()
