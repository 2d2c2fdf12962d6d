# SPDX-License-Identifier: MIT
"""What a program is told where the user's rights do not suffice, on the real privileged road.

usage: refusals_test.py HELPER POLICY-FILE POLICY-AGENT [unittest arguments]
"""
import os
import shutil
import sys
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../integration"))
import rig as rigs  # noqa: E402
from from_python import Gio  # noqa: E402
from privileged_case import PrivilegedCase  # noqa: E402

TOLD = os.path.join(os.path.dirname(os.path.abspath(__file__)), "told.py")
HELPER, POLICY, AGENT = map(os.path.abspath, sys.argv[1:4])
rigs.enter_namespaces()
RIG = rigs.Rig(HELPER, [POLICY], AGENT)
ERROR = "morvane-error-quark"
DENIED, DISMISSED, NOBODY_TO_ASK = 1, 2, 3


class Refusals(PrivilegedCase):
    def told(self, what, path, agent=None):
        program = RIG.start([sys.executable, TOLD, what, path], agent).finish()
        self.assertEqual((program.code, program.message), (0, ""))
        return program.output, len(program.prompts)

    def test_a_right_that_is_granted_is_asked_for_once(self):
        self.assertEqual(self.told("read", self.file, "allow"), ("3\n", 1))

    def test_denied_dismissed_and_nobody_to_ask_are_told_apart(self):
        self.assertEqual(self.told("read", self.file, "deny")[0], f"{ERROR} {DENIED}\n")
        self.assertEqual(self.told("read", self.file, "cancel")[0], f"{ERROR} {DISMISSED}\n")
        self.assertEqual(self.told("read", self.file)[0], f"{ERROR} {NOBODY_TO_ASK}\n")

    def test_each_item_of_a_propagation_that_failed_is_named_and_all_are_counted(self):
        os.chmod(os.path.dirname(self.folder), 0o755)
        shutil.chown(self.folder, rigs.USER, rigs.USER)
        for i in range(3000):
            path = os.path.join(self.folder, f"own{i}")
            os.close(os.open(path, os.O_CREAT | os.O_WRONLY, 0o600))
            shutil.chown(path, rigs.USER, rigs.USER)
        odd = os.path.join(os.fsencode(self.folder), b"odd\n\xff")
        os.close(os.open(odd, os.O_CREAT | os.O_WRONLY, 0o600))
        output, _ = self.told("propagate", self.folder)
        error, counts, *failures = output.splitlines()
        self.assertRegex(error, rf"^g-io-error-quark {int(Gio.IOErrorEnum.PERMISSION_DENIED)}$")
        self.assertEqual(counts, "3000 2")
        self.assertEqual(sorted(failures),
                         sorted(f"{path} g-io-error-quark {int(Gio.IOErrorEnum.PERMISSION_DENIED)} "
                                "Operation not permitted" for path in (os.fsencode(self.file), odd)))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
