"""The program that puts the privileged helper's files into place, with folders of its own in the places of
the system's, and with a service manager that only notes what it is told.

usage: install_helper_test.py BUILD-FOLDER SOURCE-FOLDER DATA-FOLDER [unittest arguments]

The first two are those of the helper, the third is where the package has its files.
"""
import concurrent.futures
import fcntl
import os
import shutil
import stat
import subprocess
import sys
import time
import unittest

if os.environ.get("MORVANE_RIG") != "inside":
    os.environ["MORVANE_RIG"] = "inside"
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable, *sys.argv])

BUILD, SOURCE, PACKAGE = map(os.path.abspath, sys.argv[1:4])
INSTALLER = os.path.join(BUILD, "morvane-install-helper")
LABEL = "io.github.morvaneoperation"
UNITS, ACTIONS = "/etc/systemd/system", "/usr/share/polkit-1/actions"
PACKAGED = {f"{PACKAGE}/morvaneoperation/{LABEL}.PrivilegedHelper.service": (BUILD, UNITS),
            f"{PACKAGE}/morvaneoperation/{LABEL}.PrivilegedHelper.socket": (SOURCE, UNITS),
            f"{PACKAGE}/polkit-1/actions/{LABEL}.policy": (SOURCE, ACTIONS),
            f"{PACKAGE}/polkit-1/actions/{LABEL}.InstallHelper.policy": (BUILD, ACTIONS)}
TOLD = "/run/told"
BEGUN = f"/run/{LABEL}.PrivilegedHelper.installing"
SYSTEMCTL = f'#!/bin/sh\necho "$*" >>{TOLD}\n[ ! -e /run/refuse ]\n'


def mount(folder):
    os.makedirs(folder, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", folder], check=True)


class Installer(unittest.TestCase):
    def setUp(self):
        for folder in ("/run", UNITS, ACTIONS, PACKAGE):
            mount(folder)
            self.addCleanup(subprocess.run, ["umount", folder], check=True)
        os.makedirs("/run/systemd/system")
        os.mkdir("/run/bin")
        with open("/run/bin/systemctl", "w", encoding="ascii") as f:
            f.write(SYSTEMCTL)
        os.chmod("/run/bin/systemctl", 0o755)
        for packaged, (origin, _) in PACKAGED.items():
            os.makedirs(os.path.dirname(packaged), exist_ok=True)
            shutil.copy(os.path.join(origin, os.path.basename(packaged)), packaged)

    def install(self, *tracer):
        environment = {"PATH": "/run/bin:/usr/sbin:/usr/bin:/sbin:/bin"}
        return subprocess.run([*tracer, "sh", INSTALLER], env=environment, timeout=60, capture_output=True)

    def installed(self):
        return {packaged: os.path.join(folder, os.path.basename(packaged))
                for packaged, (_, folder) in PACKAGED.items()}

    def is_waited_for(self, path):
        with open("/proc/locks", encoding="ascii") as f:
            return any("->" in line and f":{os.stat(path).st_ino} " in line for line in f)

    def content(self, path):
        with open(path, "rb") as f:
            return f.read()

    def told(self):
        return self.content(TOLD).decode().splitlines() if os.path.exists(TOLD) else []

    def assertAllInPlace(self):
        for packaged, path in self.installed().items():
            self.assertEqual(self.content(path), self.content(packaged))
            status = os.stat(path)
            self.assertEqual((stat.S_IMODE(status.st_mode), status.st_uid), (0o644, 0))
        self.assertEqual(len(os.listdir(UNITS)) + len(os.listdir(ACTIONS)), 4, "nothing else is left")
        self.assertFalse(os.path.exists(BEGUN))

    def test_it_puts_every_file_into_place_and_lets_the_service_manager_listen(self):
        self.assertEqual(self.install().returncode, 0)
        self.assertAllInPlace()
        self.assertEqual(self.told(), ["daemon-reload", f"enable --now {LABEL}.PrivilegedHelper.socket"])

    def test_a_file_that_is_in_place_is_not_touched(self):
        self.install()
        before = {path: os.stat(path).st_ino for path in self.installed().values()}
        self.assertEqual(self.install().returncode, 0)
        self.assertEqual({path: os.stat(path).st_ino for path in self.installed().values()}, before)

    def test_an_older_file_is_replaced(self):
        self.install()
        for path in self.installed().values():
            with open(path, "a", encoding="ascii") as f:
                f.write("# older\n")
        self.assertEqual(self.install().returncode, 0)
        self.assertAllInPlace()

    def test_a_package_that_is_not_whole_is_told_by_its_code(self):
        for packaged in PACKAGED:
            with self.subTest(missing=packaged):
                os.rename(packaged, packaged + ".aside")
                self.assertEqual(self.install().returncode, 5)
                self.assertEqual(self.told(), [])
                self.assertEqual(os.listdir(UNITS) + os.listdir(ACTIONS), [])
                os.rename(packaged + ".aside", packaged)

    def test_without_a_service_manager_nothing_is_put_anywhere(self):
        os.rmdir("/run/systemd/system")
        self.assertEqual(self.install().returncode, 7)
        self.assertEqual(os.listdir(UNITS) + os.listdir(ACTIONS), [])

    def test_a_service_manager_that_refuses_is_told_by_its_code(self):
        with open("/run/refuse", "w", encoding="ascii"):
            pass
        self.assertEqual(self.install().returncode, 7)
        self.assertTrue(os.path.exists(BEGUN), "it is not finished")
        os.unlink("/run/refuse")
        self.assertEqual(self.install().returncode, 0)
        self.assertAllInPlace()

    def test_two_at_once_do_not_meet(self):
        with open(BEGUN, "w", encoding="ascii") as first:
            fcntl.flock(first, fcntl.LOCK_EX)
            with concurrent.futures.ThreadPoolExecutor() as pool:
                second = pool.submit(self.install)
                while not self.is_waited_for(BEGUN) and not second.done():
                    time.sleep(0.02)
                self.assertEqual((second.done(), self.told()), (False, []))
                fcntl.flock(first, fcntl.LOCK_UN)
                self.assertEqual(second.result().returncode, 0)
        self.assertAllInPlace()

    def test_a_folder_that_cannot_be_written_is_an_internal_failure(self):
        subprocess.run(["mount", "-o", "remount,ro", UNITS], check=True)
        self.assertEqual(self.install().returncode, 2)

    def test_a_kill_leaves_each_file_old_or_new(self):
        self.install()
        old = {}
        for path in self.installed().values():
            with open(path, "a", encoding="ascii") as f:
                f.write("# older\n")
            old[path] = self.content(path)
        kills = 0
        for call in ("openat", "write", "rename", "renameat2", "execve"):
            for number in range(1, 400):
                result = self.install("strace", "-f", "-qq", "-o", "/dev/null", "-e", f"trace={call}",
                                      "-e", f"inject={call}:signal=KILL:when={number}")
                changed = False
                for packaged, path in self.installed().items():
                    self.assertIn(self.content(path), (old[path], self.content(packaged)))
                    changed = changed or self.content(path) != old[path]
                    with open(path, "wb") as f:
                        f.write(old[path])
                if result.returncode == 0:
                    break
                kills += 1
                if changed:
                    self.assertTrue(os.path.exists(BEGUN) or [w.split()[0] for w in self.told()][-1:] == ["enable"])
                for path in (BEGUN, TOLD):
                    if os.path.exists(path):
                        os.unlink(path)
        self.assertGreater(kills, 10)
        self.assertEqual(self.install().returncode, 0)
        self.assertAllInPlace()


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[4:])
