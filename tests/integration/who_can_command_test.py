# SPDX-License-Identifier: MIT
"""Who has a right to an item, and through what, beside what the kernel lets each user do.

usage: who_can_command_test.py MORVANE LIBEXEC-DIR NFS4-MOUNT-LIBRARY SILENT-DIRECTORY-LIBRARY [unittest arguments]
"""
import os
import pwd
import re
import signal
import subprocess
import sys
import unittest

from list_commands import (ALLOW, DENY, ENVIRONMENT, MORVANE, SILENT_DIRECTORY, TIME_LIMIT, ListCommand,
                           Nfs4ListCommand, nfs4_list)

RIGHTS = ("read", "write", "execute", "delete", "changePermissions", "changeOwner")


def may(action):
    try:
        action()
    except PermissionError:
        return False
    return True


def tried_by(user, path):
    """What the user can really do to the item, in the order of RIGHTS but the last."""
    def enter():
        if not os.access(path, os.X_OK, effective_ids=True):
            raise PermissionError

    def write():
        if os.path.isdir(path):
            os.close(os.open(path + "/new", os.O_CREAT | os.O_WRONLY))
            os.remove(path + "/new")
        else:
            os.close(os.open(path, os.O_WRONLY))

    def move():
        os.rename(path, path + "~")
        os.rename(path + "~", path)

    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        done = b"?"
        try:
            os.initgroups(user.pw_name, user.pw_gid)
            os.setresgid(user.pw_gid, user.pw_gid, user.pw_gid)
            os.setresuid(user.pw_uid, user.pw_uid, user.pw_uid)
            # In an order in which a change of the mode comes last, and changes nothing.
            mode = os.stat(path).st_mode & 0o7777 if may(lambda: os.stat(path)) else 0
            done = bytes(may(action) for action in (
                lambda: os.close(os.open(path, os.O_RDONLY)), write, enter, move, lambda: os.chmod(path, mode)))
        finally:
            os.write(writer, done)
            os._exit(0)
    os.close(writer)
    os.waitpid(child, 0)
    with open(reader, "rb") as told:
        return tuple(bool(one) for one in told.read())


