# SPDX-License-Identifier: MIT
"""The privileged road on real parts: each right, granted or not, and who tries to get round it.

usage: privileged_test.py MORVANE HELPER POLICY-FILE POLICY-AGENT BARE-CLIENT SHIFTED-CLOCK
       [unittest arguments]
"""
import contextlib
import ctypes
import gettext
import json
import os
import resource
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time
import unittest

import rig as rigs
from large_folder import large_folder
from privileged_case import PrivilegedCase
from rig import AS_USER, LABEL, SOCKET, TIME_LIMIT, USER
from waiting import wait_until

MORVANE, HELPER, POLICY, AGENT, BARE_CLIENT, CLOCK = map(os.path.abspath, sys.argv[1:7])
CATALOGUES = os.path.join(os.path.dirname(MORVANE), "../po/locale")
rigs.enter_namespaces()
RIG = rigs.Rig(HELPER, [POLICY], AGENT, CLOCK)
RIG.take_log()
EACCES = 13
CONNECTION_INVALID = 4099
# The rights of the bare client's requests, in their order.
REQUESTS = ("GetFileAcl", "GetFileAccess", "SetFileAcl", "PropagateFileAcl", "RenameFiles", "GetFileSize",
            "GetFileSize")


def run(*arguments, agent=None):
    return RIG.start([MORVANE, "--privileged", *arguments], agent).finish()


class Privileged(PrivilegedCase):
    def requests(self):
        """A command for each message, and the right that it needs."""
        return ((("acl", "--json", self.file), "GetFileAcl"),
                (("access", "--json", self.file, "--user", "root"), "GetFileAccess"),
                (("size", "--json", self.file), "GetFileSize"),
                (("ls", "--json", self.folder), "GetFileSize"),
                (("rename", "--json", self.file, "public"), "RenameFiles"))

    def each_request(self):
        for arguments, right in self.requests():
            with self.subTest(command=arguments[0]):
                yield arguments, right

    def captured_request(self):
        """The bytes in which a client asks for the file's list."""
        os.rename(SOCKET, SOCKET + ".aside")
        listener = socket.socket(socket.AF_UNIX)
        try:
            listener.bind(SOCKET)
            os.chmod(SOCKET, 0o666)
            listener.listen()
            program = RIG.start([MORVANE, "--privileged", "acl", self.file], "allow")
            request = b""
            while not request:  # whether anyone listens is looked at before
                with listener.accept()[0] as peer:
                    request = peer.recv(65536)
            program.process.kill()
            program.finish()
            return request
        finally:
            listener.close()
            os.unlink(SOCKET)
            os.rename(SOCKET + ".aside", SOCKET)

    def frame_from(self, connection):
        """What a frame carries behind its header, which has the length of that."""
        with connection.makefile("rb") as stream:
            header = stream.read(24)
            self.assertEqual((len(header), header[:4]), (24, b"MVX1"))
            return stream.read(int.from_bytes(header[8:12], "little"))


