# SPDX-License-Identifier: MIT
"""What is found in trees of real files whose lists are likely to be mistakes.

usage: check_command_test.py MORVANE LIBEXEC-DIR NFS4-MOUNT-LIBRARY SILENT-DIRECTORY-LIBRARY [unittest arguments]
"""
import grp
import json
import os
import pwd
import signal
import subprocess
import sys
import unittest

from json_schema import check
from list_commands import (ALLOW, DENY, ENVIRONMENT, FILES, FOLDERS, INHERITED, MORVANE, SCHEMA, TIME_LIMIT, ListCommand,
                           Nfs4ListCommand, nfs4_list)


class Findings(ListCommand):
    def setUp(self):
        super().setUp()
        self.make_folder("top")

    def findings(self, *arguments, status=1):
        """The lines but the last, which counts."""
        return self.lines("check", *arguments, status=status)[:-1]

    def test_an_ordinary_tree_has_none(self):
        self.make_file("top", "notes", mode=0o600)
        os.chown(self.path("top", "notes"), 1, 1)
        self.make_folder("top", "sub", mode=0o711)
        os.chmod(self.path("top", "sub"), 0o755)
        self.make_file("top", "sub", "run", mode=0o755)
        os.symlink("nowhere", self.path("top", "link"))
        os.mkfifo(self.path("top", "fifo"))
        self.assertEqual(self.lines("check", "top"), ["4 items looked at, nothing found."])
        printed = self.document("check", "top")
        self.assertEqual((printed["findings"], printed["error"]), ([], None))
        self.assertEqual(printed["counts"], {"items": 4, "differs": 0, "unknown": 0, "unreadable": 0})

    def test_items_as_the_kernel_makes_them_are_as_their_folder_would_have_them(self):
        self.setfacl("-d", "-m", "u:daemon:rwx,g:bin:r-x,o::-", self.path("top"))
        subprocess.run(["sh", "-c", "umask 0; cd top; touch file; mkdir sub; touch sub/file; mkdir sub/sub"],
                       check=True, cwd=self.folder, timeout=TIME_LIMIT)
        self.assertEqual(self.findings("top", status=0), [])

    def test_a_list_that_its_folder_would_not_give_is_found(self):
        self.setfacl("-d", "-m", "u:daemon:rwx", self.path("top"))
        for name in ("a", "b", "c", "d"):
            self.make_file("top", name, mode=0o666)
        self.setfacl("-m", "u::rw,u:daemon:rwx,g::r,m::rw,o::r", self.path("top", "a"))
        self.setfacl("-b", "-m", "u::rw,g::r,o::r", self.path("top", "b"))
        self.setfacl("-m", "u::rw,u:daemon:rwx,g::r,m::r,o::r", self.path("top", "c"))
        self.setfacl("-m", "u::rw,u:daemon:rw,u:bin:rw,g::r,o::-", self.path("top", "d"))
        self.assertEqual(self.findings("top"), [
            "top/b: the folder would give another list: user daemon has no entry",
            "top/c: the folder would give another list: user daemon has r--, not rw-",
            "top/d: the folder would give another list: everyone has ---, not r--, and 1 more"])

    def test_an_entry_that_is_gone_is_told_though_the_mask_made_anew_lets_somebody_execute(self):
        self.setfacl("-d", "-m", "u:daemon:rwx", self.path("top"))
        self.make_file("top", "a", mode=0o644)
        self.setfacl("-x", "u:daemon", self.path("top", "a"))
        self.assertEqual(self.findings("top"), [
            "top/a: the folder would give another list: user daemon has no entry, and 1 more"])

    def test_a_list_in_a_folder_that_gives_none_is_found(self):
        self.make_file("top", "a")
        self.make_folder("top", "sub")
        self.setfacl("-m", "u:daemon:r", self.path("top", "a"))
        self.setfacl("-d", "-m", "g:bin:r", self.path("top", "sub"))
        self.assertEqual(self.findings("top"), [
            "top/a: the folder gives no list, and it has one of its own: user daemon has an entry",
            "top/sub: the folder gives no list, and it has one of its own: creator has an entry"])

    def test_users_and_groups_that_nobody_knows_are_found(self):
        self.make_file("top", "a")
        self.make_file("top", "b")
        self.setfacl("-m", "u:47110:r,g:47111:r", self.path("top"))
        self.setfacl("-d", "-m", "u:47110:r", self.path("top"))
        self.setfacl("-b", self.path("top"))
        self.setfacl("-m", "u:47110:r,g:47111:r,d:u:47110:r", self.path("top"))
        self.setfacl("-m", "u::rw,u:47110:r,g::r,o::-", self.path("top", "a"))
        os.chown(self.path("top", "b"), 47112, 47113)
        told = [line for line in self.findings("top") if "does not know" in line]
        self.assertEqual(told, [
            "top: it has an entry for uid 47110, whom this system does not know",
            "top: it has an entry for gid 47111, whom this system does not know",
            "top/a: it has an entry for uid 47110, whom this system does not know",
            "top/b: its owner is uid 47112, whom this system does not know",
            "top/b: its group is gid 47113, which this system does not know"])
        printed = self.document("check", "top", status=1)
        self.assertEqual({one["identity"] for one in printed["findings"] if one["finding"] == "unknown"},
                         {"uid 47110", "gid 47111", "uid 47112", "gid 47113"})
        self.assertEqual(printed["counts"]["unknown"], 5)

    def test_what_only_root_can_read_is_found(self):
        for name, mode, owner in (("a", 0o600, 0), ("b", 0o000, 1), ("c", 0o600, 1), ("d", 0o040, 1), ("e", 0o222, 1),
                                  ("f", 0o600, 0)):
            os.chown(self.make_file("top", name, mode=mode), owner, 2)
        self.setfacl("-m", "u:daemon:r", self.path("top", "f"))
        for name, mode in (("sub", 0o444), ("shut", 0o700), ("open", 0o755)):
            self.make_folder("top", name, mode=mode)
        told = [line for line in self.findings("top") if "nobody" in line]
        self.assertEqual(told, ["top/a: nobody but root can read it", "top/b: nobody but root can read it",
                                "top/e: nobody but root can read it", "top/shut: nobody but root can look into it",
                                "top/sub: nobody but root can look into it"])

    def test_a_group_that_nobody_is_in_is_nobody(self):
        primary = {user.pw_gid for user in pwd.getpwall()}
        empty = next(group for group in grp.getgrall() if not group.gr_mem and group.gr_gid not in primary)
        for name, group in (("a", empty.gr_gid), ("b", 2), ("c", 47110)):
            os.chown(self.make_file("top", name), 0, group)
        self.assertEqual([line for line in self.findings("top") if "nobody" in line],
                         ["top/a: nobody but root can read it"])
        passwd = self.path("passwd")
        with open("/etc/passwd", encoding="utf-8") as before, open(passwd, "w", encoding="utf-8") as file:
            file.write(before.read() + "".join(f"aa{i}:x:{70000 + i}:65534::/:/bin/false\n" for i in range(1500)))
        result = subprocess.run(
            ["unshare", "--mount", "--propagation", "private", "sh", "-c",
             'mount --bind passwd /etc/passwd && "$0" check top/a', MORVANE],
            cwd=self.folder, env=ENVIRONMENT, capture_output=True, text=True, timeout=TIME_LIMIT)
        self.assertEqual(result.stdout, "1 item looked at, nothing found.\n", "not all users are known")

    def test_the_last_line_counts(self):
        self.make_file("top", "a", mode=0)
        os.chown(self.make_file("top", "b", mode=0), 47110, 0)
        self.assertEqual(self.lines("check", "top", status=1)[-1],
                         "3 items looked at: 1 time somebody is named whom this system does not know; "
                         "2 items can be read by nobody but root.")

    def test_a_file_can_be_looked_at_alone(self):
        self.make_file("a", mode=0)
        self.assertEqual(self.findings("a"), ["a: nobody but root can read it"])

    def test_odd_names_are_made_visible(self):
        self.make_file("top", "a\n\x1b[1m", mode=0)
        self.assertEqual(self.findings("top"), [r"top/a\x0a\x1b[1m: nobody but root can read it"])

    def test_what_this_user_cannot_look_at_is_trouble_and_the_rest_is_told(self):
        self.make_file("top", "a", mode=0)
        self.make_folder("top", "shut", mode=0o700)
        self.make_file("top", "shut", "in")
        result = self.run_as_nobody("check", "top")
        self.assertEqual(result.returncode, 2)
        self.assertIn("top/a: nobody but root can read it\n", result.stdout)
        self.assertIn("'top/shut': Permission denied", result.stderr)
        self.assertTrue(result.stderr.endswith("morvane: 1 item could not be looked at.\n"))

    def test_what_is_not_there_is_trouble(self):
        self.assertEqual(self.document("check", "gone", status=2)["error"]["name"], "ENOENT")
        result = self.run_morvane("check", "")
        self.assertEqual((result.returncode, result.stdout), (2, ""))

    def test_findings_come_line_by_line_for_programs(self):
        for i in range(150):
            self.make_file("top", f"{i:03}", mode=0)
        printed = [json.loads(line) for line in self.lines("check", "top", "--json-lines", status=1)]
        for line in printed:
            check(line, SCHEMA["$defs"]["line"], SCHEMA)
        self.assertEqual([line["event"] for line in printed], ["finding"] * 150 + ["end"])
        self.assertEqual(printed[-1]["counts"]["unreadable"], 150)
        self.assertEqual((printed[-1]["exitStatus"], printed[-1]["error"]), (1, None))


