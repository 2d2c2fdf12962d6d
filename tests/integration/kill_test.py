# SPDX-License-Identifier: MIT
"""Kills the real file service at each of its system calls, and looks at what is left.

usage: kill_test.py MORVANE LIBEXEC-DIR KILLED-SERVICE [unittest arguments]
"""
import os
import subprocess
import sys
import tempfile
import unittest

MORVANE, LIBEXEC, KILLED_SERVICE = map(os.path.abspath, sys.argv[1:4])
TIME_LIMIT = 120  # a watchdog; nothing here takes long
SERVICE = "io.github.morvaneoperation.FileService"
SERVICE_LOST = 3


def run(*arguments, **environment):
    return subprocess.run([MORVANE, *arguments], capture_output=True, timeout=TIME_LIMIT,
                          env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8", **environment})


def killed_at_each_call(folder, *arguments):
    """Runs morvane once for each system call that the service makes while it works, killing it there.
    Yields the result of each run."""
    libexec = os.path.join(folder, "libexec")
    os.mkdir(libexec)
    os.symlink(KILLED_SERVICE, os.path.join(libexec, SERVICE))
    mark = os.path.join(folder, "killed")
    for number in range(1, 10000):
        result = run(*arguments, MORVANE_LIBEXEC_DIR=libexec, KILLED_SERVICE=os.path.join(LIBEXEC, SERVICE),
                     KILLED_MARK=mark, KILLED_AT=str(number))
        killed = os.path.exists(mark)
        if killed:
            os.unlink(mark)
        if result.returncode not in ((0, SERVICE_LOST) if killed else (0,)):
            raise AssertionError(f"exit code {result.returncode}: {result.stderr}")
        yield result
        if not killed:
            return
    raise AssertionError("there is no end of calls")


def attributes(path):
    return {name: os.getxattr(path, name) for name in os.listxattr(path)}


class Killed(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.service_folder = os.path.join(folder.name, "service")
        self.folder = os.path.join(folder.name, "items")
        os.mkdir(self.service_folder)
        os.mkdir(self.folder)

    def make(self, name, mode=0o640):
        path = os.path.join(self.folder, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="ascii") as f:
            f.write(name)
        os.chmod(path, mode)
        return path

    def setfacl(self, *arguments):
        subprocess.run(["setfacl", *arguments], check=True, timeout=TIME_LIMIT)

    def look(self, paths):
        """What is written of each by a call of its own: its owner, what is no list of its mode, its lists."""
        result = {}
        for path in paths:
            status, lists = os.stat(path), attributes(path)
            result[path] = (status.st_uid, status.st_mode & 0o7000,
                            (status.st_mode & 0o777, lists.get("system.posix_acl_access")),
                            lists.get("system.posix_acl_default"))
        return result

    def try_each(self, reset, paths, *arguments):
        """Whatever is left of each part is the old or the new one; returns how many states were seen."""
        reset()
        old = self.look(paths)
        run(*arguments).check_returncode()
        new = self.look(paths)
        self.assertNotEqual(old, new)
        seen = []
        reset()
        for _ in killed_at_each_call(self.service_folder, *arguments):
            left = self.look(paths)
            for path in paths:
                for was, is_now, was_to_be in zip(old[path], left[path], new[path]):
                    self.assertIn(is_now, (was, was_to_be), path)
            if left not in seen:
                seen.append(left)
            if left != old:
                reset()
        self.assertEqual(seen[0], old)
        self.assertIn(new, seen)
        return len(seen)

    def test_a_list_that_is_written_is_the_old_or_the_new_one(self):
        file = self.make("file")

        def reset():
            self.setfacl("-b", file)
            os.chmod(file, 0o4750)
            self.setfacl("-m", "u:4711:rwx", file)

        states = self.try_each(reset, [file], "acl", file, "--edit", "add user:4712; permissions read")
        self.assertEqual(states, 2)

    def test_both_lists_of_a_folder_are_old_or_new(self):
        folder = os.path.dirname(self.make("folder/file"))

        def reset():
            self.setfacl("-b", folder)
            self.setfacl("-m", "u:4711:rwx,d:u:4711:r", folder)

        states = self.try_each(reset, [folder], "acl", folder, "--edit",
                              'add user:4712; permissions read; on "Child files"; on "Child folders"; '
                              'on "All descendants"')
        self.assertIn(states, (2, 3))

    def test_a_propagation_leaves_each_item_with_old_or_new_lists(self):
        top = os.path.join(self.folder, "top")
        paths = [self.make(f"top/{name}") for name in ("a", "sub/b", "sub/deep/c")]
        paths += [os.path.join(top, "sub"), os.path.join(top, "sub/deep")]
        self.setfacl("-m", "u:4711:rwx,d:u:4711:rwx", top)
        os.chown(top, 4710, 0)

        def reset():
            for path in paths:
                self.setfacl("-b", path)
                os.chmod(path, 0o750 if os.path.isdir(path) else 0o640)
                os.chown(path, 0, 0)

        states = self.try_each(reset, paths, "acl", top, "--propagate")
        self.assertGreaterEqual(states, 3)

    def test_a_renaming_loses_no_name_and_no_item(self):
        names = ["a", "b", "c", "d"]
        paths = [os.path.join(self.folder, name) for name in names]

        def reset():
            for name in os.listdir(self.folder):
                os.unlink(os.path.join(self.folder, name))
            for name in names:
                self.make(name)

        reset()
        seen = set()
        arguments = [argument for pair in zip(paths, ["b", "c", "a", "e"]) for argument in pair]
        for result in killed_at_each_call(self.service_folder, "rename", *arguments):
            if result.returncode == SERVICE_LOST:
                self.assertIn(b"look before you try again", result.stderr)
            held = {}
            for name in os.listdir(self.folder):
                with open(os.path.join(self.folder, name), encoding="ascii") as f:
                    held[name] = f.read()
            self.assertEqual(sorted(held.values()), names)
            self.assertLessEqual(set(held), {*names, "e"})
            seen.add(tuple(sorted(held.items())))
            reset()
        self.assertGreaterEqual(len(seen), 2)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
