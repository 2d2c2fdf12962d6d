# SPDX-License-Identifier: MIT
"""A file that only root may read, for the tests of the privileged road."""
import json
import os
import tempfile
import unittest


class PrivilegedCase(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        os.chmod(folder.name, 0o700)
        self.folder = os.path.join(folder.name, "folder")
        os.mkdir(self.folder, 0o700)
        self.file = os.path.join(self.folder, "secret")
        with open(self.file, "w", encoding="ascii") as f:
            f.write("secret")
        os.chmod(self.file, 0o600)
        self.before = self.look()

    def look(self):
        """All that a request could have changed."""
        return {os.path.join(at, name): (status.st_mode, status.st_uid, status.st_ctime_ns)
                for at, folders, files in os.walk(self.folder) for name in folders + files
                for status in [os.lstat(os.path.join(at, name))]}

    def assertRefused(self, outcome, reason):
        self.assertEqual(outcome.code, 1, outcome.message)
        # For programs it is told why, and nothing else.
        printed = json.loads(outcome.output) if outcome.output else {}
        self.assertLessEqual(set(printed), {"version", "command", "exitStatus", "error"})
        self.assertIn(reason, outcome.message)
        self.assertEqual(self.look(), self.before)
