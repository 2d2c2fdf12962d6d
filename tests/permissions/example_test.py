# SPDX-License-Identifier: MIT
"""The example for GTK, used on a real display and real files.

usage: example_test.py PERMISSIONS-DIALOG [unittest arguments]
"""
import os
import subprocess
import sys
import tempfile
import unittest

import desktop
from desktop import Program, wait_until

EXAMPLE = os.path.abspath(sys.argv[1])


def getfacl(path):
    return subprocess.run(["getfacl", "-cp", path], check=True, capture_output=True, text=True).stdout


class Example(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "notes.txt")
        with open(self.path, "w", encoding="ascii"):
            os.chmod(self.path, 0o640)

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
        self.assertEqual(getfacl(self.path), "user::rw-\nuser:daemon:r--\ngroup::rw-\nmask::rw-\nother::r--\n\n")


if __name__ == "__main__":
    desktop.begin_session()
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]], verbosity=2)
