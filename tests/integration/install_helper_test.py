# SPDX-License-Identifier: MIT
"""The program that puts the privileged helper's files into place, with folders of its own in the places of
the system's, and with a service manager that only notes what it is told.

usage: install_helper_test.py BUILD-FOLDER SOURCE-FOLDER LIBEXEC-FOLDER DATA-FOLDER [unittest arguments]

The first two are those of the helper, the others are where the package has its files.
"""
import concurrent.futures
import fcntl
import os
import shutil
import socket
import stat
import subprocess
import sys
import time
import unittest
import xml.etree.ElementTree

if os.environ.get("MORVANE_RIG") != "inside":
    os.environ["MORVANE_RIG"] = "inside"
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable, *sys.argv])

BUILD, SOURCE, LIBEXEC, PACKAGE = map(os.path.abspath, sys.argv[1:5])
INSTALLER = os.path.join(BUILD, "morvane-install-helper")
LABEL = "io.github.morvaneoperation"
UNITS, ACTIONS = "/etc/systemd/system", "/usr/share/polkit-1/actions"
PACKAGED = {f"{PACKAGE}/morvaneoperation/{LABEL}.PrivilegedHelper.service": (BUILD, UNITS),
            f"{PACKAGE}/morvaneoperation/{LABEL}.PrivilegedHelper.socket": (SOURCE, UNITS),
            f"{PACKAGE}/polkit-1/actions/{LABEL}.policy": (SOURCE, ACTIONS),
            f"{PACKAGE}/polkit-1/actions/{LABEL}.InstallHelper.policy": (BUILD, ACTIONS)}
UNITS_OF_PACKAGES = "/usr/lib/systemd/system"
HELPER = f"{LIBEXEC}/{LABEL}.PrivilegedHelper"
LEFT = f"/var/lib/{LABEL}.PrivilegedHelper"
SOCKET = f"/run/{LABEL}.PrivilegedHelper.sock"
TOLD = "/run/told"
BEGUN = f"/run/{LABEL}.PrivilegedHelper.installing"
SYSTEMCTL = f'#!/bin/sh\necho "$*" >>{TOLD}\n[ ! -e /run/refuse ]\n'


