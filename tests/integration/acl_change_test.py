# SPDX-License-Identifier: MIT
"""Changing access-control lists by the command-line host with the real file service, on real files.

usage: acl_change_test.py MORVANE LIBEXEC-DIR [unittest arguments]
"""
import base64
import fcntl
import json
import os
import pty
import re
import select
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import unittest

import terminal as terminals
from waiting import wait_until

MORVANE, LIBEXEC = map(os.path.abspath, sys.argv[1:3])
TIME_LIMIT = 120  # a watchdog; nothing here takes long
STATE = tempfile.TemporaryDirectory()  # this user's, whose checkout it may not be; what lists were is noted there
ENVIRONMENT = {**os.environ, "XDG_STATE_HOME": STATE.name, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8", "TERM": "xterm"}


def run(*arguments):
    return subprocess.run([MORVANE, *arguments], env=ENVIRONMENT, capture_output=True, text=True,
                          timeout=TIME_LIMIT)


def acl(path):
    return subprocess.run(["getfacl", "-cpn", path], check=True, capture_output=True, text=True,
                          timeout=TIME_LIMIT).stdout.split()


class Changing(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = os.path.join(folder.name, "top")
        os.mkdir(self.folder, 0o755)
        self.file = self.make("notes.txt")

    def make(self, name):
        path = os.path.join(self.folder, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="ascii"):
            os.chmod(path, 0o640)
        return path

    def setfacl(self, *arguments):
        subprocess.run(["setfacl", *arguments], check=True, timeout=TIME_LIMIT)

    def succeed(self, *arguments):
        result = run(*arguments)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def fail_with(self, code, *arguments):
        result = run(*arguments)
        self.assertEqual((result.returncode, result.stdout), (code, ""))
        return result.stderr


class Scripts(Changing):
    def test_an_added_entry_is_in_the_list_that_others_read(self):
        table = self.succeed("acl", self.file, "--edit", "add user:65534; permissions read")
        self.assertIn("user nobody                Allow  r--      Custom (part of Read)  This item", table)
        self.assertEqual(acl(self.file), ["user::rw-", "user:65534:r--", "group::r--", "mask::r--",
                                          "other::---"])

    def test_a_box_of_a_folders_entry_is_changed_by_its_name(self):
        self.succeed("acl", self.folder, "--edit",
                     'add group:4711; permissions read; on "Child files"; on "Child folders"; '
                     'on "All descendants"')
        self.assertEqual([line for line in acl(self.folder) if "4711" in line],
                         ["group:4711:r-x", "default:group:4711:r-x"])

    def test_a_list_that_is_too_long_for_the_file_system_says_so(self):
        # Some have room for it, ext4 has not: it gives a list one block.
        script = "; ".join(f"add user:{10000 + i}" for i in range(600))
        result = run("acl", self.file, "--edit", script)
        if result.returncode == 0:
            self.assertEqual(sum(line.startswith("user:1") for line in acl(self.file)), 600)
            return
        self.assertEqual(result.returncode, 1)
        self.assertIn("The list is too long for this file system, whose disk is not full: it would name 600 users "
                      "and groups", result.stderr)
        self.assertEqual(acl(self.file), ["user::rw-", "group::r--", "other::---"])

    def test_an_entry_is_removed(self):
        self.setfacl("-m", "u:4711:rw", self.file)
        number = [e["identity"] for e in json.loads(self.succeed("acl", "--json", self.file))["entries"]
                  ].index("uid 4711") + 1
        self.succeed("acl", self.file, "--edit", f"entry {number}; remove")
        self.assertEqual(acl(self.file), ["user::rw-", "group::r--", "other::---"])

    def test_a_dry_run_shows_both_lists_and_changes_nothing(self):
        before = acl(self.file)
        result = run("acl", self.file, "--dry-run", "--edit", "add user:4711; permissions read")
        self.assertEqual((result.returncode, result.stderr),
                         (0, "morvane: --dry-run, nothing was changed.\n"))
        first, second = result.stdout.split("\nAfter:\n")
        self.assertNotIn("4711", first)
        self.assertIn("uid 4711  ", second)
        self.assertEqual(acl(self.file), before)

    def test_a_dry_run_is_refused_as_the_edit_would_be(self):
        script = 'add user:65534; permissions read; on "Delete"'
        self.assertEqual(self.fail_with(1, "acl", self.file, "--dry-run", "--edit", script),
                         self.fail_with(1, "acl", self.file, "--edit", script))

    def test_what_the_file_system_cannot_hold_is_refused_with_each_box(self):
        before = acl(self.file)
        message = self.fail_with(1, "acl", self.file, "--edit",
                                 'add user:65534; permissions read; on "Delete"; on "Change Owner"')
        self.assertIn('entry 4 (allow user nobody): "Delete": who may delete an item is told by the '
                      'folder that it is in; entry 4 (allow user nobody): "Change Owner": only root has it.',
                      message)
        self.assertIn("Nothing was changed.", message)
        self.assertIn("--lossy accepts the nearest list.", message)
        self.assertEqual(acl(self.file), before)

    def test_every_entry_and_box_that_would_be_lost_is_named_however_many(self):
        script = "; ".join(f'add user:{4700 + i}; permissions read; on "Delete"; on "Change Owner"'
                           for i in range(60))
        message = self.fail_with(1, "acl", self.file, "--edit", script)
        for i in range(60):
            self.assertIn(f'(allow uid {4700 + i}): "Delete": who', message)
            self.assertIn(f'(allow uid {4700 + i}): "Change Owner": only', message)

    def test_every_verb_of_a_script_has_its_effect(self):
        os.chmod(self.folder, 0o700)
        self.setfacl("-m", "u:4711:rwx,u:4712:rwx,g:4713:r", self.folder)
        shown = [e["identity"] for e in json.loads(self.succeed("acl", "--json", self.folder))["entries"]]
        self.succeed("acl", self.folder, "--edit", f"""
            entry {shown.index('uid 4711') + 1}; who user:4721        # another user
            toggle Write; toggle 'Write/Delete'; toggle "write attributes"; toggle "Traverse Folder"
            entry {shown.index('uid 4712') + 1}; permissions read; inherited yes; inherited no
            off "Traverse Folder"; on 'child files'; on "Child folders"; toggle "All descendants"
            entry {shown.index('gid 4713') + 1}; remove
            add group:4722; permissions all; off Administration; off Delete; off "Write Attributes"
            add user:4723; deny; off Read; off Write; on 'Traverse Folder'
            add user:4724; deny; allow; off Write
            """)
        self.assertEqual(acl(self.folder),
                         ["user::rwx", "user:4712:r--", "user:4721:rw-", "user:4723:---", "user:4724:r-x",
                          "group::---", "group:4722:rwx", "mask::rwx", "other::---", "default:user::rwx",
                          "default:user:4712:r--", "default:group::---", "default:mask::r--",
                          "default:other::---"])

    def test_lossy_writes_the_nearest_list_that_grants_no_more(self):
        table = self.succeed("acl", self.file, "--lossy", "--edit",
                             'add user:65534; permissions read; on "Delete"; on "Write Data"')
        self.assertIn("user nobody                Allow  r--      Custom (part of Read)  This item", table)
        self.assertIn("user:65534:r--", acl(self.file))

    def test_a_new_entry_that_denies_counts_before_those_that_allow(self):
        os.chmod(self.file, 0o644)
        self.succeed("acl", self.file, "--lossy", "--edit",
                     'add user:4711; permissions read-write; deny')
        self.assertIn("user:4711:---", acl(self.file))

    def test_setuid_setgid_and_sticky_survive(self):
        os.chmod(self.file, 0o7750)
        self.succeed("acl", self.file, "--edit", "add user:4711; permissions read")
        self.assertEqual(os.stat(self.file).st_mode & 0o7000, 0o7000)

    def test_a_command_that_cannot_be_done_changes_nothing(self):
        before = acl(self.file)
        message = self.fail_with(2, "acl", self.file, "--edit",
                                 "add user:4711; permissions read; off \"No Such Box\"")
        self.assertIn("command 3", message)
        self.assertEqual(acl(self.file), before)


class FailingDisk(Changing):
    def test_an_error_of_the_disk_or_the_server_is_explained(self):
        for calls, what in ("fgetxattr,getxattr,lgetxattr", "read"), ("fsetxattr,setxattr,lsetxattr", "change"):
            with self.subTest(what=what):
                result = subprocess.run(
                    ["strace", "-f", "-qq", "-o", "/dev/null", "-e", f"trace={calls}", "-e", f"inject={calls}:error=EIO",
                     MORVANE, "acl", self.file, *(["--set", "u:4711:r"] if what == "change" else [])],
                    env={**ENVIRONMENT, "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"},
                    capture_output=True, text=True, timeout=TIME_LIMIT, check=False)
                self.assertEqual((result.returncode, result.stdout, result.stderr),
                                 (1, "", f"morvane: cannot {what} the access-control list of '{self.file}': Input/output error\n"
                                         "  The disk has failed, or the server of a network mount; 'dmesg' may tell more.\n"))


class Access(Changing):
    def test_it_is_what_the_user_can_really_do(self):
        os.chmod(os.path.dirname(self.folder), 0o755)  # all must be able to come here
        self.setfacl("-m", "u:65534:rw,m::r", self.file)
        boxes = {}

        def visit(nodes):
            for node in nodes:
                boxes[node["name"]] = node["state"]
                visit(node["children"])

        visit(json.loads(self.succeed("access", self.file, "--user", "65534", "--json"))["permissions"])
        self.assertEqual((boxes["Read Data"], boxes["Write Data"], boxes["Execute File"]), (1, 0, 0))
        self.assertEqual(boxes["Read"], -1)

    def test_a_group_has_what_the_list_gives_it(self):
        os.chmod(os.path.dirname(self.folder), 0o755)
        self.setfacl("-m", "g:65534:rw,g:4711:r", self.file)
        shown = self.succeed("access", self.file, "--group", "nogroup")
        self.assertEqual(shown.split("\n")[0], f"group nogroup on {self.file}")
        self.assertIn("[x] Write Data", shown)
        shown = self.succeed("access", self.file, "--group", "4711")
        self.assertEqual(shown.split("\n")[0], f"gid 4711 on {self.file}")
        self.assertIn("[ ] Write Data", shown)

    def test_nobody_of_that_name_is_a_usage_error(self):
        self.assertEqual(self.fail_with(2, "access", self.file, "--user", "no-such-user"),
                         "morvane: there is no user 'no-such-user'; check the spelling, or write its "
                         "number.\n  'morvane access --help' tells how the command is used.\n")
        self.assertIn("--user NAME or --group NAME is required", self.fail_with(2, "access", self.file))

    def test_root_may_do_what_the_list_does_not_say(self):
        os.chmod(self.file, 0o000)
        self.assertIn("[x] Write Data", self.succeed("access", self.file, "--user", "root"))


class Propagation(Changing):
    def setUp(self):
        super().setUp()
        self.inner = self.make("sub/deep/inner.txt")
        self.setfacl("-m", "u:4711:rwx,d:u:4711:rwx,d:o::-", self.folder)

    def test_everything_below_gets_the_list(self):
        self.assertEqual(self.succeed("acl", self.folder, "--propagate"),
                         "4 items have what they inherit now. 'morvane acl --undo' takes the lists back.\n")
        self.assertEqual(acl(self.inner), ["user::rw-", "user:4711:rwx", "#effective:rw-",
                                           "group::r--", "mask::rw-", "other::---"])
        self.assertIn("default:user:4711:rwx", acl(os.path.dirname(self.inner)))

    def test_dry_run_says_what_would_change_and_changes_nothing(self):
        self.setfacl("-m", "u:daemon:r", self.file)
        os.chown(self.inner, 65534, 65534)
        before = [acl(path) for path in (self.file, self.inner)]
        result = run("acl", self.folder, "--propagate", "--dry-run")
        self.assertEqual((result.returncode, result.stderr), (0, "morvane: --dry-run, nothing was changed.\n"))
        self.assertEqual(
            result.stdout,
            f"2 files and 2 folders below '{self.folder}' get what they inherit of its list. 1 of them has a list of its "
            "own, which goes. 1 of them has another owner or group, and gets user root and group root.\n")
        self.assertEqual([acl(path) for path in (self.file, self.inner)], before)

    def ask(self, answer):
        """On a terminal; returns what was shown and the status."""
        process, terminal = pty.fork()
        if process == 0:
            os.execve(MORVANE, [MORVANE, "acl", self.folder, "--propagate"], {**ENVIRONMENT, "TERM": "dumb"})
        self.addCleanup(os.close, terminal)
        shown = terminals.read(terminal, TIME_LIMIT, until="Go on? (y/n) ")
        os.write(terminal, answer)
        shown += terminals.read(terminal, TIME_LIMIT)
        return shown, os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])

    def test_on_a_terminal_it_asks_before(self):
        before = acl(self.inner)
        shown, status = self.ask(b"n\n")
        self.assertIn("2 files and 2 folders below", shown)
        self.assertIn("nothing was changed.", shown)
        self.assertEqual((status, acl(self.inner)), (130, before))
        shown, status = self.ask(b"y\n")
        self.assertIn("4 items have what they inherit now.", shown)
        self.assertEqual(status, 0)
        self.assertIn("user:4711:rwx", acl(self.inner))

    def test_undo_gives_every_list_back(self):
        self.setfacl("-m", "u:daemon:r", self.file)
        paths = [self.file, self.inner, os.path.dirname(self.inner)]
        before = [acl(path) for path in paths]
        self.succeed("acl", self.folder, "--propagate")
        self.assertNotEqual([acl(path) for path in paths], before)
        self.succeed("acl", "--undo")
        self.assertEqual([acl(path) for path in paths], before)

    def test_what_cannot_be_changed_is_told_and_the_rest_is_changed(self):
        os.chown(self.folder, 65534, 65534)
        os.chown(self.file, 65534, 65534)
        os.chmod(os.path.dirname(self.folder), 0o755)
        result = subprocess.run([MORVANE, "acl", self.folder, "--propagate"], env=ENVIRONMENT,
                                capture_output=True, text=True, timeout=TIME_LIMIT, user=65534,
                                group=65534, extra_groups=[])
        self.assertEqual(result.returncode, 1)
        self.assertIn("3 items could not be changed, the others are; the first are ", result.stderr)
        self.assertIn(f'"{self.folder}/sub" (Operation not permitted)', result.stderr)
        self.assertIn("user:4711:rwx", acl(self.file))
        self.assertNotIn("user:4711:rwx", acl(self.inner))

    def propagate_as_nobody(self, *arguments):
        """Everything is nobody's, but for the items of root's."""
        for path in (self.folder, self.file, self.inner, os.path.dirname(self.inner)):
            os.chown(path, 65534, 65534)
        os.chown(os.path.join(self.folder, "sub"), 65534, 65534)
        os.chmod(os.path.dirname(self.folder), 0o777)
        return subprocess.run([MORVANE, "acl", self.folder, "--propagate", *arguments], env=ENVIRONMENT,
                              capture_output=True, timeout=TIME_LIMIT, user=65534, group=65534, extra_groups=[])

    def test_each_item_that_failed_is_listed_in_a_file_and_all_are_counted(self):
        listed = os.path.join(os.path.dirname(self.folder), "failed items")
        names = [b"a\tb", b"c\nd", b"e\xff", b"f", b"g", b"h", b"i"]
        for name in names:
            os.close(os.open(os.path.join(os.fsencode(self.folder), name), os.O_CREAT | os.O_WRONLY, 0o600))
        result = self.propagate_as_nobody("--failures", listed)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn(b"7 items could not be changed, the others are; the first are ", result.stderr)
        self.assertEqual(result.stderr.splitlines()[-1],
                         b"  4 items have what they inherit now. 7 have not.")
        with open(listed, "rb") as f:
            lines = sorted(f.read().splitlines())
        folder = os.fsencode(self.folder)
        self.assertEqual(lines, sorted(b"%s/%s\tOperation not permitted" % (folder, name)
                                       for name in [rb"a\011b", rb"c\012d", b"e\xff", *names[3:]]))
        again = self.propagate_as_nobody()
        self.assertIn(b"\n  --failures FILE lists them all.\n", again.stderr)
        for name in names:
            os.unlink(os.path.join(folder, name))
        self.assertEqual(self.propagate_as_nobody("--failures", listed).returncode, 0)
        self.assertEqual(os.path.getsize(listed), 0)

    def test_programs_get_the_counts_and_the_items_that_failed(self):
        os.close(os.open(os.path.join(os.fsencode(self.folder), b"odd\xff"), os.O_CREAT | os.O_WRONLY, 0o600))
        printed = json.loads(self.propagate_as_nobody("--json").stdout)
        self.assertEqual((printed["exitStatus"], printed["done"], printed["failed"]), (1, 4, 1))
        failure, = printed["failures"]
        self.assertEqual((base64.b64decode(failure["pathBytes"]), failure["message"]),
                         (os.fsencode(self.folder) + b"/odd\xff", "Operation not permitted"))
        *_, end = map(json.loads, self.propagate_as_nobody("--json-lines").stdout.splitlines())
        self.assertEqual((end["event"], end["done"], end["failed"], len(end["failures"])), ("end", 4, 1, 1))

    def test_of_many_failures_a_thousand_are_listed_and_all_counted(self):
        listed = os.path.join(os.path.dirname(self.folder), "failed")
        many = os.path.join(self.folder, "many")
        os.mkdir(many)
        for i in range(1200):
            os.close(os.open(f"{many}/{i}", os.O_CREAT | os.O_WRONLY, 0o600))
        os.chown(many, 65534, 65534)
        result = self.propagate_as_nobody("--failures", listed)
        self.assertEqual(result.stderr.splitlines()[-2:],
                         [b"  Only the first 1000 are listed.",
                          b"  5 items have what they inherit now. 1200 have not."])
        with open(listed, encoding="ascii") as f:
            self.assertEqual(len(f.readlines()), 1000)

    def test_a_file_is_no_folder(self):
        self.assertIn("Not a directory", self.fail_with(1, "acl", self.file, "--propagate"))


