# SPDX-License-Identifier: MIT
"""How the helper is installed at the first privileged request, on real parts.

usage: installation_test.py MORVANE HELPER POLICY-FILE POLICY-AGENT BARE-CLIENT SHIFTED-CLOCK
       BUILD-FOLDER LIBEXEC-FOLDER DATA-FOLDER [unittest arguments]

The last three are the helper's build folder and where the package is installed.
"""
import os
import shutil
import socket
import stat
import subprocess
import sys
import unittest

import rig as rigs
from privileged_case import PrivilegedCase
from rig import LABEL, SOCKET
from waiting import wait_until

MORVANE, HELPER, POLICY, AGENT, BARE_CLIENT, CLOCK, BUILD, LIBEXEC, DATA = map(os.path.abspath, sys.argv[1:10])
rigs.enter_namespaces()
INSTALL_POLICY = os.path.join(BUILD, f"{LABEL}.InstallHelper.policy")
RIG = rigs.Rig(HELPER, [POLICY, INSTALL_POLICY], AGENT, CLOCK)


def run(*arguments, agent=None):
    return RIG.start([MORVANE, "--privileged", *arguments], agent).finish()


class Installation(PrivilegedCase):
    """The helper is put into place by the real pkexec; the service manager is a stand-in that listens."""
    UNITS, ACTIONS = "/etc/systemd/system", "/usr/share/polkit-1/actions"
    UNITS_OF_PACKAGES = "/usr/lib/systemd/system"
    BEGUN = f"/run/{LABEL}.PrivilegedHelper.installing"

    def setUp(self):
        super().setUp()
        for folder in (self.UNITS, self.UNITS_OF_PACKAGES, "/var/lib", LIBEXEC, DATA):
            rigs.mount(folder)
            self.addCleanup(subprocess.run, ["umount", folder], check=True)
        os.makedirs("/run/systemd/system", exist_ok=True)
        shutil.copy(os.path.join(BUILD, "morvane-install-helper"), LIBEXEC)
        os.chmod(os.path.join(LIBEXEC, "morvane-install-helper"), 0o755)
        shutil.copy(shutil.which("true"), os.path.join(LIBEXEC, f"{LABEL}.PrivilegedHelper"))  # which is not run
        for folder in ("morvaneoperation", "polkit-1/actions"):
            os.makedirs(os.path.join(DATA, folder))
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../helpers/privileged_helper")
        shutil.copy(os.path.join(BUILD, f"{LABEL}.PrivilegedHelper.service"), DATA + "/morvaneoperation")
        shutil.copy(os.path.join(source, f"{LABEL}.PrivilegedHelper.socket"), DATA + "/morvaneoperation")
        shutil.copy(POLICY, DATA + "/polkit-1/actions")
        shutil.copy(INSTALL_POLICY, DATA + "/polkit-1/actions")
        os.rename(SOCKET, SOCKET + ".aside")
        self.addCleanup(lambda: os.path.exists(SOCKET) or os.rename(SOCKET + ".aside", SOCKET))
        self.addCleanup(lambda: os.path.exists(self.BEGUN) and os.unlink(self.BEGUN))
        self.manage(f'case $1 in enable) [ ! -e {SOCKET}.aside ] || mv {SOCKET}.aside {SOCKET};; esac')

    def manage(self, script):
        with open("/run/systemctl", "w", encoding="ascii") as f:
            f.write(f"#!/bin/sh\n{script}\n")
        os.chmod("/run/systemctl", 0o755)
        subprocess.run(["mount", "--bind", "/run/systemctl", shutil.which("systemctl")], check=True)
        self.addCleanup(subprocess.run, ["umount", shutil.which("systemctl")], check=True)

    def test_the_first_request_installs_the_helper_after_one_question(self):
        outcome = run("acl", "--json", self.file, agent="allow")
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertEqual([p.split(":")[0] for p in outcome.prompts],
                         [f"{LABEL}.GetFileAcl", f"{LABEL}.InstallHelper"])
        self.assertEqual(sorted(os.listdir(self.UNITS)),
                         [f"{LABEL}.PrivilegedHelper.service", f"{LABEL}.PrivilegedHelper.socket"])
        self.assertEqual([p.split(":")[0] for p in run("acl", self.file, agent="allow").prompts],
                         [f"{LABEL}.GetFileAcl"], "what is installed is not asked for again")

    def test_what_a_distributions_package_has_in_place_is_not_asked_about(self):
        os.rename(SOCKET + ".aside", SOCKET)
        shutil.rmtree(f"{DATA}/morvaneoperation")
        shutil.rmtree(f"{DATA}/polkit-1/actions")
        os.symlink(self.ACTIONS, f"{DATA}/polkit-1/actions")
        outcome = run("acl", "--json", self.file, agent="allow")
        self.assertEqual((outcome.code, [p.split(":")[0] for p in outcome.prompts]), (0, [f"{LABEL}.GetFileAcl"]),
                         outcome.message)
        self.assertEqual((os.listdir(self.UNITS), os.listdir("/var/lib")), ([], []))

    def test_beside_a_distributions_package_its_helper_serves_and_nothing_is_asked_about(self):
        os.rename(SOCKET + ".aside", SOCKET)
        with open(f"{self.UNITS_OF_PACKAGES}/{LABEL}.PrivilegedHelper.socket", "w", encoding="ascii") as f:
            f.write("[Socket]\n")
        outcome = run("acl", "--json", self.file, agent="allow")
        self.assertEqual((outcome.code, [p.split(":")[0] for p in outcome.prompts]), (0, [f"{LABEL}.GetFileAcl"]),
                         outcome.message)

    def test_a_refusal_installs_nothing(self):
        for answer, reason in (("deny", "denied"), ("cancel", "cancelled by the user")):
            with self.subTest(answer=answer):
                self.assertRefused(run("acl", self.file, agent=f"{LABEL}.InstallHelper={answer},allow"),
                                   f"The authorization was {reason}.")
                self.assertEqual(os.listdir(self.UNITS), [])

    def test_a_service_manager_that_refuses_is_told(self):
        self.manage("exit 1")
        outcome = run("acl", self.file, agent="allow")
        self.assertEqual((outcome.code, outcome.output), (1, ""))
        self.assertIn("The service necessary to perform this operation is unavailable", outcome.message)

    def test_each_failure_is_told_by_its_code(self):
        for does, text in (("exit 0", "The system cannot find the specified job."),
                           ("kill -9 $PPID", "An internal failure has occurred.")):
            with self.subTest(does=does):
                self.manage(does)
                self.assertRefused(run("acl", self.file, agent="allow"), f"Privileged job install error: {text}")

    def test_where_its_own_right_is_not_defined_the_elevation_asks(self):
        os.unlink(f"{self.ACTIONS}/{LABEL}.InstallHelper.policy")
        self.addCleanup(wait_until, lambda: self.is_defined(f"{LABEL}.InstallHelper"), "the action")
        self.addCleanup(shutil.copy, INSTALL_POLICY, self.ACTIONS)
        elevation = "org.freedesktop.policykit.exec"
        with open(f"{self.ACTIONS}/elevation.policy", "w", encoding="ascii") as f:
            f.write(f'<policyconfig><action id="{elevation}"><description>d</description><message>m</message>'
                    "<defaults><allow_any>auth_admin</allow_any></defaults></action></policyconfig>")
        self.addCleanup(os.unlink, f.name)
        wait_until(lambda: self.is_defined(elevation) and not self.is_defined(f"{LABEL}.InstallHelper"),
                   "the actions")
        for answer, text in (("deny", "The requested authorization failed."),
                             ("cancel", "The user denied the application's launch request.")):
            with self.subTest(answer=answer):
                outcome = run("acl", self.file, agent=f"{elevation}={answer},allow")
                self.assertRefused(outcome, f"Privileged job install error: {text}")
                self.assertEqual([p.split(":")[0] for p in outcome.prompts], [f"{LABEL}.GetFileAcl", elevation])

    def is_defined(self, action):
        return subprocess.run(["pkaction", "--action-id", action], capture_output=True).returncode == 0

    def test_an_installation_that_was_not_finished_is_done_again(self):
        os.rename(SOCKET + ".aside", SOCKET)  # that of an earlier version
        self.manage("exit 1")
        self.assertRefused(run("acl", self.file, agent="allow"), "is unavailable")
        self.manage("echo $1 >>/run/managed")
        self.addCleanup(os.unlink, "/run/managed")
        outcome = run("acl", self.file, agent="allow")
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertIn(f"{LABEL}.InstallHelper", [p.split(":")[0] for p in outcome.prompts])
        with open("/run/managed", encoding="ascii") as f:
            self.assertEqual(f.read().split(), ["daemon-reload", "enable"])
        self.assertNotIn(f"{LABEL}.InstallHelper",
                         [p.split(":")[0] for p in run("acl", self.file, agent="allow").prompts])

    def test_root_defines_the_rights_with_the_packages_own_file(self):
        os.unlink(f"{self.ACTIONS}/{LABEL}.policy")
        wait_until(lambda: not self.is_defined(f"{LABEL}.GetFileAcl"), "the rights to be forgotten")
        self.addCleanup(wait_until, lambda: self.is_defined(f"{LABEL}.GetFileAcl"), "the rights")
        outcome = subprocess.run([MORVANE, "--privileged", "acl", self.file], stdin=subprocess.DEVNULL,
                                 capture_output=True, text=True)
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        self.assertEqual(sorted(os.listdir(self.ACTIONS)), [f"{LABEL}.InstallHelper.policy", f"{LABEL}.policy"])

    def test_who_may_not_define_the_rights_is_told_by_whom_and_how(self):
        os.unlink(f"{self.ACTIONS}/{LABEL}.policy")
        self.addCleanup(wait_until, lambda: self.is_defined(f"{LABEL}.GetFileAcl"), "the rights")
        self.addCleanup(shutil.copy, POLICY, self.ACTIONS)
        wait_until(lambda: not self.is_defined(f"{LABEL}.GetFileAcl"), "the rights to be forgotten")
        self.assertRefused(run("acl", self.file, agent="allow"),
                           f"Run '{LIBEXEC}/morvane-install-helper' as root; it lets polkit know them from "
                           f"'{DATA}/polkit-1/actions/{LABEL}.policy'.")

    def test_a_masked_unit_is_told_without_a_question(self):
        for folder in (self.UNITS, "/run/systemd/system"):
            for kind in ("service", "socket"):
                with self.subTest(folder=folder, kind=kind):
                    unit = f"{folder}/{LABEL}.PrivilegedHelper.{kind}"
                    os.symlink("/dev/null", unit)
                    try:
                        outcome = run("acl", self.file, agent="allow")
                    finally:
                        os.unlink(unit)
                    self.assertRefused(outcome, "Privileged job install error: The specified job is not enabled.")
                    self.assertNotIn(f"{LABEL}.InstallHelper", [p.split(":")[0] for p in outcome.prompts])

    def test_a_socket_behind_which_nobody_listens_is_installed_again(self):
        run("acl", self.file, agent="allow")
        RIG.stop_helper()
        with socket.socket(socket.AF_UNIX) as dead:
            dead.bind(SOCKET)
        asked = "/run/asked"
        self.manage(f"case $1 in restart) touch {asked}; while [ -e {asked} ]; do sleep 0.05; done;; esac")
        program = RIG.start([MORVANE, "--privileged", "acl", self.file], "allow")
        try:
            wait_until(lambda: os.path.exists(asked) or program.process.poll() is not None, "the restart")
            restarted = os.path.exists(asked)
        finally:
            os.unlink(SOCKET)
            RIG.start_helper()
        self.assertTrue(restarted)
        os.unlink(asked)
        outcome = program.finish()
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertIn(f"{LABEL}.InstallHelper", [p.split(":")[0] for p in outcome.prompts])

    def test_what_an_administrator_has_changed_is_kept_said_once_and_not_asked_about_again(self):
        run("acl", self.file, agent="allow")
        unit = f"{self.UNITS}/{LABEL}.PrivilegedHelper.service"
        with open(unit, "a", encoding="ascii") as f:
            f.write("# by hand\n")
        with open(f"{DATA}/morvaneoperation/{LABEL}.PrivilegedHelper.service", "a", encoding="ascii") as f:
            f.write("# newer\n")
        outcome = run("acl", self.file, agent="allow")
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertIn(f"{unit} was changed by hand and stays so", outcome.message)
        outcome = run("acl", self.file, agent="allow")
        self.assertEqual((outcome.message, [p.split(":")[0] for p in outcome.prompts]), ("", [f"{LABEL}.GetFileAcl"]))

    def test_a_file_that_others_can_change_is_mended(self):
        run("acl", self.file, agent="allow")
        unit = f"{self.UNITS}/{LABEL}.PrivilegedHelper.service"
        os.chmod(unit, 0o666)
        self.assertEqual(run("acl", self.file, agent="allow").code, 0)
        self.assertEqual(stat.S_IMODE(os.stat(unit).st_mode), 0o644)

    def test_an_application_that_ignores_its_children_has_it_installed(self):
        outcome = RIG.start(["env", "--ignore-signal=CHLD", MORVANE, "--privileged", "acl", self.file],
                            "allow").finish()
        self.assertEqual(outcome.code, 0, outcome.message)

    def test_an_application_that_ignores_its_children_is_told_what_could_not_be_installed(self):
        self.manage("exit 1")
        outcome = RIG.start(["env", "--ignore-signal=CHLD", MORVANE, "--privileged", "acl", self.file],
                            "allow").finish()
        self.assertEqual((outcome.code, outcome.output), (1, ""))

    def test_a_package_without_its_unit_is_told(self):
        os.unlink(f"{DATA}/morvaneoperation/{LABEL}.PrivilegedHelper.service")
        outcome = run("acl", self.file, agent="allow")
        self.assertEqual((outcome.code, outcome.output), (1, ""), outcome.message)
        self.assertIn("the helper tool at the specified path is not valid", outcome.message)
        self.assertEqual(os.listdir(self.UNITS), [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[10:])
