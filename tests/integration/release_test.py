# SPDX-License-Identifier: MIT
"""Releases, of a small project that has what the script reads and writes, with tests that only note their names.

usage: release_test.py SOURCE-FOLDER [unittest arguments]
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = os.path.abspath(sys.argv[1])
CHANGELOG = "# Changelog\n\n## Unreleased\n\n### Added\n- Something.\n"
DEBIAN = ("morvaneoperation (1.0.0) UNRELEASED; urgency=medium\n\n  * First.\n\n"
          " -- Developers <developers@example.org>  Sun, 01 Jan 2023 09:00:00 +0000\n")
NOTES = "#!/bin/sh\necho \"$0 $*\" >>../told\n[ ! -e ../refuse ]\n"
RENEWS = "#!/bin/sh\necho \"$0 $*\" >>../told\necho new >packaging/abi\n"


class Release(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder, self.project = folder.name, os.path.join(folder.name, "project")
        os.makedirs(f"{self.project}/scripts")
        shutil.copy(f"{SOURCE}/scripts/release", f"{self.project}/scripts")
        for path, text, mode in (("CHANGELOG.md", CHANGELOG, 0o644), ("packaging/debian/changelog", DEBIAN, 0o644),
                                 ("CMakeLists.txt", "project(MorvaneOperation VERSION 1.0.0 LANGUAGES CXX)\n", 0o644),
                                 ("packaging/abi", "old\n", 0o644), (".ci/run", NOTES, 0o755), ("test", NOTES, 0o755), ("tests/abi", RENEWS, 0o755)):
            os.makedirs(os.path.dirname(f"{self.project}/{path}"), exist_ok=True)
            self.write(path, text)
            os.chmod(f"{self.project}/{path}", mode)
        self.git("init", "--quiet", "--initial-branch=main")
        self.commit()

    def write(self, path, text):
        with open(f"{self.project}/{path}", "w", encoding="utf-8") as f:
            f.write(text)

    def read(self, path):
        with open(f"{self.project}/{path}", encoding="utf-8") as f:
            return f.read()

    def run_here(self, *command):
        environment = {**os.environ, "GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_NOSYSTEM": "1", "HOME": self.folder}
        for who in ("AUTHOR", "COMMITTER"):
            environment |= {f"GIT_{who}_NAME": "A developer", f"GIT_{who}_EMAIL": "developer@example.org"}
        return subprocess.run(command, cwd=self.project, env=environment, capture_output=True, text=True, timeout=60)

    def git(self, *arguments):
        outcome = self.run_here("git", *arguments)
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        return outcome.stdout.strip()

    def commit(self):
        self.git("add", "--all")
        self.git("commit", "--quiet", "--message", "More")

    def release(self, *arguments):
        return self.run_here("scripts/release", *arguments)

    def told(self):
        path = f"{self.folder}/told"
        if not os.path.exists(path):
            return []
        with open(path, encoding="utf-8") as f:
            return f.read().splitlines()

    def assertRefused(self, text, *arguments):
        before = self.git("rev-parse", "HEAD")
        outcome = self.release(*arguments)
        self.assertNotEqual(outcome.returncode, 0)
        self.assertIn(text, outcome.stdout + outcome.stderr)
        self.assertEqual((self.git("rev-parse", "HEAD"), self.git("tag"), self.told()), (before, "", []))

    def test_the_first_one_is_dated_tested_and_tagged(self):
        today = time.strftime("%Y-%m-%d")
        outcome = self.release("1.0.0")
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        self.assertEqual(self.told(), [".ci/run ", "./test packages abi", "tests/abi renew"])
        self.assertIn(f"## 1.0.0 - {today}\n", self.read("CHANGELOG.md"))
        debian = self.read("packaging/debian/changelog")
        self.assertTrue(debian.startswith("morvaneoperation (1.0.0) unstable;"), debian)
        self.assertNotIn("2023", debian)
        self.assertEqual(self.git("describe", "--exact-match"), "v1.0.0")
        self.assertEqual(self.git("show", "v1.0.0:packaging/abi"), "new")
        self.assertIn("- Something.", self.git("for-each-ref", "--format=%(contents)", "refs/tags/v1.0.0"))
        self.assertEqual(self.git("status", "--porcelain"), "")

    def test_a_later_one_has_entries_of_its_own(self):
        self.release("1.0.0")
        self.write("CHANGELOG.md", self.read("CHANGELOG.md").replace(
            "# Changelog\n", "# Changelog\n\n## Unreleased\n\n### Fixed\n- Another thing.\n"))
        self.commit()
        outcome = self.release("1.1.0")
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        self.assertIn("VERSION 1.1.0 ", self.read("CMakeLists.txt"))
        self.assertEqual(re.findall(r"^morvaneoperation \((.*)\)", self.read("packaging/debian/changelog"), re.M),
                         ["1.1.0", "1.0.0"])
        told = self.git("for-each-ref", "--format=%(contents)", "refs/tags/v1.1.0")
        self.assertIn("- Another thing.", told)
        self.assertNotIn("- Something.", told)

    def test_what_fails_is_not_tagged(self):
        with open(f"{self.folder}/refuse", "w", encoding="ascii"):
            outcome = self.release("1.0.0")
        self.assertIn("the tests fail; there is no tag", outcome.stderr)
        self.assertEqual((outcome.returncode, self.git("tag")), (1, ""))

    def test_what_cannot_be_released_is_named_and_nothing_is_changed(self):
        self.assertRefused("Makes a release")
        self.assertRefused("'1.0' is not a version", "1.0")
        self.write("CHANGELOG.md", "# Changelog\n\n## Unreleased\n\n## 0.9.0 - 2023-01-01\n- Something.\n")
        self.assertRefused("something is not committed", "1.0.0")
        self.commit()
        self.assertRefused("CHANGELOG.md tells of no change", "1.0.0")
        self.git("checkout", "--quiet", "-b", "other")
        self.assertRefused("a release is made on main", "1.0.0")

    def test_versions_only_rise(self):
        self.release("1.0.0")
        self.assertIn("v1.0.0 is there already", self.release("1.0.0").stderr)
        self.write("CHANGELOG.md", CHANGELOG)
        self.commit()
        self.assertIn("0.9.0 is not above v1.0.0", self.release("0.9.0").stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:], verbosity=2)
