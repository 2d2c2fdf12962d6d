# SPDX-License-Identifier: MIT
"""The privileged road inside of a login session, and who asks the user on a terminal, on real parts.

usage: session_test.py MORVANE HELPER POLICY-FILE POLICY-AGENT BARE-CLIENT SHIFTED-CLOCK
       AUTHORIZATION-REFERENCES [unittest arguments]
"""
import os
import re
import signal
import subprocess
import sys
import termios
import unittest

import rig as rigs
import terminal as terminals
from privileged_case import PrivilegedCase
from rig import IN_SESSION, IN_USER_SERVICE, LABEL, TIME_LIMIT
from waiting import wait_until

MORVANE, HELPER, POLICY, AGENT, BARE_CLIENT, CLOCK, REFERENCES = map(os.path.abspath, sys.argv[1:8])
rigs.enter_namespaces()
RIG = rigs.Rig(HELPER, [POLICY], AGENT, CLOCK)
RIG.set_password("root", "the password")
EACCES = 13
RIGHTS = sorted(f"{LABEL}.{right}" for right in ("GetFileAcl", "GetFileAccess", "SetFileAcl",
                                                 "PropagateFileAcl", "RenameFiles", "GetFileSize"))
FIRST = f"{LABEL}.GetFileAcl"
REFUSED = [EACCES] * 7


def kept_grants(program):
    """What polkit keeps for the program, which is in the session: the grants' ids, with their rights."""
    listing = RIG.start(["pkcheck", "--list-temp"], cgroup=IN_SESSION).finish()
    assert listing.code == 0, listing.message
    grant = rf"^authorization id: (\S+)\naction: +(\S+)\nsubject: +unix-process:{program.process.pid}:"
    return dict(re.findall(grant, listing.output, re.MULTILINE))


class Grants(PrivilegedCase):
    """A client that keeps its connection, and asks for every right before each of its jobs; a password for the
    first serves them all."""

    def setUp(self):
        super().setUp()
        # The folder is to keep its name, so that every job ends alike.
        os.mkdir(os.path.join(os.path.dirname(self.folder), "taken"))
        RIG.set_clock_forward(0)
        self.addCleanup(RIG.set_clock_forward, 0)

    def start(self, cgroup):
        self.client = RIG.start(["env", *RIG.with_clock(), BARE_CLIENT, self.folder, "authorize"], "allow",
                                cgroup, stdin=subprocess.PIPE)
        self.addCleanup(self.client.stop_agent)
        self.addCleanup(self.client.process.kill)
        self.first = self.codes()
        self.assertNotIn(EACCES, self.first)
        self.before = self.look()

    def codes(self):
        return [int(self.client.process.stdout.readline().split()[1]) for _ in REFUSED]

    def job(self, seconds):
        """Does another job, so many seconds after the first; returns how its requests ended."""
        RIG.set_clock_forward(seconds)
        self.client.process.stdin.write(b"authorize\n")
        self.client.process.stdin.flush()
        return self.codes()

    def end(self):
        """Ends the client; tells the rights that the user was asked for in all."""
        self.client.process.stdin.close()
        self.client.process.stdin = None
        self.assertEqual(self.client.finish().code, 0)
        return sorted(prompt.split(":")[0] for prompt in self.client.prompts)

    def test_in_a_session_an_expired_grant_is_forgotten_and_asked_for_anew(self):
        # A slow machine has ten seconds left of the 45.
        self.start(IN_SESSION)
        grants = kept_grants(self.client)
        self.assertEqual(list(grants.values()), [FIRST])
        self.assertEqual(self.job(35), self.first)
        self.assertEqual(kept_grants(self.client), grants, "what is still good is not asked for again")
        self.assertEqual(self.job(46), self.first)
        renewed = kept_grants(self.client)
        self.assertEqual(list(renewed.values()), [FIRST])
        self.assertTrue(grants.keys().isdisjoint(renewed), "polkit keeps what had expired")
        # 45 seconds from the second answer.
        self.assertEqual(self.job(46 + 35), self.first)
        self.assertEqual(kept_grants(self.client), renewed)
        self.assertEqual(self.job(46 + 46), self.first)
        self.assertEqual(self.end(), 3 * [FIRST])
        self.assertNotIn("expired", self.client.message)

    def assertNothingIsDoneWhenAskedAnew(self, answer, reason):
        self.start(IN_SESSION)
        self.client.start_agent(answer)
        self.assertEqual(self.job(46), REFUSED)
        self.assertEqual(self.look(), self.before)
        self.assertEqual(kept_grants(self.client), {})
        self.assertEqual(self.end(), sorted([FIRST, *RIGHTS]))
        self.assertEqual(self.client.message.count(reason), len(RIGHTS), self.client.message)

    def test_in_a_session_what_is_denied_when_asked_anew_is_not_done(self):
        self.assertNothingIsDoneWhenAskedAnew("deny", "The authorization was denied.")

    def test_in_a_session_what_is_closed_when_asked_anew_is_not_done(self):
        self.assertNothingIsDoneWhenAskedAnew("cancel", "The authorization was cancelled by the user.")

    def test_outside_of_any_session_an_expired_grant_is_an_error_at_once(self):
        self.start(None)
        self.assertEqual(self.job(35), self.first)
        self.client.start_agent("deny")
        self.assertEqual(self.job(46), REFUSED)
        self.assertEqual(self.look(), self.before)
        self.assertEqual(self.end(), RIGHTS)
        self.assertIn("Authorization rights error: The authorization has expired. Outside of a login session it "
                      "can be given anew once five minutes have passed since it was given; ask again then, or "
                      "in a program started anew.", self.client.message.splitlines())

    def test_outside_of_any_session_a_new_password_serves_the_expired_right_too(self):
        self.start(None)
        self.assertEqual(self.job(46), self.first)
        self.assertEqual(self.look(), self.before)


