# SPDX-License-Identifier: MIT
"""What every command prints for programs, beside the schema that is installed with the documentation.

usage: json_test.py MORVANE LIBEXEC-DIR SCHEMA [unittest arguments]
"""
import base64
import json
import os
import signal
import subprocess
import sys
import tempfile
import unittest

from json_schema import check

MORVANE, LIBEXEC, SCHEMA = map(os.path.abspath, sys.argv[1:4])
TIME_LIMIT = 120  # a watchdog; nothing here takes long
ENVIRONMENT = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8"}
with open(SCHEMA, encoding="utf-8") as schema_file:
    ROOT = json.load(schema_file)


class Documents(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = os.path.join(os.fsencode(folder.name), b"top")
        self.state = os.path.join(folder.name, "state")  # the journal of what --undo takes back
        os.mkdir(self.folder)
        self.file = os.path.join(self.folder, b"notes.txt")
        with open(self.file, "wb") as f:
            f.truncate(1500)
        os.chmod(self.file, 0o640)
        subprocess.run(["setfacl", "-m", "u:4711:rw", self.file], check=True)

    def run_morvane(self, *arguments, **environment):
        return subprocess.run([MORVANE, *arguments], env={**ENVIRONMENT, "XDG_STATE_HOME": self.state, **environment}, cwd=self.folder,
                              capture_output=True, timeout=TIME_LIMIT)

    def document(self, *arguments, status=0, **environment):
        """The one object that is printed, which the schema allows."""
        result = self.run_morvane(*arguments, **environment)
        self.assertEqual(result.returncode, status, result.stderr)
        printed = json.loads(result.stdout)
        check(printed, ROOT, ROOT)
        self.assertEqual((printed["version"], printed["exitStatus"]), (1, status))
        self.assertEqual(printed["error"] is None, status == 0)
        return printed

    def lines(self, *arguments, status=0):
        result = self.run_morvane(*arguments)
        self.assertEqual(result.returncode, status, result.stderr)
        return self.checked_lines(result.stdout, status)

    def checked_lines(self, output, status):
        printed = [json.loads(line) for line in output.splitlines()]
        for line in printed:
            check(line, ROOT["$defs"]["line"], ROOT)
        self.assertEqual((printed[-1]["event"], printed[-1]["exitStatus"]), ("end", status))
        return printed


class Commands(Documents):
    def test_a_list_comes_with_its_item(self):
        printed = self.document("acl", "--json", "notes.txt")
        item = printed["item"]
        self.assertEqual((item["path"], item["kind"], item["storage"]), ("notes.txt", "file", "posix"))
        self.assertEqual(item["owner"]["id"], os.geteuid())
        self.assertEqual(base64.b64decode(item["pathBytes"]), b"notes.txt")
        self.assertEqual({(entry["identity"], entry["subject"], entry["letters"]) for entry in printed["entries"]
                          if entry["subject"] in ("user", "everyone")},
                         {("uid 4711", "user", "rw-"), ("everyone", "everyone", "---")})

    def test_a_mask_that_holds_rights_back_is_told(self):
        self.assertIsNone(self.document("acl", "--json", "notes.txt")["item"]["mask"])
        subprocess.run(["setfacl", "-m", "m::r", self.file], check=True)
        self.assertEqual(self.document("acl", "--json", "notes.txt")["item"]["mask"], "r--")

    def test_a_folder_on_a_file_system_without_lists_says_so(self):
        printed = self.document("acl", "--json", "/proc/self")
        self.assertEqual((printed["item"]["kind"], printed["item"]["storage"]), ("folder", "mode"))

    def test_an_edit_prints_the_list_that_is_there_now(self):
        printed = self.document("acl", "--json", "notes.txt", "--edit", "add user:65534; permissions read")
        self.assertIn("nobody", [entry["identity"] for entry in printed["entries"]])

    def test_a_dry_run_prints_both_lists(self):
        printed = self.document("acl", "--json", "notes.txt", "--dry-run", "--edit", "add user:65534")
        self.assertEqual(len(printed["after"]), len(printed["before"]) + 1)

    def test_several_lists_come_one_beside_the_other(self):
        printed = self.document("acl", "--json", "notes.txt", "gone", ".", status=1)
        self.assertEqual([entry["item"]["kind"] for entry in printed["lists"]], ["file", None, "folder"])
        self.assertEqual([entry["entries"] is None for entry in printed["lists"]], [False, True, False])
        self.assertEqual(printed["error"]["name"], "ENOENT")

    def test_a_change_of_many_lists_tells_how_many_and_what_failed(self):
        printed = self.document("acl", "--json", "notes.txt", "gone", "--set", "u:4712:r", status=1)
        self.assertEqual((printed["dryRun"], printed["changed"], printed["unchanged"]), (False, 1, 0))
        self.assertEqual([failure["path"] for failure in printed["failures"]], ["gone"])
        printed = self.document("acl", "--json", "notes.txt", "--set", "u:4712:r")
        self.assertEqual((printed["changed"], printed["unchanged"], printed["failures"]), (0, 1, []))
        printed = self.document("acl", "--json", "notes.txt", "--remove", "u:4712", "--dry-run")
        self.assertEqual((printed["dryRun"], printed["changed"]), (True, 1))
        planned, = printed["changes"]
        self.assertEqual((planned["path"], planned["removed"], planned["added"]),
                         ("notes.txt", ["user:4712:r--"], []))
        self.assertEqual(self.document("acl", "--json", "--undo")["changed"], 1)

    def test_a_list_that_somebody_else_has_changed_since_is_counted(self):
        self.document("acl", "--json", "notes.txt", "--set", "u:4712:r")
        subprocess.run(["setfacl", "-m", "u:4713:r", self.file], check=True)
        printed = self.document("acl", "--json", "--undo", status=1)
        self.assertEqual((printed["changed"], printed["changedSince"]), (0, 1))
        self.assertEqual(len(printed["failures"]), 1)

    def test_a_saved_and_a_restored_tree_are_counted(self):
        saved = os.fsdecode(os.path.join(os.path.dirname(self.folder), b"saved"))
        self.assertEqual(self.document("acl", "--json", ".", "-R", "--save", saved)["saved"], 2)
        printed = self.document("acl", "--json", "gone", "notes.txt", "--save", saved + "2", status=1)
        self.assertEqual((printed["saved"], [failure["path"] for failure in printed["failures"]]), (1, ["gone"]))
        subprocess.run(["setfacl", "-b", self.file], check=True)
        self.assertEqual(self.document("acl", "--json", "--restore", saved)["changed"], 1)

    def test_a_propagation_says_that_it_is_done(self):
        printed = self.document("acl", ".", "--propagate", "--json")
        self.assertEqual((printed["command"], printed["done"], printed["failed"], printed["failures"]),
                         ("acl", 1, 0, []))
        last, = (line for line in self.lines("acl", ".", "--propagate", "--json-lines") if line["event"] != "progress")
        self.assertEqual((last["event"], last["done"], last["failed"], last["failures"]), ("end", 1, 0, []))
        self.assertEqual(printed["dryRun"], False)
        subprocess.run(["setfacl", "-m", "u:4711:rw", self.file], check=True)
        os.chown(self.file, 1, 2)
        planned = self.document("acl", ".", "--propagate", "--json", "--dry-run")
        self.assertEqual((planned["dryRun"], planned["done"]), (True, 0))
        self.assertEqual(planned["below"], {"files": 1, "folders": 0, "ownLists": 1, "otherOwners": 1, "notLookedAt": 0})

    def test_failures_of_several_items_are_no_advice(self):
        printed = self.document("acl", "--json", "gone", "lost", "--set", "u:4712:r", status=1)
        self.assertEqual([failure["path"] for failure in printed["failures"]], ["gone", "lost"])
        self.assertIn("gone", printed["error"]["message"])
        self.assertFalse([line for line in printed["error"]["advice"] if "lost" in line])

    def test_what_somebody_can_do_names_them(self):
        printed = self.document("access", "--json", "notes.txt", "--user", "daemon")
        self.assertEqual((printed["who"]["identity"], printed["who"]["isGroup"]), ("daemon", False))
        self.assertTrue(printed["permissions"])

    def test_sizes_have_their_parts_below_them(self):
        printed = self.document("size", "--json", "--depth", "1", ".", "notes.txt")
        self.assertEqual(printed["total"], 1500)  # one of them is in the other
        self.assertEqual([child["path"] for child in printed["items"][0]["children"]], ["./notes.txt"])

    def test_sizes_come_line_by_line(self):
        events = [line for line in self.lines("size", "--json-lines", ".", "notes.txt")
                  if line["event"] != "progress"]
        self.assertEqual([line.get("size") for line in events], [1500, 1500, None])
        self.assertEqual(events[-1]["total"], 1500)

    def test_long_work_says_how_far_it_is(self):
        much = os.path.join(self.folder, b"much")
        for i in range(1000):
            os.makedirs(os.path.join(much, b"%d" % i))
        with subprocess.Popen([MORVANE, "size", "--json-lines", *[much] * 1000], env=ENVIRONMENT, cwd=self.folder,
                              stdout=subprocess.PIPE) as process:
            first = process.stdout.readline()
            process.send_signal(signal.SIGINT)
            output = first + process.stdout.read()
        printed = self.checked_lines(output, 130)
        self.assertEqual(process.returncode, 130)
        self.assertEqual(printed[0]["event"], "progress")
        self.assertEqual(printed[0]["of"], 1000)

    def test_a_change_of_a_tree_comes_line_by_line(self):
        for i in range(3000):
            os.mkdir(os.path.join(self.folder, b"%d" % i))
        first, *_, last = self.lines("acl", "-R", ".", "--set", "u:4712:r", "--json-lines")
        self.assertEqual(first["event"], "progress")
        self.assertEqual((last["changed"], last["unchanged"], last["failures"]), (3002, 0, []))
        self.assertEqual(self.lines("acl", "--undo", "--json-lines")[-1]["changed"], 3002)
        refused = self.run_morvane("acl", "notes.txt", "--set", "u:4712:r", "--json-lines")
        self.assertEqual(refused.returncode, 2)
        self.assertIn("--json-lines requires --propagate, --recursive, --restore or --undo",
                      json.loads(refused.stdout)["error"]["message"])

    def test_every_kind_of_item_is_listed_with_what_it_is(self):
        os.symlink(b"nowhere", os.path.join(self.folder, b"link"))
        os.mkfifo(os.path.join(self.folder, b"\xff fifo"))
        os.mkdir(os.path.join(self.folder, b"nest"), 0o750)
        items = {base64.b64decode(item["pathBytes"]): item for item in self.document("ls", "--json", ".")["items"]}
        self.assertEqual({path: item["kind"] for path, item in items.items()},
                         {b"./link": "link", b"./\xff fifo": "fifo", b"./nest": "folder", b"./notes.txt": "file"})
        self.assertEqual(items[b"./link"]["target"], "nowhere")
        self.assertEqual((items[b"./notes.txt"]["mode"], items[b"./notes.txt"]["hasList"]), ("-rw-rw----", True))
        self.assertEqual(items[b"./nest"]["mode"], "drwxr-x---")
        self.assertEqual(items[b"./\xff fifo"]["name"], "\ufffd fifo")

    def test_several_are_listed_each_with_what_is_in_it(self):
        lists = self.document("ls", "--json", ".", "gone", "notes.txt", status=1)["lists"]
        self.assertEqual([one["item"]["path"] for one in lists], [".", "gone", "notes.txt"])
        self.assertEqual([one["items"] and [item["path"] for item in one["items"]] for one in lists],
                         [["./notes.txt"], None, ["notes.txt"]])

    def test_a_rename_says_what_became_of_each(self):
        printed = self.document("rename", "--json", "notes.txt", "new", "gone", "other", status=1)
        self.assertEqual([item["error"] and item["error"]["name"] for item in printed["items"]], [None, "ENOENT"])
        self.assertTrue(printed["items"][0]["to"]["path"].endswith("/new"))


class Failures(Documents):
    def test_what_cannot_be_reached_is_told_with_its_number_and_name(self):
        for arguments in (("acl", "gone"), ("access", "gone", "--user", "0"), ("ls", "gone"),
                          ("acl", "gone", "--propagate"), ("acl", "gone", "--edit", "add everyone")):
            error = self.document(*arguments, "--json", status=1)["error"]
            self.assertEqual((error["domain"], error["code"], error["name"]), ("NSPOSIXErrorDomain", 2, "ENOENT"))
            self.assertIn("Check the spelling of the path", error["advice"][0])

    def test_a_size_that_is_not_known_is_null(self):
        printed = self.document("size", "--json", "gone", "notes.txt", status=1)
        self.assertEqual([item["size"] for item in printed["items"]], [None, 1500])
        self.assertEqual(printed["error"]["name"], "ENOENT")
        self.assertEqual(self.lines("size", "--json-lines", "gone", status=1)[-1]["error"]["name"], "ENOENT")

    def test_words_that_are_not_understood_are_told(self):
        for arguments in (("acl", "--json"), ("acl", "--json", "--tree", "."), ("size", "--json", "--depth", "x"),
                          ("access", "--json", ".", "--user", "no-such"), ("nonsense", "--json")):
            error = self.document(*arguments, status=2)["error"]
            self.assertRegex(error["advice"][-1], "^'morvane .*--help' tells how the command is used.$")

    def test_a_service_that_is_not_there_is_told(self):
        error = self.document("acl", "--json", ".", status=3, MORVANE_LIBEXEC_DIR="/nowhere")["error"]
        self.assertEqual((error["domain"], error["code"]), ("NSCocoaErrorDomain", 4099))

    def test_standard_error_says_the_same_to_people(self):
        result = self.run_morvane("acl", "--json", "gone")
        self.assertIn(json.loads(result.stdout)["error"]["message"], result.stderr.decode())

    def test_the_check_sees_what_is_wrong(self):
        printed = self.document("ls", "--json", ".")
        for key, value in (("version", 2), ("command", "sl"), ("items", [{}]), ("more", 1)):
            with self.assertRaises(ValueError, msg=key):
                check({**printed, key: value}, ROOT, ROOT)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