def mount(folder):
    os.makedirs(folder, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", folder], check=True)


class Installer(unittest.TestCase):
    def setUp(self):
        for folder in ("/run", "/var/lib", UNITS, ACTIONS, LIBEXEC, PACKAGE):
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
        shutil.copy(shutil.which("true"), HELPER)  # which is never run here
        self.listen()

    def listen(self):
        """Has somebody listen, as the service manager does."""
        self.listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(self.listener.close)
        self.listener.bind(SOCKET)
        self.listener.listen()

    def run_installer(self, *arguments, tracer=(), **environment):
        environment["PATH"] = "/run/bin:/usr/sbin:/usr/bin:/sbin:/bin"
        return subprocess.run([*tracer, "sh", INSTALLER, *arguments], env=environment, timeout=60,
                              capture_output=True, text=True)

    def install(self, *tracer):
        return self.run_installer(tracer=tracer)

    def upgrade(self):
        """Has a newer package."""
        for packaged in PACKAGED:
            with open(packaged, "a", encoding="ascii") as f:
                f.write("# newer\n")

    def add_package(self):
        """Has a distribution's package with units of its own."""
        mount(UNITS_OF_PACKAGES)
        self.addCleanup(subprocess.run, ["umount", UNITS_OF_PACKAGES], check=True)
        with open(f"{UNITS_OF_PACKAGES}/{LABEL}.PrivilegedHelper.socket", "w", encoding="ascii") as f:
            f.write("[Socket]\n")

    def change(self, path):
        with open(path, "a", encoding="ascii") as f:
            f.write("# by hand\n")

    def assertRefused(self, outcome, status, text):
        self.assertEqual(outcome.returncode, status, outcome.stderr)
        self.assertIn(text, outcome.stderr)
        self.assertEqual((self.told(), os.path.exists(BEGUN)), ([], False))

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
        self.assertEqual(self.told(), ["daemon-reload", f"enable {LABEL}.PrivilegedHelper.socket"])

    def test_where_nobody_listens_the_service_manager_forgets_that_it_gave_up_and_begins_anew(self):
        unit = f"{LABEL}.PrivilegedHelper"
        for case, does in (("a file behind which nobody listens", self.listener.close),
                           ("no file", lambda: os.unlink(SOCKET)),
                           ("a listener whose file has gone", lambda: (self.listen(), os.unlink(SOCKET)))):
            with self.subTest(case=case):
                does()
                self.assertEqual(self.install().returncode, 0)
                self.assertEqual(self.told()[-2:],
                                 [f"reset-failed {unit}.socket {unit}.service", f"restart {unit}.socket"])
                os.unlink(TOLD)

    def test_a_file_that_is_in_place_is_not_touched(self):
        self.install()
        before = {path: os.stat(path).st_ino for path in self.installed().values()}
        self.assertEqual(self.install().returncode, 0)
        self.assertEqual({path: os.stat(path).st_ino for path in self.installed().values()}, before)

    def test_an_older_file_is_replaced(self):
        self.install()
        self.upgrade()
        self.assertEqual(self.install().returncode, 0)
        self.assertAllInPlace()

    def test_a_file_that_was_changed_by_hand_stays_and_is_named(self):
        self.install()
        for path in self.installed().values():
            self.change(path)
        changed = {path: self.content(path) for path in self.installed().values()}
        for case, mode in (("the same package", 0o644), ("a newer one", 0o600), ("the newer one again", 0o640)):
            with self.subTest(case=case):
                for path in self.installed().values():
                    os.chmod(path, mode)
                outcome = self.install()
                self.assertEqual(outcome.returncode, 0)
                self.assertEqual({path: self.content(path) for path in changed}, changed)
                for packaged, path in self.installed().items():
                    self.assertIn(f"{path} was changed by hand and stays so; the package's is {packaged}",
                                  outcome.stderr)
            if case == "the same package":
                self.upgrade()

    def test_a_masked_unit_stays_masked_and_is_named(self):
        masks = {"a link": lambda unit: os.symlink("/dev/null", unit),
                 "an empty file": lambda unit: open(unit, "w", encoding="ascii").close()}
        for folder in (UNITS, "/run/systemd/system"):
            for kind in ("service", "socket"):
                for case, mask in masks.items():
                    with self.subTest(folder=folder, kind=kind, mask=case):
                        unit = f"{folder}/{LABEL}.PrivilegedHelper.{kind}"
                        mask(unit)
                        self.assertRefused(self.install(), 9, f"{unit} is masked")
                        self.assertEqual((os.stat(unit).st_size, len(os.listdir(UNITS)), os.listdir(ACTIONS)),
                                         (0, int(folder == UNITS), []))
                        os.unlink(unit)

    def test_wrong_owners_and_modes_are_mended(self):
        self.install()
        mend = {"an owner": lambda path: os.chown(path, 65534, 0), "a group": lambda path: os.chown(path, 0, 65534),
                "a mode": lambda path: os.chmod(path, 0o666), "one that nobody reads": lambda path: os.chmod(path, 0),
                "another's content": lambda path: (self.change(path), os.chown(path, 65534, 65534)),
                "a link": lambda path: (os.rename(path, path + "~"), os.symlink(path + "~", path))}
        for case, spoil in mend.items():
            with self.subTest(case=case):
                for path in self.installed().values():
                    spoil(path)
                self.assertEqual(self.install().returncode, 0)
                for folder in (UNITS, ACTIONS):
                    for name in os.listdir(folder):
                        if name.endswith("~"):
                            os.unlink(os.path.join(folder, name))
                self.assertAllInPlace()

    def test_a_folder_in_the_way_is_an_error(self):
        for path in self.installed().values():
            with self.subTest(path=path):
                if os.path.exists(path):
                    os.unlink(path)
                os.mkdir(path)
                outcome = self.install()
                self.assertEqual((outcome.returncode, os.listdir(path)), (2, []))
                self.assertIn(f"{path} is a folder; take it away", outcome.stderr)
                os.rmdir(path)

    def test_what_others_than_root_can_change_is_refused(self):
        ways = {"writable by others": lambda path: os.chmod(path, os.stat(path).st_mode | 0o002),
                "writable by a group": lambda path: os.chmod(path, os.stat(path).st_mode | 0o020),
                "another's": lambda path: os.chown(path, 65534, 0)}
        for packaged in (*PACKAGED, HELPER):
            for path in (packaged, os.path.dirname(packaged)):
                for case, spoil in ways.items():
                    with self.subTest(path=path, case=case):
                        before = os.stat(path)
                        spoil(path)
                        outcome = self.install()
                        self.assertRefused(outcome, 3, " is refused, because others than root can change it, or a folder")
                        self.assertIn(f" {os.path.basename(path)}\n", outcome.stderr)
                        self.assertEqual(os.listdir(UNITS) + os.listdir(ACTIONS), [])
                        os.chown(path, 0, 0)
                        os.chmod(path, before.st_mode)
        self.assertEqual(self.install().returncode, 0)

    def test_a_link_on_the_way_counts_with_all_that_it_leads_through(self):
        packaged = f"{PACKAGE}/morvaneoperation"
        os.makedirs("/run/roots/of another")
        shutil.move(packaged, "/run/roots/package")
        os.symlink("/run/roots/package", "/run/roots/of another/link")
        os.symlink("/run/roots/of another/link", packaged)
        os.chown("/run/roots/of another", 65534, 0)
        self.assertRefused(self.install(), 3, "is refused, because others than root can")
        os.chown("/run/roots/of another", 0, 0)
        self.assertEqual(self.install().returncode, 0)

    def test_the_helpers_libraries_are_roots_too(self):
        os.mkdir("/run/libraries")
        listed = subprocess.run(["ldd", shutil.which("ls")], stdout=subprocess.PIPE, text=True, check=True).stdout
        library = next(word for word in listed.split() if "selinux" in word and word.startswith("/"))
        shutil.copy(library, "/run/libraries")
        with open("/etc/ld.so.cache", "rb"), open("/run/ldd", "w", encoding="ascii") as f:
            f.write(f'#!/bin/sh\nLD_LIBRARY_PATH=/run/libraries exec {shutil.which("ldd")} "$@"\n')
        os.chmod("/run/ldd", 0o755)
        os.rename("/run/ldd", "/run/bin/ldd")
        shutil.copy(shutil.which("ls"), HELPER)
        self.assertEqual(self.install().returncode, 0)
        os.unlink(TOLD)
        os.chmod("/run/libraries", 0o777)
        self.assertRefused(self.install(), 3,
                           f"/run/libraries/{os.path.basename(library)} is refused, because others than root can")

    def test_it_takes_everything_away_again(self):
        self.install()
        os.unlink(TOLD)
        os.mkdir(f"/run/{LABEL}.PrivilegedHelper")
        self.assertEqual(self.run_installer("--uninstall").returncode, 0)
        unit = f"{LABEL}.PrivilegedHelper"
        self.assertEqual(self.told(), [f"disable --now {unit}.socket {unit}.service", "daemon-reload"])
        for path in (*self.installed().values(), LEFT, BEGUN, f"/run/{unit}"):
            self.assertFalse(os.path.exists(path), path)

    def test_what_was_changed_by_hand_is_not_taken_away(self):
        self.install()
        policy = f"{ACTIONS}/{LABEL}.policy"
        self.change(policy)
        outcome = self.run_installer("--uninstall")
        self.assertEqual((outcome.returncode, os.listdir(UNITS) + os.listdir(ACTIONS)), (0, [f"{LABEL}.policy"]))
        self.assertIn(f"{policy} was changed by hand and stays", outcome.stderr)

    def test_beside_a_distributions_package_nothing_is_put_anywhere(self):
        self.add_package()
        self.assertEqual(self.install().returncode, 0)
        self.assertEqual((os.listdir(UNITS) + os.listdir(ACTIONS), os.path.exists(LEFT)), ([], False))
        self.assertEqual(self.told(), ["daemon-reload", f"enable {LABEL}.PrivilegedHelper.socket"])

    def test_what_a_distributions_package_has_put_there_since_is_not_taken_away(self):
        self.install()
        os.unlink(TOLD)
        self.add_package()
        for unit in os.listdir(UNITS):  # as the package does
            os.unlink(f"{UNITS}/{unit}")
        os.mkdir(f"/run/{LABEL}.PrivilegedHelper")
        policy = f"{ACTIONS}/{LABEL}.policy"
        with open("/run/bin/dpkg-query", "w", encoding="ascii") as f:
            f.write(f'#!/bin/sh\n[ "$1 $2" = "--search {policy}" ]\n')
        os.chmod("/run/bin/dpkg-query", 0o755)
        outcome = self.run_installer("--uninstall")
        self.assertEqual((outcome.returncode, os.listdir(UNITS) + os.listdir(ACTIONS)), (0, [f"{LABEL}.policy"]))
        self.assertEqual(self.told(), ["daemon-reload"], "nothing is switched off")
        self.assertTrue(os.path.exists(f"/run/{LABEL}.PrivilegedHelper"), "the ages of grants are the package's helper's")

    def test_the_right_to_install_takes_nothing_away(self):
        self.install()
        os.unlink(TOLD)
        self.assertRefused(self.run_installer("--uninstall", PKEXEC_UID="1000"), 2,
                           "only root itself takes the helper away")
        self.assertRefused(self.run_installer("--remove"), 2, "'--remove' is not understood")
        self.assertAllInPlace()

    def configure(self, prefix, made, *more):
        return subprocess.run(["cmake", f"-DCMAKE_INSTALL_FULL_LIBEXECDIR={prefix}/libexec",
                               f"-DCMAKE_INSTALL_FULL_DATADIR={prefix}/share", f"-DTO={made}", *more,
                               "-P", f"{SOURCE}/ConfigureFiles.cmake"], capture_output=True, text=True)

    def test_what_a_distributions_package_has_in_place_is_copied_nowhere(self):
        units = "/run/units"
        os.mkdir(units)
        made = "/run/made"
        os.makedirs(made)
        self.configure("/run/distribution", made, f"-DMORVANE_UNIT_DIR={units}")
        packaged = {name: f"/run/distribution/{name}" for name in ("libexec/morvaneoperation", "share/polkit-1")}
        for folder in packaged.values():
            os.makedirs(folder)
        shutil.copy(HELPER, packaged["libexec/morvaneoperation"])
        os.symlink(ACTIONS, f"{packaged['share/polkit-1']}/actions")
        for path, (_, folder) in PACKAGED.items():
            shutil.copy(path, units if folder == UNITS else ACTIONS)
        outcome = subprocess.run(["sh", f"{made}/morvane-install-helper"], capture_output=True, text=True,
                                 env={"PATH": "/run/bin:/usr/sbin:/usr/bin:/sbin:/bin"})
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))
        self.assertEqual((os.listdir(UNITS), os.path.exists(LEFT), os.path.exists(BEGUN)), ([], False, False))
        self.assertEqual(self.told(), ["daemon-reload", f"enable {LABEL}.PrivilegedHelper.socket"])
        os.symlink("/dev/null", f"{UNITS}/{LABEL}.PrivilegedHelper.service")
        outcome = subprocess.run(["sh", f"{made}/morvane-install-helper"], capture_output=True, text=True,
                                 env={"PATH": "/run/bin:/usr/sbin:/usr/bin:/sbin:/bin"})
        self.assertEqual(outcome.returncode, 9, "a mask is kept")

    def test_a_path_that_the_service_manager_cannot_take_is_told_when_it_is_built(self):
        for sign in "\"'\\":
            self.assertIn("runs nothing with a quotation mark or a backslash in its path",
                          " ".join(self.configure(f"/run/a{sign}b", "/run/made").stderr.split()))

    def test_paths_are_quoted_as_each_reader_wants_it(self):
        prefix, made = "/run/one two 50%n $HOME <&>", "/run/made"
        os.makedirs(made)
        self.assertEqual(self.configure(prefix, made).returncode, 0)
        folder = f"{prefix}/libexec/morvaneoperation"
        os.makedirs(f"{prefix}/share")
        os.makedirs(folder)
        with open(f"{folder}/{LABEL}.PrivilegedHelper", "w", encoding="ascii"):
            pass
        outcome = subprocess.run(["sh", f"{made}/morvane-install-helper"], capture_output=True, text=True,
                                 env={"PATH": "/run/bin:/usr/sbin:/usr/bin:/sbin:/bin"})
        self.assertEqual(outcome.returncode, 5)
        self.assertEqual(outcome.stderr, f"morvane-install-helper: {prefix}/share/polkit-1/actions/{LABEL}.policy "
                                         "is missing; install MorvaneOperation again\n")
        policy = xml.etree.ElementTree.parse(f"{made}/{LABEL}.InstallHelper.policy")
        self.assertEqual(policy.find(".//annotate").text, f"{folder}/morvane-install-helper")
        os.rename(f"{made}/{LABEL}.PrivilegedHelper.service", "/run/helper.service")
        with open("/run/helper.service", encoding="ascii") as f:
            unit = f.read().replace(f"Requires={LABEL}.PrivilegedHelper.socket\n", "")
        with open("/run/helper.service", "w", encoding="ascii") as f:
            f.write(unit)
        verify = ["systemd-analyze", "verify", "--man=no", "/run/helper.service"]
        program = f"{folder}/{LABEL}.PrivilegedHelper"
        self.assertIn(f"{program} is not executable", subprocess.run(verify, capture_output=True, text=True).stderr)
        os.chmod(program, 0o755)
        verified = subprocess.run(verify, capture_output=True, text=True)
        self.assertEqual((verified.returncode, verified.stderr), (0, ""))

    def test_a_package_that_is_not_whole_is_told_by_its_code(self):
        for packaged in (*PACKAGED, HELPER):
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

    def test_a_third_does_not_meet_one_that_has_waited_for_the_first(self):
        with open(BEGUN, "w", encoding="ascii") as first, concurrent.futures.ThreadPoolExecutor() as pool:
            fcntl.flock(first, fcntl.LOCK_EX)
            second = pool.submit(self.install)
            while not self.is_waited_for(BEGUN) and not second.done():
                time.sleep(0.02)
            os.unlink(BEGUN)  # as the first does at its end
            with open(BEGUN, "w", encoding="ascii") as third:
                fcntl.flock(third, fcntl.LOCK_EX)
                fcntl.flock(first, fcntl.LOCK_UN)
                while not self.is_waited_for(BEGUN) and not second.done():
                    time.sleep(0.02)
                self.assertEqual((second.done(), self.told()), (False, []))
            self.assertEqual(second.result().returncode, 0)
        self.assertAllInPlace()

    def test_a_folder_that_cannot_be_written_is_an_internal_failure(self):
        subprocess.run(["mount", "-o", "remount,ro", UNITS], check=True)
        self.assertEqual(self.install().returncode, 2)

    def test_a_kill_leaves_each_file_old_or_new(self):
        self.install()
        left = [os.path.join(LEFT, name) for name in os.listdir(LEFT)]
        old = {path: self.content(path) for path in (*self.installed().values(), *left)}
        self.upgrade()
        kills = 0
        for call in ("openat", "write", "rename", "renameat2", "execve"):
            for number in range(1, 600):
                result = self.install("strace", "-f", "-qq", "-o", "/dev/null", "-e", f"trace={call}",
                                      "-e", f"inject={call}:signal=KILL:when={number}")
                changed = False
                for packaged, path in self.installed().items():
                    self.assertIn(self.content(path), (old[path], self.content(packaged)))
                    changed = changed or self.content(path) != old[path]
                for path, content in old.items():
                    with open(path, "wb") as f:
                        f.write(content)
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
        self.assertEqual(len(os.listdir(LEFT)), 4, "nothing else is left")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:])
