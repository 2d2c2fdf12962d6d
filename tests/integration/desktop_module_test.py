#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""A program that has the library where its module is missing, or is something else.

usage: desktop_module_test.py MORVANE LIBEXEC LIBRARY MODULE
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

MORVANE, LIBEXEC, LIBRARY, MODULE = (os.path.realpath(argument) for argument in sys.argv[1:5])
BELOW = os.path.relpath(MODULE, os.path.dirname(LIBRARY))
SONAME = "libMorvaneOperation.so.1"


class Module(unittest.TestCase):
    def setUp(self):
        # As the library knows it: without links on the way.
        self.folder = os.path.realpath(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        self.place = os.path.join(self.folder, BELOW)
        shutil.copy(LIBRARY, os.path.join(self.folder, SONAME))
        self.item = os.path.join(self.folder, "item")
        with open(self.item, "w", encoding="ascii") as file:
            file.write("12345")

    def morvane(self, *arguments, **more):
        environment = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LD_LIBRARY_PATH": self.folder, **more}
        return subprocess.run([MORVANE, *arguments], env=environment, cwd=self.folder, capture_output=True, text=True,
                              check=False)

    def assert_refused(self, run, reason):
        self.assertEqual((run.returncode, run.stdout), (1, ""), run.stderr)
        self.assertTrue(run.stderr.startswith("morvane: NSInternalInconsistencyException: MorvaneOperation cannot "
                                              f'load its part "{self.place}" ('), run.stderr)
        self.assertIn(reason, run.stderr)
        self.assertTrue(run.stderr.endswith("). Install the library again; if it was replaced while this program ran, "
                                            "start the program anew.\n"), run.stderr)

    def put(self, file):
        os.makedirs(os.path.dirname(self.place))
        shutil.copy(file, self.place)

    def test_a_command_that_needs_none_of_it_runs_without_the_module(self):
        for command in ("acl", "ls"):
            run = self.morvane(command, self.item if command == "acl" else self.folder)
            self.assertEqual((run.returncode, run.stderr), (0, ""))

    def test_a_missing_module_is_named(self):
        self.assert_refused(self.morvane("size", self.item), "cannot open shared object file")

    def test_what_is_no_module_is_named(self):
        self.put(self.item)
        self.assert_refused(self.morvane("size", self.item), "file too short")

    def test_another_library_in_its_place_is_named(self):
        service = os.path.join(LIBEXEC, "io.github.morvaneoperation.FileService")
        listed = subprocess.run(["ldd", service], capture_output=True, text=True, check=True).stdout
        self.put(re.search(r"libacl\.so\S* => (\S+)", listed)[1])
        self.assert_refused(self.morvane("size", self.item), "undefined symbol: morvaneDesktopModule")

    def test_the_module_beside_the_library_is_loaded(self):
        self.put(MODULE)
        run = self.morvane("size", self.item)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn("5 bytes", run.stdout)

    def test_a_module_elsewhere_is_not_loaded(self):
        elsewhere = os.path.join(self.folder, "elsewhere")
        os.makedirs(os.path.join(elsewhere, os.path.dirname(BELOW)))
        shutil.copy(MODULE, os.path.join(elsewhere, BELOW))
        name = os.path.basename(BELOW)
        shutil.copy(MODULE, os.path.join(self.folder, name))
        run = self.morvane("size", self.item, LD_LIBRARY_PATH=f"{self.folder}:{elsewhere}")
        self.assert_refused(run, "cannot open shared object file")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:])
