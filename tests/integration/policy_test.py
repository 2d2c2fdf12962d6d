# SPDX-License-Identifier: MIT
"""The privileged road where rights are not defined, and where the policy service answers otherwise than polkit
does, or not at all.

usage: policy_test.py MORVANE HELPER POLICY-FILE POLICY-AGENT BARE-CLIENT SHIFTED-CLOCK
       POLICY-STAND-IN [unittest arguments]
"""
import os
import select
import shutil
import subprocess
import sys
import unittest
from xml.etree import ElementTree

import rig as rigs
from privileged_case import PrivilegedCase
from rig import LABEL, TIME_LIMIT
from waiting import wait_until

MORVANE, HELPER, POLICY, AGENT, BARE_CLIENT, CLOCK, STAND_IN = map(os.path.abspath, sys.argv[1:8])
rigs.enter_namespaces()
RIG = rigs.Rig(HELPER, [POLICY], AGENT, CLOCK)
AS_POLKIT = ["setpriv", "--reuid=polkitd", "--regid=nogroup", "--clear-groups"]
EACCES = 13
REFUSED = [EACCES] * 7
LIMIT = 60  # seconds for an answer
ACTIONS = "/usr/share/polkit-1/actions"


class Answers(PrivilegedCase):
    """A client that polkit has granted every right, and then somebody else in polkit's place."""

    def setUp(self):
        super().setUp()
        # The folder is to keep its name, so that every job ends alike.
        os.mkdir(os.path.join(os.path.dirname(self.folder), "taken"))
        self.client = RIG.start([BARE_CLIENT, self.folder, "authorize"], "allow", stdin=subprocess.PIPE)
        self.addCleanup(self.client.finish)
        self.addCleanup(self.client.process.kill)
        self.granted = self.codes()
        self.assertNotIn(EACCES, self.granted)
        self.before = self.look()
        RIG.kill_polkitd()
        self.addCleanup(RIG.start_polkitd)

    def line(self, stream, what):
        self.assertTrue(select.select([stream], [], [], TIME_LIMIT)[0], f"no {what}")
        return stream.readline()

    def codes(self):
        self.assertTrue(select.select([self.client.process.stdout], [], [], TIME_LIMIT)[0], "no codes")
        return [int(self.client.process.stdout.readline().split()[1]) for _ in REFUSED]

    def stand_in(self, answer):
        stand_in = subprocess.Popen([*AS_POLKIT, STAND_IN, answer], stdout=subprocess.PIPE, bufsize=0)
        self.addCleanup(stand_in.stdout.close)
        self.addCleanup(stand_in.wait)
        self.addCleanup(stand_in.kill)
        self.assertEqual(self.line(stand_in.stdout, "stand-in"), b"ready\n")
        return stand_in

    def begin_job(self):
        self.client.process.stdin.write(b"again\n")
        self.client.process.stdin.flush()

    def codes_with(self, answer):
        """How each request ends where every check is answered so."""
        stand_in = self.stand_in(answer)
        self.begin_job()
        codes = self.codes()
        for _ in codes:
            self.assertEqual(self.line(stand_in.stdout, "question"), b"asked\n")
        stand_in.kill()
        stand_in.wait()
        return codes

    def test_a_plain_yes_grants(self):
        self.assertEqual(self.codes_with("((true, false, @a{ss} {}),)"), self.granted)

    def test_nothing_else_grants(self):
        for answer in ("error",
                       "((false, false, @a{ss} {}),)",
                       "((false, true, @a{ss} {}),)",
                       "((true, true, @a{ss} {}),)",
                       "((true, false),)",
                       "((true, false, @a{ss} {}, true),)",
                       "((true, false, @a{sv} {}),)",
                       "((1, 0, @a{ss} {}),)",
                       "(true, false, @a{ss} {})",
                       "(true,)",
                       "('yes',)",
                       "()"):
            with self.subTest(answer=answer):
                self.assertEqual(self.codes_with(answer), REFUSED)
                self.assertEqual(self.look(), self.before)

    def test_an_answer_that_never_comes_is_waited_for_a_minute_and_grants_nothing(self):
        self.addCleanup(RIG.set_clock_forward, 0)
        stand_in = self.stand_in("silence")
        self.begin_job()
        for i in range(len(REFUSED)):
            self.assertEqual(self.line(stand_in.stdout, "question"), b"asked\n")
            RIG.set_clock_forward((i + 1) * (LIMIT + 1))
        self.assertEqual(self.codes(), REFUSED)
        self.assertEqual(self.look(), self.before)


