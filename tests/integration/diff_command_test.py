# SPDX-License-Identifier: MIT
"""What one list says otherwise than another, on real files.

usage: diff_command_test.py MORVANE LIBEXEC-DIR NFS4-MOUNT-LIBRARY SILENT-DIRECTORY-LIBRARY [unittest arguments]
"""
import os
import signal
import subprocess
import sys
import unittest

from list_commands import ALLOW, DENY, ENVIRONMENT, MORVANE, TIME_LIMIT, ListCommand, Nfs4ListCommand, nfs4_list


class TwoItems(ListCommand):
    def setUp(self):
        super().setUp()
        self.a = self.make_file("a")
        self.b = self.make_file("b")

    def test_the_same_lists_are_no_difference(self):
        self.setfacl("-m", "u:daemon:rw,g:bin:r", self.a, self.b)
        self.assertEqual(self.lines("diff", "a", "b"), [])
        self.assertEqual(self.document("diff", "a", "b")["differences"], [])

    def test_entries_that_have_come_gone_and_changed_are_told(self):
        self.setfacl("-m", "u:daemon:r,u:bin:rw,m::rw", self.a)
        self.setfacl("-m", "u:daemon:rw,g:bin:r,m::rw", self.b)
        self.assertEqual(self.lines("diff", "a", "b", status=1), [
            "~ user daemon  r-- -> rw-  Custom (part of Read) -> Custom (part of Read, part of Write)  This item",
            "- user bin  rw-  Custom (part of Read, part of Write)  This item",
            "+ group bin  r--  Custom (part of Read)  This item"])
        difference, = self.document("diff", "a", "b", status=1)["differences"]
        self.assertEqual(
            [[side and (side["identity"], side["letters"]) for side in (entry["before"], entry["after"])]
             for entry in difference["entries"]],
            [[("daemon", "r--"), ("daemon", "rw-")], [("bin", "rw-"), None], [None, ("bin", "r--")]])
        self.assertEqual((difference["before"]["path"], difference["after"]["path"]), ("a", "b"))

    def test_owner_group_and_mode_are_compared(self):
        os.chown(self.b, 1, 2)
        os.chmod(self.b, 0o4750)
        self.assertEqual(self.lines("diff", "a", "b", status=1), [
            "~ Owner: user root -> user daemon",
            "~ Group: group root -> group bin",
            "~ Mode: -rw-r----- -> -rwsr-x---",
            "~ user root (owner)  rw- -> rwx  Read and Write -> All  This item",
            "~ group root (owning group)  r-- -> r-x  Read -> Custom (Read, Execute)  This item"])
        difference, = self.document("diff", "a", "b", status=1)["differences"]
        self.assertEqual(difference["modes"], {"before": "-rw-r-----", "after": "-rwsr-x---"})
        self.assertEqual([difference[side]["owner"]["id"] for side in ("before", "after")], [0, 1])

    def test_a_mask_that_holds_rights_back_is_told(self):
        self.setfacl("-m", "u:daemon:rw", self.a, self.b)
        self.setfacl("-m", "m::r", self.b)
        printed = self.lines("diff", "a", "b", status=1)
        self.assertIn("~ Mask: holds nothing back -> r--", printed)
        self.assertIn("~ user daemon  rw- -> r--  Custom (part of Read, part of Write) -> Custom (part of Read)  "
                      "This item", printed)

    def test_one_who_has_lost_every_right_is_one_change(self):
        self.setfacl("-m", "u:daemon:rw,o::r", self.a, self.b)
        self.setfacl("-m", "u:daemon:-", self.b)
        printed = self.lines("diff", "a", "b", status=1)
        self.assertEqual([line for line in printed if "daemon" in line],
                         ["~ user daemon  rw- -> ---  Custom (part of Read, part of Write) -> None  This item"])

    def test_a_file_and_a_folder_are_of_different_kinds(self):
        self.make_folder("c", mode=0o640)
        self.assertIn("~ Kind: file -> folder", self.lines("diff", "a", "c", status=1))

    def test_an_output_that_cannot_be_written_is_trouble(self):
        os.chmod(self.b, 0o600)
        with open("/dev/full", "wb") as full:
            result = subprocess.run([MORVANE, "diff", "a", "b"], env=ENVIRONMENT, cwd=self.folder, stdout=full,
                                    stderr=subprocess.PIPE, text=True, timeout=TIME_LIMIT)
        self.assertEqual((result.returncode, result.stderr),
                         (2, "morvane: the output could not be written: No space left on device\n"))

    def test_what_is_not_there_is_trouble(self):
        result = self.run_morvane("diff", "a", "gone")
        self.assertEqual((result.returncode, result.stdout), (2, ""))
        self.assertIn("cannot read the access-control list of 'gone': No such file or directory", result.stderr)
        self.assertEqual(self.document("diff", "a", "gone", status=2)["error"]["name"], "ENOENT")

    def test_words_that_are_missing_or_too_many_are_trouble(self):
        for words, why in ((("a",), "PATH PATH or --saved is required"),
                           (("a", "b", "c"), "not expected: c"), (("--saved", "x"), "PATH is required"),
                           (("--saved", "x", "a", "b"), "not expected: b"), (("a", ""), "the path is empty")):
            result = self.run_morvane("diff", *words)
            self.assertEqual((result.returncode, result.stdout), (2, ""))
            self.assertIn(why, result.stderr)


