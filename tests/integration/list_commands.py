# SPDX-License-Identifier: MIT
"""What the tests of the commands that look at lists have in common."""
import json
import os
import struct
import subprocess
import sys
import tempfile
import unittest

from json_schema import check

MORVANE, LIBEXEC, MOUNT, SILENT_DIRECTORY = map(os.path.abspath, sys.argv[1:5])
TIME_LIMIT = 120  # a watchdog; nothing here takes long
ENVIRONMENT = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8"}
with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "morvane.schema.json"),
          encoding="utf-8") as schema_file:
    SCHEMA = json.load(schema_file)


class ListCommand(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(dir=self.place())
        self.addCleanup(folder.cleanup)
        os.chmod(folder.name, 0o755)
        self.folder = folder.name

    def place(self):
        return None

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def make_file(self, *names, mode=0o640):
        path = self.path(*names)
        with open(path, "w", encoding="ascii"):
            os.chmod(path, mode)
        return path

    def make_folder(self, *names, mode=0o755):
        path = self.path(*names)
        os.mkdir(path)
        os.chmod(path, mode)
        return path

    def setfacl(self, *arguments):
        subprocess.run(["setfacl", *arguments], check=True, timeout=TIME_LIMIT)

    def run_morvane(self, *arguments, **environment):
        return subprocess.run([MORVANE, *arguments], env={**ENVIRONMENT, **environment}, cwd=self.folder,
                              capture_output=True, text=True, timeout=TIME_LIMIT)

    def run_as_nobody(self, *arguments):
        return subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", MORVANE, *arguments],
                              env=ENVIRONMENT, cwd=self.folder, capture_output=True, text=True, timeout=TIME_LIMIT)

    def lines(self, *arguments, status=0, **environment):
        """What is printed, when nothing is on standard error."""
        result = self.run_morvane(*arguments, **environment)
        self.assertEqual((result.stderr, result.returncode), ("", status), result.stdout)
        return result.stdout.splitlines()

    def document(self, *arguments, status=0, **environment):
        """The one object that is printed, which the schema allows."""
        result = self.run_morvane(*arguments, "--json", **environment)
        self.assertEqual(result.returncode, status, result.stderr)
        printed = json.loads(result.stdout)
        check(printed, SCHEMA, SCHEMA)
        self.assertEqual((printed["version"], printed["exitStatus"]), (1, status))
        return printed


ALLOW, DENY = 0, 1
FILES, FOLDERS, INHERITED = 0x1, 0x2, 0x80


def nfs4_list(*entries):
    """The value of the attribute, of (type, flags, mask, who)."""
    data = struct.pack(">I", len(entries))
    for kind, flags, mask, who in entries:
        text = who.encode()
        data += struct.pack(">4I", kind, flags, mask, len(text)) + text + bytes(-len(text) % 4)
    return data


class Nfs4ListCommand(ListCommand):
    """On a mount whose lists are those that user attributes hold."""

    def place(self):
        return os.path.dirname(MOUNT)  # a disk: user attributes

    def run_morvane(self, *arguments, **environment):
        return super().run_morvane(*arguments, LD_PRELOAD=MOUNT, **environment)
