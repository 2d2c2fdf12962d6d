#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Uses the Permissions dialog of examples/qt by its keys, as somebody does, on a display of its own; on GLib's event
loop, and on Qt's own.

usage: example_test.py DIALOG [SCREENSHOT]"""
import os
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../integration"))
from waiting import wait_until

DIALOG, SCREENSHOT = sys.argv[1], sys.argv[2] if len(sys.argv) > 2 else None


class Display:
    """A display that nobody sees."""

    def __init__(self):
        end, other = os.pipe()
        # It begins anew when its last client has gone, and would drop those that come meanwhile.
        self.server = subprocess.Popen(["Xvfb", "-displayfd", str(other), "-screen", "0", "1024x768x24", "-nolisten",
                                        "tcp", "-noreset"], pass_fds=[other], stderr=subprocess.DEVNULL)
        os.close(other)
        with os.fdopen(end) as told:
            self.name = ":" + told.readline().strip()

    def close(self):
        self.server.terminate()
        self.server.wait()


class Dialog:
    """The running program."""

    def __init__(self, display, folder, path, **environment):
        self.errors = tempfile.TemporaryFile("w+")
        self.environment = {key: value for key, value in os.environ.items()
                            if key not in ("QT_NO_GLIB", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS")}
        self.environment |= {"DISPLAY": display.name, "XDG_RUNTIME_DIR": folder, "LC_ALL": "C.UTF-8",
                             "QT_QPA_PLATFORM": "xcb", **environment}
        self.process = subprocess.Popen([DIALOG, path], env=self.environment, stderr=self.errors)

    def xdotool(self, *arguments):
        return subprocess.run(["xdotool", *arguments], env=self.environment, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True, check=False).stdout.split()

    def windows(self, title):
        return self.xdotool("search", "--onlyvisible", "--name", f"^{title}$")

    def enter(self, title):
        """Waits for a window and gives it the keys from now on. (There is no window manager that would.)"""
        wait_until(lambda: self.windows(title) or self.process.poll() is not None, f"the window {title}")
        if self.process.poll() is not None:
            raise AssertionError(f"before the window {title}: {self.end()}")
        window = self.windows(title)[0]
        self.xdotool("windowfocus", "--sync", window)
        return window

    def press(self, *keys):
        self.xdotool("key", *keys)

    def is_there(self, window):
        return window in self.xdotool("search", "--onlyvisible", "--name", ".")

    def press_until_it_has_gone(self, key, window):
        """The window may not take the key yet. What has the focus after it gets none."""
        def has_gone():
            if self.xdotool("getwindowfocus") == [window]:
                self.press(key)
            limit = time.monotonic() + 1
            while self.is_there(window) and time.monotonic() < limit:
                time.sleep(0.02)
            return not self.is_there(window)
        wait_until(has_gone, "the end of the window")

    def end(self):
        """How the program ends, and what it has said."""
        wait_until(lambda: self.process.poll() is not None, "the end of the program")
        self.errors.seek(0)
        return self.process.returncode, self.errors.read()

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.errors.close()


class OnGLibsLoop(unittest.TestCase):
    environment = {}

    @classmethod
    def setUpClass(cls):
        cls.display = Display()
        cls.addClassCleanup(cls.display.close)

    def setUp(self):
        made = tempfile.TemporaryDirectory()
        self.addCleanup(made.cleanup)
        self.folder = made.name
        self.path = os.path.join(self.folder, "notes.txt")
        with open(self.path, "w", encoding="utf-8"):
            os.chmod(self.path, 0o640)

    def start(self, path=None):
        dialog = Dialog(self.display, self.folder, path or self.path, **self.environment)
        self.addCleanup(dialog.close)
        return dialog

    def acl(self):
        return subprocess.run(["getfacl", "-cpE", self.path], stdout=subprocess.PIPE, text=True,
                              check=True).stdout.split()

    def title(self):
        return f"Permissions of {self.path}"

    def test_somebody_is_added_permissions_are_chosen_boxes_ticked_and_the_list_is_saved(self):
        dialog = self.start()
        window = dialog.enter(self.title())
        dialog.press("alt+a")
        search = dialog.enter("Add an entry for")
        dialog.xdotool("type", "daemon")
        # Whoever is found comes in a while; until then there is nobody to choose.
        dialog.press_until_it_has_gone("Return", search)
        dialog.enter(self.title())
        # "Read" instead of "Read and Write"; "Execute File", which is in "Read", by itself; "Write" as a whole.
        dialog.press("F2", "Down", "Tab", "Down", "Down", "space", "space", "Down", "Down", "Down", "Down", "space")
        if SCREENSHOT:
            subprocess.run(["import", "-window", window, SCREENSHOT], env=dialog.environment, check=True)
        self.assertEqual(self.acl(), ["user::rw-", "group::r--", "other::---"])
        dialog.press("Return")
        self.assertEqual(dialog.end(), (0, ""))
        self.assertEqual(self.acl(), ["user::rw-", "user:daemon:rwx", "group::r--", "mask::rwx", "other::---"])

    def test_what_would_be_lost_is_asked_about_before_anything_is_saved(self):
        subprocess.run(["setfacl", "-m", "u:daemon:rwx", self.path], check=True)
        before = self.acl()
        dialog = self.start()
        dialog.enter(self.title())
        # Without "Append Data", which a list stores together with "Write Data".
        dialog.press("Down", "Tab", *["Down"] * 8, "space", "Return")
        question = dialog.enter("Save the nearest list\\?")
        dialog.press_until_it_has_gone("Escape", question)
        self.assertEqual(self.acl(), before)
        dialog.enter(self.title())
        dialog.press("Return")
        dialog.enter("Save the nearest list\\?")
        dialog.press("alt+y")
        self.assertEqual(dialog.end(), (0, ""))
        self.assertEqual(self.acl(), ["user::rw-", "user:daemon:r-x", "group::r--", "mask::r-x", "other::---"])

    def test_a_list_that_cannot_be_read_is_told(self):
        dialog = self.start(os.path.join(self.folder, "no"))
        dialog.enter(os.path.join(self.folder, "no"))
        dialog.press("Return")
        self.assertEqual(dialog.end(), (1, ""))


class OnQtsOwnLoop(OnGLibsLoop):
    environment = {"QT_NO_GLIB": "1"}


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
