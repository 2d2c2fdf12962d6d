# SPDX-License-Identifier: MIT
"""The Permissions windows where the user's own rights do not suffice: a real helper as root, and an agent that answers
what the system asks.

usage: privileged_test.py HELPER POLICY-FILE POLICY-AGENT MORVANE-PERMISSIONS QT-DIALOG [unittest arguments]

QT-DIALOG is empty where there is none.
"""
import os
import subprocess
import sys
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../integration"))
import rig as rigs  # noqa: E402

HELPER, POLICY, AGENT, WINDOW = map(os.path.abspath, sys.argv[1:5])
QT_DIALOG = sys.argv[5]
rigs.enter_namespaces()
RIG = rigs.Rig(HELPER, [POLICY], AGENT)

import desktop  # noqa: E402
from desktop import Program, wait_until  # noqa: E402


def getfacl(path):
    return subprocess.run(["getfacl", "-cpE", path], check=True, capture_output=True, text=True).stdout


class Privileged(unittest.TestCase):
    def setUp(self):
        # Everybody may read them, and root alone may change them.
        self.folder = os.path.join(os.environ["HOME"], "of root")
        os.makedirs(self.folder)
        self.addCleanup(subprocess.run, ["rm", "-r", self.folder], check=True)
        self.files = [os.path.join(self.folder, name) for name in ("first", "second")]
        for path in self.files:
            with open(path, "w", encoding="ascii"):
                os.chmod(path, 0o644)

    def start(self, command, answer):
        started = RIG.start(command, answer, stderr=subprocess.PIPE, stdout=None,
                            env={**os.environ, "G_DEBUG": "fatal-warnings", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"})
        program = Program(started.process)
        self.addCleanup(started.stop_agent)  # that of a test that fails would answer for the next one
        self.addCleanup(lambda: self.assertEqual(program.message, ""))
        self.addCleanup(program.__exit__)
        return program, started

    def let_everyone_write(self, answer, paths, title):
        program, started = self.start([WINDOW, *paths], answer)
        program.wait_for("check box", "Read")
        program.wait_for_window(title)
        program.press("End")
        wait_until(lambda: not program.find("check box", "Write").has("CHECKED"), "the boxes of everyone")
        program.click_on("check box", "Write")
        program.wait_for("push button", "Apply", lambda button: button.has("SENSITIVE")).click()
        return program, started

    def test_several_files_are_changed_as_administrator_after_one_prompt(self):
        program, started = self.let_everyone_write("allow", self.files, "2 Items")
        program.wait_for("label", "The permissions were changed.")
        started.stop_agent()
        self.assertEqual(len(started.prompts), 1)
        for path in self.files:
            self.assertIn("other::rw-\n", getfacl(path))

    def test_a_list_is_read_changed_and_asked_about_as_administrator_after_one_prompt(self):
        os.chmod(self.folder, 0o700)
        program, started = self.let_everyone_write("allow", self.files[:1], "first")
        program.wait_for("push button", "Apply", lambda button: not button.has("SENSITIVE"))
        self.assertIn("other::rw-\n", getfacl(self.files[0]))
        program.do("win.access")
        program.wait_for_window("What Can They Do?")
        program.wait_for("push button", "Show", lambda button: button.has("SENSITIVE")).click()
        program.wait_for("check box", "Read Data")
        started.stop_agent()
        self.assertEqual(len(started.prompts), 1)

    def test_a_refused_prompt_is_told_and_nothing_is_changed(self):
        program, started = self.let_everyone_write("deny", self.files, "2 Items")
        program.wait_for_window("The Permissions Cannot Be Changed")
        wait_until(lambda: any(label.name.startswith("first: ") and "second: " in label.name
                               for window in program.windows() for label in window.all() if label.role == "label"),
                   "both files")
        started.stop_agent()
        self.assertEqual(len(started.prompts), 1)
        for path in self.files:
            self.assertIn("other::r--\n", getfacl(path))
        program.press("Return")
        # What was edited is still there.
        program.wait_for("push button", "Apply", lambda button: button.has("SENSITIVE"))

    def propagate(self, answer):
        program, _ = self.start([WINDOW, self.folder], answer)
        program.wait_for("check box", "Read")
        program.do("win.propagate")
        program.wait_for_window("Apply to Everything Inside?")
        program.press("Return")
        program.wait_for_window("Not Everything Was Changed")
        return program

    def test_a_propagation_tells_what_failed_before_the_right_was_refused(self):
        subprocess.run(["chown", f"{rigs.USER}:{rigs.USER}", self.folder], check=True)
        for answer in "deny", "cancel":
            program = self.propagate(answer)
            program.wait_for("label", "2 items keep what they have:")
            for path in self.files:
                program.wait_for("label", f"{path}: Operation not permitted")
            if answer == "deny":
                program.wait_for("label", "Authorization rights error: The authorization was denied.")
            program.process.kill()
            program.process.wait()  # It is the only one on its bus.

    def test_a_propagation_tells_what_failed_before_the_helper_was_found_missing(self):
        subprocess.run(["chown", f"{rigs.USER}:{rigs.USER}", self.folder], check=True)
        RIG.stop_helper()
        self.addCleanup(RIG.start_helper)
        program = self.propagate("allow")
        program.wait_for("label", "2 items keep what they have:")
        program.wait_for("label", "Privileged job install error: The specified path does not exist or the helper tool at "
                                  "the specified path is not valid.")

    def test_what_a_propagation_could_not_change_is_listed_and_all_else_is_changed(self):
        # Not even root may change one that is immutable.
        subprocess.run(["setfacl", "-m", "u:daemon:rx,d:u:daemon:rx", self.folder], check=True)
        subprocess.run(["chattr", "+i", self.files[0]], check=True)
        self.addCleanup(subprocess.run, ["chattr", "-i", self.files[0]], check=True)
        program = self.propagate("allow")
        program.wait_for("label", "1 item keeps what it has:")
        program.wait_for("label", f"{self.files[0]}: Operation not permitted")
        self.assertIn("user:daemon:r-x\n", getfacl(self.files[1]))

    if QT_DIALOG:
        def test_the_dialog_for_qt_saves_as_administrator_and_tells_a_refusal(self):
            path = self.files[0]
            for answer, code, entry in ("cancel", None, "other::r--\n"), ("deny", None, "other::r--\n"), ("allow", 0, "other::rw-\n"):
                program, started = self.start([QT_DIALOG, path], answer)
                # A window that is the active one may not have the keyboard yet.
                program.wait_for("table cell", "Read and Write", lambda cell: cell.has("FOCUSED"))
                program.press("Down", "Down", "Tab", "Down", "space", "Return")
                if code is None:
                    program.wait_for_window(path)  # the message
                    program.wait_for("push button", "OK", lambda button: button.has("FOCUSED"))
                    program.press("Return")
                    program.wait_for_window(f"Permissions of {path}")
                    started.process.kill()
                else:
                    self.assertEqual(started.process.wait(desktop.waiting.TIME_LIMIT), code)
                started.stop_agent()
                self.assertEqual(len(started.prompts), 1)
                self.assertIn(entry, getfacl(path))


if __name__ == "__main__":
    desktop.begin_session(rigs.AS_USER)
    unittest.main(argv=[sys.argv[0], *sys.argv[6:]], verbosity=2)