class Rights(Privileged):
    def test_without_the_helper_the_file_is_out_of_reach(self):
        outcome = RIG.start([MORVANE, "acl", self.file]).finish()
        self.assertEqual((outcome.code, outcome.output), (1, ""), outcome.message)
        self.assertIn("Permission denied", outcome.message)

    def test_a_granted_right_does_what_only_root_may_do(self):
        for arguments, right in self.each_request():
            outcome = run(*arguments, agent="allow")
            self.assertEqual(outcome.code, 0, outcome.message)
            self.assertTrue(json.loads(outcome.output))
            self.assertEqual(len(outcome.prompts), 1)
            self.assertTrue(outcome.prompts[0].startswith(f"{LABEL}.{right}: Morvane wants to "))
        self.assertEqual(os.listdir(self.folder), ["public"])

    def test_many_requests_of_a_command_are_granted_at_once(self):
        who_can = run("who-can", "--json", self.file, agent="allow")
        self.assertEqual(who_can.code, 0, who_can.message)
        self.assertEqual([who["identity"] for who in json.loads(who_can.output)["items"][0]["who"]], ["root"])
        self.assertEqual(len(who_can.prompts), 1)
        os.chmod(self.folder, 0o755)
        check = run("check", self.folder, agent="allow")
        self.assertEqual((check.code, check.message), (1, ""))
        self.assertEqual(check.output.splitlines()[:-1], [f"{self.file}: nobody but root can read it"])
        os.chmod(self.folder, 0o700)
        diff = run("diff", self.file, self.folder, agent="allow")
        self.assertEqual(diff.code, 1, diff.message)
        self.assertIn("~ Kind: file -> folder\n", diff.output)
        denied = run("check", "--json", self.folder, agent="deny")
        self.assertEqual(denied.code, 2)
        self.assertIn("The authorization was denied.", denied.message)

    def test_the_list_is_that_of_the_file(self):
        entries = json.loads(run("acl", "--json", self.file, agent="allow").output)["entries"]
        self.assertEqual([[n["state"] for n in e["permissions"]] for e in entries],
                         [[1, 1, 0], [0, 0, 0], [0, 0, 0]])

    def test_a_denied_right_does_and_reveals_nothing(self):
        for arguments, _ in self.each_request():
            self.assertRefused(run(*arguments, agent="deny"), "The authorization was denied.")

    def test_what_the_helper_refuses_is_said_in_the_language_of_the_user(self):
        outcome = RIG.start(["env", "LC_ALL=C.UTF-8", "LANGUAGE=de", f"MORVANE_LOCALE_DIR={CATALOGUES}", MORVANE,
                             "--privileged", "rename", self.file, "a/b"], "allow").finish()
        text = gettext.translation("morvaneoperation", CATALOGUES, ["de"]).gettext(
            'The new name "%1" holds a slash; an item stays in its folder.')
        self.assertNotIn("slash", text)
        self.assertRefused(outcome, text.replace("%1", "a/b"))

    def test_a_closed_question_does_and_reveals_nothing(self):
        for arguments, _ in self.each_request():
            self.assertRefused(run(*arguments, agent="cancel"),
                               "The authorization was cancelled by the user.")

    def test_without_an_agent_nothing_is_done_and_revealed(self):
        for arguments, _ in self.each_request():
            self.assertRefused(run(*arguments), "There is no agent to ask the user with.")

    def test_without_polkit_nothing_is_done_and_revealed(self):
        RIG.kill_polkitd()
        try:
            for arguments, _ in self.each_request():
                self.assertRefused(run(*arguments), "The system's policy service cannot be reached.")
        finally:
            RIG.start_polkitd()

    def test_polkit_killed_while_the_user_is_asked_ends_the_request(self):
        for arguments, _ in self.each_request():
            program = RIG.start([MORVANE, "--privileged", *arguments], "hang")
            program.wait_for_prompt()
            RIG.kill_polkitd()
            try:
                self.assertRefused(program.finish(), "The system's policy service cannot be reached.")
            finally:
                RIG.start_polkitd()

    def test_polkit_killed_before_the_helper_asks_it_ends_the_request(self):
        for arguments, _ in self.each_request():
            with helper_stopped():
                program = granted(*arguments)
                RIG.kill_polkitd()
            try:
                self.assertRefused(program.finish(), "The system's policy service cannot be reached.")
            finally:
                RIG.start_polkitd()

    def test_an_edit_asks_once(self):
        outcome = run("acl", self.file, "--edit", "entry 2; on Read", agent="allow")
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertEqual(stat.S_IMODE(os.stat(self.file).st_mode), 0o640)
        self.assertEqual([p.split(":")[0] for p in outcome.prompts], [f"{LABEL}.GetFileAcl"])

    def edit(self, path, script, *options, agent="allow"):
        outcome = run("acl", path, *options, "--edit", script, agent=agent)
        return outcome, [p.split(":")[0].removeprefix(f"{LABEL}.") for p in outcome.prompts]

    def acl(self, path):
        return subprocess.run(["getfacl", "-nE", "--omit-header", "--absolute-names", path],
                              capture_output=True, text=True, check=True).stdout.split()

    def test_an_entry_is_added_to_a_folder_that_only_the_helper_can_look_at(self):
        outcome, rights = self.edit(self.folder, 'add user:4711; permissions read')
        self.assertEqual(outcome.code, 0, outcome.message)
        # Its list tells what it is.
        self.assertEqual(rights, ["GetFileAcl"])
        self.assertIn("user:4711:r-x", self.acl(self.folder))

    def test_an_entry_is_added_to_a_file_that_only_the_helper_can_look_at(self):
        outcome, rights = self.edit(self.file, 'add user:4711; permissions read; off "Execute File"')
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertEqual(rights, ["GetFileAcl"])
        self.assertIn("user:4711:r--", self.acl(self.file))

    def test_lossy_writes_the_nearest_list_through_the_helper(self):
        script = 'add user:4711; permissions read; off "Execute File"; on Delete'
        outcome, _ = self.edit(self.file, script)
        self.assertRefused(outcome, '"Delete"')
        self.assertIn("--lossy accepts the nearest list.", outcome.message)
        outcome, _ = self.edit(self.file, script, "--lossy")
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertIn("user:4711:r--", self.acl(self.file))

    def test_a_dry_run_through_the_helper_shows_what_would_be_written(self):
        script = 'add user:4711; permissions read; off "Execute File"; on Delete'
        outcome, _ = self.edit(self.file, script, "--dry-run")
        self.assertRefused(outcome, '"Delete"')
        outcome, rights = self.edit(self.file, script, "--dry-run", "--lossy", "--json")
        self.assertEqual(rights, ["GetFileAcl"])
        self.assertEqual(self.look(), self.before)
        after = json.loads(outcome.output)["after"]
        outcome, _ = self.edit(self.file, script, "--lossy", "--json")
        self.assertEqual(json.loads(outcome.output)["entries"], after)

    def test_a_list_of_a_thousand_entries_is_written_by_the_helper(self):
        folder = tempfile.TemporaryDirectory(dir="/dev/shm")  # where a list may have as many
        self.addCleanup(folder.cleanup)
        users = "".join(f"user:{5000 + i}:r-x\n" for i in range(1020))
        subprocess.run(["setfacl", "-M-", folder.name], input=users, text=True, check=True)
        outcome, _ = self.edit(folder.name, "add user:9999; permissions read")
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertEqual(sum(line.startswith("user:") for line in self.acl(folder.name)), 1022)

    def test_a_propagation_is_done_by_the_helper_and_asks_once(self):
        os.chmod(self.folder, 0o750)
        outcome = run("acl", self.folder, "--propagate", agent="allow")
        self.assertEqual(outcome.code, 0, outcome.message)
        self.assertEqual(stat.S_IMODE(os.stat(self.file).st_mode), 0o640)
        self.assertEqual([p.split(":")[0] for p in outcome.prompts], [f"{LABEL}.GetFileAcl"])

    def writings(self):
        """Commands that have been granted reading first, and the right that they need then, with a password
        of its own."""
        with RIG.rules(SetFileAcl="auth_admin", PropagateFileAcl="auth_admin"):
            for arguments, right in (((self.file, "--edit", "entry 2; on Read"), "SetFileAcl"),
                                     ((self.folder, "--propagate"), "PropagateFileAcl")):
                with self.subTest(right=right):
                    yield ("acl", *arguments), right

    def test_writing_needs_its_right_although_reading_was_granted(self):
        for arguments, _ in self.writings():
            for answer, reason in (("deny", "denied"), ("cancel", "cancelled by the user")):
                outcome = run(*arguments, agent=f"{LABEL}.GetFileAcl=allow,{answer}")
                self.assertRefused(outcome, f"The authorization was {reason}.")
                self.assertEqual(len(outcome.prompts), 2)

    def test_writing_without_an_agent_any_more_changes_nothing(self):
        for arguments, _ in self.writings():
            outcome = run(*arguments, agent=f"{LABEL}.GetFileAcl=leave,allow")
            # Denied, if polkit asks the agent that is just going.
            reason = "denied." if "denied." in outcome.message else "There is no agent to ask the user with."
            self.assertRefused(outcome, reason)
            self.assertEqual(len(outcome.prompts), 1)

    def test_polkit_killed_while_the_user_is_asked_for_writing_ends_the_request(self):
        for arguments, right in self.writings():
            program = RIG.start([MORVANE, "--privileged", *arguments],
                                f"{LABEL}.GetFileAcl=allow,hang")
            program.wait_for_prompt()
            program.wait_for_prompt()
            self.assertIn(right, program.prompts[1])
            RIG.kill_polkitd()
            try:
                self.assertRefused(program.finish(), "The system's policy service cannot be reached.")
            finally:
                RIG.start_polkitd()

    def test_polkit_killed_after_every_right_was_granted_ends_every_request(self):
        program = RIG.start([BARE_CLIENT, self.folder, "authorize"], "allow", stdin=subprocess.PIPE)
        first = self.codes(program)
        self.assertNotIn(str(EACCES).encode(), first)
        self.before = self.look()
        RIG.kill_polkitd()
        try:
            self.send_again(program)
            self.assertEqual(self.codes(program), [str(EACCES).encode()] * len(REQUESTS))
            self.assertEqual(self.look(), self.before)
        finally:
            RIG.start_polkitd()
        self.end(program)

    def codes(self, program):
        return [program.process.stdout.readline().split()[1] for _ in REQUESTS]

    def send_again(self, program):
        program.process.stdin.write(b"again\n")
        program.process.stdin.flush()

    def end(self, program):
        program.process.stdin.close()
        program.process.stdin = None
        self.assertEqual(program.finish().code, 0)

    def test_a_grant_is_good_for_the_process_that_was_granted_it_only(self):
        self.assertEqual(run("acl", self.file, agent="allow").code, 0)
        self.assertRefused(run("acl", self.file), "There is no agent")

    def test_every_right_expires_after_45_seconds(self):
        program = RIG.start([BARE_CLIENT, self.folder, "authorize"], "allow", stdin=subprocess.PIPE)
        self.assertNotIn(str(EACCES).encode(), self.codes(program))
        RIG.set_clock_forward(35)  # a slow machine has ten seconds left
        self.send_again(program)
        self.assertNotIn(str(EACCES).encode(), self.codes(program))
        before = self.look()
        RIG.set_clock_forward(46)
        self.send_again(program)
        self.assertEqual(self.codes(program), [str(EACCES).encode()] * len(REQUESTS))
        self.assertEqual(self.look(), before)
        RIG.set_clock_forward(0)
        self.end(program)
        self.assertEqual(len(program.prompts), 1)

    def codes_with_rules(self, agent, **rules):
        """What each request is answered with, its right having been asked for if there is an agent."""
        with RIG.rules(**rules):
            mode = ["authorize"] if agent else []
            program = RIG.start([BARE_CLIENT, self.folder, *mode], agent, stdin=subprocess.PIPE)
            codes = [int(code) for code in self.codes(program)]
            self.end(program)
        self.prompts = [prompt.split(":")[0].removeprefix(f"{LABEL}.") for prompt in program.prompts]
        return [code == EACCES for code in codes]

    def test_a_password_serves_no_right_that_a_rule_denies(self):
        for place, right in enumerate(REQUESTS[:5]):
            with self.subTest(right=right):
                refused = self.codes_with_rules("allow", **{right: "no"})
                self.assertEqual(refused, [i == place for i in range(len(REQUESTS))])
                self.assertEqual(len(self.prompts), 1)
                self.assertNotIn(right, self.prompts)

    def test_a_password_serves_no_right_that_wants_one_each_time(self):
        refused = self.codes_with_rules("allow", SetFileAcl="auth_admin")
        self.assertEqual(refused, [right == "SetFileAcl" for right in REQUESTS])
        self.assertEqual(self.prompts, ["GetFileAcl", "SetFileAcl"])

    def test_what_a_rule_lets_everybody_do_serves_no_other_right(self):
        for right in REQUESTS[:6]:
            with self.subTest(right=right):
                refused = self.codes_with_rules(None, **{right: "yes"})
                self.assertEqual(refused, [name != right for name in REQUESTS])

    def test_the_action_that_the_rights_imply_grants_nothing_by_itself(self):
        self.assertEqual(self.codes_with_rules(None, AnyRight="yes"), [True] * len(REQUESTS))

    def test_a_long_job_outlives_its_grant(self):
        many = 1000  # more lines than a log has room for that nobody empties
        for i in range(many):
            with open(os.path.join(self.folder, str(i)), "w", encoding="ascii"):
                pass
        items = [os.path.join(self.folder, str(i)) for i in range(many)]
        with RIG.log_stopped_at(": begun: ") as begun:
            program = RIG.start([MORVANE, "--privileged", "size", "--json", *items], "allow")
            self.assertTrue(begun.wait(TIME_LIMIT), "nothing is begun")
            RIG.set_clock_forward(50)
            self.addCleanup(RIG.set_clock_forward, 0)
            self.assertIsNone(program.process.poll())
        self.assertEqual(program.finish().code, 0, program.message)
        self.assertEqual(program.output.count('"path"'), many)

    def test_a_helper_that_starts_anew_knows_how_old_the_grants_are(self):
        program = RIG.start([BARE_CLIENT, self.folder, "authorize"], "allow", stdin=subprocess.PIPE)
        self.assertNotIn(str(EACCES).encode(), self.codes(program))
        before = self.look()
        RIG.stop_helper()
        RIG.start_helper()
        RIG.set_clock_forward(46)
        self.send_again(program)
        self.assertEqual(self.codes(program), [str(EACCES).encode()] * len(REQUESTS))
        self.assertEqual(self.look(), before)
        RIG.set_clock_forward(0)
        self.end(program)

    def test_what_polkit_grants_when_it_has_started_anew_is_new(self):
        # It counts its grants from the beginning again.
        for forward in (0, 50):
            RIG.kill_polkitd()
            RIG.start_polkitd()
            RIG.set_clock_forward(forward)
            program = RIG.start([BARE_CLIENT, self.folder, "authorize"], "allow", stdin=subprocess.PIPE)
            self.assertNotIn(str(EACCES).encode(), self.codes(program))
            self.end(program)
        RIG.set_clock_forward(0)


