#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The privileged road on a real system, where systemd is process 1: as root in a machine of its own, which `machine`
boots. The library is installed there below /usr/local, nothing of the helper is in its place yet."""
import os
import shutil
import socket
import stat
import subprocess
import sys
import unittest

sys.path.insert(0, "/test")
from guest import SOCKET, UNIT, done, run, show
from waiting import wait_until
from terminal import TIME_LIMIT, on_terminal

LABEL = "io.github.morvaneoperation"
LIBEXEC = "/usr/local/libexec/morvaneoperation"
HELPER = f"{LIBEXEC}/{UNIT}"
INSTALLER = f"{LIBEXEC}/morvane-install-helper"
ACTIONS = "/usr/share/polkit-1/actions"
SECRET = "/srv/secret"
ACL = ["morvane", "--privileged", "acl", f"{SECRET}/file"]
LIST = "user root (owner)"


def our_files():
    return sorted(name for folder in (ACTIONS, "/etc/systemd/system") for name in os.listdir(folder)
                  if name.startswith(LABEL))


class Case(unittest.TestCase):
    def setUp(self):
        os.makedirs(f"{SECRET}/below", exist_ok=True)
        self.addCleanup(shutil.rmtree, SECRET)
        os.chmod(SECRET, 0o700)
        for path in (f"{SECRET}/file", f"{SECRET}/below/file"):
            with open(path, "w", encoding="ascii") as f:
                f.write("x" * 5000)

    def assertRead(self, outcome):
        self.assertEqual(outcome.returncode, 0, outcome.stdout)
        self.assertIn(LIST, outcome.stdout)

    def assertAllRequests(self, does):
        """`does` runs a command, and returns its status and what it has printed."""
        item, lists = f"{SECRET}/file", []
        for arguments, text in ((["acl", item], LIST),
                                (["acl", item, "--edit", "add user:daemon; permissions read"], ""),
                                (["access", item, "--user", "daemon"], "Read"),
                                (["acl", SECRET, "--propagate"], ""),
                                (["size", SECRET], "10"),
                                (["ls", SECRET], "below"),
                                (["rename", item, "other"], "")):
            with self.subTest(request=arguments):
                code, output = does(["morvane", "--privileged", *arguments])
                lists.append(done("getfacl", "--absolute-names", "--recursive", SECRET))
                self.assertEqual(code, 0, output)
                self.assertIn(text, output)
        self.assertIn("user:daemon:", lists[1], "the edit")
        self.assertNotIn("user:daemon:", lists[3], "the propagation of a list that has nobody of that name")
        self.assertIn(f"{SECRET}/other\n", lists[-1], "the renaming")


def as_alice_on_a_terminal(command, password="adele"):
    return on_terminal(["runuser", "-l", "alice", "--session-command", 'exec "$0" "$@"', "--", *command], password)


class A_FirstRun(Case):
    """Runs first: nothing is installed yet."""

    def test_1_without_rights_it_names_the_installer_and_the_policy(self):
        outcome = as_alice_on_a_terminal(ACL)
        self.assertEqual((outcome.code, outcome.questions), (1, 0), outcome.text)
        self.assertIn(f"Run '{INSTALLER}' as root; it lets polkit know them from "
                      f"'/usr/local/share/polkit-1/actions/{LABEL}.policy'.", outcome.text)

    def test_2_roots_first_run_defines_the_rights_in_one_file_and_installs_the_helper(self):
        self.assertRead(run(*ACL))
        self.assertEqual(our_files(), [f"{LABEL}.InstallHelper.policy", f"{UNIT}.service", f"{UNIT}.socket",
                                       f"{LABEL}.policy"])


class Installed(Case):
    @classmethod
    def setUpClass(cls):
        done(INSTALLER)


class Places(Installed):
    def test_a_service_of_roots(self):
        self.assertAllRequests(lambda c: (lambda o: (o.returncode, o.stdout))(run(*c)))

    def test_a_login_session_of_roots(self):
        def does(command):
            outcome = on_terminal(["runuser", "-l", "root", "--session-command", 'exec "$0" "$@"', "--", *command])
            return outcome.code, outcome.text
        self.assertAllRequests(does)

    def test_a_terminal_in_a_login_session(self):
        def does(command):
            outcome = as_alice_on_a_terminal(command)
            self.assertEqual(outcome.questions, 1, outcome.text)
            return outcome.code, outcome.text
        done("chmod", "711", SECRET)  # the host looks for links on the way itself
        self.assertAllRequests(does)

    def test_a_terminal_outside_of_any_session(self):
        outcome = on_terminal(["setpriv", "--reuid=alice", "--regid=alice", "--init-groups", *ACL], "adele")
        self.assertEqual((outcome.code, outcome.questions), (0, 1), outcome.text)
        self.assertIn(LIST, outcome.text)

    def test_a_shell_of_another_session_on_a_terminal_of_its_own(self):
        outcome = on_terminal(["su", "--pty", "-l", "alice", "-c", " ".join(ACL)], "adele")
        self.assertEqual((outcome.code, outcome.questions), (0, 1), outcome.text)

    def test_the_terminal_of_another_session(self):
        outcome = on_terminal(["su", "-l", "alice", "-c", " ".join(ACL)], "adele")
        self.assertEqual((outcome.code, outcome.questions), (0, 1), outcome.text)
        self.assertIn(LIST, outcome.text)

    def test_a_service_of_a_users_needs_a_rule(self):
        service = ["systemd-run", "--quiet", "--collect", "--wait", "--pipe", "-p", "User=alice"]
        outcome = run(*service, *ACL)
        self.assertEqual(outcome.returncode, 1, outcome.stdout)
        self.assertIn("There is no agent to ask the user with.", outcome.stdout)
        rule = "/etc/polkit-1/rules.d/10-test.rules"
        with open(rule, "w", encoding="ascii") as f:
            f.write('polkit.addRule(function(action, subject) { if (action.id.indexOf("%s") == 0 && '
                    'subject.user == "alice") return polkit.Result.YES; });\n' % LABEL)
        self.addCleanup(os.unlink, rule)
        wait_until(lambda: run(*service, *ACL).returncode == 0, "the rule")
        self.assertAllRequests(lambda c: (lambda o: (o.returncode, o.stdout))(run(*service, *c)))

    def test_a_wrong_password_is_refused_without_advice_about_folders(self):
        outcome = as_alice_on_a_terminal(ACL, "wrong")
        self.assertEqual(outcome.code, 1, outcome.text)
        self.assertIn("An administrator's password is needed", outcome.text)
        self.assertNotIn("enter every folder", outcome.text)


class Sandbox(Installed):
    def test_what_it_answers_is_what_there_is(self):
        for path in ("/usr/lib/modules", "/dev/null", "/dev/vda", "/dev/kmsg", "/dev/mem", "/proc/kmsg", "/proc/kcore",
                     "/proc/kallsyms", "/proc/sys/kernel/hostname", "/sys/fs/cgroup", "/home/alice", "/boot", "/tmp"):
            with self.subTest(path=path):
                self.assertEqual(done("morvane", "--privileged", "acl", path), done("morvane", "acl", path))
        for command, path in (("size", "/usr"), ("size", "/dev"), ("ls", "/dev"), ("ls", "/usr/lib/modules")):
            with self.subTest(command=command, path=path):
                self.assertEqual(done("morvane", "--privileged", command, path), done("morvane", command, path))

    def test_no_setting_shows_it_other_files_than_there_are(self):
        for setting in ("PrivateDevices", "PrivateMounts", "PrivateNetwork", "PrivateTmp", "PrivateUsers", "ProtectHome",
                        "ProtectKernelLogs", "ProtectKernelModules", "ProtectKernelTunables", "ProtectSystem"):
            with self.subTest(setting=setting):
                self.assertEqual(show(f"{UNIT}.service", setting), "no")
        for setting in ("RootDirectory", "RootImage", "InaccessiblePaths", "TemporaryFileSystem", "BindPaths",
                        "NetworkNamespacePath"):
            with self.subTest(setting=setting):
                self.assertEqual(show(f"{UNIT}.service", setting), "")
        self.assertEqual([show(f"{UNIT}.service", setting) for setting in ("ProtectProc", "ProcSubset")],
                         ["default", "all"])

    def test_it_has_five_capabilities_and_opens_no_device(self):
        self.assertRead(run(*ACL))
        pid = show(f"{UNIT}.service", "MainPID")
        with open(f"/proc/{pid}/status", encoding="ascii") as f:
            self.assertIn("CapBnd:\t000000000000001f\n", f.read())
        self.assertEqual(show(f"{UNIT}.service", "DevicePolicy"), "closed")


class Recovery(Installed):
    def take_helper_away(self):
        run("systemctl", "stop", f"{UNIT}.service")
        os.rename(HELPER, "/root/helper")

    def bring_helper_back(self):
        if os.path.exists("/root/helper"):
            os.rename("/root/helper", HELPER)

    def test_a_request_during_an_upgrade_waits_for_the_program(self):
        self.take_helper_away()
        self.addCleanup(self.bring_helper_back)
        with subprocess.Popen(ACL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as waiting:
            wait_until(lambda: show(f"{UNIT}.service", "Result") == "exit-code", "the failed start")
            self.bring_helper_back()
            output = waiting.communicate(timeout=TIME_LIMIT)[0]
        self.assertEqual(waiting.returncode, 0, output)

    def test_after_an_upgrade_the_old_helper_leaves_whoever_stays_connected(self):
        self.assertRead(run(*ACL))
        old = show(f"{UNIT}.service", "MainPID")
        with socket.socket(socket.AF_UNIX) as idle:
            idle.connect(SOCKET)
            shutil.copy2(HELPER, f"{HELPER}.new")
            os.rename(f"{HELPER}.new", HELPER)
            wait_until(lambda: not os.path.exists(f"/proc/{old}"), "the old helper to leave")
            self.assertRead(run(*ACL))
        self.assertEqual(os.readlink(f"/proc/{show(f'{UNIT}.service', 'MainPID')}/exe"), HELPER)

    def test_a_program_that_stays_away_is_told_and_the_next_request_recovers(self):
        self.take_helper_away()
        self.addCleanup(self.bring_helper_back)
        outcome = run(*ACL)
        self.assertNotEqual(outcome.returncode, 0)
        self.assertIn(f"'systemctl status {UNIT}.service' tells why.", outcome.stdout)
        self.assertNotIn("connection invalidated!", outcome.stdout)
        self.assertNotIn("enter every folder", outcome.stdout)
        self.assertFalse(os.path.exists(SOCKET))
        outcome = run(*ACL)
        self.assertIn(f"{HELPER} is missing", outcome.stdout)
        self.bring_helper_back()
        self.assertRead(run(*ACL))

    def test_starts_in_quick_succession_do_not_end_it(self):
        for number in range(8):
            with self.subTest(number=number):
                self.assertRead(run(*ACL))
                run("systemctl", "kill", "--signal=KILL", f"{UNIT}.service")

    def test_a_stopped_a_vanished_and_a_dead_socket_are_listened_at_again(self):
        def forget():
            os.unlink(SOCKET)

        def leave_dead():
            done("systemctl", "stop", f"{UNIT}.socket", f"{UNIT}.service")
            done("python3", "-c", f"import socket; socket.socket(socket.AF_UNIX).bind('{SOCKET}')")

        for case, spoil in (("stopped", lambda: done("systemctl", "stop", f"{UNIT}.socket", f"{UNIT}.service")),
                            ("vanished", forget), ("dead", leave_dead)):
            with self.subTest(case=case):
                self.assertRead(run(*ACL))
                spoil()
                self.assertRead(run(*ACL))

    def test_polkit_that_cannot_be_reached_is_not_a_right_that_is_not_held(self):
        self.assertRead(run(*ACL))
        run("systemctl", "mask", "--runtime", "--now", "polkit.service")
        try:
            outcome = run(*ACL)
        finally:
            run("systemctl", "unmask", "--runtime", "polkit.service")
        self.assertEqual(outcome.returncode, 1, outcome.stdout)
        self.assertNotIn("is not held", outcome.stdout)
        self.assertIn("systemctl status polkit", outcome.stdout)
        self.assertRead(run(*ACL))


class Installer(Case):
    def setUp(self):
        super().setUp()
        done(INSTALLER)

    def test_a_mask_is_kept_and_told(self):
        unit = f"/etc/systemd/system/{UNIT}.service"
        os.unlink(unit)
        run("systemctl", "mask", "--now", f"{UNIT}.service")
        run("systemctl", "stop", f"{UNIT}.socket")
        self.addCleanup(run, "systemctl", "unmask", f"{UNIT}.service")
        outcome = run(*ACL)
        self.assertEqual(outcome.returncode, 1, outcome.stdout)
        self.assertIn("The specified job is not enabled.", outcome.stdout)
        self.assertIn(f"'systemctl unmask {UNIT}.service {UNIT}.socket' allows it.", outcome.stdout)
        outcome = run(INSTALLER)
        self.assertEqual((outcome.returncode, os.readlink(unit)), (9, "/dev/null"))
        done("systemctl", "unmask", f"{UNIT}.service")
        self.assertRead(run(*ACL))

    def test_an_edited_policy_is_kept_and_holds(self):
        policy = f"{ACTIONS}/{LABEL}.policy"
        with open(policy, encoding="utf-8") as f:
            text = f.read()
        with open(policy, "w", encoding="utf-8") as f:
            f.write(text.replace("auth_admin_keep", "no"))
        self.addCleanup(done, INSTALLER)
        self.addCleanup(os.unlink, policy)
        outcome = run(INSTALLER)
        self.assertEqual(outcome.returncode, 0)
        self.assertIn(f"{policy} was changed by hand and stays so", outcome.stdout)
        wait_until(lambda: "implicit any:      no" in run("pkaction", "--verbose", "--action-id",
                                                          f"{LABEL}.GetFileAcl").stdout, "the edited policy")
        outcome = as_alice_on_a_terminal(ACL)
        self.assertEqual((outcome.code, outcome.questions), (1, 0), outcome.text)
        self.assertIn("The authorization was denied.", outcome.text)

    def test_what_others_can_change_is_not_installed(self):
        os.chown(os.path.dirname(HELPER), 65534, 0)
        self.addCleanup(os.chown, os.path.dirname(HELPER), 0, 0)
        outcome = run(INSTALLER)
        self.assertEqual(outcome.returncode, 3, outcome.stdout)
        self.assertIn(f"{HELPER} is refused", outcome.stdout)

    def test_wrong_modes_are_mended_by_the_next_request(self):
        unit = f"/etc/systemd/system/{UNIT}.service"
        os.chmod(unit, 0o666)
        self.assertRead(run(*ACL))
        self.assertEqual(stat.S_IMODE(os.stat(unit).st_mode), 0o644)

    def test_it_is_taken_away_whole_and_comes_back(self):
        self.assertRead(run(*ACL))
        done(INSTALLER, "--uninstall")
        self.assertEqual(our_files(), [])
        for path in (SOCKET, f"/run/{UNIT}", f"/run/{UNIT}.installing", f"/var/lib/{UNIT}"):
            self.assertFalse(os.path.exists(path), path)
        self.assertEqual(show(f"{UNIT}.service", "ActiveState"), "inactive")
        self.assertRead(run(*ACL))


if __name__ == "__main__":
    unittest.main(verbosity=2)
