# SPDX-License-Identifier: MIT
"""The examples for GTK and Qt, used on a real display and real files.

usage: example_test.py PERMISSIONS-DIALOG QT-DIALOG [unittest arguments]

QT-DIALOG is empty where there is none.
"""
import os
import subprocess
import sys
import tempfile
import unittest

import desktop
from desktop import Program, wait_until

EXAMPLE, QT_EXAMPLE = sys.argv[1:3]


def getfacl(path):
    return subprocess.run(["getfacl", "-cp", path], check=True, capture_output=True, text=True).stdout


class Example(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "notes.txt")
        with open(self.path, "w", encoding="ascii"):
            os.chmod(self.path, 0o640)

    def expect_saved(self, of_daemon):
        self.assertEqual(getfacl(self.path), f"user::rw-\nuser:daemon:{of_daemon}\ngroup::rw-\nmask::rw-\nother::r--\n\n")

    def test_a_box_is_ticked_a_choice_made_somebody_added_and_all_saved(self):
        with Program.start([EXAMPLE, self.path]) as program:
            program.wait_for("label", "everyone: Allow None")
            program.click_on("label", "everyone: Allow None")
            wait_until(lambda: not program.find("check box", "Read").has("CHECKED"), "the boxes of everyone")
            program.click_on("check box", "Read")
            program.wait_for("label", "everyone: Allow Read")
            program.click_on(None, "Name of a user or group")
            program.press(*"daemon")
            program.wait_for("push button", "Add").click()
            program.wait_for("label", "user daemon: Allow Read")
            program.click_on("label", "group root (owning group): Allow Read")
            program.click_on(None, "Permissions")
            program.wait_for("label", "Read and Write")
            program.wait_for("list item", "", lambda item: item.has("FOCUSED"))
            program.press("Home", "Down", "Return")
            program.wait_for("label", "group root (owning group): Allow Read and Write")
            program.wait_for("push button", "Save").click()
            program.wait_for("label", "Saved.")
        self.assertEqual(program.message, "")
        self.expect_saved("r--")

    if QT_EXAMPLE:
        def test_a_box_is_ticked_a_choice_made_somebody_added_and_all_saved_with_qt(self):
            with Program.start([QT_EXAMPLE, self.path], QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1") as program:
                program.wait_for_window(f"Permissions of {self.path}")
                program.press("Down", "F2", "Up")
                wait_until(lambda: len(list(program.all("table cell", "Read and Write"))) == 2, "the choice")
                program.press("Down", "Tab", "Down", "Up", "space")
                wait_until(lambda: not program.find("table cell", "None"), "the row to follow")
                program.press("alt+a")
                program.wait_for_window("Add an entry for")
                program.press(*"daemon")
                wait_until(lambda: not program.find("list item", "user bin"), "the search")
                program.press("Return")
                program.wait_for_window(f"Permissions of {self.path}")
                program.wait_for("table cell", "user daemon")
                program.press("Return")
                self.assertEqual(program.process.wait(desktop.waiting.TIME_LIMIT), 0)
            self.assertEqual(program.message, "")
            self.expect_saved("rw-")


if __name__ == "__main__":
    desktop.begin_session()
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
