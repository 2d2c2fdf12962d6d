# SPDX-License-Identifier: MIT
"""The item "Permissions…" in the menus of the real file managers, on a display and a session of their own.

usage: menus_test.py TREE PICTURES WINDOW [unittest arguments]

TREE is laid over /usr, for this program alone; it has what is installed there, with a program that stands in for the real
one, WINDOW, where that is not asked for. PICTURES is the folder for a picture of each open menu. Needs root for the one,
and starts everything as an ordinary user.
"""
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import gi
gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../integration"))
from waiting import wait_until  # noqa: E402

TREE, PICTURES, WINDOW = map(os.path.abspath, sys.argv[1:4])
PROGRAM = "morvane-permissions"
SERVICES = "/usr/share/dbus-1/services"
NOBODY = 65534
ODD = "it's \"odd\" & $HOME `id` %F \\ <é>"


def enter():
    """Runs this program again where what it mounts and starts is its own, and becomes a user there."""
    if os.environ.get("MORVANE_RIG") != "inside":
        os.environ["MORVANE_RIG"] = "inside"
        os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", "--net", "--pid", "--fork",
                              "--kill-child=KILL", "--mount-proc", sys.executable, *sys.argv])
    subprocess.run(["mount", "-t", "overlay", "overlay", "-o", f"lowerdir={TREE}:/usr", "/usr"], check=True)
    os.makedirs(PICTURES, exist_ok=True)
    os.chown(PICTURES, NOBODY, NOBODY)
    os.setgroups([])
    os.setgid(NOBODY)
    os.setuid(NOBODY)


