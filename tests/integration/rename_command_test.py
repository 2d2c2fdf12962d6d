# SPDX-License-Identifier: MIT
"""The rename command with the real file service, in real folders.

usage: rename_command_test.py MORVANE LIBEXEC-DIR [unittest arguments]
"""
import json
import os
import random
import subprocess
import sys
import tempfile
import unittest

MORVANE, LIBEXEC = map(os.path.abspath, sys.argv[1:3])
TIME_LIMIT = 120  # a watchdog; nothing here takes long
ENVIRONMENT = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8"}


class Renaming(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = os.fsencode(folder.name)

    def run_morvane(self, *arguments):
        return subprocess.run([MORVANE, "rename", *arguments], env=ENVIRONMENT, cwd=self.folder,
                              capture_output=True, timeout=TIME_LIMIT)

    def rename(self, *arguments):
        result = self.run_morvane(*arguments)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def make(self, *names):
        """Files that hold their own first names."""
        for name in names:
            with open(os.path.join(self.folder, name), "wb") as f:
                f.write(name)

    def contents(self):
        found = {}
        for name in os.listdir(self.folder):
            with open(os.path.join(self.folder, name), "rb") as f:
                found[name] = f.read()
        return found

    def test_an_item_gets_its_new_name_silently(self):
        self.make(b"a")
        self.assertEqual(self.rename("a", "b"), b"")
        self.assertEqual(self.contents(), {b"b": b"a"})

    def test_a_circle_is_renamed_at_once(self):
        self.make(b"a", b"b", b"c")
        self.rename("a", "b", "b", "c", "c", "a")
        self.assertEqual(self.contents(), {b"b": b"a", b"c": b"b", b"a": b"c"})

    def test_a_thousand_files_are_permuted(self):
        names = [b"file %d" % i for i in range(1000)]
        self.make(*names)
        renamed = names[:]
        random.Random(1).shuffle(renamed)
        self.rename(*[word for pair in zip(names, renamed) for word in pair])
        self.assertEqual(self.contents(), dict(zip(renamed, names)))

    def test_the_json_tells_where_each_item_is(self):
        os.mkdir(os.path.join(self.folder, b"folder"))
        self.make(b"folder/file")
        items = json.loads(self.rename("--json", "folder/file", "FILE", "folder", "FOLDER"))["items"]
        base = "file://" + os.fsdecode(self.folder)
        self.assertEqual([(item["from"]["url"], item["to"]["url"], item["error"]) for item in items], [
            (base + "/folder/file", base + "/FOLDER/FILE", None), (base + "/folder", base + "/FOLDER", None)])

    def test_paths_that_are_not_utf8_are_renamed(self):
        self.make(b"\xff")
        self.rename(b"\xff", "text")
        self.assertEqual(self.contents(), {b"text": b"\xff"})

    def test_nothing_is_overwritten_and_the_rest_is_renamed(self):
        self.make(b"a", b"b", b"c")
        result = self.run_morvane("a", "b", "c", "d")
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertEqual(result.stderr, b"morvane: 1 of 2 items could not be renamed:\n"
                                        b"  'a': File exists\n")
        self.assertEqual(self.contents(), {b"a": b"a", b"b": b"b", b"d": b"c"})

    def test_every_item_that_keeps_its_name_is_told(self):
        self.make(b"a", b"b", b"c", b"x1", b"x2")
        result = self.run_morvane("a", "x1", "b", "x2", "c", "z")
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertEqual(result.stderr, b"morvane: 2 of 3 items could not be renamed:\n"
                                        b"  'a': File exists\n  'b': File exists\n")

    def test_a_new_name_that_is_not_utf8_is_refused(self):
        self.make(b"a", b"b")
        result = self.run_morvane("b", "c", "a", b"\xff")
        self.assertEqual((result.returncode, result.stdout), (2, b""))
        self.assertEqual(result.stderr, b"morvane: the new name '\\xff' of 'a' is not UTF-8; choose one "
                                        b"that is.\n  Nothing was renamed.\n"
                                        b"  'morvane rename --help' tells how the command is used.\n")
        self.assertEqual(self.contents(), {b"a": b"a", b"b": b"b"})

    def test_two_items_with_one_name_are_refused(self):
        self.make(b"a", b"b")
        result = self.run_morvane("a", "x", "b", "x")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b'would both get the name "x"', result.stderr)
        self.assertIn(b"Nothing was renamed.", result.stderr)
        self.assertEqual(self.contents(), {b"a": b"a", b"b": b"b"})

    def test_a_name_with_a_slash_is_refused(self):
        self.make(b"a")
        result = self.run_morvane("a", "../b")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"holds a slash", result.stderr)

    def test_a_missing_item_is_told(self):
        result = self.run_morvane("missing", "b")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"No such file or directory", result.stderr)

    def test_a_path_without_a_name_is_a_usage_error(self):
        self.make(b"a")
        for words in (["a"], ["a", "b", "c"], [], ["", "b"]):
            self.assertEqual(self.run_morvane(*words).returncode, 2, words)
        self.assertEqual(self.contents(), {b"a": b"a"})


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