class Posix(ListCommand):
    def setUp(self):
        super().setUp()
        self.file = self.make_file("notes")

    def table(self, *arguments):
        """The rows below the headings, each in its columns, and the lines below them."""
        lines = self.lines("who-can", *arguments)
        at = next(i for i, line in enumerate(lines) if line.startswith("Who"))
        rows = [re.split("  +", line) for line in lines[at + 1:]]
        return [row for row in rows if len(row) > 1], [row[0] for row in rows if len(row) == 1]

    def test_it_agrees_with_the_kernel_for_every_user(self):
        items = {"notes": self.file}
        os.chown(self.file, 1, 2)
        self.setfacl("-m", "u:games:rwx,g:man:r,g:2:w,m::rw,o::x", self.file)
        items["run"] = self.make_file("run", mode=0o705)
        os.chown(items["run"], 5, 60)
        items["masked"] = self.make_file("masked")
        self.setfacl("-m", "u:daemon:rwx,g:bin:rwx,m::-,o::r", items["masked"])
        items["sub"] = self.make_folder("sub", mode=0o770)
        self.setfacl("-m", "u:daemon:rwx,g:games:rx,u:mail:w", items["sub"])
        items["sub/in"] = self.make_file("sub", "in", mode=0o646)
        os.chown(items["sub/in"], 7, 7)
        items["sticky"] = self.make_folder("sticky", mode=0o1777)
        items["sticky/in"] = self.make_file("sticky", "in", mode=0o604)
        os.chown(items["sticky/in"], 8, 8)
        self.setfacl("-m", "u:games:rw", items["sticky/in"])
        users = pwd.getpwall()
        told = self.document("who-can", *items)["items"]
        for name, one in zip(items, told):
            self.assertTrue(one["complete"])
            found = {who["uuid"]: who["rights"] for who in one["who"] if not who["isGroup"]}
            names = {who["identity"]: who["uuid"] for who in one["who"] if not who["isGroup"]}
            for user in users:
                rights = found.get(names.get(user.pw_name), dict.fromkeys(RIGHTS, False))
                self.assertEqual(tuple(rights[right] for right in RIGHTS[:-1]), tried_by(user, items[name]),
                                 (name, user.pw_name))

    def test_each_comes_with_the_entry_that_gives_the_right(self):
        os.chown(self.file, 1, 2)
        self.setfacl("-m", "u:games:rw,g:man:r,o::-", self.file)
        rows, notes = self.table("notes")
        self.assertEqual(rows, [
            ["user daemon", "rw--C-", "user daemon (owner)"],
            ["user games", "rw----", "user games"],
            ["group bin", "r-----", "group bin (owning group)"],
            *([["user bin", "r-----", "group bin (owning group)"]]),
            ["group man", "r-----", "group man"],
            ["user man", "r-----", "group man"],
            ["user root", "rw-dCo", "root, whatever the list says"]])
        self.assertEqual(notes, ["r read, w write, x execute or enter, d delete, C change permissions, o change owner"])

    def test_a_mask_that_limits_an_entry_is_told_beside_it(self):
        self.setfacl("-m", "u:games:rwx,g:man:rw,m::r,o::-", self.file)
        rows, _ = self.table("notes")
        self.assertIn(["user games", "r-----", "user games, mask r--"], rows)
        self.assertIn(["group man", "r-----", "group man, mask r--"], rows)
        games = next(who for who in self.document("who-can", "notes")["items"][0]["who"]
                     if who["identity"] == "games" and not who["isGroup"])
        self.assertEqual(games["through"], [{"subject": "user", "identity": "games", "mask": "r--"}])

    def test_who_has_it_as_one_of_everyone_is_told_in_one_line(self):
        os.chmod(self.file, 0o644)
        rows, notes = self.table("notes")
        self.assertEqual(rows[-1], ["everyone else", "r-----", "everyone"])
        self.assertRegex(notes[0], "^[0-9]+ users and groups that are known have what everyone else has; --all names them.$")
        every, notes = self.table("notes", "--all")
        self.assertIn(["user games", "r-----", "everyone"], every)
        self.assertGreater(len(every), len(pwd.getpwall()))
        self.assertEqual(len(notes), 1)

    def test_one_right_can_be_asked_for(self):
        self.setfacl("-m", "u:games:rwx,g:man:r,o::-", self.file)
        for right, names in (("write", ["user root", "user games"]), ("read", ["user games", "group man", "user man"]),
                             ("execute", ["user games", "user root"]), ("change-owner", ["user root"]),
                             ("change-permissions", ["user root"]), ("delete", ["user root"])):
            rows, _ = self.table("notes", "--right", right)
            self.assertTrue(set(names) <= {row[0] for row in rows}, (right, rows))
            self.assertEqual("user man" in {row[0] for row in rows}, right == "read")
        printed = self.document("who-can", "notes", "--right", "write")["items"][0]["who"]
        self.assertEqual([list(who["rights"].items()) for who in printed if who["identity"] == "games"
                          and not who["isGroup"]], [[("write", True)]])
        os.chmod(self.file, 0o444)
        self.setfacl("-b", self.file)
        self.assertEqual(self.lines("who-can", "notes", "--right", "execute")[1:], ["Nobody has this right."])

    def test_a_folder_above_that_keeps_somebody_out_is_named(self):
        self.make_folder("shut", mode=0o710)
        os.chown(self.path("shut"), 0, 2)
        inside = self.make_file("shut", "in", mode=0o644)
        self.setfacl("-m", "u:games:rw", inside)
        rows, notes = self.table(inside)
        self.assertEqual({row[0] for row in rows}, {"user root", "user bin", "group bin"})
        self.assertIn(f"The folder '{os.path.realpath(self.path('shut'))}' keeps out, whatever the list says: "
                      "user games, group root, everyone else.", notes)
        one = self.document("who-can", inside)["items"][0]
        games = next(who for who in one["keptOut"] if who["identity"] == "games")
        self.assertEqual(games["folder"]["path"], os.path.realpath(self.path("shut")))
        self.assertNotIn("games", [who["identity"] for who in one["who"]])

    def test_what_a_mount_forbids_is_told(self):
        os.chmod(self.file, 0o666)
        forbids = "The mount or a flag of the item forbids some of what the list allows."
        self.assertNotIn(forbids, self.lines("who-can", "notes"))
        result = subprocess.run(
            ["unshare", "--mount", "--propagation", "private", "sh", "-c",
             'mount --bind . . && mount -o remount,bind,ro . && cd "$1" && "$0" who-can notes --right write', MORVANE,
             self.folder], cwd=self.folder, env=ENVIRONMENT, capture_output=True, text=True, timeout=TIME_LIMIT)
        self.assertEqual(result.stdout.splitlines()[1:], ["Nobody has this right.", forbids], result.stderr)

    def test_a_list_whose_mask_lets_nothing_through_is_void(self):
        os.chown(self.file, 0, 2)
        self.setfacl("-m", "u:bin:rw,u:games:rw,g:man:rw,m::-,o::r", self.file)
        rows, notes = self.table("notes")
        through = "everyone (the mask --- voids the list)"
        self.assertEqual(rows, [["user games", "r-----", through], ["group man", "r-----", through],
                                ["user root", "rw-dCo", "root, whatever the list says"],
                                ["everyone else", "r-----", "everyone"]])
        self.assertEqual([note for note in notes if "keeps" in note or "forbids" in note], [])
        self.assertEqual(self.document("who-can", "notes")["items"][0]["keptOut"], [])

    def test_an_owning_group_that_is_named_as_well_is_told_once(self):
        os.chown(self.file, 0, 2)
        self.setfacl("-m", "g:bin:rw,m::r,o::-", self.file)
        rows, _ = self.table("notes")
        self.assertIn(["group bin", "r-----", "group bin (owning group) and by name, mask r--"], rows)

    def test_nobody_makes_anything_in_a_folder_that_they_cannot_enter(self):
        self.make_folder("sub", mode=0o766)
        rows, notes = self.table("sub")
        self.assertIn(["everyone else", "r-----", "everyone"], rows)
        self.assertEqual(len([note for note in notes if "forbids" in note]), 0)

    def test_a_right_to_delete_comes_from_the_folder(self):
        self.make_folder("open", mode=0o777)
        self.make_file("open", "in", mode=0o600)
        rows, _ = self.table("open/in")
        self.assertIn(["everyone else", "---d--", "the folder that it is in"], rows)

    def test_users_whom_the_system_does_not_know_are_told_by_number(self):
        self.setfacl("-m", "u:47110:rw,g:47111:r,o::-", self.file)
        os.chown(self.file, 47112, 47113)
        rows, _ = self.table("notes")
        self.assertEqual([row[:2] for row in rows if "id 4711" in row[0]], [
            ["uid 47112", "rw--C-"], ["uid 47110", "rw----"], ["gid 47113", "r-----"], ["gid 47111", "r-----"]])

    def test_several_items_are_told_below_their_paths(self):
        self.make_file("other")
        lines = self.lines("who-can", "notes", "other")
        self.assertEqual((lines[0], lines[lines.index("") + 1]), ("notes", "other"))

    def test_what_is_not_there_is_told_and_the_others_too(self):
        result = self.run_morvane("who-can", "gone", "notes")
        self.assertEqual(result.returncode, 1)
        self.assertIn("cannot tell the access to 'gone': No such file or directory", result.stderr)
        self.assertIn("user root", result.stdout)
        printed = self.document("who-can", "gone", "notes", status=1)
        self.assertEqual((printed["error"]["name"], len(printed["items"])), ("ENOENT", 1))

    def test_a_right_that_is_none_is_refused(self):
        result = self.run_morvane("who-can", "notes", "--right", "fly")
        self.assertEqual((result.returncode, result.stdout), (2, ""))
        self.assertIn("fly", result.stderr)

    def test_a_system_with_many_users_is_told_in_part(self):
        passwd = self.path("passwd")
        with open("/etc/passwd", encoding="utf-8") as before, open(passwd, "w", encoding="utf-8") as file:
            file.write(before.read() + "".join(f"aa{i}:x:{62000 + i}:65534::/:/bin/false\n" for i in range(1500)))
        self.setfacl("-m", "u:63499:rw,u:games:rw", self.file)
        result = subprocess.run(
            ["unshare", "--mount", "--propagation", "private", "sh", "-c",
             'mount --bind passwd /etc/passwd && "$0" who-can notes --right write', MORVANE],
            cwd=self.folder, env=ENVIRONMENT, capture_output=True, text=True, timeout=TIME_LIMIT)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn("This system has more users and groups than 1000; told are the first of them, and those whom the "
                      "list names.", result.stdout)
        for name in ("aa1499", "games"):
            self.assertIn(f"user {name}", result.stdout)

    def test_ctrl_c_ends_it_while_a_directory_does_not_answer(self):
        process = subprocess.Popen([MORVANE, "who-can", "notes"], cwd=self.folder, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True,
                                   env={**ENVIRONMENT, "LD_PRELOAD": SILENT_DIRECTORY})
        self.assertEqual(process.stderr.readline(), "enumerating\n")
        process.send_signal(signal.SIGINT)
        self.assertEqual((process.stdout.read(), process.wait(TIME_LIMIT)), ("", 130))
        self.assertEqual(process.stderr.read(), "morvane: stopped; the rest was not looked at.\n")
        process.stdout.close()
        process.stderr.close()