class SavedLists(ListCommand):
    def setUp(self):
        super().setUp()
        self.make_folder("top")
        self.make_folder("top", "sub")
        self.make_file("top", "sub", "notes")
        self.make_file("top", "a.txt")
        self.setfacl("-m", "u:daemon:r,u:4711:rw", self.path("top", "sub", "notes"))

    def test_what_has_changed_since_a_tree_was_saved(self):
        self.lines("acl", "top", "-R", "--save", "saved")
        self.assertEqual(self.lines("diff", "-R", "--saved", "saved", "top"), [])
        self.setfacl("-x", "u:daemon", self.path("top", "sub", "notes"))
        os.remove(self.path("top", "a.txt"))
        self.make_file("top", "b.txt")
        self.assertEqual(self.lines("diff", "-R", "--saved", "saved", "top", status=1), [
            "- top/a.txt", "+ top/b.txt", "~ top/sub/notes",
            "    - user daemon  r--  Custom (part of Read)  This item"])
        printed = self.document("diff", "-R", "--saved", "saved", "./top/", status=1)
        self.assertEqual([(one["place"], one["before"] is None, one["after"] is None)
                          for one in printed["differences"]],
                         [("a.txt", False, True), ("b.txt", True, False), ("sub/notes", False, False)])

    def test_one_item_of_a_saved_tree(self):
        self.lines("acl", "top", "-R", "--save", "saved")
        self.setfacl("-m", "u:4711:r", self.path("top", "sub", "notes"))
        self.assertEqual(self.lines("diff", "--saved", "saved", "top/sub/notes", status=1), [
            "~ uid 4711  rw- -> r--  Custom (part of Read, part of Write) -> Custom (part of Read)  This item"])
        result = self.run_morvane("diff", "--saved", "saved", "top/other")
        self.assertEqual(result.returncode, 2)
        self.assertIn("'saved' holds no list of 'top/other'", result.stderr)

    def test_lists_that_getfacl_has_written_are_taken(self):
        whole = self.path("top")
        for names in ((), ("--absolute-names",), ("--numeric",)):
            with open(self.path("saved"), "w", encoding="ascii") as saved:
                subprocess.run(["getfacl", "-R", *names, whole], check=True, stdout=saved,
                               stderr=subprocess.DEVNULL, timeout=TIME_LIMIT)
            self.assertEqual(self.lines("diff", "-R", "--saved", "saved", whole), [], names)
        os.chown(self.path("top", "a.txt"), 1, -1)
        self.assertEqual(self.lines("diff", "-R", "--saved", "saved", whole, status=1),
                         [f"~ {whole}/a.txt", "    ~ Owner: user root -> user daemon"])

    def test_a_list_that_stands_alone_may_be_that_of_another_item(self):
        with open(self.path("saved"), "w", encoding="ascii") as saved:
            saved.write("user::rw-\ngroup::r--\nother::r--\n")
        self.assertEqual(self.lines("diff", "--saved", "saved", "top/a.txt", status=1),
                         ["~ everyone  r-- -> ---  Read -> None  This item"])

    def test_saved_lists_may_come_from_a_pipe(self):
        result = subprocess.run([MORVANE, "diff", "--saved", "-", "top/a.txt"], env=ENVIRONMENT, cwd=self.folder,
                                input="user::rw-\ngroup::r--\nother::---\n", capture_output=True, text=True,
                                timeout=TIME_LIMIT)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))

    def test_what_does_not_end_is_trouble(self):
        result = self.run_morvane("diff", "--saved", "/dev/zero", "top")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (
            2, "", "morvane: '/dev/zero' holds more than 512 MiB, which is no file of lists, or one to be divided.\n"))

    def test_ctrl_c_ends_it_while_it_waits_for_the_rest_of_a_pipe(self):
        process = subprocess.Popen([MORVANE, "diff", "--saved", "-", "top"], cwd=self.folder, env=ENVIRONMENT,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        process.stdin.write(b"#\n" * 500000)  # more than the pipe holds: it is being read
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(TIME_LIMIT), -signal.SIGINT)
        self.assertEqual((process.stdout.read(), process.stderr.read()), (b"", b""))
        for pipe in (process.stdin, process.stdout, process.stderr):
            pipe.close()

    def test_what_is_no_list_is_trouble(self):
        with open(self.path("saved"), "w", encoding="ascii") as saved:
            saved.write("nonsense\n")
        result = self.run_morvane("diff", "--saved", "saved", "top")
        self.assertEqual(result.returncode, 2)
        self.assertIn("line 1: 'nonsense' is no entry of a list", result.stderr)


