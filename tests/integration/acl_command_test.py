# SPDX-License-Identifier: MIT
"""The command-line host with the real file service, on real files.

usage: acl_command_test.py MORVANE LIBEXEC-DIR [unittest arguments]
"""
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

MORVANE, LIBEXEC = map(os.path.abspath, sys.argv[1:3])
SERVICE = "io.github.morvaneoperation.FileService"
TIME_LIMIT = 60  # a watchdog; nothing here takes long


def run(*arguments, libexec=LIBEXEC, cwd=None, **variables):
    environment = {**os.environ, "MORVANE_LIBEXEC_DIR": libexec, "LC_ALL": "C.UTF-8", **variables}
    return subprocess.run([MORVANE, *arguments], env=environment, cwd=cwd, capture_output=True,
                          timeout=TIME_LIMIT)


class RealFile(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.file = os.path.join(folder.name, "notes.txt")
        with open(self.file, "w", encoding="ascii") as f:
            f.write("notes")
        os.chmod(self.file, 0o640)

    def setfacl(self, *arguments):
        subprocess.run(["setfacl", *arguments], check=True, timeout=TIME_LIMIT)

    def entries(self, path):
        result = run("acl", "--json", path)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return json.loads(result.stdout)["entries"]

    def stubService(self, script):
        folder = os.path.join(self.folder, "libexec")
        os.mkdir(folder)
        program = os.path.join(folder, SERVICE)
        with open(program, "w", encoding="ascii") as f:
            f.write(script)
        os.chmod(program, 0o755)
        return folder


class Listing(RealFile):
    def test_the_three_classes_of_a_plain_file_are_flat_entries(self):
        entries = self.entries(self.file)
        self.assertEqual([e["isAcl"] for e in entries], [False] * 3)
        self.assertEqual([[(n["name"], n["state"]) for n in e["permissions"]] for e in entries],
                         [[("Read", 1), ("Write", 1), ("Execute", 0)],
                          [("Read", 1), ("Write", 0), ("Execute", 0)],
                          [("Read", 0), ("Write", 0), ("Execute", 0)]])
        self.assertEqual([n["children"] for e in entries for n in e["permissions"]], [[]] * 9)

    def test_a_named_user_is_a_tree_entry_with_the_boxes_of_its_rights(self):
        self.setfacl("-m", "u:daemon:r", self.file)
        entry = next(e for e in self.entries(self.file) if e["identity"] == "daemon")
        self.assertTrue(entry["isAcl"])
        self.assertEqual((entry["tag"], entry["isGroup"], entry["inherited"]), (1, False, False))
        self.assertEqual([n["name"] for n in entry["permissions"]],
                         ["Read", "Write", "Administration"])
        on = [c["name"] for n in entry["permissions"] for c in n["children"] if c["state"] == 1]
        self.assertEqual(on, ["Read Data", "Read Attributes", "Read Extended Attributes",
                              "Read Permissions"])

    def test_a_default_list_applies_to_what_is_inside_but_not_to_the_folder(self):
        folder = os.path.join(self.folder, "inbox")
        os.mkdir(folder)
        self.setfacl("-d", "-m", "g:games:rx", folder)
        entry = next(e for e in self.entries(folder) if e["identity"] == "games")
        self.assertEqual(entry["applicableTo"],
                         "Not this item, Child files, Child folders, All descendants")
        self.assertEqual([(c["name"], c["state"]) for c in entry["permissions"][3]["children"]],
                         [("This item", 0), ("Child files", 1), ("Child folders", 1),
                          ("All descendants", 1)])

    def test_every_key_of_the_json_is_there_and_no_other(self):
        for entry in self.entries(self.file):
            self.assertEqual(set(entry), {
                "identity", "uuid", "isGroup", "subject", "letters", "tag", "inherited", "isAcl", "permissionGroup",
                "applicableTo", "canonicalScore", "permissions"})
            for node in entry["permissions"]:
                self.assertEqual(set(node),
                                 {"name", "permission", "state", "settable", "children"})

    def test_entries_come_in_canonical_order(self):
        self.setfacl("-m", "u:daemon:---,g:games:rw", self.file)
        scores = [e["canonicalScore"] for e in self.entries(self.file)]
        self.assertEqual(scores, sorted(scores, reverse=True))
        self.assertIn(1, scores)

    def test_the_table_has_a_line_for_each_entry(self):
        self.setfacl("-m", "u:daemon:r", self.file)
        result = run("acl", self.file)
        lines = result.stdout.decode().splitlines()
        self.assertEqual(lines[0],
                         "file, POSIX list; user root (owner), group root (owning group)")
        self.assertEqual(lines[1].split("  ")[0], "Who")
        self.assertEqual(len(lines), 2 + len(self.entries(self.file)))
        self.assertEqual((result.returncode, result.stderr), (0, b""))

    def test_the_letters_of_the_list_are_what_getfacl_says_is_left_of_it(self):
        self.setfacl("-m", "u:daemon:rwx,g:bin:-wx,m::rx", self.file)
        listed = subprocess.run(["getfacl", "--omit-header", "--absolute-names", "-e", self.file],
                                check=True, capture_output=True, timeout=TIME_LIMIT, text=True).stdout
        left = {kind + name: effective or stored for kind, name, stored, effective in
                re.findall(r"^(\w+):(\w*):([-rwx]{3})(?:\s+#effective:([-rwx]{3}))?$", listed, re.M)}
        lines = run("acl", self.file).stdout.decode().splitlines()
        self.assertEqual(lines[1], "The mask r-x holds back rights that are stored; shown is what is left.")
        shown = {}
        for line in lines[3:]:
            who, rule, letters = re.split(r"  +", line)[:3]
            if rule == "Allow":
                shown[who] = letters
        self.assertEqual(shown, {"user root (owner)": left["user"], "user daemon": left["userdaemon"],
                                 "group bin": left["groupbin"], "everyone": left["other"],
                                 "group root (owning group)": left["group"]})
        self.setfacl("-m", "m::rwx", self.file)
        self.assertNotIn(b"mask", run("acl", self.file).stdout)

    def test_the_tree_shows_boxes_that_are_on_off_and_mixed(self):
        self.setfacl("-m", "u:daemon:r", self.file)
        text = run("acl", "--tree", self.file).stdout.decode()
        self.assertIn("[-] Read\n        [x] Read Data\n        [ ] Execute File\n", text)

    def test_a_relative_path_is_taken_from_the_current_folder(self):
        result = run("acl", "notes.txt", cwd=self.folder)
        self.assertEqual((result.returncode, result.stderr), (0, b""))

    def test_a_symbolic_link_shows_the_list_of_what_it_points_to(self):
        link = os.path.join(self.folder, "link")
        os.symlink(self.file, link)
        self.assertEqual(self.entries(link), self.entries(self.file))

    def test_a_name_that_is_not_utf8_works(self):
        path = os.fsencode(self.folder) + b"/\xff\xfe"
        open(path, "w", encoding="ascii").close()
        self.assertEqual(run("acl", path).returncode, 0)

    def test_a_user_without_a_name_is_shown_by_number(self):
        self.setfacl("-m", "u:61234:r", self.file)
        self.assertIn("uid 61234", [e["identity"] for e in self.entries(self.file)])

    def test_a_pipe_gets_no_colours(self):
        self.assertNotIn(b"\033", run("acl", "--tree", self.file, TERM="xterm").stdout)

    def test_reading_changes_nothing(self):
        self.setfacl("-m", "u:daemon:r", self.file)
        before = os.stat(self.file)
        self.entries(self.file)
        after = os.stat(self.file)
        self.assertEqual((before.st_mode, before.st_ctime_ns), (after.st_mode, after.st_ctime_ns))


class Failure(RealFile):
    def failing(self, status, *arguments, **how):
        result = run(*arguments, **how)
        self.assertEqual((result.returncode, result.stdout), (status, b""))
        return result.stderr.decode()

    def test_a_missing_file_is_told_with_its_path_and_what_to_do(self):
        path = os.path.join(self.folder, "missing")
        self.assertEqual(
            self.failing(1, "acl", path),
            f"morvane: cannot read the access-control list of '{path}': No such file or directory\n"
            "  Check the spelling of the path; a symbolic link may point to nothing.\n")

    def test_an_unknown_option_is_a_usage_error(self):
        self.assertIn("--help", self.failing(2, "acl", "--nonsense", self.file))

    def test_without_a_path_it_is_a_usage_error(self):
        self.assertIn("PATH is required", self.failing(2, "acl"))

    def test_a_missing_service_is_told_with_the_program_that_was_looked_for(self):
        for arguments in (["acl", self.file], ["acl", self.file, "--set", "u:daemon:r"], ["ls", self.folder],
                          ["rename", self.file, "other.txt"], ["size", self.file]):
            with self.subTest(arguments):
                message = self.failing(3, *arguments, libexec=os.path.join(self.folder, "nowhere"))
                self.assertIn(f"nowhere/{SERVICE}", message)
                self.assertIn("MORVANE_LIBEXEC_DIR", message)

    def test_a_missing_service_is_told_once_for_a_folder_with_all_that_is_below(self):
        result = run("acl", "-R", self.folder, "--set", "u:daemon:r", libexec=os.path.join(self.folder, "nowhere"))
        self.assertEqual((result.returncode, result.stdout), (3, b"0 lists changed, 0 were so already, 1 failure.\n"))
        self.assertEqual(result.stderr.count(b"cannot change"), 1, result.stderr)

    def test_a_service_that_leaves_at_once_ends_the_request(self):
        stub = self.stubService("#!/bin/sh\nexit 1\n")
        self.assertIn("went away", self.failing(3, "acl", self.file, libexec=stub))

    def test_a_service_that_is_killed_during_the_request_ends_the_request(self):
        stub = self.stubService("#!/bin/sh\nhead -c 24 <&3 >/dev/null\nkill -KILL $$\n")
        self.assertIn("went away", self.failing(3, "acl", self.file, libexec=stub))

    def test_a_service_that_answers_nonsense_ends_the_request(self):
        stub = self.stubService("#!/bin/sh\nhead -c 24 <&3 >/dev/null\nprintf '%0100d' 0 >&3\n"
                                "exec cat <&3 >/dev/null\n")
        self.assertIn("went away", self.failing(3, "acl", self.file, libexec=stub))

    def test_output_that_cannot_be_written_is_an_error(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            result = subprocess.run(
                [MORVANE, "acl", self.file], stdout=full, stderr=subprocess.PIPE,
                env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC}, timeout=TIME_LIMIT)
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"could not be written", result.stderr)

    def test_a_current_folder_that_is_gone_is_told(self):
        result = subprocess.run(
            ["sh", "-c", 'mkdir gone && cd gone && rmdir ../gone && exec "$@"', "sh", MORVANE, "acl", "x"],
            cwd=self.folder, capture_output=True, timeout=TIME_LIMIT,
            env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8"})
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertEqual(result.stderr,
                         b"morvane: the current folder cannot be told: No such file or directory\n"
                         b"  Go to a folder that exists, or write the whole path.\n")

    def without(self, redirection):
        """Runs without one of the standard streams."""
        return subprocess.run(["sh", "-c", f'exec "$@" {redirection}', "sh", MORVANE, "acl", self.file],
                              capture_output=True, timeout=TIME_LIMIT,
                              env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC})

    def test_output_that_has_nowhere_to_go_is_an_error(self):
        result = self.without(">&-")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"could not be written", result.stderr)

    def test_neither_input_nor_messages_are_needed(self):
        output = run("acl", self.file).stdout
        for redirection in ("<&-", "2>&-", "<&- 2>&-"):
            result = self.without(redirection)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, output, b""))

    def test_a_folder_that_may_not_be_entered_is_told_as_such(self):
        locked = os.path.join(self.folder, "locked")
        os.mkdir(locked, 0o700)
        inside = os.path.join(locked, "inside")
        open(inside, "w", encoding="ascii").close()
        os.chmod(self.folder, 0o755)
        if os.geteuid() != 0:
            os.chmod(locked, 0)
            message = self.failing(1, "acl", inside)
        else:
            result = subprocess.run(
                ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", MORVANE, "acl",
                 inside], capture_output=True, timeout=TIME_LIMIT,
                env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC})
            self.assertEqual((result.returncode, result.stdout), (1, b""))
            message = result.stderr.decode()
        self.assertIn("Permission denied", message)


class Programs(unittest.TestCase):
    def test_the_version_is_printed(self):
        result = run("--version")
        with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../CMakeLists.txt"),
                  encoding="utf-8") as file:
            version = re.search(r"^project\(.* VERSION ([0-9.]+) ", file.read(), re.MULTILINE)[1]
        self.assertEqual((result.returncode, result.stdout.decode()), (0, f"morvane {version}\n"))

    def test_help_is_there_for_every_command(self):
        for arguments in (["--help"], ["acl", "--help"]):
            result = run(*arguments)
            self.assertEqual((result.returncode, result.stderr), (0, b""))
            self.assertIn(b"Exit status:", result.stdout)

    def test_the_service_started_by_hand_says_what_it_is(self):
        result = subprocess.run([os.path.join(LIBEXEC, SERVICE)], capture_output=True,
                                timeout=TIME_LIMIT)
        self.assertEqual((result.returncode, result.stdout), (64, b""))
        self.assertIn(b"the application that uses it starts it", result.stderr)

    def test_the_service_leaves_with_its_host(self):
        with tempfile.NamedTemporaryFile() as file:
            # The service has the host's standard error too: its end comes when both have left.
            self.assertEqual(run("acl", file.name).returncode, 0)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
