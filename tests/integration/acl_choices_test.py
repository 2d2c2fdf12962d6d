#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Each choice of the menu, for each kind of identity, in a new entry and in a changed one, on a file and on a
folder, on each local file system: what is stored, as getfacl prints it, and what the kernel then lets that user do.

usage: acl_choices_test.py MORVANE LIBEXEC-DIR [unittest arguments]

The file systems are made for it, and mounted where only this program sees them. Needs root, which also becomes
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
ENVIRONMENT = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8"}

OWNER, GROUP, USER, NAMED_GROUP, NOBODY = 4801, 4802, 4803, 4804, 4805
# Whom an entry is for: how an edit writes it, and the user and group that are then tried.
WHO = {"owner": (f"user:{OWNER}", OWNER, 4899),
       "user": (f"user:{USER}", USER, 4899),
       "group": (f"group:{NAMED_GROUP}", 4806, NAMED_GROUP),
       "owning group": (f"group:{GROUP}", 4807, GROUP),
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
    start = {"owner": "user::", "owning group": "group::", "everyone": "other::"}.get(who, WHO[who][0] + ":")
    found = [line for line in lines if line.startswith(start)]
    return sum(BITS.get(letter, 0) for letter in found[0].rsplit(":", 1)[1]) if found else None


class Choices:
    SYSTEM = None

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        os.chmod(folder.name, 0o755)
        if cls.SYSTEM == "overlay":
            below = cls.mounted("ext4", folder.name, "below")
            parts = {name: os.path.join(below, name) for name in ("lowerdir", "upperdir", "workdir")}
            for part in parts.values():
                os.mkdir(part)
            options = (f"{name}={part}" for name, part in parts.items())
            cls.top = cls.mounted("overlay", folder.name, "mounted", *options)
        else:
            cls.top = cls.mounted(cls.SYSTEM, folder.name, "mounted")
        os.chmod(cls.top, 0o755)

    @classmethod
    def mounted(cls, system, folder, name, *options):
        source, top = system, os.path.join(folder, name)
        os.mkdir(top)
        if system not in ("overlay", "tmpfs"):
            source, options = os.path.join(folder, "image"), ["loop"]
            with open(source, "wb") as f:
                f.truncate(512 << 20)  # what xfs wants at least, and holes but for what is written
            subprocess.run([f"mkfs.{system}", "-q", source], check=True, capture_output=True)
        chosen = ["-o", ",".join(options)] if options else []
        subprocess.run(["mount", "-t", system, *chosen, source, top], check=True)
        cls.addClassCleanup(subprocess.run, ["umount", top], check=True)
        return top

    def setUp(self):
        self.number = 0

    def item(self, is_folder, for_others=True):
        self.number += 1
        path = os.path.join(self.top, f"{self.id()}.{self.number}")
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
        for is_folder, who, choice in cases:
            with self.subTest(folder=is_folder, who=who, choice=choice):
                path = self.item(is_folder)
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

    def test_execution_that_is_switched_on_by_itself_is_stored(self):
        for who, choice in itertools.product(("user", "group"), (None, "read", "write", "read-write")):
            with self.subTest(who=who, choice=choice):
                path = self.item(False, for_others=False)
                script = f"add {WHO[who][0]}" + (f"; permissions {choice}" if choice else "") + '; on "Execute File"'
                done = morvane("acl", path, "--edit", script)
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.check(path, who, 1 | self.asked(choice or "read-write", False))

    def test_a_changed_entry_is_stored_as_it_is_chosen(self):
        cases = itertools.product((False, True), ("user", "group"), ("read", "write", "read-write", "all"))
        for is_folder, who, choice in cases:
            with self.subTest(folder=is_folder, who=who, choice=choice):
                # Where the owning group may do more, a denial is shown as well, and stays.
                path = self.item(is_folder, for_others=False)
                first = morvane("acl", path, "--edit", f"add {WHO[who][0]}; permissions write")
                self.assertEqual(first.returncode, 0)
                shown = json.loads(morvane("acl", path, "--json").stdout)["entries"]
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
        numbers = {"owner": 1, "owning group": 2, "everyone": 3}
        cases = itertools.product((False, True), numbers, choices)
        for is_folder, who, choice in cases:
            with self.subTest(folder=is_folder, who=who, choice=choice):
                path = self.item(is_folder)
                done = morvane("acl", path, "--edit", f"entry {numbers[who]}; permissions {choice}")
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.check(path, who, choices[choice])


class Limited(Choices):
    """A file system that holds no list as long as the kernel takes."""
    NAMES = 6000
    LIMIT = None

    def test_a_list_that_is_too_long_says_how_long_one_may_be(self):
        path = self.item(False)
        done = morvane("acl", path, "--edit", ";".join(f"add user:{10000 + i}" for i in range(self.NAMES)))
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, "The list is too long for this file system(, whose disk is not full)?: it would "
                         f"name {self.NAMES} users and groups. {self.LIMIT}")
        self.assertIsNone(stored(path, "user"))


class OnExt4(Limited, unittest.TestCase):
    SYSTEM, NAMES = "ext4", 600
    LIMIT = "All extended attributes of an item have to fit into one block of 4096 bytes, where each of them takes 8."

    def test_a_list_that_is_too_long_below_a_folder_says_how_long_one_may_be(self):
        path = self.item(True)
        os.mkdir(f"{path}/sub")
        # It fits once, and a sub-folder would have it twice.
        names = ",".join(f"d:u:{10000 + i}:r" for i in range(300))
        subprocess.run(["setfacl", "-m", names, path], check=True)
        done = morvane("acl", path, "--propagate")
        self.assertEqual(done.returncode, 1)
        self.assertIn("/sub\" (No space left on device). The list is too long for this file system, whose disk is not "
                      f"full: it would name 600 users and groups. {self.LIMIT}", done.stderr)


class OnXfs(Limited, unittest.TestCase):
    SYSTEM = "xfs"
    LIMIT = "XFS holds at most 5461 entries in one list."


class OnBtrfs(Limited, unittest.TestCase):
    SYSTEM = "btrfs"
    LIMIT = "It has to fit into one node of the file system's tree, usually of 16384 bytes, where each of them takes 8."


class OnTmpfs(Choices, unittest.TestCase):
    SYSTEM = "tmpfs"


class OnOverlay(Limited, unittest.TestCase):
    SYSTEM = "overlay"
    LIMIT = "The file system below the overlay decides; on ext4, the usual one, all extended attributes"


if __name__ == "__main__":
    if os.geteuid() != 0:
        sys.exit("file systems are mounted, and the choices are tried as other users: this needs root")
    if "CHOICES_MOUNTS_APART" not in os.environ:
        os.environ["CHOICES_MOUNTS_APART"] = "yes"
        os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable, *sys.argv])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
