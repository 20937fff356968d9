#!/usr/bin/env python3
"""A window that takes drops as other applications do (GTK 3, XDND): for each drop it writes one
JSON line to OUT with the types offered and the data it read for the types a chat, a browser or a
file manager asks for (base64).

    drop_target.py OUT X Y WIDTH HEIGHT
"""
import base64
import json
import sys

import gi

gi.require_version("Gtk", "3.0")
gi.require_version("Gdk", "3.0")
from gi.repository import Gdk, Gtk  # noqa: E402

WANTED = ["image/gif", "text/uri-list", "x-special/gnome-copied-files"]


def main():
    out, x, y, width, height = sys.argv[1], *map(int, sys.argv[2:6])
    window = Gtk.Window(title="Drop Target")
    window.set_decorated(False)
    window.move(x, y)
    window.set_default_size(width, height)
    window.connect("destroy", Gtk.main_quit)
    window.drag_dest_set(0, [], Gdk.DragAction.COPY)
    drop = {}

    def motion(widget, context, _x, _y, time):
        Gdk.drag_status(context, Gdk.DragAction.COPY, time)
        return True

    def dropped(widget, context, _x, _y, time):
        offered = [str(target) for target in context.list_targets()]
        drop.clear()
        drop.update(offered=offered, data={}, pending=[t for t in WANTED if t in offered], time=time)
        if not drop["pending"]:
            finish(context)
        for target in list(drop["pending"]):
            widget.drag_get_data(context, Gdk.Atom.intern(target, False), time)
        return True

    def received(widget, context, _x, _y, data, _info, time):
        target = str(data.get_target())
        drop["data"][target] = base64.b64encode(data.get_data() or b"").decode()
        if target in drop["pending"]:
            drop["pending"].remove(target)
        if not drop["pending"]:
            finish(context)

    def finish(context):
        Gtk.drag_finish(context, True, False, drop["time"])
        with open(out, "a") as f:
            f.write(json.dumps({"offered": drop["offered"], "data": drop["data"]}) + "\n")

    window.connect("drag-motion", motion)
    window.connect("drag-drop", dropped)
    window.connect("drag-data-received", received)
    window.show_all()
    print("ready", flush=True)
    Gtk.main()


if __name__ == "__main__":
    main()
