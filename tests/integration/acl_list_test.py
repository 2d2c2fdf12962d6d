# SPDX-License-Identifier: MIT
"""Changes of whole lists in one word, with the real file service, on real files; getfacl says what became of them.

usage: acl_list_test.py MORVANE LIBEXEC-DIR [unittest arguments]
"""
import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

MORVANE, LIBEXEC = map(os.path.abspath, sys.argv[1:3])
TIME_LIMIT = 60  # a watchdog; nothing here takes long


class Trees(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.state = os.path.join(self.folder, "state")
        for name in ("one", "two"):
            os.makedirs(os.path.join(self.folder, name, "sub"))
            for file, mode in (("plain", 0o640), ("sub/run", 0o750), ("odd\nname", 0o644)):
                with open(os.path.join(self.folder, name, file), "w", encoding="ascii"):
                    os.chmod(os.path.join(self.folder, name, file), mode)
            os.symlink("/etc/hostname", os.path.join(self.folder, name, "link"))
        os.mkdir(os.path.join(self.folder, "outside_folder"))
        self.outside = os.path.join(self.folder, "outside")
        with open(self.outside, "w", encoding="ascii"):
            os.chmod(self.outside, 0o600)

    def run_morvane(self, *arguments, status=0, text=None, said="", **variables):
        environment = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8",
                       "XDG_STATE_HOME": self.state, **variables}
        result = subprocess.run([MORVANE, *arguments], env=environment, cwd=self.folder, text=True, input=text,
                                capture_output=True, timeout=TIME_LIMIT)
        self.assertEqual(result.returncode, status, result.stderr)
        if status == 0:
            self.assertEqual(result.stderr, said)
        return result

    def tool(self, *command, text=None):
        return subprocess.run(command, check=True, cwd=self.folder, capture_output=True, text=True, input=text,
                              timeout=TIME_LIMIT).stdout

    def lists(self, name):
        """What getfacl says of the tree, under names that are the same for both."""
        return self.tool("getfacl", "-R", "-p", name).replace(f"# file: {name}", "# file: X")

    def assert_same(self):
        self.assertEqual(self.lists("one"), self.lists("two"))


