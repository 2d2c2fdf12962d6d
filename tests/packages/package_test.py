#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The life of the Debian packages where systemd is process 1: as root in a machine of its own, which
tests/systemd/machine boots. /packages has them, /packages/next has them in a higher version.

Installs, uses, upgrades, removes, installs again and purges them; then the machine has the files and users that it had
before."""
import glob
import os
import shutil
import socket
import stat
import sys
import unittest

sys.path.insert(0, "/test")
from guest import SOCKET, TIME_LIMIT, UNIT, done, run, show
from waiting import wait_until

LEFT = f"/var/lib/{UNIT}"
HELPER = f"/usr/libexec/morvaneoperation/{UNIT}"
PACKAGES = ["libmorvaneoperation1", "libmorvaneoperation-dev", "morvane", "morvaneoperation-services"]
# Folders that are not looked at: other file systems, and what any program may write.
ELSEWHERE = {"/dev", "/home", "/proc", "/root", "/run", "/sys", "/tmp", "/var/log", "/var/tmp", "/test", "/packages"}
# What the package manager, the loader and the service manager rewrite. What is below it is looked at by its name only.
REWRITTEN = ("/etc/ld.so.cache", "/var/cache/", "/var/lib/apt/", "/var/lib/dpkg/", "/var/lib/systemd/",
             "/etc/passwd", "/etc/group", "/etc/shadow", "/etc/gshadow", "/etc/subuid", "/etc/subgid")
# What the package manager itself makes, or makes its own, once it has installed anything.
MADE = {"/var/lib/dpkg/status-old", "/var/lib/dpkg/triggers/Lock", "/var/lib/dpkg/triggers/Unincorp",
        "/var/lib/apt/extended_states", "/var/lib/apt/lists/auxfiles", "/var/cache/apt/archives/partial",
        "/var/cache/apt/pkgcache.bin", "/var/cache/apt/srcpkgcache.bin", "/var/cache/ldconfig/aux-cache"}


def apt(*arguments):
    done("apt-get", "-y", "-q", "--no-install-recommends", *arguments, DEBIAN_FRONTEND="noninteractive")


def files():
    """Everything on the disk, with what tells a file from another."""
    found = {}
    for at, folders, names in os.walk("/"):
        folders[:] = [name for name in folders if os.path.join(at, name) not in ELSEWHERE]
        for path in (os.path.join(at, name) for name in folders + names):
            status = os.lstat(path)
            what = [stat.filemode(status.st_mode), status.st_uid, status.st_gid]
            if stat.S_ISLNK(status.st_mode):
                what.append(os.readlink(path))
            elif stat.S_ISREG(status.st_mode) and not path.startswith(REWRITTEN):
                what += [status.st_size, status.st_mtime_ns]
            found[path] = what
    return found


def users():
    return done("cat", "/etc/passwd", "/etc/group", "/etc/shadow", "/etc/gshadow", "/etc/subuid", "/etc/subgid")


def installed_versions():
    return set(done("dpkg-query", "-W", "-f", "${db:Status-Status} ${Version}\n", *PACKAGES).split("\n")) - {""}


class Life(unittest.TestCase):
    def assertServed(self):
        self.assertIn("user root (owner)", done("morvane", "--privileged", "acl", "/etc/shadow"))

    def assertGone(self):
        self.assertEqual(show(f"{UNIT}.socket", "LoadState"), "not-found")
        self.assertEqual(show(f"{UNIT}.service", "LoadState"), "not-found")
        self.assertFalse(os.path.exists(SOCKET))
        self.assertFalse([pid for pid in filter(str.isdigit, os.listdir("/proc")) if self.runs_helper(pid)])
        self.assertEqual([line for line in done("pkaction").split() if "morvane" in line], [])

    def put_there_by_hand(self, units, policies):
        """What morvane-install-helper does, as of a program that is in /usr/local."""
        os.mkdir(LEFT)
        for folder, files in (("/etc/systemd/system", units), ("/usr/share/polkit-1/actions", policies)):
            for path, text in files.items():
                name = os.path.basename(path)
                for place in (folder, LEFT):
                    with open(f"{place}/{name}", "w", encoding="utf-8") as f:
                        f.write(text.replace("/usr/libexec/", "/usr/local/libexec/"))
        done("systemctl", "daemon-reload")
        done("systemctl", "enable", "--now", f"{UNIT}.socket")

    def runs_helper(self, pid):
        try:
            return os.readlink(f"/proc/{pid}/exe").startswith(HELPER)
        except OSError:
            return False

    def test_installed_used_upgraded_removed_purged_and_nothing_left(self):
        self.step("before")
        before, users_before = files(), users()

        self.step("installed")
        apt("install", *glob.glob("/packages/*.deb"))
        self.assertEqual(len(installed_versions()), 1, installed_versions())
        outcome = run("/test/privileged", limit=4 * TIME_LIMIT, PYTHONDONTWRITEBYTECODE="yes")
        print(outcome.stdout, flush=True)
        self.assertEqual(outcome.returncode, 0, "the installed test")

        self.step("upgraded")
        self.assertServed()
        old, listening = show(f"{UNIT}.service", "MainPID"), show(f"{UNIT}.socket", "InvocationID")
        version = installed_versions()
        with socket.socket(socket.AF_UNIX) as connected:
            connected.connect(SOCKET)
            apt("install", *glob.glob("/packages/next/*.deb"))
            self.assertNotEqual(installed_versions(), version)
            wait_until(lambda: not os.path.exists(f"/proc/{old}"), "the old helper to leave")
            self.assertServed()
        self.assertEqual(show(f"{UNIT}.socket", "InvocationID"), listening, "somebody listened all the time")
        self.assertEqual(os.readlink(f"/proc/{show(f'{UNIT}.service', 'MainPID')}/exe"), HELPER)

        self.step("removed, and installed over what was put there by hand")
        units = {name: done("systemctl", "cat", name) for name in (f"{UNIT}.service", f"{UNIT}.socket")}
        policies = {path: done("cat", path) for path in glob.glob("/usr/share/polkit-1/actions/*morvane*")}
        shutil.copytree(os.path.dirname(HELPER), "/usr/local/libexec/morvaneoperation")
        apt("remove", *PACKAGES)
        self.assertGone()
        self.put_there_by_hand(units, policies)
        changed = "/usr/share/polkit-1/actions/io.github.morvaneoperation.policy"
        with open(changed, "a", encoding="utf-8") as f:
            f.write("<!-- by the administrator -->\n")
        with socket.socket(socket.AF_UNIX) as connected:
            connected.connect(SOCKET)
            wait_until(lambda: show(f"{UNIT}.service", "MainPID") != "0", "the helper that was put there by hand")
            old = show(f"{UNIT}.service", "MainPID")
            apt("install", *glob.glob("/packages/next/*.deb"))
            self.assertFalse(os.path.exists(f"/proc/{old}"), "the helper that was put there by hand has left")
        shutil.rmtree("/usr/local/libexec")  # which this has made
        self.assertTrue(done("cat", f"{changed}.dpkg-old").endswith("<!-- by the administrator -->\n"))
        self.assertServed()
        self.assertEqual(os.path.realpath(show(f"{UNIT}.socket", "FragmentPath")), f"/usr/lib/systemd/system/{UNIT}.socket")
        self.assertEqual(os.readlink(f"/proc/{show(f'{UNIT}.service', 'MainPID')}/exe"), HELPER)
        self.assertEqual(glob.glob(f"/etc/systemd/system/{UNIT}*"), [])
        self.assertFalse(os.path.exists(LEFT))

        self.step("switched off by the administrator, which an upgrade keeps")
        done("systemctl", "disable", "--now", f"{UNIT}.socket")
        apt("install", "--reinstall", *glob.glob("/packages/next/*services*.deb"))
        self.assertEqual(run("systemctl", "is-enabled", f"{UNIT}.socket").stdout, "disabled\n")

        self.step("purged")
        apt("purge", *PACKAGES)
        self.assertGone()
        after = files()
        self.assertEqual(sorted(set(after) - set(before) - MADE), [], "left behind")
        self.assertEqual(sorted(set(before) - set(after)), [], "taken away")
        self.assertEqual([path for path in before if path not in MADE and after[path] != before[path]], [], "changed")
        self.assertEqual(users(), users_before)
        self.assertEqual([name for name in os.listdir("/run") if "morvane" in name], [])
        self.assertNotIn("morvane", done("dpkg-query", "-W"))

    def step(self, text):
        print(f"-- {text}", flush=True)


if __name__ == "__main__":
    unittest.main(verbosity=2)