def begin_session(home):
    """A display without a screen and a message bus, for all that is started from here on."""
    os.environ.update(HOME=home, XDG_RUNTIME_DIR=home, LC_ALL="C.UTF-8", XDG_DATA_DIRS="/usr/share", GTK_A11Y="atspi",
                      QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", GSETTINGS_BACKEND="memory", GSK_RENDERER="cairo",
                      GDK_DEBUG="gl-disable")
    for name in ("DBUS_SESSION_BUS_ADDRESS", "WAYLAND_DISPLAY", "XDG_CURRENT_DESKTOP", "LANGUAGE"):
        os.environ.pop(name, None)
    read, write = os.pipe()
    subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", "1000x900x24", "-noreset"], pass_fds=[write],
                     stderr=subprocess.DEVNULL)
    os.close(write)
    with os.fdopen(read, encoding="ascii") as f:
        os.environ["DISPLAY"] = ":" + f.readline().strip()
    # GNOME Files shows nothing before an index of all files has come up, which nobody here begins.
    services = os.path.join(home, "services")
    os.mkdir(services)
    for name in os.listdir(SERVICES):
        if "Tracker3" not in name:
            os.symlink(os.path.join(SERVICES, name), os.path.join(services, name))
    settings = os.path.join(home, "bus.conf")
    with open(settings, "w", encoding="ascii") as f:
        f.write(f'<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen><servicedir>{services}</servicedir>'
                '<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>'
                '<allow own="*"/></policy></busconfig>')
    bus = subprocess.Popen(["dbus-daemon", f"--config-file={settings}", "--nofork", "--print-address"],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    os.environ["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().strip()


def press(key):
    subprocess.run(["xdotool", "key", "--clearmodifiers", key], check=True)


def shown(accessible, name, state=Atspi.StateType.SHOWING):
    """What has this name of what is to be seen below something, or None. GTK 4 tells VISIBLE of what is shown."""
    try:
        for i in range(accessible.get_child_count()):
            child = accessible.get_child_at_index(i)
            if not child:
                continue
            is_program = child.get_role() == Atspi.Role.APPLICATION
            if is_program or child.get_state_set().contains(state):
                found = child if child.get_name() == name else shown(child, name, state)
                if found:
                    return found
    except GLib.Error:  # it has gone meanwhile
        pass
    return None


def started():
    """By which number and with which words behind its name the program runs, or None."""
    for number in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{number}/cmdline", "rb") as f:
                words = f.read().split(b"\0")[:-1]
        except OSError:
            continue
        for i, word in enumerate(words[:2]):  # the first of a script's is its interpreter
            if os.path.basename(word) == PROGRAM.encode():
                return int(number), words[i + 1:]
    return None


class Manager:
    """A file manager as somebody who does not see it finds it."""

    def __init__(self, *command):
        self.command = command

    def is_ready(self, _names):
        """Whether it shows the files, and what is typed now goes to them."""
        return True

    def item(self, label):
        """The item of its open menu, or None."""
        return shown(Atspi.get_desktop(0), label)


class GnomeFiles(Manager):
    def is_ready(self, _names):
        # The path has the keyboard at first.
        subprocess.run(["xdotool", "mousemove", "600", "450", "click", "1"], check=True)
        return True

    def item(self, label):
        return shown(Atspi.get_desktop(0), label, Atspi.StateType.VISIBLE)


class Dolphin(Manager):
    """It tells nothing of its menu: the item is the one above the last, as in the picture."""

    def is_ready(self, names):
        return shown(Atspi.get_desktop(0), names[-1].rstrip("/"))

    def item(self, _label):
        windows = subprocess.run(["xdotool", "search", "--onlyvisible", "--class", "dolphin"], stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL, text=True, check=False).stdout.split()
        return self if len(windows) > 1 else None

    @staticmethod
    def do_action(_number):
        for key in ("Up", "Up", "Return"):
            press(key)


MANAGERS = {"Nemo": Manager("nemo"), "Caja": Manager("caja", "--no-desktop"), "Thunar": Manager("thunar"),
            "PCManFM": Manager("env", "GTK_MODULES=gail:atk-bridge", "pcmanfm"),
            "Nautilus": GnomeFiles("nautilus"), "Dolphin": Dolphin("dolphin")}


class Menus(unittest.TestCase):
    def open_menu_in(self, name, names, picture, label="Permissions…", **environment):
        """The item of the menu for all that a folder has, in this file manager, and the folder."""
        folder = tempfile.mkdtemp(dir=os.environ["HOME"])
        for each in names:
            path = os.path.join(folder.encode(), os.fsencode(each))
            if each.endswith("/"):
                os.mkdir(path)
            else:
                os.close(os.open(path, os.O_CREAT))
        manager = MANAGERS[name]
        process = subprocess.Popen([*manager.command, folder], env={**os.environ, **environment}, stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        item = self.item_of_menu(process, manager, names, label)
        subprocess.run(["import", "-window", "root", f"{PICTURES}/{picture}.png"], check=True)
        return item, folder

    def choose(self, name, names, picture, label="Permissions…", language="en"):
        """What the program is started with for all that a folder has, if the item is chosen in this file manager."""
        item, folder = self.open_menu_in(name, names, picture, label, LANGUAGE=language)
        item.do_action(0)
        wait_until(started, "the program starts")
        number, words = started()
        os.kill(number, signal.SIGKILL)
        wait_until(lambda: not started(), "the program ends")
        self.assertEqual(sorted(words), sorted(os.path.join(folder, each.rstrip("/")).encode("utf-8", "surrogateescape")
                                               for each in names))

    def test_Caja_opens_one_real_window_for_all_that_is_chosen(self):
        item, _ = self.open_menu_in("Caja", ["one", "two"], "window", MORVANE_WINDOW=WINDOW)
        item.do_action(0)
        # It is shown when the lists of both are read, or cannot be.
        wait_until(lambda: shown(Atspi.get_desktop(0), "2 Items"), "the window")
        subprocess.run(["import", "-window", "root", f"{PICTURES}/window.png"], check=True)
        number, _ = started()
        os.kill(number, signal.SIGTERM)
        wait_until(lambda: not started(), "the program ends")

    def item_of_menu(self, process, manager, names, label):
        """Opens the menu of all that the window shows. Keys that come before it has the keyboard and its files are lost, and
        are pressed again."""
        found = []

        def open_menu():
            self.assertIsNone(process.poll(), "the file manager is there")
            if not manager.is_ready(names):
                return False
            for key in ("Escape", "ctrl+a", "Menu"):
                press(key)
            end = time.monotonic() + 2
            while not found and time.monotonic() < end:
                found.extend(filter(None, [manager.item(label)]))
            return found

        subprocess.run(["xdotool", "search", "--sync", "--onlyvisible", "--name", "tmp", "windowfocus", "--sync"], check=True)
        wait_until(open_menu, "the menu has the item")
        return found[0]


def add_tests():
    for name in MANAGERS:
        def one(self, name=name):
            self.choose(name, [ODD], name.lower())

        def several(self, name=name):
            self.choose(name, ["a folder/", "-x", "two\nlines", "two  spaces"], name.lower() + "-de", "Rechte …", "de")

        setattr(Menus, f"test_{name}_starts_the_program_with_a_name_of_odd_characters", one)
        setattr(Menus, f"test_{name}_starts_the_program_with_all_that_is_chosen_and_speaks_German", several)


if __name__ == "__main__":
    enter()
    with tempfile.TemporaryDirectory() as home:
        begin_session(home)
        add_tests()
        unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