class Interruption(Changing):
    def setUp(self):
        super().setUp()
        self.setfacl("-m", "u:4711:rwx,d:u:4711:rwx", self.folder)

        self.files = [self.make(f"many/{i}") for i in range(500)]
        self.setfacl("-Rb", os.path.join(self.folder, "many"))

    def start(self, what_happens="", **streams):
        """Each change is held up, so that all of them take many seconds."""
        return subprocess.Popen(
            ["strace", "-f", "-qq", "-o", "/dev/null", "-e", "trace=fsetxattr",
             "-e", "inject=fsetxattr:delay_enter=20000" + what_happens,
             MORVANE, "acl", self.folder, "--propagate"],
            env={**ENVIRONMENT, "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"},
            text=True, **streams)

    def interrupt(self, tracer):
        with open(f"/proc/{tracer.pid}/task/{tracer.pid}/children", encoding="ascii") as f:
            host, = (int(child) for child in f.read().split()
                     if os.readlink(f"/proc/{child}/exe") == MORVANE)
        os.kill(host, signal.SIGINT)

    def on_terminal(self, what_happens=""):
        """With standard error on a terminal of forty columns; returns all that was shown on it."""
        terminal, end = pty.openpty()
        self.addCleanup(os.close, terminal)
        fcntl.ioctl(end, termios.TIOCSWINSZ, struct.pack("4H", 24, 40, 0, 0))
        tracer = self.start(what_happens, stdout=subprocess.DEVNULL, stderr=end)
        os.close(end)
        shown = terminals.read(terminal, TIME_LIMIT, until="propagating, ")
        shown += terminals.read(terminal, TIME_LIMIT, until="propagating, ")
        self.interrupt(tracer)
        shown += terminals.read(terminal, TIME_LIMIT)
        self.assertEqual(tracer.wait(TIME_LIMIT), 130)
        return shown

    def test_a_line_on_the_terminal_shows_that_the_work_goes_on(self):
        shown = self.on_terminal()
        drawn, line, last = shown.rpartition("\r\033[K")
        self.assertRegex(drawn, r"^(\r\033\[K\d+ lists?)+(\r\033\[Kpropagating, \d+ items?, \d+ s){2,}\r\033\[K$")
        self.assertEqual(line, "\r\033[K")
        self.assertRegex(last, r"^morvane: The propagation was cancelled after \d+ items?\.\r\n"
                               r"  What is changed stays so\.\r\n$")

    def test_what_failed_before_an_interrupt_is_told(self):
        last = self.on_terminal(":error=EIO").rpartition("\r\033[K")[2]
        self.assertRegex(last, r"^morvane: The propagation was cancelled after (\d+ items?)\. \1 could "
                               r'not be changed; the first are ("\S+" \(Input/output error\)(, )?)+'
                               r"\.\r\n  What is changed stays so\.\r\n$")

    def test_an_interrupt_stops_the_work_and_what_is_changed_stays_so(self):
        tracer = self.start(stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        wait_until(lambda: any(self.is_changed(path) for path in self.files), "the first change")
        self.interrupt(tracer)
        output, message = tracer.communicate(timeout=TIME_LIMIT)
        self.assertEqual((tracer.returncode, output), (130, ""))
        self.assertRegex(message, r"^morvane: The propagation was cancelled after \d+ items?\.\n"
                                  r"  What is changed stays so\.\n$")
        self.assertLess(sum(map(self.is_changed, self.files)), len(self.files))

    def is_changed(self, path):
        return "system.posix_acl_access" in os.listxattr(path)


class Terminal(Changing):
    """The editor on a terminal, driven by keys."""
    signals = {}  # with what is done about them when the editor starts

    def setUp(self):
        super().setUp()
        self.open = set()

    def edit(self, *keys):
        """Presses each key when the screen of the one before is there; returns all that was shown."""
        ready, go = os.pipe()
        process, terminal = pty.fork()
        if process == 0:
            for number, handler in self.signals.items():
                signal.signal(number, handler)
            os.close(go)
            os.read(ready, 1)
            os.execve(MORVANE, [MORVANE, "acl", self.file, "--edit"], ENVIRONMENT)
        os.close(ready)
        self.settings = termios.tcgetattr(terminal)
        os.close(go)
        self.open.add(terminal)
        self.addCleanup(self.close, terminal)
        self.process, self.terminal = process, terminal
        shown = self.read(terminal, until="q leave")
        for key in keys:
            os.write(terminal, key.encode())
            shown += self.read(terminal, until="q leave")
        return shown

    def close(self, terminal):
        if terminal in self.open:
            self.open.remove(terminal)
            os.close(terminal)

    def read(self, terminal, until=None):
        return terminals.read(terminal, TIME_LIMIT, until)

    def end(self, key):
        os.write(self.terminal, key.encode())
        rest = self.read(self.terminal)
        status = os.waitstatus_to_exitcode(os.waitpid(self.process, 0)[1])
        return status, rest

    def test_a_box_toggled_by_a_key_is_saved(self):
        shown = self.edit("\x1b[C", "\x1b[B", "\x1b[B")  # open the owner's entry, go to "Write"
        self.assertIn("[x] Write", shown)
        shown = self.edit_more(" ")
        self.assertIn("[ ] Write", shown)
        status, _ = self.end("ss")
        self.assertEqual(status, 0)
        self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o440)

    def edit_more(self, key):
        os.write(self.terminal, key.encode())
        return self.read(self.terminal, until="q leave")

    def test_every_key_does_what_the_screen_says(self):
        up, down, right, left = "\x1b[A", "\x1b[B", "\x1b[C", "\x1b[D"
        self.setfacl("-m", "u:4711:rw", self.file)
        shown = self.edit()
        number = next(i for i, line in enumerate(
            line for line in shown.split("\n") if "Allow" in line) if "uid 4711" in line)
        for keys, expected in (
                ([*[down] * number], "> {n}. uid 4711  Allow  rw-  Custom (part of Read, part of Write)"),
                ([right], "\n      [-] Read"),
                ([down, down], ">         [x] Read Data"),
                (["\x1bOA"], ">     [-] Read"),  # as a terminal in its other mode tells the key
                ([up, " "], "> {n}. uid 4711  Allow"),
                ([" "], "\n      [-] Read"),
                ([down, " "], ">     [x] Read"),
                ([left], "> {n}. uid 4711  Allow"),
                (["g"], "'All' cannot be chosen: only the owner has it."),
                ([down, up], "> {n}. uid 4711  Allow  rw-  Read and Write"),
                (["g"], "> {n}. uid 4711  Allow  r--  Read "),
                (["t"], "> {n}. uid 4711  Deny  r-x  Read"),
                (["t"], "> {n}. uid 4711  Allow  r--  Read"),
                (["i"], "  inherited"),
                (["t"], "is inherited; make it the item's own first"),
                (["i"], "> {n}. uid 4711  Allow"),
                (["w"], "user:NAME, group:NAME or everyone: "),
                ([*"user:47129", "\x7f"], "everyone: user:4712\n"),
                (["\r"], "> {n}. uid 4712  Allow  r--  Read"),
                (["a", *"group:4713", "\n"], "gid 4713  Allow  rw-  Read and Write"),
                (["d"], "(changed)"),
                (["a", "x", "\x1b"], "(changed)"),
                (["a", "x", "\x03"], "(changed)"),
                (["q"], "Leave without saving? (y/n)"),
                (["n"], "(changed)"),
                (["\x1b"], "Leave without saving? (y/n)"),
                (["n"], "(changed)"),
                (["\x03"], "Leave without saving? (y/n)"),
                (["n"], "(changed)")):
            with self.subTest(keys=keys):
                for key in keys:
                    shown = self.edit_more(key)
                self.assertIn(expected.format(n=number + 1), shown.replace("\r", ""))
        self.assertNotIn("4713", shown)
        status, rest = self.end("ss")
        self.assertEqual(status, 0, rest)
        self.assertEqual(acl(self.file), ["user::rw-", "user:4712:r--", "group::r--", "mask::r--", "other::---"])

    def test_what_is_saved_is_shown_before(self):
        self.edit("g")
        os.write(self.terminal, b"s")
        shown = re.sub(r"\r|\x1b\[\d*m", "", self.read(self.terminal, until="back to the list"))
        self.assertRegex(shown, r"These changes are saved:\n\n> - user \S+ \(owner\)  Allow  rw-  Read and Write  This item\n"
                                r"  \+ user \S+ \(owner\)  Allow  r--  Read  This item\n")
        self.assertIn("(changed)", self.edit_more("x"))
        self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o640)
        self.assertEqual(self.end("s\r")[0], 0)
        self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o440)

    def test_what_is_taken_back_is_not_saved(self):
        self.edit("g", "g", "u")
        self.assertEqual(self.end("ss")[0], 0)
        self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o440)

    def test_a_box_that_cannot_be_held_says_why(self):
        self.setfacl("-m", "u:4711:rw", self.file)
        self.edit("/", *"delete", "\r")
        self.assertIn("It cannot be on: who may delete an item is told by the folder that it is in", self.edit_more(">"))

    def test_what_the_item_is_and_a_mask_that_limits_it_stand_above_the_entries(self):
        self.setfacl("-m", "u:4711:rw,m::r", self.file)
        shown = re.sub(r"\r|\x1b\[\d*m", "", self.edit("j"))
        self.assertRegex(shown, r"\n  file, POSIX list; user \S+ \(owner\), group \S+ \(owning group\)\n"
                                r"  The mask r-- holds back rights that are stored; shown is what is left\.\n\n")
        self.assertIn("\n> 2. uid 4711  Allow  r--  Custom (part of Read)", shown)
        self.edit_more("g")
        self.edit_more("g")
        self.assertIn("> 2. uid 4711  Allow  -w-  Write", self.edit_more("g"))
        self.assertIn("> 2. uid 4711  Allow  r--  Custom", self.edit_more("u") + self.edit_more("u") + self.edit_more("u"))
        self.end("q")

    def test_what_somebody_can_really_do_stands_beside_the_boxes(self):
        self.setfacl("-m", "u:65534:rw,m::r", self.file)
        os.chmod(os.path.dirname(self.folder), 0o755)
        shown = self.edit("\x1b[B", "l", "e", *"user:65534", "\r")
        self.assertRegex(shown, r"\] Read Data +user nobody: yes\r\n")
        self.assertRegex(shown, r"\] Write Data +user nobody: no\r\n")

    def test_the_keys_that_terminals_send_for_the_ends_and_pages_are_known(self):
        for first, last in (("\x1b[H", "\x1b[F"), ("\x1bOH", "\x1bOF"), ("\x1b[1~", "\x1b[4~"), ("\x1b[7~", "\x1b[8~"),
                            ("\x1b[5~", "\x1b[6~")):
            shown = self.edit(last).split("\x1b[2J")[-1]
            self.assertIn("> 3. everyone", shown)
            self.assertIn("> 1. user", self.edit_more(first))
            self.end("q")

    def test_it_stops_for_the_shell_and_comes_back(self):
        self.edit("g")
        os.write(self.terminal, b"\x1a")
        # In a session of its own nobody could continue it: it goes on at once, on a screen that is drawn anew.
        shown = self.read(self.terminal, until="q leave")
        self.assertRegex(shown, r"(?s)\x1b\[\?1049l.*\x1b\[\?1049h.*\(changed\)")
        self.assertEqual(self.end("ss")[0], 0)
        self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o440)

    def test_a_shell_continues_it_where_it_stood(self):
        shell, terminal = pty.fork()
        if shell == 0:
            os.execvpe("bash", ["bash", "--norc", "--noprofile", "-i"], {**ENVIRONMENT, "PS1": "READY> ", "HOME": self.folder})
        self.open.add(terminal)
        self.addCleanup(self.close, terminal)
        self.read(terminal, until="READY> ")
        os.write(terminal, f"{MORVANE} acl {self.file} --edit\n".encode())
        self.read(terminal, until="q leave")
        os.write(terminal, b"g")
        self.assertIn("(changed)", self.read(terminal, until="q leave"))
        os.write(terminal, b"\x1a")
        self.assertIn("Stopped", self.read(terminal, until="READY> "))
        os.write(terminal, b"fg\n")
        self.assertIn("(changed)", self.read(terminal, until="q leave"))
        os.write(terminal, b"ss")
        self.read(terminal, until="READY> ")
        os.write(terminal, b"exit\n")
        self.read(terminal)
        os.waitpid(shell, 0)
        self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o440)

    def test_leaving_after_a_change_is_asked_about_and_changes_nothing(self):
        for key in "q", "\x1b", "\x03":
            with self.subTest(key=key):
                self.edit("g", key)
                status, rest = self.end("y")
                self.assertEqual(status, 0)
                self.assertIn("nothing was changed", rest)
                self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o640)

    def test_leaving_changes_nothing(self):
        self.edit("\x1b[B")
        status, rest = self.end("q")
        self.assertEqual(status, 0)
        self.assertIn("nothing was changed", rest)
        self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o640)

    def test_a_refusal_keeps_the_edits_on_the_screen(self):
        self.setfacl("-m", "u:4711:rwx", self.file)
        before = acl(self.file)
        shown = self.edit()
        number = next(i for i, line in enumerate(
            line for line in shown.split("\n") if "Allow" in line) if "uid 4711" in line)
        for key in [*["\x1b[B"] * number, "\x1b[C", "\x1b[B", "\x1b[B", " "]:
            shown = self.edit_more(key)
        self.assertIn(">         [ ] Read Data", shown)
        shown = self.edit_more("ss")
        self.assertIn("cannot change the access-control list", shown)
        self.assertIn(">         [ ] Read Data", shown)
        self.assertEqual(acl(self.file), before)
        status, _ = self.end("LL")
        self.assertEqual(status, 0)
        self.assertNotEqual(acl(self.file), before)

    def test_a_list_that_another_program_has_changed_is_offered_with_the_edits_on_it(self):
        self.setfacl("-m", "u:4711:rw", self.file)
        shown = self.edit()
        number = next(i for i, line in enumerate(
            line for line in shown.split("\n") if "Allow" in line) if "uid 4711" in line)
        for key in [*["\x1b[B"] * number, "g", "g"]:
            shown = self.edit_more(key)
        self.assertIn("uid 4711  Allow  r--  Read ", shown)
        self.setfacl("-m", "u:4712:r", self.file)
        shown = " ".join(self.edit_more("ss").split())
        self.assertIn("Another program has changed the list. Your changes are made on what it is now: look at it, "
                      "and save again.", shown)
        self.assertIn("uid 4711 Allow r-- Read ", shown)
        self.assertIn("uid 4712 Allow", shown)
        self.assertIn("user:4711:rw-", acl(self.file), "nothing is written before it was looked at")
        status, rest = self.end("ss")
        self.assertEqual(status, 0, rest)
        self.assertEqual(acl(self.file), ["user::rw-", "user:4711:r--", "user:4712:r--", "group::r--", "mask::r--",
                                          "other::---"])

    def test_another_size_draws_the_screen_anew(self):
        self.edit("\x1b[B")
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("4H", 20, 60, 0, 0))
        self.assertIn("\x1b[2J", self.read(self.terminal, until="\x1b[2J"))

    def test_a_signal_leaves_the_terminal_as_it_was(self):
        for number in signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT:
            with self.subTest(signal=number):
                self.edit("\x1b[B")
                self.assertNotEqual(termios.tcgetattr(self.terminal), self.settings)
                os.kill(self.process, number)
                rest = self.read(self.terminal)
                self.assertEqual(os.waitpid(self.process, 0)[1] & 0x7F, number)
                self.assertIn("\x1b[?25h\x1b[?1049l", rest)
                self.assertEqual(termios.tcgetattr(self.terminal), self.settings)
                self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o640)

    def test_the_editor_leaves_with_its_terminal_though_hangups_are_ignored(self):
        self.signals = {signal.SIGHUP: signal.SIG_IGN}
        self.edit("\x1b[B", "g")
        self.close(self.terminal)
        ended = os.pidfd_open(self.process)
        self.addCleanup(os.close, ended)
        if not select.select([ended], [], [], TIME_LIMIT)[0]:
            os.kill(self.process, signal.SIGKILL)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(self.process, 0)[1]), 0)
        self.assertEqual(os.stat(self.file).st_mode & 0o777, 0o640)