@contextlib.contextmanager
def helper_stopped():
    """While it stands still clients connect and send, and nothing is checked or done."""
    rigs.stop(RIG.helper)
    try:
        yield
    finally:
        RIG.helper.send_signal(signal.SIGCONT)


def granted(*arguments):
    """Starts a command that has its right and has connected to the helper, which has not answered yet."""
    before = RIG.connections()
    program = RIG.start([MORVANE, "--privileged", *arguments], "allow")
    wait_until(lambda: RIG.connections() > before, "the connection")
    return program


@contextlib.contextmanager
def check_stopped(*arguments):
    """A command whose helper waits for polkit's answer meanwhile."""
    with helper_stopped():
        program = granted(*arguments)
        rigs.stop(RIG.polkitd)
    wait_until(unread_messages, "the helper's question")
    try:
        yield program
    finally:
        RIG.polkitd.send_signal(signal.SIGCONT)


def unread_messages():
    """Whether something waits for the stopped polkitd."""
    for descriptor in os.listdir(f"/proc/{RIG.polkitd.pid}/fd"):
        try:
            target = os.readlink(f"/proc/{RIG.polkitd.pid}/fd/{descriptor}")
        except OSError:
            continue
        if target.startswith("socket:"):
            copy = pidfd_getfd(RIG.polkitd.pid, int(descriptor))
            try:
                if copy.recv(1, socket.MSG_PEEK | socket.MSG_DONTWAIT):
                    return True
            except OSError:
                pass
            finally:
                copy.close()
    return False


