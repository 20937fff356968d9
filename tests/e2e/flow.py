#!/usr/bin/python3
"""One recording from end to end, played as a user plays it, on the X display in $DISPLAY.

Starts a tray host, an animated test window and Vantalo; presses the shortcut, drags a region over
the window, presses Start, records for three seconds, stops with the shortcut; then checks the GIF
(an independent decoder), the preview panel, Copy, Upload (with --upload: against a local
S3-compatible server), the history window, Preferences (with --app-checks) and Delete. A screenshot is
kept at every step.

With --demo nothing is deleted and the run ends by printing where the GIF and the screenshots are.
"""
import argparse
import base64
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.request
from pathlib import Path

from PIL import Image, ImageDraw, ImageSequence

SCREEN = (1920, 1080)
REGION = (320, 220, 400, 300)  # x, y, width, height of the dragged rectangle
# On the Wayland desktop (tests/wayland/with-mutter.sh): its one monitor, and a region over the
# native client that sits in its top-left corner (weston-simple-shm, 250 × 250).
WAYLAND_SCREEN = (1280, 720)
WAYLAND_DROP_AT = (900, 300)
WAYLAND_REGION = (20, 40, 400, 300)
WINDOW_AT = (300, 200)  # where the animated window sits
DROP_AT = (1500, 300)  # the middle of the window things are dragged to (on either desktop)
# Vantalo's log lines carry the monotonic clock's seconds (the clock time.monotonic() reads).
LOG_PATTERN = "%{time boot} %{message}"
BUCKET = "e2e-bucket"
CDN = "cdn.e2e.test"