class Meanwhile(Changing):
    """Another program changes the list between the reading and the writing of a script's edit."""

    def edit(self, script, *meanwhile):
        """The service is held whenever it has opened the file; before it goes on, it is the turn of the next of
        `meanwhile`: of the first when it reads the list, of the second right before it would write."""
        turns = iter(meanwhile)
        told = os.path.join(os.path.dirname(self.folder), "told")
        os.mkfifo(told)
        tracer = subprocess.Popen(
            ["strace", "-f", "-qq", "-o", told, "-P", self.file, "-e", "trace=openat,openat2",
             "-e", "inject=openat,openat2:signal=SIGSTOP", MORVANE, "acl", self.file, "--edit", script],
            env={**ENVIRONMENT, "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"},
            text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        with open(told, encoding="ascii") as lines:
            opener = None
            for line in lines:
                thread = int(line.split()[0])
                if "--- SIGSTOP" in line:
                    opener = thread
                elif "stopped by SIGSTOP" in line and thread == opener:
                    next(turns, lambda: None)()
                    os.kill(thread, signal.SIGCONT)
        output, message = tracer.communicate(timeout=TIME_LIMIT)
        return tracer.returncode, output, message

    @staticmethod
    def nothing():
        pass

    def test_an_edit_is_done_to_what_the_list_is_by_then(self):
        self.setfacl("-m", "u:4711:rw,u:4712:rw", self.file)
        code, output, message = self.edit("entry 2; permissions read; add user:4714; permissions read", self.nothing,
                                          lambda: self.setfacl("-m", "u:4712:r,u:4710:r", self.file))
        self.assertEqual((code, message), (0, "morvane: another program has changed the list meanwhile; the edit was "
                                              "made on what it is now.\n"))
        self.assertIn("uid 4710", output)
        self.assertEqual(acl(self.file), ["user::rw-", "user:4710:r--", "user:4711:r--", "user:4712:r--",
                                          "user:4714:r--", "group::r--", "mask::r--", "other::---"])

    def test_an_edit_of_what_has_changed_is_refused(self):
        self.setfacl("-m", "u:4711:rw", self.file)
        code, output, message = self.edit("entry 2; permissions write", self.nothing,
                                          lambda: self.setfacl("-m", "u:4711:r", self.file))
        self.assertEqual((code, output), (1, ""))
        self.assertIn("another program has changed the list meanwhile, and in it what the script changes: entry 2 "
                      "(uid 4711).\n  Nothing was changed. Look at the list, and edit it as it is now.\n", message)
        self.assertIn("user:4711:r--", acl(self.file))

    def test_an_edit_of_a_file_that_has_gone_says_so(self):
        def change_and_remove():
            os.chmod(self.file, 0o600)
            os.unlink(self.file)

        code, output, message = self.edit("add user:4711", self.nothing, change_and_remove)
        self.assertEqual((code, output), (1, ""))
        self.assertIn(f"cannot change the access-control list of '{self.file}': No such file or directory", message)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