class Immutable(ListCommand):
    """What only the machine's root makes an item."""

    def test_what_a_flag_forbids_is_told(self):
        file = self.make_file("notes", mode=0o666)
        subprocess.run(["chattr", "+i", file], check=True, timeout=TIME_LIMIT)
        self.addCleanup(subprocess.run, ["chattr", "-i", file], check=True, timeout=TIME_LIMIT)
        self.assertEqual(self.lines("who-can", "notes", "--right", "write")[1:], [
            "Nobody has this right.", "The mount or a flag of the item forbids some of what the list allows."])


class Nfs4(Nfs4ListCommand):
    def test_the_first_entry_decides_and_the_server_says_what_root_may_do(self):
        file = self.make_file("notes")
        os.setxattr(file, "user.nfs4_acl", nfs4_list(
            (DENY, 0, 0x2, "47110"), (ALLOW, 0, 0x3, "47110"), (ALLOW, 0, 0x1601FF, "OWNER@"),
            (ALLOW, 0, 0x1, "EVERYONE@")))
        who = {one["identity"]: one for one in self.document("who-can", "notes")["items"][0]["who"]}
        self.assertEqual([right for right in RIGHTS if who["uid 47110"]["rights"][right]], ["read"])
        self.assertEqual(who["uid 47110"]["through"],
                         [{"subject": "user", "identity": "uid 47110", "mask": None}])
        self.assertEqual([right for right in RIGHTS if who["everyone"]["rights"][right]], ["read"])
        self.assertFalse(who["root"]["root"])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