class References(PrivilegedCase):
    """What a program was granted belongs to the reference under which it was."""

    def setUp(self):
        super().setUp()
        RIG.set_clock_forward(0)
        self.addCleanup(RIG.set_clock_forward, 0)
        self.program = RIG.start(["env", *RIG.with_clock(), REFERENCES], "allow", IN_SESSION, stdin=subprocess.PIPE)
        self.addCleanup(self.program.finish)
        self.addCleanup(self.program.process.kill)

    def do(self, command):
        self.program.process.stdin.write(command.encode() + b"\n")
        self.program.process.stdin.flush()
        return self.program.process.stdout.readline().decode().rstrip()

    def test_an_empty_reference_obtains_nothing_and_gives_nothing_up(self):
        self.assertEqual(self.do(f"obtain nobody {FIRST}"), "-60002 The authorization reference is empty.")
        self.assertEqual(self.do(f"obtain a {FIRST}"), "0 No error.")
        grants = kept_grants(self.program)
        self.assertEqual(list(grants.values()), [FIRST])
        self.assertEqual(self.do("free nobody"), "0 No error.")
        self.assertEqual(kept_grants(self.program), grants)

    def test_a_reference_gives_up_what_was_obtained_under_it_only(self):
        other = f"{LABEL}.SetFileAcl"
        self.assertEqual(self.do(f"obtain a {FIRST}"), "0 No error.")
        RIG.set_clock_forward(46)
        self.assertEqual(self.do(f"obtain b {other}"), "0 No error.")
        self.assertEqual(sorted(kept_grants(self.program).values()), [FIRST, other])
        self.assertEqual(self.do("free a"), "0 No error.")
        self.assertEqual(list(kept_grants(self.program).values()), [other])
        self.assertEqual(self.do("free b"), "0 No error.")
        self.assertEqual(kept_grants(self.program), {})

    def test_a_right_that_is_not_defined_is_said_to_be_none(self):
        self.assertEqual(self.do(f"obtain a {LABEL}.NoSuchRight"),
                         "-60001 The system's policy service refuses to answer for this right; it may not be "
                         "defined.")


class OnTerminal(PrivilegedCase):
    COMMAND = ["env", "TERM=xterm", MORVANE, "--privileged", "acl"]

    def start(self, agent=None, cgroup=None, options=(), launcher=()):
        ours, theirs = os.openpty()
        program = RIG.start(["setsid", "--ctty", *launcher, *self.COMMAND, self.file, *options], agent, cgroup,
                            stdin=theirs, stdout=theirs, stderr=theirs)
        os.close(theirs)
        self.addCleanup(os.close, ours)
        self.addCleanup(program.finish)
        self.addCleanup(program.process.kill)
        return program, ours

    def type_password(self, program, terminal, password):
        wait_until(lambda: terminals.reads_password(program.process.pid), "an agent that listens")
        os.write(terminal, password.encode() + b"\n")

    def read(self, terminal, until=None):
        return terminals.read(terminal, TIME_LIMIT, until)


