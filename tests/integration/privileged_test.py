"""The privileged road on real parts: a message bus, polkitd, the helper as root behind socket
activation, an agent that answers as the test says, and the host as an ordinary user.

usage: privileged_test.py MORVANE HELPER POLICY-FILE POLICY-AGENT BARE-CLIENT [unittest arguments]

All of it runs in namespaces of its own and is gone with them. Needs root.
"""
import json
import os
import select
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import time
import unittest

TIME_LIMIT = 60  # a watchdog
USER = 65534
LABEL = "io.github.morvaneoperation"
SOCKET = f"/run/{LABEL}.PrivilegedHelper.sock"
RIGHTS = ("GetFileAcl", "GetFileAccess", "SetFileAcl", "PropagateFileAcl", "RenameFiles",
          "GetFileSize")
POLKITD = next((p for p in ("/usr/lib/polkit-1/polkitd", "/usr/libexec/polkitd") if os.path.exists(p)),
               "polkitd")
AS_USER = ["setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups"]

if os.environ.get("MORVANE_RIG") != "inside":
    os.environ["MORVANE_RIG"] = "inside"
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", "--pid", "--fork",
                          "--kill-child=KILL", "--mount-proc", sys.executable, *sys.argv])

MORVANE, HELPER, POLICY, AGENT, BARE_CLIENT = map(os.path.abspath, sys.argv[1:6])


def wait_until(true, what):
    limit = time.monotonic() + TIME_LIMIT
    while not true():
        if time.monotonic() > limit:
            raise TimeoutError(what)
        time.sleep(0.02)


