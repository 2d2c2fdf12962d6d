"""Kills the real file service at each of its calls that change something, and looks at what is left.

usage: kill_test.py MORVANE LIBEXEC-DIR [unittest arguments]
"""
import os
import subprocess
import sys
import tempfile
import unittest

MORVANE, LIBEXEC = map(os.path.abspath, sys.argv[1:3])
TIME_LIMIT = 120  # a watchdog; nothing here takes long
# A sanitizer's leak check cannot run under another tracer.
ENVIRONMENT = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8",
               "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"}
CHANGING = ("setxattr", "lsetxattr", "fsetxattr", "removexattr", "lremovexattr", "fremovexattr", "chmod", "fchmod",
            "fchmodat", "chown", "fchown", "lchown", "fchownat", "rename", "renameat", "renameat2")
SERVICE_LOST = 3


def killed_at_each(call, *arguments):
    """Runs morvane once for each time that the service makes the call, killing it there. Yields after each
    run whether it was killed."""
    for number in range(1, 1000):
        result = subprocess.run(
            ["strace", "-f", "-qq", "-o", "/dev/null", "-e", f"trace={call}",
             "-e", f"inject={call}:signal=KILL:when={number}", MORVANE, *arguments],
            env=ENVIRONMENT, capture_output=True, timeout=TIME_LIMIT)
        yield result
        if result.returncode == 0:
            return
    raise AssertionError(f"{call} is called without an end")


def acl(path, kind):
    return subprocess.run(["getfacl", "-cpn", "--" + kind, path], check=True, capture_output=True, text=True,
                          timeout=TIME_LIMIT).stdout


class Killed(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

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
        return {path: (os.stat(path).st_uid, os.stat(path).st_mode & 0o7000, acl(path, "access"),
                       acl(path, "default")) for path in paths}

    def try_each(self, reset, paths, *arguments):
        """Whatever is left of each part is the old or the new one; returns how often it was killed."""
        reset()
        old = self.look(paths)
        subprocess.run([MORVANE, *arguments], env=ENVIRONMENT, check=True, capture_output=True, timeout=TIME_LIMIT)
        new = self.look(paths)
        self.assertNotEqual(old, new)
        kills = 0
        for call in CHANGING:
            reset()
            for result in killed_at_each(call, *arguments):
                left = self.look(paths)
                for path in paths:
                    for was, is_now, was_to_be in zip(old[path], left[path], new[path]):
                        self.assertIn(is_now, (was, was_to_be), f"{path}, killed at {call}")
                if result.returncode != 0:
                    self.assertEqual(result.returncode, SERVICE_LOST, result.stderr)
                    kills += 1
                reset()
        return kills

    def test_a_list_that_is_written_is_the_old_or_the_new_one(self):
        file = self.make("file")

        def reset():
            self.setfacl("-b", file)
            os.chmod(file, 0o4750)
            self.setfacl("-m", "u:4711:rwx", file)

        kills = self.try_each(reset, [file], "acl", file, "--edit", "add user:4712; permissions read")
        self.assertEqual(kills, 1)

    def test_both_lists_of_a_folder_are_old_or_new(self):
        folder = os.path.dirname(self.make("folder/file"))

        def reset():
            self.setfacl("-b", folder)
            self.setfacl("-m", "u:4711:rwx,d:u:4711:r", folder)

        kills = self.try_each(reset, [folder], "acl", folder, "--edit",
                              'add user:4712; permissions read; on "Child files"; on "Child folders"; '
                              'on "All descendants"')
        self.assertEqual(kills, 2)

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

        kills = self.try_each(reset, paths, "acl", top, "--propagate")
        self.assertGreaterEqual(kills, 4)

    def test_a_renaming_loses_no_name_and_no_item(self):
        names = ["a", "b", "c", "d"]
        paths = [os.path.join(self.folder, name) for name in names]

        def reset():
            for name in os.listdir(self.folder):
                os.unlink(os.path.join(self.folder, name))
            for name in names:
                self.make(name)

        reset()
        kills = 0
        arguments = [argument for pair in zip(paths, ["b", "c", "a", "e"]) for argument in pair]
        for result in killed_at_each("renameat2", "rename", *arguments):
            held = {}
            for name in os.listdir(self.folder):
                with open(os.path.join(self.folder, name), encoding="ascii") as f:
                    held[name] = f.read()
            self.assertEqual(sorted(held.values()), names)
            self.assertLessEqual(set(held), {*names, "e"})
            kills += result.returncode != 0
            reset()
        self.assertGreaterEqual(kills, 3)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