class TextualAgent(OnTerminal):
    """Who asks when the command runs on a terminal."""

    def test_outside_of_any_session_the_command_brings_an_agent(self):
        program, terminal = self.start()
        shown = self.read(terminal, until="Password:")
        self.assertIn(f"{LABEL}.GetFileAcl", shown)
        self.assertIn("Morvane wants to retrieve file Access Control List.", shown)
        self.type_password(program, terminal, "not the password")
        shown = self.read(terminal)
        self.assertIn("The authorization was denied.", shown)
        self.assertNotIn("Who", shown)
        self.assertEqual(program.finish().code, 1)
        self.assertEqual(self.look(), self.before)

    def test_whoever_knows_an_administrators_password_is_shown_the_list(self):
        program, terminal = self.start()
        self.read(terminal, until="Password:")
        self.type_password(program, terminal, "the password")
        shown = self.read(terminal)
        self.assertEqual(program.finish().code, 0, shown)
        self.assertIn("Who", shown)

    def test_in_a_session_without_an_agent_the_command_brings_one(self):
        for cgroup in (IN_SESSION, IN_USER_SERVICE):
            with self.subTest(cgroup=cgroup):
                _, terminal = self.start(cgroup=cgroup)
                self.assertIn(f"{LABEL}.GetFileAcl", self.read(terminal, until="Password:"))

    def test_in_a_session_with_an_agent_that_one_is_asked(self):
        for cgroup in (IN_SESSION, IN_USER_SERVICE):
            with self.subTest(cgroup=cgroup):
                program, terminal = self.start("allow", cgroup)
                shown = self.read(terminal)
                self.assertEqual(program.finish().code, 0, shown)
                self.assertIn("Who", shown)
                self.assertNotIn("Password", shown)
                self.assertEqual(len(program.prompts), 1)

    def test_a_list_is_edited_by_keys_through_the_helper(self):
        program, terminal = self.start("allow", IN_SESSION, ["--edit"])
        self.read(terminal, until="q leave")
        for key in ("\x1b[C", "\x1b[B", "\x1b[B", " "):  # takes writing from the owner
            os.write(terminal, key.encode())
            shown = self.read(terminal, until="q leave")
        self.assertIn("[ ] Write", shown)
        os.write(terminal, b"s")
        self.assertIn("These changes are saved:", self.read(terminal, until="back to the list"))
        os.write(terminal, b"s")
        shown = self.read(terminal)
        self.assertEqual(program.finish().code, 0, shown)
        self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o400)
        self.assertEqual([prompt.split(":")[0] for prompt in program.prompts], [f"{LABEL}.GetFileAcl"])


class TerminalOfAnotherSession(OnTerminal):
    """As after `su -c`: the command runs in a session without a terminal, on that of the session it was typed in."""

    # What waits for the command is in its terminal's foreground.
    COMMAND = ["setsid", "--fork", "--wait", *OnTerminal.COMMAND]

    def test_the_question_comes_on_that_terminal(self):
        program, terminal = self.start()
        before = termios.tcgetattr(terminal)
        self.assertIn(f"{LABEL}.GetFileAcl", self.read(terminal, until="Password:"))
        self.type_password(program, terminal, "the password")
        shown = self.read(terminal)
        self.assertEqual(program.finish().code, 0, shown)
        self.assertIn("Who", shown)
        self.assertNotIn("the password", shown)
        self.assertEqual(termios.tcgetattr(terminal), before)

    def test_ctrl_c_ends_the_command_and_leaves_the_terminal_as_it_was(self):
        program, terminal = self.start()
        before = termios.tcgetattr(terminal)
        self.read(terminal, until="Password:")
        os.write(terminal, b"\x03")
        self.read(terminal)
        self.assertEqual(program.finish().code, 128 + signal.SIGINT)
        self.assertEqual(termios.tcgetattr(terminal), before)

    def assertNobodyIsAsked(self, command):
        program, terminal = self.start(launcher=["sh", "-c", command, "sh"])
        shown = self.read(terminal)
        program.finish()
        self.assertIn("There is no agent to ask the user with.", shown)
        self.assertIn("After 'su -c' it must be in the foreground, with its input and output on the terminal; else "
                      "use 'su --pty -c'.", shown)
        self.assertNotIn("Password", shown)

    def test_in_the_background_nothing_is_taken_from_the_shell_in_the_foreground(self):
        self.assertNobodyIsAsked('set -m; "$@" & wait')

    def test_what_goes_elsewhere_is_not_mixed_with_questions(self):
        self.assertNobodyIsAsked('"$@" | cat')


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[8:])