class Trees(ListCommand):
    def test_two_trees_are_compared_item_by_item(self):
        for top in ("a", "b"):
            self.make_folder(top)
            self.make_folder(top, "sub")
            for i in range(200):
                self.make_file(top, "sub", f"{i:03}")
        self.assertEqual(self.lines("diff", "-R", "a", "b"), [])
        self.setfacl("-m", "g:bin:rw", self.path("b", "sub", "150"))
        os.chmod(self.path("b"), 0o700)
        os.remove(self.path("a", "sub", "003"))
        os.symlink("nowhere", self.path("b", "sub", "link"))
        os.mkfifo(self.path("b", "fifo"))
        self.assertEqual(
            [line for line in self.lines("diff", "-R", "a", "b", status=1) if not line.startswith(" ")],
            ["~ b", "+ b/sub/003", "~ b/sub/150"])
        self.assertEqual(len(self.lines("diff", "a", "b", status=1)), 3, "without -R the folders alone")

    def test_what_cannot_be_looked_at_is_told_and_the_rest_compared(self):
        for top in ("a", "b"):
            self.make_folder(top)
            self.make_folder(top, "open")
            self.make_folder(top, "shut", mode=0o700)
            self.make_file(top, "shut", "in")
        os.chmod(self.path("b", "open"), 0o711)
        result = self.run_as_nobody("diff", "-R", "a", "b")
        self.assertEqual(result.returncode, 2)
        self.assertIn("~ b/open\n", result.stdout)
        self.assertIn("a/shut", result.stderr)
        self.assertIn("could not be compared.", result.stderr)


class Nfs4Lists(Nfs4ListCommand):
    def test_entries_of_allow_deny_lists_are_compared_by_rule(self):
        a, b = self.make_file("a"), self.make_file("b")
        os.setxattr(a, "user.nfs4_acl", nfs4_list((DENY, 0, 0x2, "4711"), (ALLOW, 0, 0x1601FF, "OWNER@")))
        os.setxattr(b, "user.nfs4_acl", nfs4_list((ALLOW, 0, 0x1601FF, "OWNER@"), (ALLOW, 0, 0x1, "4711")))
        self.assertEqual([line[:16] for line in self.lines("diff", "a", "b", status=1)],
                         ["- uid 4711  Deny", "+ uid 4711  Allo"])

    def test_another_order_is_a_difference(self):
        a, b = self.make_file("a"), self.make_file("b")
        entries = [(DENY, 0, 0x2, "4711"), (ALLOW, 0, 0x3, "EVERYONE@")]
        os.setxattr(a, "user.nfs4_acl", nfs4_list(*entries))
        os.setxattr(b, "user.nfs4_acl", nfs4_list(*reversed(entries)))
        self.assertEqual(self.lines("diff", "a", "b", status=1),
                         ["~ The entries stand in another order, which decides."])
        self.assertTrue(self.document("diff", "a", "b", status=1)["differences"][0]["reordered"])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
