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


class Example(unittest.TestCase):
    def test_a_box_is_ticked_somebody_added_and_both_saved(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "notes.txt")
            with open(path, "w", encoding="ascii"):
                os.chmod(path, 0o640)
            with Program.start([EXAMPLE, path]) as program:
                program.wait_for("label", "everyone: Allow None")
                program.click_on("label", "everyone: Allow None")
                wait_until(lambda: not program.find("check box", "Read").has("CHECKED"), "the boxes of everyone")
                program.click_on("check box", "Read")
                program.wait_for("label", "everyone: Allow Read")
                program.click_on(None, "Name of a user or group")
                program.press(*"daemon")
                program.wait_for("push button", "Add").click()
                program.wait_for("label", "user daemon: Allow Read")
                program.wait_for("push button", "Save").click()
                program.wait_for("label", "Saved.")
            self.assertEqual(program.message, "")
            entries = subprocess.run(["getfacl", "-cp", path], check=True, capture_output=True, text=True).stdout
        self.assertIn("user:daemon:r--\n", entries)
        self.assertIn("other::r--\n", entries)


if __name__ == "__main__":
    desktop.begin_session()
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]], verbosity=2)