class OneWord(Trees):
    """Each change is what setfacl makes of the same words."""

    def both(self, morvane, setfacl, path=""):
        self.run_morvane("acl", "one" + path, *morvane)
        self.tool("setfacl", *setfacl, "two" + path)
        self.assert_same()

    def test_set_gives_a_user_rights_beside_those_of_others(self):
        self.both(["--set", "u:daemon:rw"], ["-m", "u:daemon:rw"], "/plain")
        self.both(["--set", "g:bin:r,u:nobody:-"], ["-m", "g:bin:r,u:nobody:-"], "/plain")
        self.both(["--set", "user:daemon:4"], ["-m", "user:daemon:4"], "/plain")

    def test_set_changes_the_owner_the_owning_group_and_others(self):
        self.both(["--set", "u::rwx,g::rx,o:r"], ["-m", "u::rwx,g::rx,o:r"], "/plain")

    def test_set_with_d_is_for_what_is_made_in_the_folder(self):
        self.both(["--set", "d:u:daemon:rwx"], ["-m", "d:u:daemon:rwx"])
        with open(os.path.join(self.folder, "one", "new"), "w", encoding="ascii"):
            pass
        self.assertIn("user:daemon:rwx", self.tool("getfacl", "-p", "one/new"))

    def test_a_number_stands_for_a_name_that_is_not_known(self):
        self.both(["--set", "u:65532:r"], ["-m", "u:65532:r"], "/plain")

    def test_recursive_goes_everywhere_but_through_links(self):
        before = self.tool("getfacl", "-p", "/etc/hostname")
        self.both(["-R", "--set", "u:daemon:rX,d:g:bin:rwX"], ["-R", "-m", "u:daemon:rX,d:g:bin:rwX"])
        self.assertEqual(self.tool("getfacl", "-p", "/etc/hostname"), before)

    def test_remove_takes_an_entry_away(self):
        for name in ("one", "two"):
            self.tool("setfacl", "-m", "u:daemon:rw,g:bin:r,d:u:daemon:rwx,d:g:bin:r", f"{name}/sub")
        self.both(["--remove", "u:daemon"], ["-x", "u:daemon"], "/sub")
        # Without named entries a mask would limit nobody but the owning group: none is left.
        self.both(["--remove", "d:u:daemon,g:bin"], ["-x", "d:u:daemon,g:bin,m"], "/sub")

    def test_clear_leaves_the_base_and_clear_default_what_is_the_folders_own(self):
        for name in ("one", "two"):
            self.tool("setfacl", "-R", "-m", "u:daemon:rwX,d:u:daemon:rwX", name)
        self.both(["--clear-default"], ["-k"], "/sub")
        self.run_morvane("acl", "one", "-R", "--clear")
        self.tool("setfacl", "-R", "-b", "two")
        # The owning group is left with what counted, as setfacl has it too.
        self.assert_same()

    def test_remove_passes_over_those_of_many_that_have_no_such_entry(self):
        for name in ("one", "two"):
            self.tool("setfacl", "-m", "u:daemon:r", f"{name}/sub/run")
        self.run_morvane("acl", "one", "-R", "--remove", "u:daemon")
        self.tool("setfacl", "-R", "-x", "u:daemon,m", "two")
        self.assert_same()
        self.tool("setfacl", "-m", "u:daemon:r", "one/plain")
        self.run_morvane("acl", "outside", "one/plain", "--remove", "u:daemon")
        self.assertNotIn("daemon", self.tool("getfacl", "-c", "one/plain"))

    def test_execution_that_was_asked_for_is_stored_where_nobody_else_has_it(self):
        self.both(["--set", "u:daemon:rwx"], ["-m", "u:daemon:rwx"], "/plain")
        self.both(["--set", "g:bin:rx,u::rwx"], ["-m", "g:bin:rx,u::rwx"], "/plain")
        written = self.tool("getfacl", "-p", "one/plain")
        self.tool("setfacl", "-b", "-m", "u::rw", "one/plain")
        self.run_morvane("acl", "--restore", "-", text=written)
        self.assert_same()

    def test_entries_by_name_for_the_owner_stand_beside_the_owners(self):
        owner, group = str(os.geteuid()), str(os.getegid())
        self.both(["--set", f"u:{owner}:rwx,g:{group}:rwx"], ["-m", f"u:{owner}:rwx,g:{group}:rwx"], "/plain")
        self.both(["--set", f"u:{owner}:-,u::r"], ["-m", f"u:{owner}:-,u::r"], "/plain")
        written = self.tool("getfacl", "-p", "one/plain")
        self.both(["--clear"], ["-b"], "/plain")
        self.run_morvane("acl", "--restore", "-", text=written)
        self.assertEqual(self.tool("getfacl", "-p", "one/plain"), written)

    def test_a_mask_is_set_without_a_change_of_what_entries_say(self):
        self.both(["--set", "m::rwx"], ["-m", "m::rwx"], "/plain")
        self.both(["--set", "u:daemon:rwx,m::r"], ["-m", "u:daemon:rwx,m::r"], "/plain")
        self.both(["--set", "d:u:daemon:rwx,d:g:bin:rw,d:m::r"], ["-m", "d:u:daemon:rwx,d:g:bin:rw,d:m::r"])
        self.both(["--set", "m::rwx"], ["-m", "m::rwx"], "/plain")

    def test_what_a_mask_holds_back_of_others_stays_held_back(self):
        self.tool("setfacl", "-m", "u:daemon:rwx,u:bin:rwx,m::r", "one/plain")
        self.run_morvane("acl", "one/plain", "--set", "u:nobody:r,u:bin:r")
        self.assertEqual(self.tool("getfacl", "-cpE", "one/plain").split(),
                         ["user::rw-", "user:daemon:rwx", "user:bin:r--", "user:nobody:r--", "group::r--", "mask::r--",
                          "other::---"])
        self.run_morvane("acl", "one/plain", "--remove", "u:bin")
        self.assertIn("user:daemon:rwx\t#effective:r--\n", self.tool("getfacl", "-cp", "one/plain"))

    def test_an_option_that_is_followed_by_nothing_is_no_change(self):
        for option in ("--set", "--remove", "--copy-from", "--set-file", "--save", "--script"):
            with self.subTest(option=option):
                result = self.run_morvane("acl", "one/plain", option, "", status=2)
                self.assertIn(f"{option} is followed by nothing", result.stderr)
        self.run_morvane("acl", "--restore", "", status=2)
        self.run_morvane("acl", "one/plain", "--set", "u::r", "--failures", "", status=2)

    def test_copy_from_gives_another_items_list(self):
        self.tool("setfacl", "-m", "u:daemon:rw,g:bin:r,o::-", "outside")
        self.run_morvane("acl", "one/plain", "one/sub/run", "--copy-from", "outside")
        wanted = self.tool("getfacl", "-c", "outside")
        for path in ("one/plain", "one/sub/run"):
            self.assertEqual(self.tool("getfacl", "-c", path), wanted)

    def test_what_is_wrong_with_the_words_is_said_and_nothing_is_changed(self):
        before = self.lists("one")
        for words, why in ((["--set", "u:daemon"], "'u:daemon' is no entry of a list"),
                           (["--set", "u:daemon:rq"], "'u:daemon:rq' is no entry of a list"),
                           (["--set", "u:no-such-user:r"], "there is no user 'no-such-user'"),
                           (["--set", "d:u:daemon:r"], "only a folder has entries for new items inside"),
                           (["--remove", "u:daemon"], "the list has no such entry to remove"),
                           (["--remove", "u:"], "are in every list")):
            with self.subTest(words=words):
                result = self.run_morvane("acl", "one/plain", *words, status=2)
                self.assertIn(why, result.stderr)
                self.assertIn("Nothing was changed.", result.stderr)
        self.run_morvane("acl", "one", "--set", "u::r", "--propagate", status=2)
        self.run_morvane("acl", "one", "-R", status=2)
        self.run_morvane("acl", "--undo", "one", status=2)
        self.assertEqual(self.lists("one"), before)

    def test_dry_run_shows_the_entries_that_go_and_come(self):
        self.tool("setfacl", "-m", "u:daemon:rw", "one/plain")
        before = self.lists("one")
        shown = self.run_morvane("acl", "one/plain", "--set", "u:daemon:r,u:bin:r", "--dry-run").stdout
        self.assertEqual(shown, "one/plain\n  - user:daemon:rw-\n  - mask::rw-\n  + user:daemon:r--\n"
                                "  + user:bin:r--\n  + mask::r--\n"
                                "--dry-run: 1 list would change, 0 were so already.\n")
        self.assertEqual(self.lists("one"), before)

    def test_for_programs_it_says_whether_it_was_done(self):
        printed = json.loads(self.run_morvane("acl", "--json", "one/plain", "--set", "u:daemon:r").stdout)
        self.assertEqual((printed["exitStatus"], printed["error"]), (0, None))