def mount(folder):
    os.makedirs(folder, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", folder], check=True)


def start_polkitd():
    process = subprocess.Popen([POLKITD, "--no-debug"], stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    wait_until(lambda: b"boolean true" in subprocess.run(
        ["dbus-send", "--system", "--print-reply", "--dest=org.freedesktop.DBus", "/",
         "org.freedesktop.DBus.NameHasOwner", "string:org.freedesktop.PolicyKit1"],
        capture_output=True).stdout, "polkitd")
    return process


class Rig:
    """Started once for all tests."""
    polkitd = None

    @classmethod
    def start(cls):
        for folder in ("/run", "/usr/share/polkit-1/actions", "/etc/polkit-1/rules.d",
                       "/usr/share/dbus-1/system-services"):
            mount(folder)
        for folder in ("/run/dbus", "/run/lock", "/run/systemd"):
            os.mkdir(folder)
        shutil.chown("/run/dbus", "messagebus")
        shutil.copy(POLICY, "/usr/share/polkit-1/actions")
        with open("/etc/polkit-1/rules.d/10-test.rules", "w", encoding="ascii") as f:
            f.write('polkit.addAdminRule(function() { return ["unix-user:root"]; });\n')
        subprocess.Popen(["dbus-daemon", "--system", "--nofork", "--nopidfile", "--nosyslog"],
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: os.path.exists("/run/dbus/system_bus_socket"), "the bus")
        cls.polkitd = start_polkitd()
        cls.start_helper()

    @classmethod
    def start_helper(cls):
        cls.helper = subprocess.Popen(
            ["systemd-socket-activate", "-l", SOCKET, "--fdname=helper", HELPER],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: os.path.exists(SOCKET), "the helper's socket")
        os.chmod(SOCKET, 0o666)


class Outcome:
    def __init__(self, code, output, message, prompts):
        self.code, self.output, self.message, self.prompts = code, output, message, prompts


def run(*arguments, agent=None, during=None):
    """Runs the host as an ordinary user, with an agent that allows, denies or cancels."""
    # Stops itself before it becomes the host, so that the agent can be there for it first.
    host = subprocess.Popen([*AS_USER, "sh", "-c", 'kill -STOP $$; exec "$@"', "sh", MORVANE,
                             *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE)
    os.waitid(os.P_PID, host.pid, os.WSTOPPED)
    helper = None
    if agent:
        helper = subprocess.Popen([AGENT, str(host.pid), agent], stdout=subprocess.PIPE, text=True)
        assert helper.stdout.readline() == "ready\n"
    os.kill(host.pid, signal.SIGCONT)
    if during:
        during()
    output, message = host.communicate(timeout=TIME_LIMIT)
    prompts = []
    if helper:
        helper.kill()
        prompts = helper.communicate()[0].splitlines()
    return Outcome(host.returncode, output.decode(), message.decode(), prompts)


class Privileged(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        os.chmod(folder.name, 0o700)
        self.folder = folder.name
        self.file = os.path.join(folder.name, "secret")
        with open(self.file, "w", encoding="ascii") as f:
            f.write("secret")
        os.chmod(self.file, 0o600)

    def requests(self):
        """Each command that needs a right, and the right."""
        return ((("--privileged", "acl", "--json", self.file), "GetFileAcl"),
                (("--privileged", "access", "--json", self.file, "--user", "root"), "GetFileAccess"),
                (("--privileged", "size", "--json", self.file), "GetFileSize"),
                (("--privileged", "ls", "--json", self.folder), "GetFileSize"))

    def assertRefused(self, outcome, reason):
        self.assertEqual((outcome.code, outcome.output), (1, ""), outcome.message)
        self.assertIn(reason, outcome.message)

    def test_without_the_helper_the_file_is_out_of_reach(self):
        outcome = run("acl", self.file)
        self.assertNotEqual(outcome.code, 0)
        self.assertEqual(outcome.output, "")

    def test_a_granted_right_prints_what_only_root_may_read(self):
        for arguments, right in self.requests():
            with self.subTest(right=right, command=arguments[1]):
                outcome = run(*arguments, agent="allow")
                self.assertEqual(outcome.code, 0, outcome.message)
                self.assertTrue(json.loads(outcome.output))
                self.assertEqual(len(outcome.prompts), 1)
                self.assertTrue(outcome.prompts[0].startswith(f"{LABEL}.{right}: Morvane wants to "))

    def test_the_list_is_that_of_the_file(self):
        entries = json.loads(run("--privileged", "acl", "--json", self.file, agent="allow").output)
        self.assertEqual([[n["state"] for n in e["permissions"]] for e in entries],
                         [[1, 1, 0], [0, 0, 0], [0, 0, 0]])

    def test_a_denied_right_reveals_nothing(self):
        for arguments, right in self.requests():
            with self.subTest(right=right, command=arguments[1]):
                outcome = run(*arguments, agent="deny")
                self.assertRefused(outcome, "The authorization was denied.")

    def test_a_closed_question_reveals_nothing(self):
        for arguments, right in self.requests():
            with self.subTest(right=right, command=arguments[1]):
                outcome = run(*arguments, agent="cancel")
                self.assertRefused(outcome, "The authorization was cancelled by the user.")

    def test_without_an_agent_nothing_is_revealed(self):
        for arguments, right in self.requests():
            with self.subTest(right=right, command=arguments[1]):
                outcome = run(*arguments)
                self.assertRefused(outcome, "There is no agent to ask the user with.")

    def test_without_polkit_nothing_is_revealed(self):
        Rig.polkitd.kill()
        Rig.polkitd.wait()
        try:
            for arguments, right in self.requests():
                with self.subTest(right=right, command=arguments[1]):
                    self.assertRefused(run(*arguments),
                                       "The system's policy service cannot be reached.")
        finally:
            Rig.polkitd = start_polkitd()

    def test_an_edit_is_written_by_the_helper(self):
        outcome = run("--privileged", "acl", self.file, "--edit", "entry 2; on Read", agent="allow")
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertEqual(stat.S_IMODE(os.stat(self.file).st_mode), 0o640)
        self.assertEqual([p.split(":")[0] for p in outcome.prompts],
                         [f"{LABEL}.GetFileAcl", f"{LABEL}.SetFileAcl"])

    def test_a_grant_is_good_for_the_process_that_was_granted_it_only(self):
        self.assertEqual(run("--privileged", "acl", self.file, agent="allow").code, 0)
        self.assertRefused(run("--privileged", "acl", self.file), "There is no agent")

    def test_a_client_that_asked_for_no_right_reaches_no_handler(self):
        before = os.stat(self.file)
        result = subprocess.run([*AS_USER, BARE_CLIENT, self.file], capture_output=True, text=True,
                                timeout=TIME_LIMIT)
        lines = result.stdout.splitlines()
        self.assertEqual(len(lines), 7, result.stderr)
        for line in lines:
            self.assertEqual(line.split()[1], "13", line)  # EACCES
        after = os.stat(self.file)
        self.assertEqual((before.st_ctime_ns, before.st_mode), (after.st_ctime_ns, after.st_mode))
        self.assertEqual(os.listdir(self.folder), ["secret"])

    def test_a_symbolic_link_on_the_way_is_refused(self):
        # The host cannot look into the folder and sends the path as it is.
        link = os.path.join(self.folder, "link")
        os.symlink(self.file, link)
        outcome = run("--privileged", "acl", link, agent="allow")
        self.assertRefused(outcome, "Too many levels of symbolic links")

    def test_a_hard_link_to_a_file_of_another_is_not_changed(self):
        os.link(self.file, os.path.join(self.folder, "other"))
        outcome = run("--privileged", "acl", self.file, "--edit", "entry 2; on Read", agent="allow")
        self.assertRefused(outcome, "a file with several names only for its owner")
        self.assertEqual(stat.S_IMODE(os.stat(self.file).st_mode), 0o600)

    def test_a_socket_that_is_not_roots_is_not_spoken_to(self):
        os.chown(SOCKET, USER, USER)
        try:
            outcome = run("--privileged", "acl", self.file, agent="allow")
            self.assertNotEqual(outcome.code, 0)
            self.assertEqual(outcome.output, "")
        finally:
            os.chown(SOCKET, 0, 0)

    def test_the_helper_keeps_only_the_capabilities_that_it_needs(self):
        self.assertEqual(run("--privileged", "acl", self.file, agent="allow").code, 0)
        with open(f"/proc/{Rig.helper.pid}/status", encoding="ascii") as f:
            lines = {key: value.strip() for key, _, value in (line.partition(":") for line in f)}
        self.assertEqual(int(lines["CapEff"], 16), 0b11111)
        self.assertEqual(int(lines["CapPrm"], 16), 0b11111)
        self.assertEqual(lines["NoNewPrivs"], "1")


if __name__ == "__main__":
    Rig.start()
    unittest.main(argv=sys.argv[:1] + sys.argv[6:])