def pidfd_getfd(pid, descriptor):
    libc = ctypes.CDLL(None, use_errno=True)
    process = os.pidfd_open(pid)
    try:
        copy = libc.syscall(438, process, descriptor, 0)
        if copy < 0:
            raise OSError(ctypes.get_errno(), "pidfd_getfd")
        return socket.socket(fileno=copy)
    finally:
        os.close(process)


class Attackers(Privileged):
    def codes_without_a_right(self):
        """What each request is answered with if its sender has asked for no right."""
        result = subprocess.run([*AS_USER, BARE_CLIENT, self.file], capture_output=True, text=True,
                                timeout=TIME_LIMIT)
        codes = [int(line.split()[1]) for line in result.stdout.splitlines()]
        self.assertEqual(len(codes), len(REQUESTS), result.stderr)
        return codes

    def test_a_client_that_asked_for_no_right_reaches_no_handler(self):
        self.assertEqual(self.codes_without_a_right(), [EACCES] * len(REQUESTS))
        self.assertEqual(self.look(), self.before)

    def test_a_symbolic_link_on_the_way_is_refused(self):
        # The host cannot look into the folder and sends the path as it is.
        link = os.path.join(self.folder, "link")
        os.symlink(self.file, link)
        self.before = self.look()
        self.assertRefused(run("acl", link, agent="allow"), "Too many levels of symbolic links")

    def test_a_link_swapped_in_during_the_check_is_refused(self):
        with open(os.path.join(self.folder, "other"), "w", encoding="ascii"):
            os.chmod(os.path.join(self.folder, "other"), 0o600)
        for arguments in (("acl", "--json", self.file), ("access", self.file, "--user", "root")):
            with self.subTest(command=arguments[0]):
                with check_stopped(*arguments) as program:
                    os.rename(self.file, self.file + ".aside")
                    os.symlink(os.path.join(self.folder, "other"), self.file)
                    self.before = self.look()
                self.assertRefused(program.finish(), "Too many levels of symbolic links")
                os.rename(self.file + ".aside", self.file)

    def test_a_folder_swapped_for_a_link_during_the_check_is_refused(self):
        elsewhere = self.folder + ".elsewhere"
        os.mkdir(elsewhere)
        with open(os.path.join(elsewhere, "secret"), "w", encoding="ascii") as f:
            f.write("12345")
        for arguments in (("acl", self.file), ("access", self.file, "--user", "root"),
                          ("size", "--json", self.file), ("ls", self.folder),
                          ("rename", "--json", self.file, "public")):
            with self.subTest(command=arguments[0]):
                with check_stopped(*arguments) as program:
                    os.rename(self.folder, self.folder + ".aside")
                    os.symlink(elsewhere, self.folder)
                outcome = program.finish()
                self.assertEqual(outcome.code, 1)
                self.assertIn("Too many levels of symbolic links", outcome.message)
                if arguments[0] == "size":
                    self.assertNotIn('"size": 5', outcome.output)
                self.assertEqual(os.listdir(elsewhere), ["secret"])
                os.unlink(self.folder)
                os.rename(self.folder + ".aside", self.folder)

    def test_what_a_renamed_file_has_become_counts_and_not_its_name(self):
        # Another file has the name when the helper looks: its list is told, never the first one's.
        other = os.path.join(self.folder, "other")
        with open(other, "w", encoding="ascii"):
            os.chmod(other, 0o640)
        with check_stopped("acl", "--json", self.file) as program:
            os.rename(other, self.file)
        entries = json.loads(program.finish().output)["entries"]
        self.assertEqual([e["permissions"][0]["state"] for e in entries], [1, 1, 0])

    def test_a_client_that_has_gone_during_the_check_gets_nothing_done(self):
        with check_stopped("rename", self.file, "public") as program:
            program.process.kill()
            program.process.wait()
        # The helper has dealt with it once it answers somebody else.
        self.assertEqual(run("size", "--json", self.file, agent="allow").code, 0)
        self.assertEqual(self.look(), self.before)

    def test_a_hard_link_to_a_file_of_another_is_not_changed(self):
        os.link(self.file, os.path.join(self.folder, "other"))
        self.before = self.look()
        outcome = run("acl", self.file, "--edit", "entry 2; on Read", agent="allow")
        self.assertRefused(outcome, "a file with several names only for its owner")

    def test_a_socket_that_is_not_roots_is_not_spoken_to(self):
        os.chown(SOCKET, USER, USER)
        try:
            outcome = run("acl", self.file, agent="allow")
            self.assertNotEqual(outcome.code, 0)
            self.assertEqual(outcome.output, "")
            # Whoever sends without a look at what is installed does not reach the helper either.
            self.assertEqual(self.codes_without_a_right(), [CONNECTION_INVALID] * len(REQUESTS))
        finally:
            os.chown(SOCKET, 0, 0)

    def test_a_process_that_has_the_number_of_the_one_that_connected_does_not_speak_for_it(self):
        request = self.captured_request()
        ours, theirs = socket.socketpair()
        # Connects, hands the connection on, and ends; its number is then free.
        connector = os.fork()
        if connector == 0:
            os.setgid(USER)
            os.setuid(USER)
            connection = socket.socket(socket.AF_UNIX)
            connection.connect(SOCKET)
            socket.send_fds(theirs, [b"x"], [connection.fileno()])
            os._exit(0)
        connection = socket.socket(fileno=socket.recv_fds(ours, 1, 1)[1][0])
        for each in (connection, ours, theirs):
            self.addCleanup(each.close)
        os.waitpid(connector, 0)
        with open("/proc/sys/kernel/ns_last_pid", "w", encoding="ascii") as f:
            f.write(str(connector - 1))
        other = os.path.join(self.folder, "other")  # which it renames
        os.mkdir(other)
        program = RIG.start([BARE_CLIENT, other, "authorize"], "allow", stdin=subprocess.PIPE)
        self.assertEqual(program.process.pid, connector, "the number was not given again")
        first = [program.process.stdout.readline().split()[1] for _ in REQUESTS]
        self.assertNotIn(str(EACCES).encode(), first, "it holds every right itself")
        connection.settimeout(TIME_LIMIT)
        connection.sendall(request)
        answer = self.frame_from(connection)
        self.assertNotIn(b"MVAclEntry", answer)
        self.assertIn(b"is not held", answer)
        program.process.stdin.close()
        program.process.stdin = None
        self.assertEqual(program.finish().code, 0)


