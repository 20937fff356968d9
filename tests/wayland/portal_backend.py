#!/usr/bin/python3
"""The desktop's side of the ScreenCast and GlobalShortcuts portals, for tests: xdg-desktop-portal
(the real frontend) hands it every request. It shares one monitor, the PipeWire node given,
640 x 480 at (0, 0): the next of NODES (comma-separated) in turn, or STILL_NODE when the mode is "still", and writes each request's options as a line to LOG. Before each Start or
BindShortcuts it reads MODE_FILE: "cancel" (the user says no), "error", "hang" (never answers) or
anything else (shares, binds). Shortcuts proposed in CreateSession are registered at once, as
Plasma does, unless the mode is "bind-only" or steers BindShortcuts. A test presses a shortcut with
org.vantalo.PortalTest.Activate(id) on the backend's desktop object.

    portal_backend.py NODES STILL_NODE LOG MODE_FILE
"""
import json
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

NODES, STILL_NODE, LOG, MODE_FILE = [int(n) for n in sys.argv[1].split(",")], int(sys.argv[2]), sys.argv[3], sys.argv[4]
shared = 0  # how many sessions the bars were shared with
IFACE = "org.freedesktop.impl.portal.ScreenCast"
SHORTCUTS = "org.freedesktop.impl.portal.GlobalShortcuts"
PROPERTIES = {IFACE: {"AvailableSourceTypes": dbus.UInt32(1), "AvailableCursorModes": dbus.UInt32(3),
                      "version": dbus.UInt32(4)},
              SHORTCUTS: {"version": dbus.UInt32(1)}}
MODIFIERS = {"CTRL": "Ctrl", "SHIFT": "Shift", "ALT": "Alt", "LOGO": "Meta"}


def described(shortcuts):
    """The shortcuts as the desktop reports them, each with its keys spelled out."""
    result = []
    for shortcut_id, properties in shortcuts:
        *mods, key = str(properties.get("preferred_trigger", "")).split("+")
        text = "+".join([MODIFIERS.get(m, m) for m in mods] + [key.upper()])
        result.append(dbus.Struct((shortcut_id, dbus.Dictionary(
            {"description": properties.get("description", ""), "trigger_description": text}, signature="sv"))))
    return dbus.Array(result, signature="(sa{sv})")


def said_no(reply):
    """Answers as the mode says, if it says no (or nothing at all); True when it did."""
    what = mode()
    if what in ("cancel", "error"):
        reply(1 if what == "cancel" else 2, {})
    return what in ("cancel", "error", "hang")


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
    def __init__(self, bus, handle, closed=lambda: None):
        super().__init__(bus, handle)
        self.closed = closed

    @dbus.service.method("org.freedesktop.impl.portal.Session", in_signature="", out_signature="")
    def Close(self):
        log("Close", {})
        self.closed()
        self.remove_from_connection()


class Shortcuts(dbus.service.Object):
    """GlobalShortcuts; a class of its own, as its CreateSession shares the name with ScreenCast's."""

    @dbus.service.method(SHORTCUTS, in_signature="oosa{sv}", out_signature="ua{sv}")
    def CreateSession(self, handle, session_handle, app_id, options):
        log("CreateShortcutSession", {s[0]: s[1].get("preferred_trigger", "") for s in options.get("shortcuts", [])})
        Session(self.bus, session_handle, lambda: self.bound.pop(session_handle, None))
        # A desktop that binds only through BindShortcuts (and its dialog) is played in every mode
        # that steers BindShortcuts.
        bind_only = mode() in ("bind-only", "cancel", "error", "hang")
        self.bound[session_handle] = [] if bind_only else described(options.get("shortcuts", []))
        return 0, {}

    @dbus.service.method(SHORTCUTS, in_signature="oo", out_signature="ua{sv}")
    def ListShortcuts(self, handle, session_handle):
        log("ListShortcuts", {})
        return 0, {"shortcuts": dbus.Array(self.bound.get(session_handle, []), signature="(sa{sv})")}

    @dbus.service.method(SHORTCUTS, in_signature="ooa(sa{sv})sa{sv}", out_signature="ua{sv}",
                         async_callbacks=("reply", "error"))
    def BindShortcuts(self, handle, session_handle, shortcuts, parent_window, options, reply, error):
        log("BindShortcuts", {s[0]: s[1].get("preferred_trigger", "") for s in shortcuts})
        if said_no(reply):
            return
        self.bound[session_handle] = described(shortcuts)
        reply(0, {"shortcuts": self.bound[session_handle]})

    @dbus.service.signal(SHORTCUTS, signature="osta{sv}")
    def Activated(self, session_handle, shortcut_id, timestamp, options):
        pass

    @dbus.service.method("org.vantalo.PortalTest", in_signature="s", out_signature="u")
    def Activate(self, shortcut_id):
        """Presses the shortcut in every session that has it bound; answers how many."""
        sessions = [h for h, shortcuts in self.bound.items() if any(s[0] == shortcut_id for s in shortcuts)]
        for handle in sessions:
            self.Activated(dbus.ObjectPath(handle), shortcut_id, dbus.UInt64(0), dbus.Dictionary({}, signature="sv"))
        return len(sessions)


class Desktop(Shortcuts):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/portal/desktop")
        self.bus = bus
        self.bound = {}  # session handle -> its shortcuts

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
        if said_no(reply):
            return
        global shared
        node = STILL_NODE if mode() == "still" else NODES[shared % len(NODES)]
        shared += mode() != "still"
        stream = dbus.Struct((dbus.UInt32(node), dbus.Dictionary({
            "position": dbus.Struct((dbus.Int32(0), dbus.Int32(0))),
            "size": dbus.Struct((dbus.Int32(640), dbus.Int32(480))),
            "source_type": dbus.UInt32(1)}, signature="sv")))
        reply(0, {"streams": dbus.Array([stream], signature="(ua{sv})"),
                  "persist_mode": dbus.UInt32(2),
                  "restore_data": dbus.Struct(("vantalo-test", dbus.UInt32(1),
                                               dbus.String("monitor-0", variant_level=1)))})

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return PROPERTIES[interface][name]

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return PROPERTIES[interface]


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
name = dbus.service.BusName("org.freedesktop.impl.portal.desktop.vantalotest", bus)
Desktop(bus)
print("ready", flush=True)
GLib.MainLoop().run()