class OtherFileSystems(ListCommand):
    def test_they_are_entered_if_asked_for(self):
        script = ("mkdir -p top/here top/there && chmod 755 top top/here top/there && "
                  "mount -t tmpfs -o mode=755 tmpfs top/there && touch top/here/a top/there/b && chmod 0 top/*/* && "
                  '"$0" check top; "$0" check top --cross-mounts')
        result = subprocess.run(["unshare", "--mount", "--propagation", "private", "sh", "-c", script, MORVANE],
                                cwd=self.folder, env=ENVIRONMENT, capture_output=True, text=True, timeout=TIME_LIMIT)
        self.assertEqual([line for line in result.stdout.splitlines() if "nobody" in line and "looked" not in line],
                         ["top/here/a: nobody but root can read it", "top/here/a: nobody but root can read it",
                          "top/there/b: nobody but root can read it"], result.stderr)

    def test_one_that_a_named_link_leads_to_is_looked_at(self):
        script = ("mkdir there && mount -t tmpfs -o mode=755 tmpfs there && mkdir there/top there/top/other && "
                  "mount -t tmpfs -o mode=755 tmpfs there/top/other && touch there/top/a there/top/other/b && "
                  "chmod 0 there/top/a there/top/other/b && ln -s there/top link && "
                  '"$0" check link; "$0" acl link -R --save saved >/dev/null; grep "# file" saved')
        result = subprocess.run(["unshare", "--mount", "--propagation", "private", "sh", "-c", script, MORVANE],
                                cwd=self.folder, env=ENVIRONMENT, capture_output=True, text=True, timeout=TIME_LIMIT)
        self.assertEqual((result.stdout.splitlines(), result.stderr),
                         (["link/a: nobody but root can read it",
                           "2 items looked at: 1 item can be read by nobody but root.",
                           "# file: link", "# file: link/a"], ""))


