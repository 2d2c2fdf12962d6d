#!/usr/bin/env python3
"""Each choice of the menu, for each kind of identity, in a new entry and in a changed one, on a file and on a
folder: what is stored, as getfacl prints it, and what the kernel then lets that user do.

usage: acl_choices_test.py MORVANE LIBEXEC-DIR [FOLDER]

The items are made in a folder of their own below FOLDER (a file system with lists). Needs root, which becomes
the users.
"""
import itertools
import json
import os
import subprocess
import sys
import tempfile
import unittest

MORVANE, LIBEXEC = map(os.path.abspath, sys.argv[1:3])
TOP = sys.argv[3] if len(sys.argv) > 3 else None
ENVIRONMENT = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8"}

OWNER, GROUP, USER, NAMED_GROUP, NOBODY = 4801, 4802, 4803, 4804, 4805
# Whom an entry is for: how an edit writes it, and the user and group that are then tried.
WHO = {"owner": (f"user:{OWNER}", OWNER, 4899),
       "user": (f"user:{USER}", USER, 4899),
       "group": (f"group:{NAMED_GROUP}", 4806, NAMED_GROUP),
       "everyone": ("everyone", NOBODY, 4899)}
BITS = {"r": 4, "w": 2, "x": 1}
ADMINISTRATION = '"Administration": only the owner has it.'


def morvane(*arguments):
    return subprocess.run([MORVANE, *arguments], env=ENVIRONMENT, capture_output=True, text=True, check=False)


def rights_of(uid, gid, path):
    """What the kernel says to that user."""
    script = 'for b in r w x; do test -$b "$1" && printf $b; done; true'
    done = subprocess.run(["setpriv", f"--reuid={uid}", f"--regid={gid}", "--clear-groups",
                           "sh", "-c", script, "sh", path], capture_output=True, text=True, check=True)
    return sum(BITS[letter] for letter in done.stdout)


def stored(path, who):
    """The rights of the entry, as getfacl prints it."""
    lines = subprocess.run(["getfacl", "-nE", "--omit-header", "--absolute-names", path], capture_output=True,
                           text=True, check=True).stdout.split()
    start = {"owner": "user::", "everyone": "other::"}.get(who, WHO[who][0] + ":")
    found = [line for line in lines if line.startswith(start)]
    return sum(BITS.get(letter, 0) for letter in found[0].rsplit(":", 1)[1]) if found else None


class Choices(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(dir=TOP)
        self.addCleanup(folder.cleanup)
        os.chmod(folder.name, 0o755)
        self.top = folder.name

    def item(self, is_folder, name, for_others=True):
        path = os.path.join(self.top, name)
        if is_folder:
            os.mkdir(path)
        else:
            open(path, "w", encoding="ascii").close()
        os.chown(path, OWNER, GROUP)
        os.chmod(path, (0o750 if is_folder else 0o640) if for_others else 0o700 if is_folder else 0o600)
        return path

    @staticmethod
    def asked(choice, is_folder):
        read = 5 if is_folder else 4  # nobody executes the file
        return {"read": read, "write": 2, "read-write": read | 2, "all": read | 2}[choice]

    def check(self, path, who, rights):
        self.assertEqual(stored(path, who), rights)
        self.assertEqual(rights_of(*WHO[who][1:], path), rights)

    def test_a_new_entry_is_stored_as_it_is_chosen(self):
        cases = itertools.product((False, True), WHO, ("read", "write", "read-write", "all", None))
        for number, (is_folder, who, choice) in enumerate(cases):
            with self.subTest(folder=is_folder, who=who, choice=choice):
                path = self.item(is_folder, f"item{number}")
                before = stored(path, who) or 0
                script = f"add {WHO[who][0]}" + (f"; permissions {choice}" if choice else "")
                done = morvane("acl", path, "--edit", script)
                if choice == "all" and who != "owner":
                    self.assertEqual(done.returncode, 1)
                    self.assertIn(ADMINISTRATION, done.stderr)
                    self.assertEqual(stored(path, who) or 0, before)
                    continue
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.check(path, who, before | self.asked(choice or "read-write", is_folder))

    def test_a_changed_entry_is_stored_as_it_is_chosen(self):
        cases = itertools.product((False, True), ("user", "group"), ("read", "write", "read-write", "all"))
        for number, (is_folder, who, choice) in enumerate(cases):
            with self.subTest(folder=is_folder, who=who, choice=choice):
                # Where the owning group may do more, a denial is shown as well, and stays.
                path = self.item(is_folder, f"item{number}", for_others=False)
                first = morvane("acl", path, "--edit", f"add {WHO[who][0]}; permissions write")
                self.assertEqual(first.returncode, 0)
                shown = json.loads(morvane("acl", path, "--json").stdout)
                place = [entry["isAcl"] for entry in shown].index(True) + 1
                done = morvane("acl", path, "--edit", f"entry {place}; permissions {choice}")
                if choice == "all":
                    self.assertEqual(done.returncode, 1)
                    self.assertIn(f"entry {place} (", done.stderr)
                    self.assertIn(ADMINISTRATION, done.stderr)
                    self.assertEqual(stored(path, who), 2)
                    continue
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.check(path, who, self.asked(choice, is_folder))

    def test_a_changed_entry_of_the_base_is_stored_as_it_is_chosen(self):
        choices = {"read": 4, "write": 2, "read-write": 6, "all": 7, "none": 0}
        cases = itertools.product((False, True), ("owner", "everyone"), choices)
        for number, (is_folder, who, choice) in enumerate(cases):
            with self.subTest(folder=is_folder, who=who, choice=choice):
                path = self.item(is_folder, f"item{number}")
                done = morvane("acl", path, "--edit",
                               f"entry {1 if who == 'owner' else 3}; permissions {choice}")
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.check(path, who, choices[choice])


if __name__ == "__main__":
    if os.geteuid() != 0:
        sys.exit("the choices are tried as other users: this needs root")
    unittest.main(argv=sys.argv[:1])
