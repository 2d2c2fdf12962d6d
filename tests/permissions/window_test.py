# SPDX-License-Identifier: MIT
"""The Permissions window on a real display, driven by the keyboard and by what a screen reader knows of it, on real
files.

usage: window_test.py MORVANE-PERMISSIONS LOOKS-TEST ASKING-SERVICE [unittest arguments]
"""
import os
import subprocess
import sys
import tempfile
import unittest

import desktop
from desktop import Program, wait_until

PROGRAM, LOOKS, ASKING = map(os.path.abspath, sys.argv[1:4])

with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../po/LINGUAS"), encoding="ascii") as f:
    LANGUAGES = f.read().split()


def getfacl(path):
    return subprocess.run(["getfacl", "-cp", path], check=True, capture_output=True, text=True).stdout


class Window(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = os.path.join(folder.name, "Films")
        os.mkdir(self.folder)
        self.file = os.path.join(self.folder, "notes.txt")
        with open(self.file, "w", encoding="ascii") as f:
            f.write("text")
        os.chmod(self.file, 0o640)

    def open(self, *paths, **environment):
        program = Program.start([PROGRAM, *paths], **environment)
        self.addCleanup(lambda: self.assertEqual(program.message, ""))
        self.addCleanup(program.__exit__)
        program.wait_for("check box", "Read")
        return program

    def choose_row(self, program, who):
        place = [row[0] for row in program.rows("Entries")].index(who)
        wait_until(lambda: any(row.has("FOCUSED") for row in program.find("list", "Entries").children()), "the focus")
        program.press("Home", *["Down"] * place)
        wait_until(lambda: any(row.has("SELECTED") and any(label.name.startswith(f"{who}; ") for label in row.all())
                               for row in program.find("list", "Entries").children()), f"the row of {who}")

    @staticmethod
    def move_to(program, key, role, name):
        """Moves the focus there with a key, step by step."""
        def focused():
            return [(widget.role, widget.name) for window in program.windows() for widget in window.all()
                    if widget.has("FOCUSED")]
        wait_until(focused, "the focus")
        for _ in range(60):
            before = focused()
            if (role, name) in before:
                return
            program.press(key)
            wait_until(lambda before=before: focused() != before, f"the focus to leave {before}")
        raise AssertionError(f"{key} does not lead to {role} {name}")

    def apply(self, program):
        program.wait_for("push button", "Apply", lambda button: button.has("SENSITIVE")).click()
        # Until all is written.
        program.wait_for("push button", "Apply", lambda button: not button.has("SENSITIVE"))

    def tick(self, program, name):
        before = program.wait_for("check box", name).has("CHECKED")
        program.click_on("check box", name)
        wait_until(lambda: program.find("check box", name).has("CHECKED") != before, f"the box {name}")

    def test_a_box_is_ticked_and_applied(self):
        program = self.open(self.file)
        self.assertEqual(program.rows("Entries"),
                         [["user root (owner)", "Allow", "Read and Write", "This item", "no"],
                          ["group root (owning group)", "Allow", "Read", "This item", "no"],
                          ["everyone", "Allow", "None", "This item", "no"]])
        self.choose_row(program, "everyone")
        self.tick(program, "Read")
        wait_until(lambda: program.rows("Entries")[2][2] == "Read", "the row to follow")
        self.assertIn("other::---\n", getfacl(self.file))
        self.apply(program)
        self.assertIn("other::r--\n", getfacl(self.file))

    def test_somebody_is_searched_for_added_and_given_a_choice(self):
        program = self.open(self.file)
        program.wait_for("push button", "Add an Entry").click()
        program.wait_for_window("Add an Entry For")
        program.press(*"daemon")
        program.wait_for("label", "group daemon")
        wait_until(lambda: not program.find("label", "user bin"), "the search")
        program.wait_for("push button", "Add", lambda button: button.has("SENSITIVE")).click()
        wait_until(lambda: ["user daemon", "Allow", "Read and Write", "This item", "no"] in program.rows("Entries"), "the row")
        # What a POSIX list cannot hold is grey, and says why.
        box = program.wait_for("check box", "Change Owner")
        self.assertFalse(box.has("SENSITIVE"))
        self.assertEqual(box.description, "only root has it")

        program.press("alt+p")
        program.wait_for("label", "only the owner has it")
        self.move_to(program, "Down", "list item", "Read")
        program.press("Return")
        wait_until(lambda: ["user daemon", "Allow", "Read", "This item", "no"] in program.rows("Entries"), "the choice")
        self.apply(program)
        self.assertIn("user:daemon:r--\n", getfacl(self.file))

    def test_what_would_be_lost_is_shown_before_and_the_nearest_offered(self):
        subprocess.run(["setfacl", "-m", "u:daemon:r", self.file], check=True)
        program = self.open(self.file)
        self.choose_row(program, "user daemon")
        self.tick(program, "Write Data")
        program.wait_for("push button", "Apply", lambda button: button.has("SENSITIVE")).click()
        program.wait_for_window("The File System Cannot Hold All of It")
        wait_until(lambda: any("not without" in label.name for window in program.windows() for label in window.all()
                               if label.role == "label"), "the losses")
        self.assertIn("user:daemon:r--\n", getfacl(self.file))
        program.press("Return")
        program.wait_for("label", "The permissions were changed.")
        self.assertIn("user:daemon:r--\n", getfacl(self.file))

    def test_what_another_program_changes_is_shown(self):
        program = self.open(self.file)
        subprocess.run(["setfacl", "-m", "g:games:r", self.file], check=True)
        wait_until(lambda: any(row[0] == "group games" for row in program.rows("Entries")), "the new row")

    def test_what_another_program_changes_under_an_edit_is_kept_or_replaced(self):
        program = self.open(self.file)
        self.choose_row(program, "everyone")
        self.tick(program, "Read")
        os.chmod(self.file, 0o600)
        program.wait_for("push button", "Keep Mine Keep Mine", lambda button: button.has("SENSITIVE")).click()
        self.apply(program)
        self.assertIn("group::r--\nother::r--\n", getfacl(self.file))

    def test_an_edit_is_dropped_for_what_another_program_has_written(self):
        program = self.open(self.file)
        everyone, = (row for row in program.rows("Entries") if row[0] == "everyone")
        self.choose_row(program, "everyone")
        self.tick(program, "Read")
        wait_until(lambda: everyone not in program.rows("Entries"), "the row to follow")
        subprocess.run(["setfacl", "-m", "g:games:r", self.file], check=True)
        program.wait_for("push button", "Reload Reload", lambda button: button.has("SENSITIVE")).click()
        program.wait_for("push button", "Apply", lambda button: not button.has("SENSITIVE"))
        wait_until(lambda: everyone in program.rows("Entries"), "the row as it was")
        self.assertIn("group games", [row[0] for row in program.rows("Entries")])
        self.assertIn("other::---\n", getfacl(self.file))

    def test_a_folders_list_reaches_everything_inside(self):
        subprocess.run(["setfacl", "-m", "u:daemon:rx,d:u:daemon:rx", self.folder], check=True)
        program = self.open(self.folder)
        self.assertNotIn("user:daemon", getfacl(self.file))
        program.do("win.propagate")
        program.wait_for_window("Apply to Everything Inside?")
        program.press("Return")
        program.wait_for("label", "Everything inside has its permissions.")
        self.assertIn("user:daemon:r-x", getfacl(self.file))

    def test_several_files_are_edited_as_one_by_the_keyboard_alone(self):
        other, third = (os.path.join(self.folder, name) for name in ("other.txt", "third.txt"))
        for path, entries in (self.file, "u:daemon:r,g:games:r"), (other, "u:daemon:rw"), (third, "u:daemon:rw"):
            with open(path, "a", encoding="ascii"):
                os.chmod(path, 0o640)
            subprocess.run(["setfacl", "-m", entries, path], check=True)
        program = self.open(self.file, other, third)
        program.wait_for_window("3 Items")
        rows = program.rows("Entries")
        self.assertIn(["user daemon", "Allow", "differs", "This item", "no"], rows)
        self.assertIn(["group games (1 of 3 items)", "Allow", "Custom (part of Read)", "This item", "no"], rows)
        self.choose_row(program, "user daemon")
        program.wait_for("check box", "Write", lambda box: box.has("INDETERMINATE"))
        program.press("alt+p")
        program.wait_for("label", "only the owner has it")
        self.move_to(program, "Down", "list item", "Read")
        program.press("Return")
        wait_until(lambda: ["user daemon", "Allow", "Read", "This item", "no"] in program.rows("Entries"), "the choice")
        # From the menu to the boxes.
        self.move_to(program, "Tab", "check box", "Write")
        program.press("space")
        wait_until(lambda: program.find("check box", "Write").has("CHECKED"), "the box")
        os.remove(third)
        program.press("ctrl+s")
        program.wait_for_window("The Permissions Cannot Be Changed")
        program.wait_for("label", "third.txt: No such file or directory")
        program.press("Return")
        program.wait_for_window("3 Items")
        self.assertIn("user:daemon:rw-\ngroup::r--\ngroup:games:r--\n", getfacl(self.file))
        self.assertIn("user:daemon:rw-\ngroup::r--\nmask::rw-\n", getfacl(other))
        self.assertTrue(program.find("push button", "Apply").has("SENSITIVE"))

    def test_what_somebody_can_do_is_shown(self):
        program = self.open(self.file)
        program.do("win.access")
        program.wait_for_window("What Can They Do?")
        program.press(*"daemon")
        wait_until(lambda: not program.find("label", "user bin"), "the search")
        program.wait_for("push button", "Show", lambda button: button.has("SENSITIVE"))
        program.press("Return")
        program.wait_for_window("What daemon Can Do")
        box = program.wait_for("check box", "Read Data")
        self.assertFalse(box.has("CHECKED") or box.has("SENSITIVE"))

    def test_a_propagation_is_seen_at_work_and_cancelled(self):
        program = Program.start([PROGRAM, self.folder], MORVANE_LIBEXEC_DIR=os.path.dirname(ASKING))
        self.addCleanup(lambda: self.assertEqual(program.message, ""))
        self.addCleanup(program.__exit__)
        program.wait_for_window("Films")
        program.do("win.propagate")
        program.wait_for_window("Apply to Everything Inside?")
        program.press("Return")
        program.wait_for_window("Applying to Everything Inside")
        program.wait_for("progress bar", "Applying to Everything Inside")
        program.wait_for("label", "2345 items done")
        program.press("Return")
        program.wait_for_window("Films")
        self.assertFalse(program.find("label", "Everything inside has its permissions."))

    def test_it_looks_as_it_should_in_each_language_direction_and_colour_at_twice_the_size(self):
        looked = subprocess.run([LOOKS, self.file, "en", *LANGUAGES], env={**os.environ, "GDK_SCALE": "2",
                                "G_DEBUG": "fatal-warnings"}, capture_output=True, text=True, check=False)
        self.assertEqual((looked.stdout, looked.stderr, looked.returncode), ("", "", 0))

    def test_a_file_that_is_not_there_is_told(self):
        with Program.start([PROGRAM, os.path.join(self.folder, "none")]) as program:
            program.wait_for("label", "The Permissions Cannot Be Read")
            program.wait_for("label", "No such file or directory")
        self.assertEqual(program.message, "")


if __name__ == "__main__":
    desktop.begin_session()
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