def actions(*paths):
    """What policy files say of each action in English, a vendor's name aside."""
    language = "{http://www.w3.org/XML/1998/namespace}lang"
    return {action.get("id"): [(e.tag, (e.text or "").strip()) for e in action.iter() if language not in e.keys()]
            for path in paths for action in ElementTree.parse(path).iter("action")}


def is_defined(action):
    return subprocess.run(["pkaction", "--action-id", action], capture_output=True).returncode == 0


class MissingRights(PrivilegedCase):
    def setUp(self):
        super().setUp()
        self.addCleanup(self.define)
        os.unlink(os.path.join(ACTIONS, os.path.basename(POLICY)))
        wait_until(lambda: not is_defined(f"{LABEL}.GetFileAcl"), "the end of the rights")

    def define(self):
        for file in os.listdir(ACTIONS):
            os.unlink(os.path.join(ACTIONS, file))
        shutil.copy(POLICY, ACTIONS)
        wait_until(lambda: is_defined(f"{LABEL}.GetFileAcl"), "the rights")

    def written(self):
        return [os.path.join(ACTIONS, file) for file in os.listdir(ACTIONS)]

    def ask(self, agent="allow"):
        return RIG.start([MORVANE, "--privileged", "acl", self.file], agent).finish()

    def ask_as_root(self):
        return subprocess.run([MORVANE, "--privileged", "acl", self.file], capture_output=True, text=True,
                              timeout=TIME_LIMIT)

    def test_who_may_not_define_them_is_told_and_nobody_is_asked(self):
        outcome = self.ask()
        self.assertRefused(outcome, "The rights of this program are not defined on this system, and only root "
                                    "may define them.")
        self.assertEqual((outcome.prompts, self.written()), ([], []))

    def test_root_defines_them_as_the_package_does(self):
        outcome = self.ask_as_root()
        self.assertEqual(actions(*self.written()), actions(POLICY))
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        self.assertEqual(self.ask().prompts,
                         [f"{LABEL}.GetFileAcl: Morvane wants to retrieve file Access Control List."])

    def test_rights_that_polkit_has_not_noticed_yet_are_waited_for(self):
        # Root's program writes into a folder of its own, from which polkit gets the rights later.
        unnoticed = "/run/unnoticed"
        os.mkdir(unnoticed)
        self.addCleanup(shutil.rmtree, unnoticed)
        program = subprocess.Popen(["unshare", "--mount", "sh", "-c", f'mount --bind {unnoticed} {ACTIONS} && exec "$@"',
                                    "sh", MORVANE, "--privileged", "acl", self.file], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        self.addCleanup(program.kill)

        def all_are_written():
            files = [os.path.join(unnoticed, file) for file in os.listdir(unnoticed) if file.endswith(".policy")]
            return actions(*files).keys() >= actions(POLICY).keys()
        wait_until(all_are_written, "the rights that root defines")
        shutil.copytree(unnoticed, ACTIONS, dirs_exist_ok=True)
        output, message = program.communicate(timeout=TIME_LIMIT)
        self.assertEqual((program.returncode, message), (0, ""))
        self.assertIn("user root (owner)", output)

    def test_one_that_is_defined_otherwise_stays(self):
        right = f"{LABEL}.GetFileAcl"
        other = os.path.join(ACTIONS, "other.policy")
        with open(other, "w", encoding="ascii") as f:
            f.write(f'<policyconfig><action id="{right}"><description>d</description><message>m</message><defaults>'
                    "<allow_any>yes</allow_any><allow_inactive>yes</allow_inactive><allow_active>yes</allow_active>"
                    "</defaults></action></policyconfig>")
        wait_until(lambda: is_defined(right), "the right")
        self.ask_as_root()
        added = set(self.written()) - {other}
        self.assertEqual(actions(*added).keys(), actions(POLICY).keys() - {right})
        outcome = self.ask()
        self.assertEqual((outcome.code, outcome.prompts), (0, []), outcome.message)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[8:])