class Helper(Privileged):
    def test_it_keeps_only_the_capabilities_that_it_needs(self):
        self.assertEqual(run("acl", self.file, agent="allow").code, 0)
        sets = {"CapEff": 0b11111, "CapPrm": 0b11111, "CapBnd": 0b11111, "CapInh": 0, "CapAmb": 0}
        threads = os.listdir(f"/proc/{RIG.helper.pid}/task")
        self.assertGreater(len(threads), 1)
        for thread in threads:
            with open(f"/proc/{RIG.helper.pid}/task/{thread}/status", encoding="ascii") as f:
                lines = {key: value.strip() for key, _, value in (line.partition(":") for line in f)}
            self.assertEqual({name: int(lines[name], 16) for name in sets}, sets, lines["Name"])
            self.assertEqual(lines["NoNewPrivs"], "1")

    # One that looks at virtual tables makes a pipe to see whether memory can be read.
    @unittest.skipIf(os.environ.get("MORVANE_SANITIZED"), "a sanitizer takes descriptors of its own")
    def test_a_question_is_asked_however_short_descriptors_are_and_the_bus_may_have_gone_and_come_back(self):
        request = self.captured_request()
        self.addCleanup(self.forget_grants)
        RIG.stop_helper()
        RIG.start_helper()
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(SOCKET)
            client.settimeout(TIME_LIMIT)
            wait_until(lambda: os.readlink(f"/proc/{RIG.helper.pid}/exe") == HELPER and RIG.serves_a_client(),
                       "the client's reader")
            self.leave_descriptors(0)
            client.sendall(request)
            # The right is held: what is said is that the item cannot be opened.
            self.assertIn(self.file.encode(), self.frame_from(client))
            self.leave_descriptors(2)  # for the item
            client.sendall(request)
            self.assertIn(b"MVAclEntry", self.frame_from(client))
            RIG.kill_bus()
            client.sendall(request)
            self.assertIn(b"The system's policy service cannot be reached.", self.frame_from(client))
            RIG.start_bus()
            RIG.start_polkitd()
            client.sendall(request)
            self.assertIn(b"MVAclEntry", self.frame_from(client))

    def forget_grants(self):
        """A new bus gives its names out again, and a new polkitd its numbers: its grants would look old."""
        RIG.stop_helper()
        with contextlib.suppress(FileNotFoundError):
            os.unlink(os.path.join(rigs.KEPT, "grants"))
        RIG.start_helper()

    def leave_descriptors(self, count):
        taken = set(map(int, os.listdir(f"/proc/{RIG.helper.pid}/fd")))
        limit = [i for i in range(len(taken) + count + 1) if i not in taken][count]
        resource.prlimit(RIG.helper.pid, resource.RLIMIT_NOFILE,
                         (limit, resource.prlimit(RIG.helper.pid, resource.RLIMIT_NOFILE)[1]))

    def logged(self):
        """What this helper has told the log."""
        mark = f" morvane-helper[{RIG.helper.pid}]: "
        return [line.rstrip("\0").split(mark, 1)[1] for line in RIG.logged if mark in line]

    def assertLogged(self, process, outcome, text):
        end = f" morvane-helper[{RIG.helper.pid}]: {outcome}: uid {USER} pid {process.pid}: {text}"
        # 86: authpriv, for information.
        wait_until(lambda: any(line.startswith("<86>") and line.rstrip("\0").endswith(end) for line in RIG.logged),
                   f"{end}\nin {RIG.logged}")

    def test_the_log_is_told_who_has_asked_for_what_and_how_it_ended(self):
        program = RIG.start([MORVANE, "--privileged", "rename", self.file, "public"], "allow").finish()
        for outcome in ("begun", "done"):
            self.assertLogged(program.process, outcome, f'renameUrls:names:reply: "{self.file}" as "public"')
        with subprocess.Popen([*AS_USER, BARE_CLIENT, self.file], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL) as client:
            client.wait(TIME_LIMIT)
        self.assertLogged(client, "refused", f"setAclEntries:url:reply: the right {LABEL}.SetFileAcl is not held")

    def end_in_order(self):
        """Ends the helper as the service manager does; returns its exit status."""
        RIG.helper.terminate()
        return RIG.helper.wait(TIME_LIMIT)

    def start_anew(self):
        RIG.stop_helper()
        RIG.start_helper()

    def test_it_ends_well_when_it_is_told_to(self):
        self.start_anew()
        self.addCleanup(self.start_anew)
        self.assertEqual(run("acl", self.file, agent="allow").code, 0)
        self.assertEqual(self.end_in_order(), 0)

    def test_a_propagation_that_the_helpers_end_cuts_off_is_told_with_its_count(self):
        many = 250000  # work for longer than the client is not asked
        folder = large_folder(self)
        for i in range(many):
            os.mknod(os.path.join(folder, str(i)), 0o600)
        os.chmod(folder, 0o750)
        self.start_anew()
        self.addCleanup(self.start_anew)
        with os.scandir(folder) as entries:
            first = next(entries).path
        program = RIG.start([MORVANE, "--privileged", "acl", folder, "--propagate"], "allow")
        limit = time.monotonic() + TIME_LIMIT
        while stat.S_IMODE(os.stat(first).st_mode) != 0o640 and time.monotonic() < limit:
            pass  # the job is over in no time
        with helper_stopped():
            RIG.helper.terminate()
        self.assertEqual(RIG.helper.wait(TIME_LIMIT), 0)
        self.assertNotEqual(program.finish().code, 0)
        changed = sum(stat.S_IMODE(entry.stat().st_mode) == 0o640 for entry in os.scandir(folder))
        self.assertLess(0, changed)
        self.assertLess(changed, many)
        who = f"uid {USER} pid {program.process.pid}: propagateAclEntries:url:reply:"
        self.assertLogged(program.process, "begun", f'propagateAclEntries:url:reply: "{folder}"')
        wait_until(lambda: any(line.startswith(f"failed: {who}") for line in self.logged()), "the end's line")
        line = next(line for line in self.logged() if line.startswith(f"failed: {who}"))
        self.assertEqual(line, f'failed: {who} The propagation was cancelled after {changed} items. "{folder}"')

    def test_a_flood_of_refusals_is_a_few_lines_and_one_that_counts_the_rest(self):
        request = self.captured_request()
        self.start_anew()
        self.addCleanup(self.start_anew)
        flood = 500
        script = ("import socket, sys\n"
                  "request, path, times = bytes.fromhex(sys.argv[1]), sys.argv[2], int(sys.argv[3])\n"
                  "with socket.socket(socket.AF_UNIX) as peer:\n"
                  "    peer.connect(path)\n"
                  "    stream = peer.makefile('rb')\n"
                  "    for _ in range(times):\n"
                  "        peer.sendall(request)\n"
                  "        assert b'is not held' in stream.read(int.from_bytes(stream.read(24)[8:12], 'little'))\n")
        subprocess.run([*AS_USER, sys.executable, "-c", script, request.hex(), SOCKET, str(flood)],
                       timeout=TIME_LIMIT, check=True)
        self.assertEqual(self.end_in_order(), 0)
        begins = f"refused: uid {USER}"

        def told():
            lines = [line for line in self.logged() if line.startswith(f"{begins} pid ")]
            rest = [line for line in self.logged() if line.startswith(f"{begins}: ")]
            return len(lines), sum(int(line.split()[3]) for line in rest)

        wait_until(lambda: sum(told()) == flood, f"{flood} refusals, not {told()}")
        self.assertLess(told()[0], 40, "a handful")
        self.assertLess(len([line for line in self.logged() if line.startswith(begins)]), 60)

    def test_it_leaves_a_minute_after_its_last_client(self):
        RIG.stop_helper()
        RIG.start_helper()
        RIG.set_clock_forward(-57)
        begin = time.monotonic()
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(SOCKET)
            wait_until(lambda: RIG.connections() == 1, "the connection")
        wait_until(lambda: RIG.connections() == 0, "its end")
        RIG.set_clock_forward(0)
        try:
            self.assertEqual(RIG.helper.wait(TIME_LIMIT / 2), 0)
            self.assertGreaterEqual(time.monotonic() - begin, 3)
        finally:
            RIG.stop_helper()
            RIG.start_helper()

    def test_after_an_upgrade_it_leaves_whoever_stays_connected(self):
        program, RIG.helper_program = RIG.helper_program, os.path.join(self.folder, "helper")
        shutil.copy(program, RIG.helper_program)
        RIG.stop_helper()
        try:
            RIG.start_helper()
            with socket.socket(socket.AF_UNIX) as client:
                client.connect(SOCKET)
                wait_until(lambda: RIG.connections() == 1, "the connection")
                self.assertEqual(run("acl", self.file, agent="allow").code, 0)
                self.assertIsNone(RIG.helper.poll())
                shutil.copy(program, RIG.helper_program + ".new")
                os.rename(RIG.helper_program + ".new", RIG.helper_program)
                with contextlib.suppress(subprocess.TimeoutExpired):
                    RIG.helper.wait(TIME_LIMIT / 2)
                self.assertEqual(RIG.helper.poll(), 0)
        finally:
            RIG.helper_program = program
            RIG.stop_helper()
            RIG.start_helper()

    def test_what_it_opens_is_never_taken_for_a_standard_stream(self):
        RIG.stop_helper()
        RIG.start_helper("sh", "-c", 'exec "$0" <&- >&- 2>&-')
        self.assertEqual(run("acl", self.file, agent="allow").code, 0)
        streams = [os.readlink(f"/proc/{RIG.helper.pid}/fd/{stream}") for stream in range(3)]
        RIG.stop_helper()
        RIG.start_helper()
        self.assertEqual(streams, ["/dev/null"] * 3)

    def test_it_stays_for_the_next_client(self):
        RIG.stop_helper()
        RIG.start_helper()
        self.assertEqual(run("acl", self.file, agent="allow").code, 0)
        wait_until(lambda: RIG.connections() == 0, "the end of the connection")
        self.assertIsNone(RIG.helper.poll())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[7:])
