# SPDX-License-Identifier: MIT
"""A display server and a session bus of its own, and a program on them as somebody who uses a screen reader and the
keyboard sees it."""
import atexit
import os
import re
import subprocess
import sys
import tempfile

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../integration"))
import waiting  # noqa: E402

waiting.TIME_LIMIT = 60
wait_until = waiting.wait_until


def begin_session(launcher=()):
    """A display, a bus and a home for all that is started from here on, by way of a launcher, until this program ends."""
    folder = tempfile.mkdtemp()  # is the home as well: nobody's settings count
    atexit.register(subprocess.run, ["rm", "-rf", folder], check=True)
    os.chmod(folder, 0o777)
    os.environ.update({"HOME": folder, "XDG_CACHE_HOME": folder, "XDG_RUNTIME_DIR": os.path.join(folder, "runtime"),
                       "GSETTINGS_BACKEND": "memory", "GDK_BACKEND": "x11", "GSK_RENDERER": "cairo"})
    subprocess.run([*launcher, "mkdir", "--mode=700", os.environ["XDG_RUNTIME_DIR"]], check=True)
    # In a process namespace of its own, a server takes the displays of others for those of dead ones, and they take its own.
    display = [f":{100 + os.stat('/proc/self/ns/pid').st_ino % 10000}"] if launcher else []
    read, write = os.pipe()
    # It begins anew when its last client has gone, and would drop those that come meanwhile.
    server = subprocess.Popen([*launcher, "Xvfb", *display, "-displayfd", str(write), "-screen", "0", "1600x1600x24", "-nolisten",
                               "tcp", "-noreset"], pass_fds=[write], stderr=subprocess.DEVNULL)
    atexit.register(server.kill)
    os.close(write)
    with os.fdopen(read) as number:
        os.environ["DISPLAY"] = ":" + number.readline().strip()
    # Root, who drives programs of others, may enter.
    settings = os.path.join(folder, "bus.conf")
    with open(settings, "w", encoding="ascii") as f:
        f.write('<busconfig><include>/usr/share/dbus-1/session.conf</include>'
                '<policy context="default"><allow user="root"/></policy></busconfig>')
    bus = subprocess.Popen([*launcher, "dbus-daemon", f"--config-file={settings}", "--nofork", "--print-address"],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    atexit.register(bus.kill)
    os.environ["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().strip()
    # New windows have the focus.
    manager = subprocess.Popen([*launcher, "openbox"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    atexit.register(manager.kill)
    wait_until(lambda: b"window id" in subprocess.run(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"],
                                                      capture_output=True, check=False).stdout, "the window manager")


class Seen:
    """A widget as it is told to a screen reader."""

    def __init__(self, accessible):
        self.accessible = accessible

    @property
    def name(self):
        return self.accessible.get_name()

    @property
    def description(self):
        return self.accessible.get_description()

    @property
    def role(self):
        return self.accessible.get_role_name()

    def has(self, state):
        return self.accessible.get_state_set().contains(getattr(Atspi.StateType, state))

    def extents(self):
        return Atspi.Component.get_extents(self.accessible, Atspi.CoordType.WINDOW)

    def click(self):
        assert Atspi.Action.do_action(self.accessible, 0)

    def children(self):
        for i in range(self.accessible.get_child_count()):
            child = self.accessible.get_child_at_index(i)
            if child:
                yield Seen(child)

    def all(self, depth=0):
        try:
            yield self
            for child in self.children() if depth < 40 else ():
                yield from child.all(depth + 1)
        except GLib.Error:
            return  # it has gone meanwhile


def active_window(*question):
    return subprocess.run(["xdotool", "getactivewindow", *question], capture_output=True, text=True,
                          check=False).stdout


class Program:
    """A program that was started with its standard error in a pipe."""

    def __init__(self, process):
        self.process = process

    @classmethod
    def start(cls, command, **environment):
        return cls(subprocess.Popen(command, stderr=subprocess.PIPE,
                                    env={**os.environ, "G_DEBUG": "fatal-warnings", **environment}))

    def __enter__(self):
        return self

    def __exit__(self, *_exception):
        self.process.kill()
        self.message = self.process.communicate()[1].decode()

    def windows(self):
        desktop = Atspi.get_desktop(0)
        for i in range(desktop.get_child_count()):
            application = desktop.get_child_at_index(i)
            try:
                if not application or application.get_process_id() != self.process.pid:
                    continue
                application.set_cache_mask(Atspi.Cache.NONE)  # nobody looks at what has changed
                application.clear_cache()
                # A window that has never had the focus is told as the application itself.
                windows = [window for window in Seen(application).children() if window.role != "application"]
            except GLib.Error:
                continue  # it has gone meanwhile
            yield from windows

    def all(self, role, name, check=lambda widget: True):
        """Such widgets, those of the newest window first; those of any role for None."""
        for window in reversed(list(self.windows())):
            for widget in window.all():
                try:
                    if role in (None, widget.role) and widget.name == name and check(widget):
                        yield widget
                except GLib.Error:
                    continue  # it has gone meanwhile

    def find(self, role, name, check=lambda widget: True):
        """The first of them; None if there is none."""
        return next(self.all(role, name, check), None)

    def wait_for(self, role, name, check=lambda widget: True):
        found = []

        def look():
            if self.process.poll() is not None:
                raise AssertionError(f"the program has ended: {self.process.communicate()[1]}")
            widget = self.find(role, name, check)
            found.append(widget)
            return widget is not None
        wait_until(look, f"{role} {name}")
        return found[-1]

    def do(self, action):
        """Does what an item of the window's menu does."""
        self.wait_for("push button", "Menu")
        frame = next(self.windows()).accessible
        actions = [Atspi.Action.get_action_name(frame, i) for i in range(Atspi.Action.get_n_actions(frame))]
        assert Atspi.Action.do_action(frame, actions.index(action))

    def click_on(self, role, name, check=lambda widget: True):
        """Clicks with the mouse on what is in the active window."""
        widget = self.wait_for(role, name, lambda each: each.extents().width > 0 and check(each))
        told = subprocess.run(["xwininfo", "-id", active_window().strip()], capture_output=True, text=True,
                              check=True).stdout
        left, top, width = (int(re.search(rf"{key}: +(-?\d+)", told)[1])
                            for key in ("Absolute upper-left X", "Absolute upper-left Y", "Width"))
        frame = next(window for window in self.windows() if window.has("ACTIVE")).extents()
        border = (width - frame.width) // 2  # of the shadow
        place = widget.extents()
        subprocess.run(["xdotool", "mousemove", str(left + border + place.x + min(place.width // 2, 10)),
                        str(top + border + place.y + place.height // 2), "click", "1"], check=True)

    @staticmethod
    def wait_until_still():
        """Returns once two pictures in a row are the same."""
        seen = []

        def look():
            seen.append(subprocess.run(["import", "-window", active_window().strip(), "rgb:-"], capture_output=True,
                                       check=True).stdout)
            return len(seen) > 1 and seen[-1] == seen[-2]
        wait_until(look, "the window to stand still")

    @staticmethod
    def wait_for_window(title):
        """Returns once the window has the keyboard."""
        wait_until(lambda: active_window("getwindowname").strip() == title, f"the window {title}")

    def rows(self, table):
        """The texts of the rows of a table, those of a row in one list."""
        rows = []

        def look():
            widget = self.find("list", table)
            try:
                rows[:] = [label.name.split("; ") for row in (widget.children() if widget else ())
                           for label in row.all() if label.role == "label"]
            except GLib.Error:
                return False  # one of them has gone meanwhile
            return True
        wait_until(look, f"the rows of {table}")
        return rows

    @staticmethod
    def press(*keys):
        subprocess.run(["xdotool", "key", *keys], check=True)


import gi  # noqa: E402

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402