class Files(Trees):
    def test_a_saved_tree_is_restored_as_it_was(self):
        self.tool("setfacl", "-m", "u:daemon:rw,g:bin:r", "one/plain")
        self.tool("setfacl", "-m", "u:65532:rx,d:u:daemon:rwx,d:o::-", "one/sub")
        before = self.lists("one")
        self.assertEqual(self.run_morvane("acl", "-R", "one", "--save", "saved").stdout, "5 lists saved.\n")
        self.tool("setfacl", "-R", "-b", "one")
        self.assertNotEqual(self.lists("one"), before)
        self.run_morvane("acl", "--restore", "saved")
        self.assertEqual(self.lists("one"), before)
        self.tool("setfacl", "-R", "-b", "one")
        self.tool("setfacl", "--restore=saved")
        self.assertEqual(self.lists("one"), before, "setfacl reads it, too")

    def test_flags_are_saved_for_setfacl_and_told_where_they_are_not_restored(self):
        self.tool("chmod", "g+s,o+t", "one/sub")
        self.tool("setfacl", "-m", "u:daemon:rx", "one/sub")
        self.assertEqual(self.run_morvane("acl", "-R", "one", "--save", "saved").stdout, "5 lists saved.\n")
        before = self.tool("getfacl", "-R", "one")
        self.assertIn("# flags: -st\n", before)
        with open(os.path.join(self.folder, "saved"), encoding="utf-8") as f:
            self.assertEqual(f.read().count("# flags: -st\n"), 1)
        self.run_morvane("acl", "--restore", "saved")
        self.tool("setfacl", "--restore=saved")
        self.assertEqual(self.tool("getfacl", "-R", "one"), before)
        self.tool("chmod", "g-s", "one/sub")
        self.run_morvane("acl", "--restore", "saved",
                         said="morvane: 'one/sub' lacks the setuid, setgid or sticky bit that its list tells of.\n"
                              "  They are no part of a list, and stay as they are; chmod sets them.\n")

    def test_flags_of_a_link_that_is_named_are_those_of_its_folder(self):
        self.tool("chmod", "g+s", "one/sub")
        self.tool("ln", "-s", "one/sub", "to folder")
        self.tool("ln", "-s", "one/plain", "to file")
        self.run_morvane("acl", "to folder", "--save", "saved")
        self.assertEqual(self.run_morvane("acl", "to folder", "--save", "-").stdout.count("# flags: -s-\n"), 1)
        self.run_morvane("acl", "--restore", "saved")
        self.tool("chmod", "u+s", "one/plain")
        self.run_morvane("acl", "--restore", "-", text=self.tool("getfacl", "to file"))

    def test_a_list_of_more_names_than_there_can_be_is_refused_and_nothing_is_changed(self):
        before = self.lists("one")
        text = "user::rw-\n" + "".join(f"user:{uid}:r--\n" for uid in range(1, 8191)) + "group::r--\nmask::r--\nother::r--\n"
        result = self.run_morvane("acl", "one/plain", "--set-file", "-", text=text, status=1)
        self.assertIn("A list holds at most 8187 users and groups, and these entries name more.", result.stderr)
        self.assertIn("Nothing was changed.", result.stderr)
        self.assertEqual(self.lists("one"), before)

    def test_whom_this_system_does_not_know_is_named_and_left_out_with_lossy(self):
        plain = self.tool("getfacl", "one/plain")
        for entry, refusal in (("A::stranger@example.org:rtncy", "there is no user 'stranger@example.org'; check the spelling"),
                               ("A:g:strangers@example.org:rtncy", "there is no group 'strangers@example.org'; check")):
            text = f"A::OWNER@:rwatTnNcCy\n{entry}\nA:g:GROUP@:rtncy\nA::EVERYONE@:tncy\n"
            self.assertIn(refusal, self.run_morvane("acl", "one/plain", "--set-file", "-", text=text, status=2).stderr)
            self.assertEqual(self.tool("getfacl", "one/plain"), plain)
            self.run_morvane("acl", "one/plain", "--set-file", "-", "--lossy", text=text)
            self.assertEqual(self.tool("getfacl", "-c", "one/plain"), "user::rw-\ngroup::r--\nother::---\n\n")
            plain = self.tool("getfacl", "one/plain")

    def test_lists_and_json_are_not_both_written_to_standard_output(self):
        result = self.run_morvane("acl", "one", "--save", "-", "--json", status=2)
        self.assertIn("the lists and --json would both be on standard output; name a file behind --save",
                      json.loads(result.stdout)["error"]["message"])

    def test_what_a_mask_holds_back_is_saved_and_restored(self):
        self.tool("setfacl", "-m", "u:daemon:rwx,g:bin:rw,m::r,d:u:daemon:rwx,d:g::rwx,d:m::x", "outside_folder")
        before = self.tool("getfacl", "-p", "outside_folder")
        saved = self.run_morvane("acl", "outside_folder", "--save", "-").stdout
        self.assertIn("user:daemon:rwx\t#uid=1\t#effective:r--\n", saved)
        self.assertIn("default:group::rwx\t#effective:--x\n", saved)
        for words, text in ((("--restore", "-"), saved), (("--restore", "-"), before),
                            (("outside_folder", "--set-file", "-"), before)):
            with self.subTest(words=words, text=text):
                self.tool("setfacl", "-bk", "outside_folder")
                self.run_morvane("acl", *words, text=text)
                self.assertEqual(self.tool("getfacl", "-p", "outside_folder"), before)
        self.run_morvane("acl", "one/sub", "--copy-from", "outside_folder")
        self.assertEqual(self.tool("getfacl", "-cp", "one/sub"), self.tool("getfacl", "-cp", "outside_folder"))

    def test_a_saved_name_that_is_not_known_any_more_is_restored_by_its_number(self):
        self.tool("setfacl", "-m", "u:daemon:rw", "one/plain")
        number = self.tool("id", "-u", "daemon").strip()
        saved = self.run_morvane("acl", "one/plain", "--save", "-").stdout
        self.assertIn(f"user:daemon:rw-\t#uid={number}\n", saved)
        before = self.lists("one")
        self.tool("setfacl", "-b", "one/plain")
        self.run_morvane("acl", "--restore", "-", text=saved.replace("user:daemon", "user:gone"))
        self.assertEqual(self.lists("one"), before)

    def test_what_getfacl_has_written_is_taken(self):
        self.tool("setfacl", "-R", "-m", "u:daemon:rwX,d:g:bin:rX", "one")
        before = self.lists("one")
        written = self.tool("getfacl", "-R", "-p", "one")
        self.tool("setfacl", "-R", "-b", "one")
        self.run_morvane("acl", "--restore", "-", text=written)
        self.assertEqual(self.lists("one"), before)
        one = self.tool("getfacl", "-c", "one/plain")
        self.run_morvane("acl", "outside", "--set-file", "-", text=one)
        self.assertEqual(self.tool("getfacl", "-c", "outside"), one)

    def test_names_with_blanks_at_their_ends_and_backslashes_are_kept_apart(self):
        for name in ("a", "a ", " a", "a\t", "back\\x", "back\\134x", "a\r"):
            with self.subTest(name=name):
                path = os.path.join(self.folder, name)
                with open(path, "w", encoding="ascii"):
                    os.chmod(path, 0o640)
                self.tool("setfacl", "-m", "u:daemon:r", path)
                before = self.tool("getfacl", "-c", path)
                for saved in (self.run_morvane("acl", name, "--save", "-").stdout, self.tool("getfacl", "-p", name)):
                    self.tool("setfacl", "-b", path)
                    self.run_morvane("acl", "--restore", "-", text=saved)
                    self.assertEqual(self.tool("getfacl", "-c", path), before)
                    self.run_morvane("acl", name, "--clear")
                    self.run_morvane("acl", "--undo")
                    self.assertEqual(self.tool("getfacl", "-c", path), before)
                self.tool("setfacl", "-b", path)
        self.assertNotIn("daemon", self.tool("getfacl", "-c", "a"))

    def test_a_save_that_fails_leaves_what_was_saved_before(self):
        self.run_morvane("acl", "one/plain", "--save", "saved")
        path = os.path.join(self.folder, "saved")
        with open(path, encoding="ascii") as f:
            before = f.read()
        os.chmod(path, 0o604)
        self.run_morvane("acl", "nowhere", "--save", "saved", status=1)
        with open(path, encoding="ascii") as f:
            self.assertEqual(f.read(), before)
        os.symlink("saved", os.path.join(self.folder, "link"))
        self.run_morvane("acl", "-R", "one", "--save", "link")
        with open(path, encoding="ascii") as f:
            self.assertGreater(len(f.read()), len(before))
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o604)
        self.assertTrue(os.path.islink(os.path.join(self.folder, "link")))
        self.assertEqual([name for name in os.listdir(self.folder) if ".new-" in name], [])
        result = self.run_morvane("acl", "one/plain", "--save", "/dev/full", status=1)
        self.assertIn("'/dev/full' could not be written: No space left on device", result.stderr)

    def test_conditional_execution_is_taken_in_lists_as_well(self):
        text = "user::rwX\ngroup::rX\nother::X\n"
        for path in ("one", "one/plain", "one/sub/run"):
            self.run_morvane("acl", path, "--set-file", "-", text=text)
            self.tool("setfacl", "--set", text.strip().replace("\n", ","), path.replace("one", "two", 1))
        self.assert_same()
        self.run_morvane("acl", "one/plain", "--set-file", "-", text=text.replace("user::rwX", "user::rwx"))
        self.assertEqual(os.stat(os.path.join(self.folder, "one", "plain")).st_mode & 0o777, 0o751)

    def test_a_name_that_was_mistyped_is_no_other_users_entry(self):
        self.tool("setfacl", "-m", "u:daemon:rw", "one/plain")
        before = self.lists("one")
        result = self.run_morvane("acl", "one/plain", "--editor", VISUAL="sed -i s/daemon/deamon/", status=2)
        self.assertIn("there is no user 'deamon'", result.stderr)
        self.assertEqual(self.lists("one"), before)

    def test_what_another_program_has_changed_under_the_editor_is_kept(self):
        result = self.run_morvane("acl", "one/plain", "--editor", status=1,
                                  VISUAL="setfacl -m u:games:rwx one/plain; sed -i s/^other.*/other::r--/")
        self.assertIn("another program has changed the list since it was shown", result.stderr)
        self.assertIn("user:games:rwx", self.tool("getfacl", "-c", "one/plain"))

    def test_ctrl_c_ends_it_while_lists_are_typed(self):
        with subprocess.Popen([MORVANE, "acl", "--restore", "-"], stdin=subprocess.PIPE, cwd=self.folder,
                              # Whoever runs the tests in the background has it ignored.
                              preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL),
                              env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC}) as process:
            deadline = time.monotonic() + TIME_LIMIT
            reads = ""
            while not reads.startswith("0 0x0 ") and time.monotonic() < deadline:
                with open(f"/proc/{process.pid}/syscall", encoding="ascii") as f:
                    reads = f.read()  # 0 is read(), of standard input
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(TIME_LIMIT), -signal.SIGINT)

    def test_a_list_that_cannot_be_read_is_told_by_its_line(self):
        result = self.run_morvane("acl", "--restore", "-", text="# file: one\nuser::rwx\nnobody\n", status=2)
        self.assertIn("line 3: 'nobody' is no entry of a list", result.stderr)
        result = self.run_morvane("acl", "one", "--set-file", "-", text="user::rwx\n", status=2)
        self.assertIn("the list lacks an entry of the owner", result.stderr)

    def test_a_file_that_cannot_be_read_is_a_failure_and_no_misuse(self):
        for words in ("--restore", "none"), ("one", "--set-file", "none"), ("one", "--script", "none"):
            with self.subTest(words=words):
                result = self.run_morvane("acl", *words, status=1)
                self.assertEqual(result.stderr, "morvane: 'none' cannot be read: No such file or directory.\n"
                                                "  Nothing was changed.\n")

    def test_a_script_comes_from_a_file_or_standard_input(self):
        script = "add user:daemon; permissions read\n" + "# a comment\n" * 20000
        self.run_morvane("acl", "one/plain", "--script", "-", text=script)
        self.assertIn("user:daemon:r--", self.tool("getfacl", "-c", "one/plain"))
        with open(os.path.join(self.folder, "script"), "w", encoding="ascii") as f:
            f.write("add user:bin; permissions read")
        self.run_morvane("acl", "one/plain", "--script", "script")
        self.assertIn("user:bin:r--", self.tool("getfacl", "-c", "one/plain"))

    def test_the_editor_of_the_user_changes_the_text(self):
        self.run_morvane("acl", "one/plain", "--editor", VISUAL="sed -i s/^other.*/other::r--/")
        self.assertIn("other::r--", self.tool("getfacl", "-c", "one/plain"))
        before = self.lists("one")
        unchanged = subprocess.run([MORVANE, "acl", "one/plain", "--editor"], cwd=self.folder, text=True,
                                   env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "VISUAL": "true"},
                                   capture_output=True, timeout=TIME_LIMIT)
        self.assertEqual((unchanged.returncode, unchanged.stderr), (0, "morvane: nothing was changed.\n"))
        result = self.run_morvane("acl", "one/plain", "--editor", VISUAL="false", status=1)
        self.assertIn("the editor 'false' has failed", result.stderr)
        self.assertEqual(self.lists("one"), before)

    def test_several_lists_are_shown_below_their_paths(self):
        lines = self.run_morvane("acl", "one/plain", "outside").stdout.split("\n")
        self.assertEqual(lines[0], "one/plain")
        self.assertIn("outside", lines)
        result = self.run_morvane("acl", "one/plain", "nowhere", status=1)
        self.assertIn("one/plain\n", result.stdout)
        self.assertIn("'nowhere'", result.stderr)