class LargeTrees(ListCommand):
    def make_tree(self, folders, files):
        for i in range(folders):
            os.mkdir(self.path(f"{i:03}"), 0o755)
            for j in range(files):
                os.close(os.open(self.path(f"{i:03}", f"{j:03}"), os.O_CREAT | os.O_WRONLY, 0))

    def test_ctrl_c_ends_it_with_what_was_found(self):
        self.make_tree(40, 200)
        process = subprocess.Popen([MORVANE, "check", "."], cwd=self.folder, env=ENVIRONMENT, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        first = process.stdout.readline()
        process.send_signal(signal.SIGINT)
        rest, errors = process.stdout.read(), process.stderr.read()
        process.wait(TIME_LIMIT)
        process.stdout.close()
        process.stderr.close()
        self.assertEqual((process.returncode, errors), (130, "morvane: stopped; the rest was not looked at.\n"))
        self.assertEqual(first, "./000/000: nobody but root can read it\n")
        told = rest.splitlines()
        self.assertLess(len(told), 8000, "it was not at the end")
        self.assertRegex(told[-1], f"^[0-9]+ items looked at: {len(told)} items can be read by nobody but root.$")

    def test_the_memory_it_takes_does_not_grow_with_the_tree(self):
        def most(folders):
            process = subprocess.Popen([MORVANE, "check", *folders], cwd=self.folder, env=ENVIRONMENT,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            _, status, used = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual(process.stderr.read(), b"")
            process.stderr.close()
            return used.ru_maxrss

        self.make_tree(40, 200)
        small, large = most(["000"]), most(["."])
        self.assertLess(large, small + 4096, "in KB")


class Nfs4Trees(Nfs4ListCommand):
    FULL = 0x1601FF

    def test_what_the_folder_gives_is_expected_of_its_items(self):
        top = self.make_folder("top")
        os.setxattr(top, "user.nfs4_acl", nfs4_list(
            (ALLOW, FILES | FOLDERS, self.FULL, "OWNER@"), (ALLOW, FILES | FOLDERS, 0x1200A9, "4711"),
            (ALLOW, 0, 0x1200A9, "EVERYONE@")))
        lists = {"a": [(ALLOW, INHERITED, self.FULL, "OWNER@"), (ALLOW, INHERITED, 0x1200A9, "4711")],
                 "b": [(ALLOW, 0, self.FULL, "OWNER@"), (ALLOW, 0, 0x1200A9, "EVERYONE@")],
                 "c": [(ALLOW, 0, self.FULL, "OWNER@"), (ALLOW, 0, 0x1200A9, "4711"), (ALLOW, 0, 0x1200A9, "4712")]}
        for name, entries in lists.items():
            os.setxattr(self.make_file("top", name), "user.nfs4_acl", nfs4_list(*entries))
        told = [line for line in self.lines("check", "top", status=1) if "the folder" in line]
        self.assertEqual(told, ["top/b: the folder would give another list: uid 4711 has no entry",
                                "top/c: the folder would give another list: uid 4712 has an entry"])

    def test_what_nobody_can_read_is_found(self):
        os.setxattr(self.make_file("a"), "user.nfs4_acl", nfs4_list(
            (DENY, 0, 0x1, "EVERYONE@"), (ALLOW, 0, self.FULL, "1"), (ALLOW, 0, self.FULL, "EVERYONE@")))
        self.assertEqual(self.lines("check", "a", status=1)[0], "a: nobody but root can read it")

    def test_a_name_that_this_system_does_not_know_is_found(self):
        os.setxattr(self.make_file("a"), "user.nfs4_acl", nfs4_list(
            (ALLOW, 0, self.FULL, "OWNER@"), (ALLOW, 0, 0x1, "ghost@example.org"), (ALLOW, 0, 0x1, "EVERYONE@")))
        self.assertEqual(self.lines("check", "a", status=1)[0],
                         "a: it has an entry for a name that this system does not know")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