class Flow:
    def __init__(self, args):
        self.args = args
        self.out_scale, self.out_rate = (int(n) for n in args.output.split("x"))
        self.artifacts = Path(args.artifacts)
        self.artifacts.mkdir(parents=True, exist_ok=True)
        self.scratch = Path(tempfile.mkdtemp(prefix="vantalo-flow-"))
        self.processes = []
        self.step = 0
        self.home = Path(os.environ["HOME"])
        self.data = Path(os.environ.get("XDG_DATA_HOME", self.home / ".local/share")) / "Vantalo"
        self.config = Path(os.environ.get("XDG_CONFIG_HOME", self.home / ".config")) / "Vantalo"
        self.s3_endpoint = None
        self.s3_data = self.scratch / "s3"
        self.screen, self.region, self.drop_at = ((WAYLAND_SCREEN, WAYLAND_REGION, WAYLAND_DROP_AT) if args.wayland
                                                  else (SCREEN, REGION, DROP_AT))

    # ---- helpers

    def start(self, argv, log=None, env=None):
        out = open(self.artifacts / log, "wb") if log else subprocess.DEVNULL
        process = subprocess.Popen(argv, stdout=out, stderr=subprocess.STDOUT, env=env)
        self.processes.append(process)
        return process

    def shot(self, name):
        if self.args.wayland:
            return None  # XWayland's root window shows nothing of a Wayland desktop
        self.step += 1
        path = self.artifacts / f"{self.step:02d}-{name}.png"
        subprocess.run(["import", "-window", "root", str(path)], check=True)
        return path

    @staticmethod
    def xdotool(*argv):
        return subprocess.run(["xdotool", *map(str, argv)], check=True, capture_output=True, text=True).stdout

    @staticmethod
    def wait_for(what, predicate, seconds=30.0):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            value = predicate()
            if value:
                return value
            time.sleep(0.05)
        raise AssertionError(f"timed out waiting for {what}")

    def window(self, title):
        return self.window_named(f"^{re.escape(title)}$")

    def lock(self, name, on):
        """Turns "Caps Lock" or "Num Lock" on or off, as its key does, and waits until the server says so."""
        def state():
            return re.search(rf"{name}:\s+(on|off)", subprocess.run(["xset", "q"], capture_output=True,
                                                                    text=True).stdout).group(1) == "on"
        if state() != on:
            self.xdotool("key", name.replace(" ", "_"))
        self.wait_for(f"{name} {'on' if on else 'off'}", lambda: state() == on, seconds=5)

    def click(self, x, y, button=1):
        self.xdotool("mousemove", x, y)
        time.sleep(0.15)
        self.xdotool("click", button)

    def history(self):
        try:
            return json.loads((self.data / "history.json").read_text())
        except (FileNotFoundError, json.JSONDecodeError):
            return []

    def clipboard(self, target):
        result = subprocess.run(["xclip", "-selection", "clipboard", "-t", target, "-o"], capture_output=True)
        return result.stdout if result.returncode == 0 else None

    def log(self, text):
        print(text, flush=True)

    # ---- the scene

    def animated_window(self):
        """A 440 × 340 window with a moving square and a counter, played by ImageMagick's animate."""
        frames = []
        for i in range(30):
            frame = Image.new("RGB", (440, 340), (32, 56, 92))
            draw = ImageDraw.Draw(frame)
            x = 20 + i * 12
            draw.rectangle([x, 120, x + 60, 180], fill=(255, 196, 0))
            draw.rectangle([20, 20, 20 + i * 13, 44], fill=(80, 200, 120))
            draw.text((20, 290), f"frame {i:02d}", fill=(255, 255, 255))
            if self.args.app_checks:
                # A patch of noise, so the GIF is larger than the smallest size it is fitted under.
                frame.paste(Image.effect_noise((180, 80), 90).convert("RGB"), (220, 190))
            frames.append(frame)
        path = self.scratch / "scene.gif"
        frames[0].save(path, save_all=True, append_images=frames[1:], duration=70, loop=0)
        self.start(["animate", "-geometry", f"+{WINDOW_AT[0]}+{WINDOW_AT[1]}", str(path)])
        self.wait_for("the animated window", lambda: subprocess.run(
            ["xdotool", "search", "--onlyvisible", "--class", "animate"], capture_output=True).returncode == 0)

    def s3_server(self):
        package = os.environ.get("VANTALO_S3RVER")
        if not package:
            raise SystemExit("--upload needs VANTALO_S3RVER (the @20minutes/s3rver package directory)")
        script = ("require(process.env.VANTALO_S3RVER + '/lib/cli.js').parseAsync(process.argv)"
                  ".catch(e => { console.error(e); process.exit(1) })")
        process = subprocess.Popen(["node", "-e", script, "s3rver", "-d", str(self.s3_data), "-a", "127.0.0.1",
                                    "-p", "0", "--configure-bucket", BUCKET],
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.processes.append(process)
        for line in process.stdout:
            match = re.search(r"listening on 127\.0\.0\.1:(\d+)", line)
            if match:
                self.s3_endpoint = f"http://127.0.0.1:{match.group(1)}"
                break
        if not self.s3_endpoint:
            raise AssertionError("the S3-compatible server did not start")

    def configure_uploads(self):
        """Settings in the settings file, the key pair in the keyring, as Preferences would store them."""
        self.config.mkdir(parents=True, exist_ok=True)
        (self.config / "Vantalo.conf").write_text(
            f"[General]\ns3BucketName={BUCKET}\ns3Region=us-east-1\ncdnDomain={CDN}\ns3Endpoint={self.s3_endpoint}\n")
        for key in ("aws-access-key-id", "aws-secret-access-key"):
            subprocess.run(["secret-tool", "store", f"--label=com.vantalo.app/{key}", "user", key,
                            "server", "com.vantalo.app", "type", "plaintext"],
                           input=b"S3RVER", check=True)

    # ---- the flow

    def run(self):
        if self.args.quit_while_asking:
            return self.quit_while_asking()
        if self.args.choosing:
            return self.choosing()
        if self.args.app_checks:
            self.command_line()
        elif not self.args.wayland:
            self.start_tray()
        if self.args.compositor:
            self.start(["xcompmgr"])
        if self.args.upload:
            self.s3_server()
            self.configure_uploads()
        if self.args.wayland:
            self.grant_screen_sharing()
        else:
            self.animated_window()
        if self.args.output != "2x15":
            self.write_settings(f"outputScale={self.out_scale}\noutputFrameRate={self.out_rate}\n")
        if self.args.fit_under:
            self.write_settings(f"fitUnderBytes={self.args.fit_under}\n")

        env = dict(os.environ, QT_LOGGING_RULES="vantalo.*.debug=true", QT_MESSAGE_PATTERN=LOG_PATTERN)
        if self.args.compositor:
            # No uploads in this run: an endpoint they would refuse is named once at start.
            env["VANTALO_S3_ENDPOINT"] = "ftp://storage.example"
        kept_before = {item["id"] for item in self.history()}
        # The compositor run starts Vantalo the way a desktop's own key binding does.
        by_command = self.args.compositor or self.args.wayland
        launch = [self.args.binary, "--toggle"] if by_command else [self.args.binary]
        self.app = self.start(launch, log="vantalo.log", env=env)
        self.wait_for("Vantalo to start", lambda: "launched" in self.app_log())
        if self.args.compositor:
            assert self.app_log().count("Uploads will fail: the S3 endpoint must be an https URL (http only on this "
                                        "computer) (the endpoint is ftp://storage.example)") == 1, self.app_log()
        if self.args.app_checks:
            self.single_instance_and_late_tray()
        time.sleep(2.5)  # the tray docks the icon
        self.shot("started")

        selections = 0 if by_command else self.app_log().count("-> selecting")
        if not by_command:
            # With Caps Lock on, as a user may have it; Num Lock is on for the stop.
            self.lock("Caps Lock", True)
            self.xdotool("key", "ctrl+g")
        self.wait_for("the selection overlay", lambda: self.app_log().count("-> selecting") > selections)
        if not by_command:
            self.lock("Caps Lock", False)
        time.sleep(0.5)
        self.shot("selecting")
        x, y, w, h = self.region
        started = self.drag_region_and_start()
        self.xdotool("mousemove", x + w + 200, y + h + 100)  # out of the picture
        time.sleep(1.0)
        recording_shot = self.shot("recording")
        if not self.args.wayland:
            self.lock("Num Lock", True)
        else:
            # Paused for a second through the portal as on X11: the stream stays open, its frames
            # are not kept, and the GIF leaves the second out.
            subprocess.run([self.args.binary, "--pause"], check=True, timeout=15)
            self.wait_for("the pause", lambda: "recording paused" in self.app_log())
            time.sleep(1.0)
            subprocess.run([self.args.binary, "--pause"], check=True, timeout=15)
            self.wait_for("the resume", lambda: "recording resumed" in self.app_log())
        time.sleep(max(0.0, started + (4.0 if self.args.wayland else 3.0) - time.monotonic()))
        key_sent = time.monotonic()
        if self.args.wayland:
            # The desktop has no shortcut portal: the command bound to a key in its settings.
            subprocess.run([self.args.binary, "--toggle"], check=True, timeout=15)
        else:
            self.xdotool("key", "ctrl+g")

        items = self.wait_for("the GIF in the history",
                              lambda: [item for item in self.history() if item["id"] not in kept_before], seconds=30)
        if not self.args.wayland:
            self.lock("Num Lock", False)
        self.check_stop_key(key_sent, "the command bound to a key" if self.args.wayland else "the shortcut")
        assert self.history()[0]["id"] == items[0]["id"], "the new GIF is not listed first"
        panel = self.wait_for("the preview panel", lambda: self.window("Vantalo Preview"))
        time.sleep(0.5)
        preview_shot = self.shot("preview")
        if not self.args.wayland:
            # The tray icon turns red while recording, and back after.
            assert self.red_in_tray_icon(recording_shot) > 100, "the tray icon does not show the recording"
            assert self.red_in_tray_icon(preview_shot) == 0, "the tray icon still shows a recording"
        if self.args.fit_under:
            # Fitted right after the stop: only what fits is kept (this recording fits as it is,
            # and the panel says so for a while).
            self.wait_for("the fit after the stop", lambda: "fit ended: 1 Already under 1 MB: " in self.app_log())
            self.shot("fitted-after-stop")
            items = [item for item in self.history() if item["id"] not in kept_before]
            assert len(items) == 1 and items[0]["fileSize"] <= self.args.fit_under, items
            time.sleep(4.0)
        gif = self.data / "gifs" / items[0]["filename"]
        self.check_gif(gif)
        if self.args.wayland:
            self.check_recorded_time(paused=True)
        self.check_history_file(items[0], gif)
        px, py, pw, ph = panel
        assert (px + pw, py + ph) == (self.screen[0] - 24, self.screen[1] - 24), f"panel at {panel}"
        assert pw == 280, f"panel {pw} wide"
        row_y = py + ph - 27
        upload_x, copy_x, delete_x = px + 40, px + 107, px + 240

        self.click(copy_x, row_y)
        copied = self.wait_for("the GIF on the clipboard", lambda: self.clipboard("image/gif"))
        assert copied == gif.read_bytes(), "the clipboard holds other bytes than the GIF"
        # File managers get the file itself.
        file_url = gif.as_uri().encode()
        assert self.clipboard("text/uri-list").strip() == file_url, self.clipboard("text/uri-list")
        assert self.clipboard("x-special/gnome-copied-files") == b"copy\n" + file_url
        self.shot("copied")

        # Dragged out of the panel's picture into another application; the panel stays.
        drops = self.drop_target()
        self.drag((px + pw // 2, py + 60), self.drop_at)
        self.check_drop(drops, 1, gif)
        after = self.window("Vantalo Preview")
        assert after == panel, f"the panel moved or closed during the drag: {panel} then {after}"
        assert "No application opens" not in self.app_log(), "the drag also opened the GIF"

        if self.args.upload:
            self.click(upload_x, row_y)
            link = f"https://{CDN}/gifs/{gif.name}"
            self.wait_for("the link on the clipboard", lambda: self.clipboard("UTF8_STRING") == link.encode())
            self.shot("uploaded")
            assert b"image/gif" not in self.clipboard("TARGETS"), "the link did not replace the GIF"
            assert self.history()[0].get("uploadURL") == link, self.history()[0]
            escaped = link.replace("/", "\\/")  # as JSON writers on the Mac write it
            assert f'"uploadURL" : "{escaped}"' in (self.data / "history.json").read_text()
            with urllib.request.urlopen(f"{self.s3_endpoint}/{BUCKET}/gifs/{gif.name}") as stored:
                assert stored.read() == gif.read_bytes(), "the stored object differs from the GIF"

        if self.args.wayland:
            # No tray on this desktop, so no menu to open the history from or to quit with.
            # Said once, as a line and not as an alert: there is nothing the user could change.
            assert self.app_log().count("This desktop offers applications no global shortcuts") == 1, self.app_log()
            assert self.window("Shortcut Unavailable") is None, "an alert about the missing shortcut portal"
            assert "No system tray found: Vantalo keeps running; record with the command \u201cvantalo --toggle\u201d " \
                   "(bind it to a key" in self.app_log(), self.app_log()
            self.delete_from_panel(delete_x, row_y, gif, items[0])
            self.desktop_ends_the_share()
            self.app.terminate()
            self.app.wait(timeout=10)
            self.log(f"end to end OK (Wayland desktop); artifacts in {self.artifacts}")
            return

        self.open_history()
        history = self.wait_for("the history window", lambda: self.window("GIF History"))
        time.sleep(0.8)
        scene = self.scene_in_first_cell(history)
        assert len(scene) > 2000, f"the history window shows no thumbnail of the GIF ({len(scene)} scene pixels)"
        # A cell is dragged out the same way.
        self.drag((history[0] + 16 + 100, history[1] + 16 + 58), self.drop_at)
        self.check_drop(drops, 2, gif)

        if self.args.demo:
            if self.args.demo_upload:
                self.demo_upload(upload_x, row_y, gif)
            self.log(f"GIF: {gif}")
            self.log(f"Screenshot of the preview panel: {preview_shot}")
            self.log(f"All screenshots: {self.artifacts}")
            return

        if self.args.app_checks:
            self.preferences()
            self.click(history[0] + 16 + 100, history[1] + 16 + 58)  # the GIF's panel again
            self.wait_for("the panel again", lambda: self.window("Vantalo Preview") == panel)
            gif, items[0] = self.trim_and_fit(panel, gif, items[0])
        if self.args.compositor:
            # The panel closed with its button, a click on the history cell shows the GIF there again.
            self.click(px + pw - 21, py + 21)
            self.wait_for("the panel to close", lambda: self.window("Vantalo Preview") is None)
            self.click(history[0] + 16 + 100, history[1] + 16 + 58)
            self.wait_for("the panel again", lambda: self.window("Vantalo Preview") == panel)
            self.delete_from_history(history, gif, items[0])
        else:
            self.delete_from_panel(delete_x, row_y, gif, items[0])
        self.quit_from_tray_menu()
        self.log(f"end to end OK ({'with' if self.args.compositor else 'without'} a compositor); "
                 f"screenshots in {self.artifacts}")

    def choosing(self):
        """What a user records, chosen on a desktop with a window manager: the whole screen dragged
        corner to corner and started with Return, a region at the top edge started from its
        toolbar, a window taken with a click, the last region again (Return on its outline, and
        `vantalo --toggle --last-region`), and a typed size. Each GIF (1×) is the size chosen. Quit
        while recording keeps the recording."""
        self.start(["openbox"])
        self.wait_for("the window manager", lambda: "window id" in subprocess.run(
            ["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"], capture_output=True, text=True).stdout)
        self.start_tray()
        self.animated_window()
        # Clicks and shortcuts shown in every recording of this run.
        self.write_settings("outputScale=1\noutputFrameRate=10\nshowClicks=1\nshowKeys=1\n")
        env = dict(os.environ, QT_LOGGING_RULES="vantalo.*.debug=true", QT_MESSAGE_PATTERN=LOG_PATTERN)
        self.app = self.start([self.args.binary], log="vantalo.log", env=env)
        self.wait_for("Vantalo to start", lambda: "launched" in self.app_log())
        time.sleep(2.5)

        def record(name, choose, begin=("key", "ctrl+g")):
            kept = {item["id"] for item in self.history()}
            log = self.app_log()
            selections, ready, recordings = (log.count(s) for s in ("-> selecting", "-> readyToRecord", "-> recording"))
            if begin[0] == "key":
                self.xdotool(*begin)
                self.wait_for(f"{name}: the overlay", lambda: self.app_log().count("-> selecting") > selections)
            else:
                subprocess.run([self.args.binary, *begin], check=True, timeout=15)
                self.wait_for(f"{name}: the region", lambda: self.app_log().count("-> readyToRecord") > ready)
            time.sleep(0.6)
            choose()
            self.wait_for(f"{name}: the recording", lambda: self.app_log().count("-> recording") > recordings)
            time.sleep(1.2)
            self.xdotool("key", "ctrl+g")
            items = self.wait_for(f"{name}: the GIF", lambda: [i for i in self.history() if i["id"] not in kept])
            self.wait_for("the preview panel", lambda: self.window("Vantalo Preview"))
            with Image.open(self.data / "gifs" / items[0]["filename"]) as gif:
                return gif.size

        drag = self.drag_region

        def bar():
            """The toolbar's capsule (its window has 20 points of clear padding round it)."""
            x, y, w, h = self.window("Vantalo Recording Toolbar")
            return x + 20, y + 20, w - 40, h - 40

        def whole_screen():
            self.shot("choosing-hint")
            drag(0, 0, SCREEN[0] - 1, SCREEN[1] - 1)
            x, y, w, h = bar()
            assert 0 <= x and 0 <= y and x + w <= SCREEN[0] and y + h <= SCREEN[1], (x, y, w, h)
            self.shot("toolbar-inside-the-whole-screen")
            self.xdotool("key", "Return")
        assert record("the whole screen", whole_screen) == SCREEN

        def top_edge():
            drag(700, 0, 1100, 300)
            x, y, w, h = bar()
            assert y >= 0, f"the toolbar is off the screen at y = {y}"
            self.shot("toolbar-of-a-region-at-the-top")
            self.click(x + w // 2, y + h // 2)
        assert record("a region at the top edge", top_edge) == (400, 300)

        animate = subprocess.run(["xdotool", "search", "--onlyvisible", "--class", "animate"], capture_output=True,
                                 text=True).stdout.split()[0]
        info = subprocess.run(["xwininfo", "-id", animate], capture_output=True, text=True).stdout
        ax, ay, aw, ah = (int(re.search(rf"{key}:\s+(-?\d+)", info).group(1)) for key in
                          ("Absolute upper-left X", "Absolute upper-left Y", "Width", "Height"))
        extents = subprocess.run(["xprop", "-id", animate, "_NET_FRAME_EXTENTS"], capture_output=True,
                                 text=True).stdout
        left, right, top, bottom = (int(n) for n in re.findall(r"\d+", extents.split("=")[1]))
        frame = (aw + left + right, ah + top + bottom)
        assert top > 0, f"openbox drew no frame: {extents}"

        def a_window():
            self.xdotool("mousemove", ax + aw // 2, ay + ah // 2)
            time.sleep(0.4)
            self.shot("a-window-under-the-pointer")
            self.xdotool("click", 1)
            self.wait_for("the toolbar", lambda: self.window("Vantalo Recording Toolbar"))
            self.xdotool("key", "Return")
        assert record("a window", a_window) == frame

        def the_last_region():
            self.shot("the-last-region")
            self.xdotool("key", "Return")  # on the selection overlay: the last region
            self.wait_for("the toolbar", lambda: self.window("Vantalo Recording Toolbar"))
            self.xdotool("key", "Return")
        assert record("the last region", the_last_region) == frame
        assert record("the last region from the command line", lambda: self.xdotool("key", "Return"),
                      begin=("--toggle", "--last-region")) == frame

        def typed():
            drag(200, 600, 500, 800)
            self.xdotool("key", "Tab")
            time.sleep(0.3)
            self.xdotool("type", "320x240")
            self.shot("a-typed-size")
            self.xdotool("key", "Return")
            time.sleep(0.3)
            self.xdotool("key", "Return")
        assert record("a typed size", typed) == (320, 240)

        self.pause_and_move(ax, ay)
        self.clicks_and_keys()

        # Quit while recording, then a logout (SIGTERM): each GIF is written and listed first.
        for ending in ("Quit", "SIGTERM"):
            kept = len(self.history())
            recordings = self.app_log().count("-> recording")
            subprocess.run([self.args.binary, "--toggle", "--last-region"], check=True, timeout=15)
            self.wait_for("the region", lambda: self.window("Vantalo Recording Toolbar"))
            self.xdotool("key", "Return")
            self.wait_for("the recording", lambda: self.app_log().count("-> recording") > recordings)
            time.sleep(1.5)
            if ending == "Quit":
                self.quit_from_tray_menu()
                (self.artifacts / "vantalo.log").rename(self.artifacts / "vantalo-before-quit.log")
                self.app = self.start([self.args.binary], log="vantalo.log", env=env)
                self.wait_for("Vantalo to start again", lambda: "launched" in self.app_log())
                time.sleep(1.0)
            else:
                self.app.terminate()
                assert self.app.wait(timeout=8) == 0, "Vantalo did not end cleanly on SIGTERM"
            assert len(self.history()) == kept + 1, f"{ending} lost the recording"
            with Image.open(self.data / "gifs" / self.history()[0]["filename"]) as gif:
                assert gif.size == (400, 300) and gif.n_frames >= 10, (gif.size, gif.n_frames)
                gif.seek(gif.n_frames - 1)
                gif.load()
        self.log(f"end to end OK (choosing what to record); screenshots in {self.artifacts}")

    def drag_region(self, x0, y0, x1, y1):
        """On the selection overlay: a rectangle dragged as a hand drags it, then its toolbar."""
        self.xdotool("mousemove", x0, y0, "mousedown", 1)
        for step in range(1, 9):
            self.xdotool("mousemove", x0 + (x1 - x0) * step // 8, y0 + (y1 - y0) * step // 8)
            time.sleep(0.03)
        self.xdotool("mouseup", 1)
        self.wait_for("the toolbar", lambda: self.window("Vantalo Recording Toolbar"))
        time.sleep(0.3)

    def record_dragged(self, x0, y0, x1, y1):
        """The shortcut, a region dragged, Return; back once it records."""
        recordings, selections = (self.app_log().count(s) for s in ("-> recording", "-> selecting"))
        self.xdotool("key", "ctrl+g")
        self.wait_for("the overlay", lambda: self.app_log().count("-> selecting") > selections)
        time.sleep(0.6)
        self.drag_region(x0, y0, x1, y1)
        self.xdotool("key", "Return")
        self.wait_for("the recording", lambda: self.app_log().count("-> recording") > recordings)

    def clicks_and_keys(self):
        """A click and Ctrl+Shift+P, then "abc" typed, in a recording of the desktop that shows
        clicks and shortcuts: the ring in the frames of the click's 0.3 s round where it was, the
        label in those of the second after the keys, and nothing of the letters."""
        kept = {item["id"] for item in self.history()}
        self.record_dragged(1000, 600, 1400, 900)
        self.xdotool("mousemove", 1100, 700)
        time.sleep(0.8)
        # Each press happens between the two readings round the command that makes it.
        clicked = (time.monotonic(), self.xdotool("click", 1), time.monotonic())
        time.sleep(0.8)
        pressed = (time.monotonic(), self.xdotool("key", "ctrl+shift+p"), time.monotonic())
        time.sleep(0.3)
        self.xdotool("type", "abc")
        time.sleep(1.6)
        self.xdotool("key", "ctrl+g")
        items = self.wait_for("the GIF", lambda: [i for i in self.history() if i["id"] not in kept])
        self.wait_for("the preview panel", lambda: self.window("Vantalo Preview"))
        frames, _ = self.frames_and_delays(self.data / "gifs" / items[0]["filename"])
        start = self.log_time("-> recording")

        def blue(frame, near):
            return [(x, y) for x in range(0, 400, 2) for y in range(0, 300, 2)
                    if (abs(x - 100) <= 45 and abs(y - 100) <= 45) == near
                    and (lambda r, g, b: b > 180 and r < 120 and g > 60)(*frame.getpixel((x, y)))]

        ringed = [i for i, frame in enumerate(frames) if blue(frame, True)]
        assert not [i for i, frame in enumerate(frames) if blue(frame, False)], "blue away from the click"
        earliest, latest = (clicked[0] - start) * 10, (clicked[2] - start) * 10
        assert ringed and earliest - 1 <= ringed[0] and ringed[-1] <= latest + 4, (ringed, earliest, latest)

        def label(frame):
            return sum(1 for x in range(100, 300, 2) for y in range(220, 296, 2)
                       if (lambda r, g, b: r < 45 and g < 70 and b < 50)(*frame.getpixel((x, y))))

        labelled = [i for i, frame in enumerate(frames[:-2]) if label(frame) > 100]
        earliest, latest = (pressed[0] - start) * 10, (pressed[2] - start) * 10
        # Shown for the second after Ctrl+Shift+P; the letters typed 0.3 s later keep nothing longer.
        assert labelled and earliest - 1 <= labelled[0] <= latest + 2 and labelled[-1] <= latest + 12, \
            (labelled, earliest, latest)
        self.shot("clicks-and-keys")
        frames[labelled[0] + 1].save(self.artifacts / "frame-with-a-key-label.png")
        frames[ringed[0]].save(self.artifacts / "frame-with-a-click-ring.png")
        self.log(f"clicks and keys: the ring in frames {ringed}, the label in {labelled[0]}-{labelled[-1]}")

    def check_recorded_time(self, paused):
        """The recorder's timeline is the time between the start and the stop in Vantalo's log, less
        the pause: the seconds it logged."""
        seconds = float(re.findall(r"capture stopped: \d+ frames over ([\d.]+) s", self.app_log())[-1])
        recorded = self.log_time("recording -> encoding") - self.log_time("-> recording")
        if paused:
            recorded -= self.log_time("recording resumed") - self.log_time("recording paused")
        # The log lines stand a few calls from the moments the recorder takes (more on a busy
        # machine); a pause left in would be seconds off.
        assert abs(recorded - seconds) < 0.15, f"{seconds} s on the timeline, {recorded:.3f} s recorded"
        return seconds

    def log_time(self, text):
        """Vantalo's clock at the last log line holding `text`."""
        lines = [line for line in self.app_log().splitlines() if text in line]
        assert lines, f"no log line with {text!r}"
        return float(lines[-1].split()[0])

    def pause_and_move(self, ax, ay):
        """A recording of a region inside the animated window, paused with `vantalo --pause` for
        2 s while a magenta window covers it, its border dragged 200 points left while paused, and
        resumed with the pause shortcut. The GIF lasts the recorded time, shows nothing of the
        pause, and goes on from the new place."""
        self.start(["xsetroot", "-solid", "#208040"]).wait()
        kept = {item["id"] for item in self.history()}
        x, y = ax + 20, ay + 20  # the region: 300 × 200 points of the scene's plain background
        self.record_dragged(x, y, x + 300, y + 200)
        time.sleep(1.2)
        subprocess.run([self.args.binary, "--pause"], check=True, timeout=15)
        self.wait_for("the pause", lambda: self.app_log().count("recording paused") > 0)
        time.sleep(0.3)
        self.shot("paused")
        covering = self.scratch / "magenta.png"
        Image.new("RGB", (700, 420), (255, 0, 255)).save(covering)
        cover = self.start(["display", "-title", "magenta", "-geometry", f"+{x - 260}+{y - 40}", str(covering)])
        self.wait_for("the magenta window", lambda: self.window("magenta"))
        time.sleep(2.0)
        cover.terminate()
        cover.wait()
        self.wait_for("the magenta window to go", lambda: self.window("magenta") is None)
        time.sleep(0.5)
        # The paused border reaches 8 points out from the region: dragged by its left side.
        self.xdotool("mousemove", x - 4, y + 100, "mousedown", 1)
        for step in range(1, 9):
            self.xdotool("mousemove", x - 4 - 200 * step // 8, y + 100)
            time.sleep(0.03)
        self.xdotool("mouseup", 1)
        time.sleep(0.3)
        self.shot("paused-and-moved")
        self.xdotool("mousemove", 1800, 1000)
        self.xdotool("key", "ctrl+shift+g")
        self.wait_for("the resume", lambda: self.app_log().count("recording resumed") > 0)
        time.sleep(1.2)
        self.xdotool("key", "ctrl+g")
        items = self.wait_for("the GIF", lambda: [i for i in self.history() if i["id"] not in kept])
        self.wait_for("the preview panel", lambda: self.window("Vantalo Preview"))

        # Its length is the time recorded (Vantalo's own clock), the pause left out, to the frame.
        seconds = self.check_recorded_time(paused=True)
        frames, delays = self.frames_and_delays(self.data / "gifs" / items[0]["filename"])
        self.check_timeline(len(frames), sum(delays), rate=10)
        assert all(d == 100 for d in delays), set(delays)
        assert seconds < self.log_time("recording -> encoding") - self.log_time("-> recording") - 1.8
        # Nothing of the pause; the scene before it, the desktop where the region was moved after.
        scene, desktop = (32, 56, 92), (32, 128, 64)
        near = lambda a, b: all(abs(p - q) <= 8 for p, q in zip(a, b))
        magenta = [i for i, f in enumerate(frames) if f.getcolors(1 << 16) and
                   any(near(c, (255, 0, 255)) for _, c in f.getcolors(1 << 16))]
        assert not magenta, f"frames {magenta} show the window of the pause"
        places = ["scene" if near(f.getpixel((50, 60)), scene) else "desktop" if near(f.getpixel((50, 60)), desktop)
                  else str(f.getpixel((50, 60))) for f in frames]
        switch = places.index("desktop")
        assert set(places[:switch]) == {"scene"} and set(places[switch:]) == {"desktop"}, places
        before = self.log_time("recording paused") - self.log_time("-> recording")
        # The first picture after the resume follows the last before the pause (a slot or two
        # later where the encoder was behind at that moment and the slots repeated the picture).
        assert before * 10 - 1 <= switch <= before * 10 + 3, (switch, before)
        self.log(f"paused and moved: {len(frames)} frames for {seconds} s recorded, the move at frame {switch}")

    def trim_and_fit(self, panel, gif, item):
        """Trim and more… from the panel's Fit menu: both handles dragged inwards, Return saves a
        new entry holding a run of the GIF's frames, shown in the panel; that GIF fitted under 1 MB
        from the panel is another entry, under 1 MB. Answers the fitted GIF and its entry."""
        px, py, pw, ph = panel
        fit_x, row_y = px + 174, py + ph - 27
        kept = {entry["id"] for entry in self.history()}
        self.click(fit_x, row_y)
        time.sleep(0.6)
        self.shot("fit-menu")
        self.xdotool("key", "Up", "Return")  # the last choice: Trim and more…
        trim = self.wait_for("the trim window", lambda: self.window_named("^Trim — "))
        # The handles are drawn once the GIF is read: a yellow bar at each end of the strip.
        def handles():
            shot = Image.open(self.shot("trim")).convert("RGB")
            x0, y0, w, h = trim
            columns = {}
            for i, pixel in enumerate(shot.crop((x0, y0, x0 + w, y0 + h)).getdata()):
                if pixel == (255, 204, 0):
                    columns.setdefault(x0 + i % w, []).append(y0 + i // w)
            bars = sorted(x for x, ys in columns.items() if len(ys) > 40)
            return (bars[0], bars[-1], sum(columns[bars[0]]) // len(columns[bars[0]])) if bars else None
        left, right, y = self.wait_for("the trim handles", handles)
        self.drag((left + 4, y), (left + 4 + 90, y))
        self.drag((right - 4, y), (right - 4 - 90, y))
        time.sleep(1.5)  # the estimate follows
        self.shot("trimmed")
        self.xdotool("key", "Return")
        trimmed = self.wait_for("the trimmed GIF", lambda: [e for e in self.history() if e["id"] not in kept])[0]
        self.wait_for("the trim window to close", lambda: self.window_named("^Trim — ") is None)
        source, out = self.frames_and_delays(gif), self.frames_and_delays(self.data / "gifs" / trimmed["filename"])
        # The trimmed GIF starts on one of the source's frames (the nearest picture) and lasts
        # exactly as long as a run of them from there: the selection, to the hundredth.
        def difference(a, b):
            return sum(abs(p - q) for p, q in zip(a.tobytes()[::97], b.tobytes()[::97]))
        first = min(range(len(source[0])), key=lambda k: difference(source[0][k], out[0][0]))
        assert difference(source[0][first], out[0][0]) == 0, "the trimmed GIF starts on no frame of the source"
        runs = [sum(source[1][first:end]) for end in range(first + 1, len(source[1]) + 1)]
        assert sum(out[1]) in runs, f"the trimmed GIF lasts {sum(out[1])} ms, no run from frame {first}: {runs}"
        assert first > 0 and sum(out[1]) < sum(source[1]) - sum(source[1][:first]), "the handles cut nothing"
        assert out[0][0].size == source[0][0].size
        self.log(f"trimmed: from frame {first}, {len(out[0])} frames, {sum(out[1])} ms of {sum(source[1])} ms")
        trimmed_panel = self.wait_for("the trimmed GIF's panel", lambda: self.window("Vantalo Preview"))

        # Fit under 1 MB: the fourth size.
        assert trimmed["fileSize"] > 1_000_000, f"the trimmed GIF is {trimmed['fileSize']} bytes already"
        kept.add(trimmed["id"])
        self.click(fit_x, row_y)
        time.sleep(0.6)
        self.xdotool("key", "Down", "Down", "Down", "Down", "Return")
        time.sleep(0.3)
        self.shot("fitting")
        fitted = self.wait_for("the fitted GIF", lambda: [e for e in self.history() if e["id"] not in kept],
                               seconds=60)[0]
        path = self.data / "gifs" / fitted["filename"]
        assert fitted["fileSize"] == path.stat().st_size <= 1_000_000, fitted
        assert [e["id"] for e in self.history()][:3] == [fitted["id"], trimmed["id"], item["id"]], self.history()
        time.sleep(0.8)
        self.shot("fitted")
        self.log(f"fitted under 1 MB: {fitted['fileSize']} bytes, {Image.open(path).size}")
        assert self.window("Vantalo Preview") == trimmed_panel
        return path, fitted

    @staticmethod
    def frames_and_delays(path):
        frames = [frame.convert("RGB") for frame in ImageSequence.Iterator(Image.open(path))]
        delays = [frame.info.get("duration", 0) for frame in ImageSequence.Iterator(Image.open(path))]
        return frames, delays

    def window_named(self, pattern):
        found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", pattern],
                               capture_output=True, text=True).stdout.split()
        if not found:
            return None
        # The window may close between the search and this question.
        shell = subprocess.run(["xdotool", "getwindowgeometry", "--shell", found[-1]], capture_output=True, text=True)
        if shell.returncode != 0:
            return None
        values = dict(line.split("=", 1) for line in shell.stdout.split())
        return int(values["X"]), int(values["Y"]), int(values["WIDTH"]), int(values["HEIGHT"])

    def drag_region_and_start(self):
        """Drags the region on the selection overlay, presses Start; answers when the recording began."""
        recordings = self.app_log().count("-> recording")
        self.drag_region_and_press_start()
        # On Wayland the desktop's portal and PipeWire come first: slow under load and sanitizers.
        self.wait_for("the recording to start", lambda: self.app_log().count("-> recording") > recordings, seconds=60)
        return time.monotonic()

    def drag_region_and_press_start(self):
        x, y, w, h = self.region
        self.xdotool("mousemove", x, y)
        self.xdotool("mousedown", 1)
        for step in range(1, 11):
            self.xdotool("mousemove", x + w * step // 10, y + h * step // 10)
            time.sleep(0.03)
        self.xdotool("mouseup", 1)
        toolbar = self.wait_for("the toolbar", lambda: self.window("Vantalo Recording Toolbar"))
        self.shot("adjusting")
        tx, ty, tw, th = toolbar
        self.click(tx + tw // 2, ty + th // 2)

    def quit_while_asking(self):
        """On a Wayland desktop whose share question never gets an answer (the test portal's
        "hang"), Quit from the tray menu still ends Vantalo at once and leaves nothing written."""
        self.start_tray()
        env = dict(os.environ, QT_LOGGING_RULES="vantalo.*.debug=true", XDG_SESSION_TYPE="wayland")
        self.app = self.start([self.args.binary], log="vantalo.log", env=env)
        self.wait_for("Vantalo to start", lambda: "launched" in self.app_log())
        self.wait_for("the tray icon", lambda: self.window("panel"))
        time.sleep(2.5)  # the tray docks the icon
        requests = Path(os.environ["VANTALO_PORTAL_LOG"])
        Path(os.environ["VANTALO_PORTAL_MODE"]).write_text("hang")
        asked = requests.read_text().count('"method": "Start"')
        closed = requests.read_text().count('"method": "Close"')
        subprocess.run([self.args.binary, "--toggle"], check=True, timeout=15, env=env)
        self.wait_for("the selection overlay", lambda: "-> selecting" in self.app_log())
        time.sleep(0.5)
        self.drag_region_and_press_start()
        self.wait_for("the desktop's question", lambda: requests.read_text().count('"method": "Start"') > asked,
                      seconds=30)
        time.sleep(0.5)
        self.quit_from_tray_menu(seconds=2)
        assert requests.read_text().count('"method": "Close"') > closed, "the session asked for was not closed"
        assert "-> recording" not in self.app_log(), self.app_log()
        assert not list(self.data.glob("gifs/*")) and not (self.data / "history.json").exists(), "something was written"
        self.log("quit while the desktop asked: Vantalo ended within 2 s")

    def desktop_ends_the_share(self):
        """GNOME's "Stop sharing" mid-recording (the GNOME portal's session closed): capture ends as
        on a stream error, with its line, and the user's stop keeps what was captured as the GIF."""
        kept = {item["id"] for item in self.history()}
        subprocess.run([self.args.binary, "--toggle"], check=True, timeout=15)
        self.wait_for("the selection overlay", lambda: "-> selecting" in self.app_log().rsplit("-> idle", 1)[-1])
        time.sleep(0.5)
        self.drag_region_and_start()
        time.sleep(1.5)
        # The GNOME portal's own session objects, closed as its "Stop sharing" does.
        stop = ("import dbus, re\n"
                "bus, name = dbus.SessionBus(), 'org.freedesktop.impl.portal.desktop.gnome'\n"
                "def close(path):\n"
                "    xml = bus.get_object(name, path).Introspect(dbus_interface='org.freedesktop.DBus.Introspectable')\n"
                "    if 'org.freedesktop.impl.portal.Session' in xml:\n"
                "        bus.get_object(name, path).Close(dbus_interface='org.freedesktop.impl.portal.Session')\n"
                "    for child in re.findall(r'<node name=\"([^\"]+)\"', xml):\n"
                "        close(f'{path}/{child}')\n"
                "close('/org/freedesktop/portal/desktop/session')\n")
        subprocess.run(["/usr/bin/python3", "-c", stop], check=True, timeout=15)
        self.wait_for("the stream-error line", lambda: "Stream stopped with error: " in self.app_log())
        time.sleep(1.0)
        key_sent = time.monotonic()
        subprocess.run([self.args.binary, "--toggle"], check=True, timeout=15)  # the user's stop
        items = self.wait_for("the GIF of the ended share",
                              lambda: [item for item in self.history() if item["id"] not in kept], seconds=30)
        assert self.app_log().count("Stream stopped with error: the screen share was stopped") == 1, self.app_log()
        self.check_stop_key(key_sent, "after the share ended")
        # What came before the end is kept; the second after it is not: capture ended before the stop.
        gif = Image.open(self.data / "gifs" / items[0]["filename"])
        delays = [frame.info.get("duration", 0) for frame in ImageSequence.Iterator(gif)]
        self.check_timeline(len(delays), sum(delays))
        ended = float(re.findall(r"^\s*([\d.]+) capture stopped: ", self.app_log(), re.M)[-1])
        assert ended < key_sent, f"capture went on {ended - key_sent:.2f} s past the stop"
        self.log(f"share ended by the desktop: {len(delays)} frames kept")

    def delete_from_panel(self, x, y, gif, item):
        """Delete moves the GIF to the trash and offers Undo where Cancel stands, which puts the
        file and its entry back; Delete again, and the panel goes a few seconds later."""
        trashed = self.home / ".local/share/Trash/files" / gif.name
        if "XDG_DATA_HOME" in os.environ:
            trashed = Path(os.environ["XDG_DATA_HOME"]) / "Trash/files" / gif.name
        listed = [kept["id"] for kept in self.history()]
        self.click(x, y)
        self.wait_for("the GIF in the trash", lambda: not gif.exists() and trashed.exists() and
                      all(kept["id"] != item["id"] for kept in self.history()))
        self.shot("moved-to-trash")
        px, py, pw, ph = self.window("Vantalo Preview")
        self.click(px + pw - 6 - 32, y)  # Undo
        self.wait_for("the GIF back", lambda: gif.exists() and not trashed.exists() and
                      [kept["id"] for kept in self.history()] == listed)
        time.sleep(0.3)
        self.click(x, y)
        self.wait_for("the GIF to go", lambda: not gif.exists() and
                      all(kept["id"] != item["id"] for kept in self.history()))
        self.wait_for("the panel to close", lambda: self.window("Vantalo Preview") is None)
        self.shot("deleted")

    def grant_screen_sharing(self):
        """The desktop's grant (seeded by the wrapper) in the settings, as after a first recording."""
        self.write_settings(f"screenCastRestoreToken={os.environ['VANTALO_SCREENCAST_TOKEN']}\n")

    def write_settings(self, lines):
        self.config.mkdir(parents=True, exist_ok=True)
        with open(self.config / "Vantalo.conf", "a") as conf:
            if conf.tell() == 0:
                conf.write("[General]\n")
            conf.write(lines)

    def start_tray(self):
        self.start(["trayer", "--edge", "top", "--align", "right", "--widthtype", "request", "--height", "28"])

    def command_line(self):
        """--version, --help and a wrong option work without a display."""
        bare = {k: v for k, v in os.environ.items() if k != "DISPLAY"}
        version = subprocess.run([self.args.binary, "--version"], env=bare, capture_output=True, text=True)
        assert version.returncode == 0 and version.stdout.startswith("vantalo 0."), version
        usage = subprocess.run([self.args.binary, "--help"], env=bare, capture_output=True, text=True)
        assert usage.returncode == 0 and "--toggle" in usage.stdout, usage
        assert subprocess.run([self.args.binary, "--record-now"], env=bare, capture_output=True).returncode != 0
        # A Wayland session without XWayland: one line on how to get it, and no start.
        wayland = dict(bare, WAYLAND_DISPLAY="wayland-0")
        alone = subprocess.run([self.args.binary], env=wayland, capture_output=True, text=True, timeout=15)
        assert alone.returncode == 1 and alone.stdout.startswith("Vantalo needs XWayland in a Wayland session"), alone

    def single_instance_and_late_tray(self):
        """Without a tray Vantalo says how to record; a second start hands over to the first;
        --toggle acts as the shortcut; a tray host started later still docks the icon."""
        self.wait_for("the no-tray line", lambda: "No system tray found: Vantalo keeps running; record with the "
                      "shortcut Ctrl+G or the command \u201cvantalo --toggle\u201d" in self.app_log(), seconds=8)
        second = subprocess.run([self.args.binary], capture_output=True, text=True, timeout=15)
        assert (second.returncode, second.stdout) == (0, "Vantalo is already running\n"), second
        for state in ("idle -> selectingRegion", "selectingRegion -> idle"):
            subprocess.run([self.args.binary, "--toggle"], check=True, timeout=15)
            self.wait_for(state, lambda: f"state {state}" in self.app_log())
        assert self.app.poll() is None
        self.start_tray()

    def quit_from_tray_menu(self, seconds=10):
        """The tray menu's last item, from the keyboard, ends Vantalo cleanly within `seconds`."""
        icon = self.tray_icon()
        self.click(icon[0], icon[1], button=3)
        time.sleep(0.6)
        self.xdotool("key", "Up", "Return")
        try:
            code = self.app.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"Vantalo still runs {seconds} s after Quit")
        assert code == 0, "Vantalo did not quit cleanly"

    def demo_upload(self, x, y, gif):
        """Upload to the bucket the user configured; report what came of it."""
        self.click(x, y)
        outcome = self.wait_for("the upload", lambda: (self.clipboard("UTF8_STRING") or b"").startswith(b"http")
                                and self.clipboard("UTF8_STRING").decode()
                                or next((line for line in self.app_log().splitlines()
                                         if line.startswith("Upload error: ")), None), seconds=90)
        self.shot("uploaded")
        self.log(f"Upload: {outcome}")

    def drop_target(self):
        """A GTK window beside the region that records what is dropped on it; answers its log."""
        drops = self.scratch / "drops.jsonl"
        x, y = self.drop_at
        target = subprocess.Popen(
            [sys.executable, str(Path(__file__).with_name("drop_target.py")), str(drops),
             str(x - 150), str(y - 100), "300", "200"], stdout=subprocess.PIPE,
            env=dict(os.environ, GDK_BACKEND="x11"))  # beside Vantalo's windows, on XWayland there
        self.processes.append(target)
        assert target.stdout.readline().strip() == b"ready", "the drop target did not start"
        self.wait_for("the drop target", lambda: self.window("Drop Target"))
        return drops

    def drag(self, start, end):
        """Press, move in steps (as a hand does, so both sides see the motion), release."""
        self.xdotool("mousemove", *start)
        self.xdotool("mousedown", 1)
        for step in range(1, 21):
            self.xdotool("mousemove", start[0] + (end[0] - start[0]) * step // 20,
                         start[1] + (end[1] - start[1]) * step // 20)
            time.sleep(0.03)
        time.sleep(0.3)
        self.xdotool("mouseup", 1)

    def check_drop(self, drops, count, gif):
        """The count-th drop offered the file and the bytes, and both read back as the GIF."""
        def written():
            text = drops.read_text() if drops.exists() else ""
            lines = text[:text.rfind("\n") + 1].splitlines()  # not the line still being written
            return len(lines) >= count and lines
        lines = self.wait_for(f"drop {count}", written)
        drop = json.loads(lines[count - 1])
        offered = set(drop["offered"])
        assert {"text/uri-list", "x-special/gnome-copied-files", "image/gif"} <= offered, offered
        data = {target: base64.b64decode(value) for target, value in drop["data"].items()}
        file_url = gif.as_uri().encode()
        assert data["image/gif"] == gif.read_bytes(), \
            f"the dropped GIF bytes differ from the file ({len(data['image/gif'])} of {gif.stat().st_size} bytes)"
        assert data["text/uri-list"].strip() == file_url, data["text/uri-list"]
        assert data["x-special/gnome-copied-files"] == b"copy\n" + file_url, data["x-special/gnome-copied-files"]
        self.shot(f"dropped-{count}")

    def tray_menu(self, *keys):
        """The tray menu, by keyboard from its last item up (the items above History... change with what
        there is to record): Quit Vantalo, About Vantalo, Preferences..., History..."""
        icon = self.tray_icon()
        self.click(icon[0], icon[1], button=3)
        time.sleep(0.6)
        self.xdotool("key", *keys)

    def open_history(self):
        self.tray_menu("Up", "Up", "Up", "Up", "Return")

    def open_preferences(self, times=1):
        """Preferences from the tray menu, asked for `times` times: one window, in the middle of the screen."""
        for _ in range(times):
            self.tray_menu("Up", "Up", "Up", "Return")
            window = self.wait_for("the preferences", lambda: self.window("Vantalo Preferences"))
            time.sleep(0.5)
        shown = self.xdotool("search", "--onlyvisible", "--name", "^Vantalo Preferences$").split()
        assert len(shown) == 1, f"{len(shown)} preferences windows"
        assert abs(window[0] + window[2] // 2 - self.screen[0] // 2) <= 2, f"preferences at {window}"
        return window

    def close_preferences(self):
        self.xdotool("key", "Escape")
        self.wait_for("the preferences to close", lambda: self.window("Vantalo Preferences") is None)

    def preferences(self):
        """Preferences, asked for twice, is one window in the middle of the screen. A shortcut
        recorded there is stored and takes over at once; credentials typed and saved with Return
        reach the keyring; Escape closes the window, and it opens again."""
        window = self.open_preferences(times=2)
        self.click(window[0] + window[2] - 62, window[1] + 50)  # the shortcut button
        self.xdotool("key", "ctrl+shift+r")
        # Past the two other shortcuts and the six output choices to the credentials.
        for tabs, field in ((9, "AKIDEXAMPLE"), (1, "a secret")):
            self.xdotool("key", *["Tab"] * tabs)
            self.xdotool("type", field)
        self.xdotool("key", "Return")
        self.wait_for("the credentials in the keyring", lambda: [self.secret(key) for key in (
            "aws-access-key-id", "aws-secret-access-key")] == ["AKIDEXAMPLE", "a secret"])
        self.shot("preferences-window")
        settings = (self.config / "Vantalo.conf").read_text()
        assert "hotkeyKeyCode=15\n" in settings and "hotkeyModifiers=1179648\n" in settings, settings
        self.close_preferences()
        self.open_preferences()
        self.close_preferences()
        # The new shortcut selects a region and cancels it; the old one is no longer taken.
        selections, cancels = self.app_log().count("idle -> selecting"), self.app_log().count("-> idle")
        self.xdotool("key", "ctrl+g")
        time.sleep(1.0)
        assert self.app_log().count("idle -> selecting") == selections, "the old shortcut still records"
        self.xdotool("key", "ctrl+shift+r")
        self.wait_for("the new shortcut", lambda: self.app_log().count("idle -> selecting") > selections)
        # A new capture takes the earlier GIF's panel away (it could stand in the region).
        self.wait_for("the panel to go", lambda: self.window("Vantalo Preview") is None)
        self.xdotool("key", "ctrl+shift+r")
        self.wait_for("the new shortcut to cancel", lambda: self.app_log().count("-> idle") > cancels)
        self.shot("preferences")

    def secret(self, key):
        return subprocess.run(["secret-tool", "lookup", "user", key, "server", "com.vantalo.app"],
                              capture_output=True, text=True).stdout.rstrip("\n")

    def red_in_tray_icon(self, shot):
        x, y = self.tray_icon()
        icon = Image.open(shot).convert("RGB").crop((x - 12, y - 12, x + 12, y + 12))
        return sum(1 for r, g, b in icon.getdata() if r > 200 and g < 100 and b < 100)

    def tray_icon(self):
        tray = self.wait_for("the tray", lambda: self.window("panel"))
        x, y, w, h = tray
        return x + w - h // 2, y + h // 2

    def app_log(self):
        try:
            return (self.artifacts / "vantalo.log").read_text(errors="replace")
        except FileNotFoundError:
            return ""

    def scene_in_first_cell(self, window):
        """Where the history window's first cell shows the recorded scene (its dark blue background)."""
        x, y, _, _ = window
        cell = Image.open(self.shot("history")).convert("RGB").crop((x, y, x + 240, y + 160))
        return [(x + i % 240, y + i // 240) for i, (r, g, b) in enumerate(cell.getdata())
                if abs(r - 32) < 12 and abs(g - 56) < 12 and abs(b - 92) < 12]

    def delete_from_history(self, window, gif, item):
        """The button in the thumbnail's top right corner, shown while the pointer is over the cell:
        the GIF, its entry and its cell go."""
        scene = self.scene_in_first_cell(window)
        right, top = max(x for x, _ in scene), min(y for _, y in scene)
        self.xdotool("mousemove", right - 40, top + 40)
        time.sleep(0.4)
        self.click(right - 12, top + 9)  # the picture, 4:3, sits 3 points below the thumbnail's top
        self.wait_for("the GIF to go", lambda: not gif.exists() and
                      all(kept["id"] != item["id"] for kept in self.history()))
        time.sleep(0.5)
        assert not self.scene_in_first_cell(window), "the deleted GIF's cell is still shown"

    def check_history_file(self, item, gif):
        """The history file as another reader sees it: members in their order, times in whole seconds;
        the GIF under a UUID name, its size listed, readable by the user alone."""
        text = (self.data / "history.json").read_text()
        assert re.match(r'\[\s*\{\s*"id" : "[0-9A-F-]{36}",\s*"filename" : "[^"]+",\s*'
                        r'"createdAt" : "\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ",\s*"fileSize" : \d+\s*\}', text), text
        assert re.fullmatch(r"vantalo_[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\.gif", item["filename"]), item
        assert item["fileSize"] == gif.stat().st_size, item
        assert gif.stat().st_mode & 0o077 == 0 and gif.parent.stat().st_mode & 0o077 == 0, "others can read the GIFs"

    def check_stop_key(self, sent, how):
        """The user's stop takes effect within a second of the key, however busy the machine is:
        from the moment the key (or the command bound to it) was sent to the line the stop logs,
        both on the monotonic clock."""
        stops = re.findall(r"^\s*([\d.]+) state recording -> encoding$", self.app_log(), re.M)
        assert stops, "no stop was logged"
        latency = float(stops[-1]) - sent
        self.log(f"stop by {how}: {latency * 1000:.0f} ms after the key")
        assert 0 <= latency < 1.0, f"the stop took effect {latency:.3f} s after the key"

    def check_timeline(self, count, delays_ms, rate=None):
        """The GIF lasts as long as the recording, judged by the recording's own clock (the line the
        recorder logs when capture stops), whatever the machine's load: a frame every 1/rate s."""
        rate = rate or self.out_rate
        match = re.findall(r"capture stopped: (\d+) frames over ([\d.]+) s", self.app_log())
        assert match, "the recorder logged no end of capture"
        frames, seconds = int(match[-1][0]), float(match[-1][1])
        assert count == frames, f"{count} frames in the GIF, {frames} captured"
        assert abs(count - seconds * rate) <= 1, f"{count} frames for {seconds} s of recording"
        assert abs(delays_ms - count * 1000 / rate) <= 10, f"delays sum to {delays_ms} ms for {count} frames"
        assert abs(delays_ms / 1000 - seconds) < 1 / rate + 0.005, f"the GIF lasts {delays_ms} ms, the recording {seconds} s"

    def check_gif(self, path):
        image = Image.open(path)
        frames = [frame.convert("RGB") for frame in ImageSequence.Iterator(image)]
        delays = [frame.info.get("duration", 0) for frame in ImageSequence.Iterator(Image.open(path))]
        x, y, w, h = self.region
        assert image.size == (self.out_scale * w, self.out_scale * h), f"GIF is {image.size}, region {w}×{h}"
        self.check_timeline(len(frames), sum(delays))
        assert frames[0].tobytes() != frames[-1].tobytes(), "the animation does not move"
        if self.args.wayland:
            # The native client's own pixels (vivid rings, not black, not the desktop's blue),
            # changing as it repaints; the compositor sends fewer frames than the GIF has.
            def vivid(box):
                return sum(1 for r, g, b in frames[len(frames) // 2].crop(box).getdata() if max(r, g, b) - min(r, g, b) > 120)
            client = (0, 0, 2 * (250 - x), 2 * (250 - y))
            area = client[2] * client[3]
            assert vivid(client) > area // 5, f"{vivid(client)} of {area} pixels show the client"
            assert vivid((2 * (260 - x), 0, 2 * w, 2 * h)) == 0, "vivid pixels beside the client"
            changing = len({frame.crop(client).tobytes() for frame in frames})
            assert changing >= 10, f"only {changing} different pictures of the client"
            self.log(f"client: {vivid(client) * 100 // area}% vivid pixels, {changing} different pictures")
        self.log(f"GIF {image.size[0]}×{image.size[1]}, {len(frames)} frames, {sum(delays) / 1000:.2f} s")

    def stop(self):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
        for process in self.processes:
            try:
                process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                process.kill()
        shutil.rmtree(self.scratch, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--binary", required=True)
    parser.add_argument("--artifacts", required=True)
    parser.add_argument("--upload", action="store_true")
    parser.add_argument("--compositor", action="store_true", help="run a compositing manager, start with --toggle")
    parser.add_argument("--wayland", action="store_true", help="on the Wayland desktop of tests/wayland/"
                        "with-mutter.sh: record its native client through the screen-cast portal")
    parser.add_argument("--fit-under", type=int, default=0, help="fitUnderBytes stored before the start")
    parser.add_argument("--output", default="2x15", help="SCALExRATE: the output settings stored before the start")
    parser.add_argument("--app-checks", action="store_true", help="also check the command line, the single "
                        "instance, --toggle, a tray host that starts late and the preferences window")
    parser.add_argument("--choosing", action="store_true", help="with a window manager: the whole screen, "
                        "the top edge, a window, the last region and a typed size")
    parser.add_argument("--quit-while-asking", action="store_true", help="inside tests/wayland/with-portal.sh: "
                        "quit while the desktop's share question goes unanswered")
    parser.add_argument("--demo", action="store_true", help="keep the GIF, print where things are, and leave "
                        "Vantalo running until interrupted")
    parser.add_argument("--demo-upload", action="store_true", help="in the demo, upload to the configured bucket")
    args = parser.parse_args()
    flow = Flow(args)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    try:
        flow.run()
        if args.demo:
            print("Vantalo keeps running in the virtual display; stop it with Ctrl+C.", flush=True)
            while flow.app.poll() is None:
                time.sleep(0.5)
    except AssertionError as failure:
        flow.shot("failure")
        print(f"FAILED: {failure}", file=sys.stderr)
        print(flow.app_log(), file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        pass
    finally:
        flow.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