class Failures(Trees):
    def test_all_failures_are_in_the_file_that_was_asked_for(self):
        missing = [f"gone{i}" for i in range(15)]
        result = self.run_morvane("acl", *missing, "one/plain", "--set", "u:daemon:r", "--failures", "failed", status=1)
        self.assertEqual(result.stderr.count("cannot change the access-control list of"), 10)
        self.assertIn("And 5 more.", result.stderr)
        self.assertIn("1 list changed, 0 were so already, 15 failures.", result.stdout)
        with open(os.path.join(self.folder, "failed"), encoding="utf-8") as f:
            self.assertEqual([line.split("\t")[0] for line in f], missing)
        self.assertIn("user:daemon:r--", self.tool("getfacl", "-c", "one/plain"))
        self.run_morvane("acl", "one/plain", "--set", "u:bin:r", "--failures", "failed")
        self.assertEqual(os.path.getsize(os.path.join(self.folder, "failed")), 0, "what failed before is no more in it")


class Undo(Trees):
    def test_undo_takes_changes_back_the_last_one_first(self):
        states = [self.lists("one")]
        for words in (["one/plain", "--set", "u:daemon:rw"], ["one", "-R", "--set", "u:bin:rX"],
                      ["one/plain", "--edit", "add user:nobody; permissions read"],
                      ["one/sub", "--set", "d:u:daemon:-"]):
            self.run_morvane("acl", *words)
            states.append(self.lists("one"))
        self.assertEqual(len(set(states)), len(states))
        states.pop()
        self.assertIn("would change", self.run_morvane("acl", "--undo", "--dry-run").stdout)
        while states:
            self.run_morvane("acl", "--undo")
            self.assertEqual(self.lists("one"), states.pop())
        result = self.run_morvane("acl", "--undo", status=1)
        self.assertIn("there is no change to take back", result.stderr)

    def test_undo_gives_back_what_a_mask_held_back(self):
        self.tool("setfacl", "-m", "u:daemon:rwx,m::r", "outside")
        before = self.tool("getfacl", "-p", "outside")
        for change in (("--clear",), ("--set", "u:daemon:rwx,m::rwx"), ("--set", "u:daemon:r"), ("--remove", "u:daemon"),
                       ("--edit", "add user:2; permissions read-write"), ("--copy-from", "one/plain")):
            with self.subTest(change=change):
                self.run_morvane("acl", "outside", *change)
                self.assertNotEqual(self.tool("getfacl", "-p", "outside"), before)
                self.run_morvane("acl", "--undo")
                self.assertEqual(self.tool("getfacl", "-p", "outside"), before)
        # A mask that lets through more than anybody needs, and one without names.
        for entries in ("u:daemon:r,m::rwx", "g::rw,m::r"):
            with self.subTest(entries=entries):
                self.tool("setfacl", "-b", "-m", entries, "outside")
                before = self.tool("getfacl", "-p", "outside")
                self.run_morvane("acl", "outside", "--clear")
                self.run_morvane("acl", "--undo")
                self.assertEqual(self.tool("getfacl", "-p", "outside"), before)

    def test_what_could_not_be_noted_is_not_confused_with_the_change_before(self):
        before = self.lists("two")
        self.run_morvane("acl", "two/plain", "--set", "u:daemon:r")
        # Like a full disk, after some of the notes.
        program = subprocess.run(
            ["prlimit", "--fsize=300", MORVANE, "acl", "one", "-R", "--set", "u:bin:rX"], cwd=self.folder, text=True,
            env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8", "XDG_STATE_HOME": self.state},
            capture_output=True, timeout=TIME_LIMIT, restore_signals=False)  # SIGXFSZ stays ignored
        self.assertEqual(program.returncode, 0, program.stderr)
        self.assertIn("'--undo' cannot take this back", program.stderr)
        self.assertIn("File too large", program.stderr)
        changed = self.lists("one"), self.lists("two")
        result = self.run_morvane("acl", "--undo", "--dry-run", status=1)
        self.assertIn("what the lists were before the last change could not be noted", result.stderr)
        result = self.run_morvane("acl", "--undo", status=1)
        self.assertIn("'morvane acl --undo' again takes back the change before it", result.stderr)
        self.assertEqual((self.lists("one"), self.lists("two")), changed)
        self.run_morvane("acl", "--undo")
        self.assertEqual((self.lists("one"), self.lists("two")), (changed[0], before))

    def test_what_somebody_else_has_changed_since_is_named_and_stays(self):
        before = self.lists("one")
        self.run_morvane("acl", "one", "-R", "--set", "u:daemon:rX")
        self.tool("setfacl", "-m", "u:bin:r", "one/plain")
        result = self.run_morvane("acl", "--undo", status=1)
        self.assertEqual(result.stdout, "4 lists changed, 0 were so already, 1 was changed since.\n")
        self.assertIn(f"'{self.folder}/one/plain': its list was changed since, and stays as it is", result.stderr)
        self.assertIn("user:bin:r--", self.tool("getfacl", "-c", "one/plain"))
        self.assertIn("user:daemon:r--", self.tool("getfacl", "-c", "one/plain"))
        kept, = [name for name in os.listdir(self.notes()) if name.endswith(".failed")]
        self.run_morvane("acl", "--restore", os.path.join(self.notes(), kept))
        self.assertEqual(self.lists("one"), before)

    def test_of_two_changes_of_one_tree_the_first_leaves_what_the_second_has_made(self):
        before = self.lists("one")
        self.run_morvane("acl", "one", "-R", "--set", "u:daemon:rX")
        first, = os.listdir(self.notes())
        self.run_morvane("acl", "one/sub", "-R", "--set", "u:bin:rX")
        second, = set(os.listdir(self.notes())) - {first}
        # As if the second had begun before the first.
        os.rename(os.path.join(self.notes(), second), os.path.join(self.notes(), "1.acl"))
        result = self.run_morvane("acl", "--undo", status=1)
        self.assertIn("2 were changed since", result.stdout)
        self.assertIn("user:bin:r-x\n", self.tool("getfacl", "-c", "one/sub"))
        self.run_morvane("acl", "--undo")
        result = self.run_morvane("acl", "--undo", status=1)
        self.assertIn("there is no change to take back", result.stderr)
        self.assertNotEqual(self.lists("one"), before)

    def test_other_mounts_below_are_entered_only_if_asked_for(self):
        if os.geteuid() != 0:
            self.skipTest("only root can mount")
        tree = os.path.join(self.folder, "one", "sub", "mount")
        os.mkdir(tree)
        script = (f"mount -t tmpfs none {tree} && touch {tree}/file && "
                  f"'{MORVANE}' acl one -R --set u:daemon:rX >&2 && getfacl -cp {tree}/file && "
                  f"'{MORVANE}' acl one -R --save - && "
                  f"'{MORVANE}' acl one -R --cross-mounts --set u:daemon:rX >&2 && getfacl -cp {tree}/file")
        result = subprocess.run(["unshare", "-m", "sh", "-c", script], cwd=self.folder, text=True, capture_output=True,
                                env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "XDG_STATE_HOME": self.state},
                                timeout=TIME_LIMIT)
        self.assertEqual(result.returncode, 0, result.stderr)
        within, saved, entered = (result.stdout.split("\n\n", 1)[0], result.stdout.split("\n\n", 1)[1],
                                  result.stdout.rsplit("user::", 1)[1])
        self.assertNotIn("daemon", within)
        self.assertIn("one/sub/run", saved)
        self.assertNotIn("mount/file", saved)
        self.assertIn("user:daemon:r--", entered)

    def test_the_notes_are_for_their_user_alone_and_only_the_last_ten_are_kept(self):
        for i in range(12):
            self.run_morvane("acl", "one/plain", "--set", f"u:{4000 + i}:r")
        notes = os.path.join(self.state, "morvane", "undo")
        self.assertEqual(len(os.listdir(notes)), 10)
        self.assertEqual(os.stat(notes).st_mode & 0o777, 0o700)

    def test_what_changes_nothing_leaves_no_notes(self):
        self.run_morvane("acl", "one/plain", "--set", "o::-")
        self.run_morvane("acl", "nowhere", "--set", "o::-", status=1)
        notes = os.path.join(self.state, "morvane", "undo")
        self.assertEqual(os.listdir(notes) if os.path.exists(notes) else [], [])

    def notes(self):
        return os.path.join(self.state, "morvane", "undo")

    def write_notes(self, mode=0o600):
        """Notes as the program has them, for the file outside, by which another user would get rights."""
        os.makedirs(self.notes(), 0o700)
        path = os.path.join(self.notes(), "9.acl")
        with open(path, "w", encoding="ascii") as f:
            f.write(f"# file: {self.outside}\nuser::rw-\nuser:nobody:rw-\ngroup::---\nmask::rw-\nother::---\n\n")
            os.chmod(path, mode)
        return path

    def assert_not_applied(self, why, status):
        before = self.tool("getfacl", "-c", "outside")
        self.assertIn(why, self.run_morvane("acl", "--undo", status=status).stderr)
        self.assertEqual(self.tool("getfacl", "-c", "outside"), before)

    def test_notes_that_others_can_have_written_are_not_applied(self):
        path = self.write_notes(mode=0o666)
        self.assert_not_applied(f"other users can write to '{path}'", 1)
        os.chmod(path, 0o600)
        os.chmod(self.notes(), 0o777)
        self.assert_not_applied(f"other users can write to '{self.notes()}'", 1)
        self.assertEqual(os.stat(self.notes()).st_mode & 0o777, 0o777)

    def test_notes_of_another_user_are_neither_applied_nor_added_to(self):
        if os.geteuid() != 0:
            self.skipTest("only root can give files away")
        path = self.write_notes()
        for owned in (path, self.notes(), os.path.dirname(self.notes()), self.state):
            with self.subTest(owned=owned):
                os.chown(owned, 65534, 65534)
                self.assert_not_applied(f"'{owned}' belongs to another user", 1)
                result = subprocess.run([MORVANE, "acl", "one/plain", "--set", "u:daemon:r"], cwd=self.folder, text=True,
                                        env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "XDG_STATE_HOME": self.state},
                                        capture_output=True, timeout=TIME_LIMIT)
                if owned != path:
                    self.assertIn(f"'--undo' cannot take this back: '{owned}' belongs", result.stderr)
                    self.assertEqual(os.listdir(self.notes()), ["9.acl"])
                else:
                    os.unlink(os.path.join(self.notes(), max(set(os.listdir(self.notes())) - {"9.acl"})))
                self.tool("setfacl", "-b", "one/plain")
                os.chown(owned, 0, 0)

    def test_root_makes_no_folder_for_notes_in_what_is_another_users(self):
        if os.geteuid() != 0:
            self.skipTest("only root can give files away")
        os.mkdir(self.state)
        os.chown(self.state, 65534, 65534)
        environment = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "HOME": self.state}
        environment.pop("XDG_STATE_HOME", None)
        result = subprocess.run([MORVANE, "acl", "one/plain", "--set", "u:daemon:r"], env=environment, text=True,
                                cwd=self.folder, capture_output=True, timeout=TIME_LIMIT)
        self.assertIn(f"'--undo' cannot take this back: '{self.state}' belongs to another user", result.stderr)
        self.assertEqual(os.listdir(self.state), [])

    def test_a_link_in_the_place_of_the_notes_is_left_alone(self):
        elsewhere = os.path.join(self.folder, "elsewhere")
        os.makedirs(elsewhere)
        os.chmod(elsewhere, 0o755)
        kept = [f"{i}.acl" for i in range(12)]
        for name in kept:
            with open(os.path.join(elsewhere, name), "w", encoding="ascii"):
                pass
        os.makedirs(os.path.dirname(self.notes()), 0o700)
        os.symlink(elsewhere, self.notes())
        result = subprocess.run([MORVANE, "acl", "one/plain", "--set", "u:daemon:r"], cwd=self.folder, text=True,
                                env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "XDG_STATE_HOME": self.state},
                                capture_output=True, timeout=TIME_LIMIT)
        self.assertIn("'--undo' cannot take this back", result.stderr)
        self.assertEqual(sorted(os.listdir(elsewhere)), sorted(kept))
        self.assertEqual(os.stat(elsewhere).st_mode & 0o777, 0o755)

    def test_only_what_has_the_name_of_notes_is_taken_for_them(self):
        path = self.write_notes()
        os.rename(path, os.path.join(self.notes(), "a.acl"))
        self.assert_not_applied("there is no change to take back", 1)
        self.run_morvane("acl", "one/plain", "--set", "u:daemon:r")
        name, = set(os.listdir(self.notes())) - {"a.acl"}
        self.assertEqual(os.stat(os.path.join(self.notes(), name)).st_mode & 0o777, 0o600)

    def test_what_has_taken_the_place_of_a_changed_item_is_not_given_its_list(self):
        path = os.path.join(self.folder, "one", "plain")
        why = "another item has taken its place since the list was noted"
        for place in (os.symlink, os.link):
            with self.subTest(place=place):
                self.run_morvane("acl", "one/plain", "--set", f"u:{4000 + len(place.__name__)}:r")
                os.rename(path, path + ".old")
                place(self.outside, path)
                self.assert_not_applied(why, 1)
                self.assertEqual(os.stat(self.outside).st_mode & 0o777, 0o600)
                os.rename(path + ".old", path)
                self.assertIn("user:400", self.tool("getfacl", "-c", "one/plain"))
                kept, = [name for name in os.listdir(self.notes()) if name.endswith(".failed")]
                self.run_morvane("acl", "--restore", os.path.join(self.notes(), kept))
                self.assertNotIn("user:400", self.tool("getfacl", "-c", "one/plain"))
                self.tool("rm", "-r", self.notes())

    def test_what_a_link_led_to_is_given_its_list_back_wherever_the_link_leads_now(self):
        link = os.path.join(self.folder, "one", "leads")
        os.symlink("plain", link)
        before = self.tool("getfacl", "-c", "one/plain", "outside")
        self.run_morvane("acl", "one/leads", "--set", "u:daemon:r")
        os.unlink(link)
        os.symlink(self.outside, link)
        self.run_morvane("acl", "--undo")
        self.assertEqual(self.tool("getfacl", "-c", "one/plain", "outside"), before)

    def test_what_cannot_be_taken_back_is_kept_and_is_not_in_the_way_of_older_changes(self):
        before = self.lists("one")
        self.run_morvane("acl", "one/plain", "--set", "u:daemon:rw")
        with open(os.path.join(self.folder, "gone"), "w", encoding="ascii"):
            pass
        self.run_morvane("acl", "gone", "one/sub", "--set", "u:bin:r")
        os.unlink(os.path.join(self.folder, "gone"))
        result = self.run_morvane("acl", "--undo", status=1)
        self.assertIn("'gone'", result.stderr.replace(self.folder + "/", ""))
        kept, = [name for name in os.listdir(self.notes()) if name.endswith(".failed")]
        self.assertIn(f"'morvane acl --restore {os.path.join(self.notes(), kept)}' tries it again", result.stderr)
        with open(os.path.join(self.notes(), kept), encoding="ascii") as f:
            self.assertEqual([line for line in f if line.startswith("# file:")], [f"# file: {self.folder}/gone\n"])
        self.run_morvane("acl", "--undo")
        self.assertEqual(self.lists("one"), before)

    def test_notes_that_were_torn_off_are_taken_as_far_as_they_go(self):
        before = self.lists("one")
        self.run_morvane("acl", "one/plain", "--set", "u:daemon:rw")
        self.run_morvane("acl", "outside", "one/sub", "--set", "u:bin:r")
        name = os.path.join(self.notes(), max(os.listdir(self.notes())))
        self.tool("truncate", "-s", "-20", name)
        self.run_morvane("acl", "--undo")
        self.assertEqual(os.stat(self.outside).st_mode & 0o777, 0o600)
        self.assertNotIn("bin", self.tool("getfacl", "-c", "outside"))
        self.assertIn("user:bin:r--", self.tool("getfacl", "-c", "one/sub"))
        self.run_morvane("acl", "one/sub", "--remove", "u:bin")
        name = os.path.join(self.notes(), max(os.listdir(self.notes())))
        self.tool("truncate", "-s", "-20", name)
        self.run_morvane("acl", "--undo")
        self.assertEqual(self.lists("one"), before)

    def test_without_a_place_for_notes_the_change_is_made_and_that_is_said(self):
        with open(self.state, "w", encoding="ascii"):
            pass
        environment = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "XDG_STATE_HOME": self.state}
        result = subprocess.run([MORVANE, "acl", "one/plain", "--set", "u:daemon:r"], env=environment, text=True,
                                cwd=self.folder, capture_output=True, timeout=TIME_LIMIT)
        self.assertEqual(result.returncode, 0)
        self.assertIn("'--undo' cannot take this back", result.stderr)
        self.assertIn("user:daemon:r--", self.tool("getfacl", "-c", "one/plain"))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
