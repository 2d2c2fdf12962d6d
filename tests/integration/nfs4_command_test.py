# SPDX-License-Identifier: MIT
"""The allow/deny lists of network mounts, through the command-line host and the real file service.

usage: nfs4_command_test.py MORVANE LIBEXEC-DIR NFS4-MOUNT-LIBRARY [unittest arguments]
"""
import json
import os
import struct
import subprocess
import sys
import tempfile
import unittest

from json_schema import check

MORVANE, LIBEXEC, MOUNT = map(os.path.abspath, sys.argv[1:4])
TIME_LIMIT = 60  # a watchdog; nothing here takes long
STATE = tempfile.TemporaryDirectory()  # this user's, whose checkout it may not be; what lists were is noted there
ENVIRONMENT = {**os.environ, "XDG_STATE_HOME": STATE.name, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8", "LD_PRELOAD": MOUNT}

with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "morvane.schema.json"),
          encoding="utf-8") as schema_file:
    SCHEMA = json.load(schema_file)

ALLOW, DENY, AUDIT = 0, 1, 2
FILES, FOLDERS, ONE_LEVEL, ONLY_BELOW, IS_GROUP, INHERITED = 0x1, 0x2, 0x4, 0x8, 0x40, 0x80


def named(*entries):
    data = struct.pack(">I", len(entries))
    for kind, flags, mask, who in entries:
        text = who.encode()
        data += struct.pack(">4I", kind, flags, mask, len(text)) + text + bytes(-len(text) % 4)
    return data


def numbered(flags, *entries):
    return struct.pack(">2I", flags, len(entries)) + b"".join(struct.pack(">5I", *entry) for entry in entries)


class Mount(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(dir=os.path.dirname(MOUNT))  # a disk: user attributes
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.file = os.path.join(folder.name, "file")
        with open(self.file, "w", encoding="ascii"):
            os.chmod(self.file, 0o640)

    def run_morvane(self, *arguments):
        result = subprocess.run([MORVANE, *arguments], env=ENVIRONMENT, capture_output=True, text=True,
                                timeout=TIME_LIMIT)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def entries(self, path):
        printed = json.loads(self.run_morvane("acl", "--json", path))
        check(printed, SCHEMA, SCHEMA)
        self.assertEqual(printed["item"]["storage"], "nfs4" if printed["entries"] else None)
        return printed["entries"]


class Lists(Mount):
    def test_the_whole_list_is_shown(self):
        os.setxattr(self.file, "user.nfs4_acl", named(
            (DENY, 0, 0x2, "nobody@example.org"), (AUDIT, 0x10, 0x7, "EVERYONE@"),
            (ALLOW, INHERITED, 0x16019F, "OWNER@"), (ALLOW, IS_GROUP, 0x1, "GROUP@"), (ALLOW, 0, 0x1, "4711")))
        shown = {(e["identity"], e["tag"], e["inherited"]) for e in self.entries(self.file)}
        self.assertEqual({(tag, inherited) for _, tag, inherited in shown}, {(2, False), (1, True), (1, False)})
        self.assertIn(("uid 4711", 1, False), shown)
        self.assertIn(("root", 1, True), shown)
        self.assertEqual(len(self.entries(self.file)), 4, "what audits is not shown")

    def test_an_edit_keeps_everything_else_byte_by_byte(self):
        entries = [(AUDIT, 0x10, 0x7, "watched@example.org"), (DENY, 0, 0x2, "stranger@example.org"),
                   (ALLOW, 0, 0x100001, "4711"), (ALLOW, 0, 0x1601FF, "OWNER@")]
        os.setxattr(self.file, "user.nfs4_acl", named(*entries))
        number = [e["identity"] for e in self.entries(self.file)].index("uid 4711") + 1
        self.run_morvane("acl", self.file, "--edit", f'entry {number}; on "Delete"')
        entries[2] = (ALLOW, 0, 0x110001, "4711")
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"), named(*entries))

    def test_the_numbered_form_is_written_as_it_was_read(self):
        old = numbered(0x30000, (ALLOW, FILES | FOLDERS, 1, 0x1601FF, 1), (ALLOW, FILES, 0, 0x1, 4711))
        os.setxattr(self.folder, "user.nfs4_acl_xdr", old)
        self.run_morvane("acl", self.folder, "--edit", "add group:4712; permissions read; deny")
        flags, count = struct.unpack_from(">2I", os.getxattr(self.folder, "user.nfs4_acl_xdr"))
        self.assertEqual((flags, count), (0x20000, 3), "it is no longer what the mode alone says")
        new = os.getxattr(self.folder, "user.nfs4_acl_xdr")
        self.assertEqual(new[28:], old[8:], "who is denied comes first, the others are as they were")
        self.assertEqual(struct.unpack_from(">5I", new, 8)[:3], (DENY, IS_GROUP, 0))

    def test_what_a_mode_has_no_place_for_is_held(self):
        os.setxattr(self.file, "user.nfs4_acl", named((ALLOW, 0, 0x1601FF, "OWNER@")))
        self.run_morvane("acl", self.file, "--edit", 'add user:4711; permissions read; on "Change Owner"')
        entry = next(e for e in self.entries(self.file) if e["identity"] == "uid 4711")
        administration = entry["permissions"][2]
        self.assertEqual([(n["name"], n["state"]) for n in administration["children"]],
                         [("Change Permissions", 0), ("Change Owner", 1)])

    def test_access_follows_the_first_entry_that_speaks_of_it(self):
        os.chmod(self.folder, 0o755)
        os.setxattr(self.file, "user.nfs4_acl", named((DENY, 0, 0x2, "4711"), (ALLOW, 0, 0x3, "EVERYONE@")))
        shown = self.run_morvane("access", self.file, "--user", "4711")
        self.assertIn("[x] Read Data", shown)
        self.assertIn("[ ] Write Data", shown)

    def test_an_entry_that_is_made_a_denial_denies(self):
        os.chmod(self.folder, 0o755)
        os.setxattr(self.file, "user.nfs4_acl", named(
            (ALLOW, 0, 0x1601FF, "OWNER@"), (ALLOW, 0, 0x1200A7, "EVERYONE@"), (ALLOW, 0, 0x1200A7, "4711")))
        number = [e["identity"] for e in self.entries(self.file)].index("uid 4711") + 1
        self.assertIn("[x] Write Data", self.run_morvane("access", self.file, "--user", "4711"))
        self.run_morvane("acl", self.file, "--edit", f"entry {number}; deny")
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"), named(
            (ALLOW, 0, 0x1601FF, "OWNER@"), (DENY, 0, 0x0200A7, "4711"), (ALLOW, 0, 0x1200A7, "EVERYONE@")))
        self.assertIn("[ ] Write Data", self.run_morvane("access", self.file, "--user", "4711"))

    def test_set_and_remove_change_the_entry_of_one_and_leave_the_others(self):
        others = [(AUDIT, 0x10, 0x7, "EVERYONE@"), (ALLOW, 0, 0x1601FF, "OWNER@"), (ALLOW, 0, 0x1200A1, "4711"),
                  (ALLOW, 0, 0x120080, "EVERYONE@")]
        os.setxattr(self.file, "user.nfs4_acl", named(*others))
        self.run_morvane("acl", self.file, "--set", "u:4711:rw")
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"), named(*others[:2], (ALLOW, 0, 0x12009F, "4711"), others[3]),
                         "what has no box is as it was")
        self.run_morvane("acl", self.file, "--remove", "u:4711")
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"), named(*others[:2], others[3]))
        self.run_morvane("acl", "--undo")
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"),
                         named(*others[:2], (ALLOW, 0, 0x2009F, "4711"), others[3]), "all that has a box is back")

    def test_a_saved_list_has_the_letters_of_the_tools_and_is_restored(self):
        entries = [(ALLOW, 0, 0x1601FF & ~0x100000, "OWNER@"), (DENY, FILES | FOLDERS | ONLY_BELOW, 0x2, "4712"),
                   (ALLOW, FILES | FOLDERS | IS_GROUP, 0x1, "GROUP@")]
        os.setxattr(self.folder, "user.nfs4_acl", named(*entries))
        saved = self.run_morvane("acl", self.folder, "--save", "-")
        self.assertEqual([line for line in saved.splitlines() if line and line[0] != "#"],
                         ["A::OWNER@:rwaDxtTnNcC", "D:fdi:4712:w\t#uid=4712", "A:fdg:GROUP@:r"])
        os.setxattr(self.folder, "user.nfs4_acl", named((ALLOW, 0, 0x1, "EVERYONE@")))
        path = os.path.join(self.folder, "saved")
        with open(path, "w", encoding="ascii") as f:
            f.write(saved)
        self.run_morvane("acl", "--restore", path)
        self.assertEqual(os.getxattr(self.folder, "user.nfs4_acl"), named(*entries))

    def test_what_nfs4_getfacl_has_written_is_taken(self):
        os.setxattr(self.folder, "user.nfs4_acl", named((ALLOW, 0, 0x1, "EVERYONE@")))
        path = os.path.join(self.folder, "written")
        with open(path, "w", encoding="ascii") as f:
            f.write("\n# file: /srv/share\nA::OWNER@:rwaDdxtTnNcCoy\nD:fdig:4713:w\nA:fd:root@example.org:rxtncy\n"
                    "A:g:GROUP@:rxtncy\nA::EVERYONE@:tcy\n")
        self.run_morvane("acl", self.folder, "--set-file", path)
        stored = os.getxattr(self.folder, "user.nfs4_acl")
        self.assertEqual(stored[:4], struct.pack(">I", 5))
        self.assertIn(b"4713", stored)
        shown = [(e["identity"], e["tag"]) for e in self.entries(self.folder)]
        self.assertIn(("gid 4713", 2), shown)

    def test_a_folders_list_is_propagated(self):
        sub = os.path.join(self.folder, "sub")
        os.mkdir(sub)
        inner = os.path.join(sub, "inner")
        program = os.path.join(sub, "program")
        for path, mode in ((inner, 0o600), (program, 0o700)):
            with open(path, "w", encoding="ascii"):
                os.chmod(path, mode)
        mine = (ALLOW, 0, 0x1601FF, "OWNER@")
        for path in (self.file, sub, inner, program):
            os.setxattr(path, "user.nfs4_acl", named((AUDIT, 0x10, 0x7, "EVERYONE@"), mine))
        os.setxattr(self.folder, "user.nfs4_acl", named(
            (DENY, FILES | FOLDERS | ONE_LEVEL, 0x2, "4712"), (ALLOW, FILES | FOLDERS | ONLY_BELOW, 0x21, "4711"),
            mine, (ALLOW, 0, 0x1200A1, "GROUP@")))
        self.assertIn("takes the lists back.", self.run_morvane("acl", self.folder, "--propagate"))
        kept = (AUDIT, 0x10, 0x7, "EVERYONE@")

        denied = (DENY, INHERITED, 0x2, "4712")
        read = (ALLOW, INHERITED, 0x1, "4711")
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"), named(
            kept, (ALLOW, INHERITED, 0x1, "4711"), (ALLOW, 0, 0x160187, "OWNER@"), denied,
            (ALLOW, 0, 0x120081, "GROUP@"), (ALLOW, 0, 0x120080, "EVERYONE@")))
        self.assertEqual(os.getxattr(sub, "user.nfs4_acl"), named(
            kept, (ALLOW, INHERITED | FILES | FOLDERS, 0x21, "4711"), (ALLOW, 0, 0x1601E7, "OWNER@"), denied,
            (ALLOW, 0, 0x1200A1, "GROUP@"), (ALLOW, 0, 0x120080, "EVERYONE@")))
        self.assertEqual(os.getxattr(inner, "user.nfs4_acl"), named(
            kept, read, (ALLOW, 0, 0x160187, "OWNER@"), (ALLOW, 0, 0x120081, "GROUP@"),
            (ALLOW, 0, 0x120080, "EVERYONE@")))
        self.assertEqual(os.getxattr(program, "user.nfs4_acl"), named(
            kept, (ALLOW, INHERITED, 0x21, "4711"), (ALLOW, 0, 0x1601A7, "OWNER@"),
            (ALLOW, 0, 0x1200A1, "GROUP@"), (ALLOW, 0, 0x120080, "EVERYONE@")))

    def test_below_a_folder_that_leaves_nothing_to_inherit_items_get_the_rights_of_its_mode(self):
        for path in (self.folder, self.file):
            os.setxattr(path, "user.nfs4_acl", named((ALLOW, 0, 0x1601FF, "OWNER@"), (ALLOW, 0, 0x1, "GROUP@")))
        self.assertIn("takes the lists back.", self.run_morvane("acl", self.folder, "--propagate"))
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"), named(
            (ALLOW, 0, 0x160187, "OWNER@"), (ALLOW, 0, 0x120081, "GROUP@"), (ALLOW, 0, 0x120080, "EVERYONE@")))

    def test_a_damaged_list_is_told_and_kept(self):
        damaged = named((ALLOW, 0, 0x1, "EVERYONE@"))[:-1]
        os.setxattr(self.file, "user.nfs4_acl", damaged)
        result = subprocess.run([MORVANE, "acl", self.file, "--edit", "add user:4711"], env=ENVIRONMENT,
                                capture_output=True, text=True, timeout=TIME_LIMIT)
        self.assertEqual(result.returncode, 1)
        self.assertIn("The item's NFSv4 access-control list is damaged", result.stderr)
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"), damaged)


class Servers(Mount):
    """Those that do not store a list as it is."""

    def run_on(self, server, *arguments, user=None):
        command = ["setpriv", f"--reuid={user}", "--clear-groups"] if user else []
        return subprocess.run([*command, MORVANE, *arguments], env={**ENVIRONMENT, "MORVANE_NFS_SERVER": server},
                              capture_output=True, text=True, timeout=TIME_LIMIT)

    def put(self, path, *entries):
        os.setxattr(path, "user.nfs4_acl", named(*entries))

    def list_of(self, path):
        data = os.getxattr(path, "user.nfs4_acl")
        entries, at = [], 4
        for _ in range(struct.unpack_from(">I", data)[0]):
            kind, flags, mask, length = struct.unpack_from(">4I", data, at)
            entries.append((kind, flags, mask, data[at + 16:at + 16 + length].decode()))
            at += 16 + (length + 3) // 4 * 4
        return entries

    # What such a server shows of the mode 0644.
    PLAIN = ((ALLOW, 0, 0x1601A7, "OWNER@"), (ALLOW, 0, 0x1200A1, "GROUP@"), (ALLOW, 0, 0x1200A1, "EVERYONE@"))

    def test_the_commonest_edits_are_stored_and_nothing_is_told(self):
        for choice, bits in (("read", 0x1200A1), ("read-write", 0x1200A7)):
            with self.subTest(choice):
                self.put(self.file, *self.PLAIN)
                result = self.run_on("linux", "acl", self.file, "--edit", f"add user:4711; permissions {choice}")
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                self.assertIn((ALLOW, 0, bits, "4711"), self.list_of(self.file))

    def test_what_the_server_has_not_stored_is_told_with_a_status_of_its_own(self):
        self.put(self.file, *self.PLAIN)
        result = self.run_on("linux", "acl", self.file, "--edit",
                             'add user:4711; permissions read; on "Change Owner"')
        self.assertEqual(result.returncode, 4)
        self.assertIn("has stored another list. It differs in: allow uid 4711: \"Change Owner\": not stored.", result.stderr)
        self.assertIn("4711", result.stdout)
        # A denial that has no place: what everybody may.
        result = self.run_on("linux", "acl", self.file, "--edit",
                             'add user:4712; permissions read; off Read; on "Read Attributes"; deny')
        self.assertEqual(result.returncode, 4)
        self.assertIn("deny uid 4712: \"Read Attributes\"", result.stderr)

    def test_a_dry_run_says_that_the_server_decides(self):
        self.put(self.file, *self.PLAIN)
        result = self.run_on("linux", "acl", self.file, "--dry-run", "--edit", "add user:4711; permissions read")
        self.assertEqual((result.returncode, result.stderr), (
            0, "morvane: --dry-run, nothing was changed.\n"
               "  On a network mount the server decides what it stores of it.\n"))

    def test_a_denial_for_a_user_takes_nothing_from_the_owner(self):
        self.put(self.file, *self.PLAIN)
        result = self.run_on("linux", "acl", self.file, "--edit", "add user:4711; permissions write; deny")
        self.assertIn((ALLOW, 0, 0x1601A7, "OWNER@"), self.list_of(self.file), result.stderr)

    def test_what_is_inherited_is_propagated_where_the_server_takes_no_mark(self):
        os.chmod(self.folder, 0o755)
        sub = os.path.join(self.folder, "sub")
        os.mkdir(sub, 0o755)
        for path in (self.file, sub):
            self.put(path, *self.PLAIN)
        self.put(self.folder, *self.PLAIN, (ALLOW, FILES | FOLDERS, 0x1200A1, "4711"))
        result = self.run_on("linux", "acl", self.folder, "--propagate")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn((ALLOW, 0, 0x120081, "4711"), self.list_of(self.file))
        self.assertIn((ALLOW, 0, 0x160187, "OWNER@"), self.list_of(self.file))
        self.assertIn((ALLOW, FILES | FOLDERS | ONLY_BELOW, 0x1200A1, "4711"), self.list_of(sub))

    def test_what_the_server_has_left_out_below_a_folder_is_told(self):
        sub = os.path.join(self.folder, "sub")
        os.mkdir(sub)
        for path in (self.file, sub):
            self.put(path, *self.PLAIN)
        self.put(self.folder, *self.PLAIN, (ALLOW, FILES | FOLDERS, 0x1A00A1, "4711"))
        result = self.run_on("linux", "acl", self.folder, "--propagate")
        self.assertEqual(result.returncode, 4)
        self.assertIn("2 items could not be changed as asked, the others are; the first are ", result.stderr)
        self.assertIn(". The lists that are stored differ in: allow uid 4711: \"Change Owner\": not stored; allow uid "
                      "4711: \"Change Owner\": not stored in all descendants; ", result.stderr)
        self.assertIn((ALLOW, 0, 0x120081, "4711"), self.list_of(self.file))

    def test_a_list_that_leaves_nothing_to_who_makes_an_item_is_refused_with_what_helps(self):
        before = [(ALLOW, 0, 0x1601E7, "OWNER@"), *self.PLAIN[1:]]
        self.put(self.folder, *before)
        below = 'on "Child files"; on "Child folders"; on "All descendants"'
        script = f"add user:4711; permissions read; {below}"
        for arguments in (("--dry-run",), ()):
            result = self.run_on("linux", "acl", self.folder, *arguments, "--edit", script)
            self.assertEqual((result.returncode, result.stderr), (
                1, f"morvane: cannot change the access-control list of '{self.folder}': whoever makes an item in the "
                   "folder would have no right to it, as all that is inherited is for others.\n  Nothing was changed. "
                   "'add creator' adds an entry for them; let it apply to the same items. --lossy accepts the list as "
                   "it is.\n"))
            self.assertEqual(self.list_of(self.folder), before)
        result = self.run_on("linux", "acl", self.folder, "--edit",
                             f'{script}; add creator; permissions read-write; {below}; off "This item"')
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn((ALLOW, FILES | FOLDERS | ONLY_BELOW, "OWNER@"),
                      [(kind, flags, who) for kind, flags, _, who in self.list_of(self.folder)])
        # Where it is so already, it is nobody's edit that makes it so.
        self.put(self.folder, *before)
        self.assertEqual(self.run_on("", "acl", self.folder, "--lossy", "--edit", script).returncode, 0)
        result = self.run_on("", "acl", self.folder, "--edit", "add user:4712; permissions read")
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_a_refusal_without_a_reason_is_explained(self):
        self.put(self.folder, *self.PLAIN)
        result = self.run_on("linux", "acl", self.folder, "--lossy", "--edit",
                             'add user:4711; permissions read; on "Child folders"; off "All descendants"')
        self.assertEqual(result.returncode, 1)
        self.assertIn("refused the list without a reason. Some hold no entry that is inherited by one level only",
                      result.stderr)
        self.assertEqual(self.list_of(self.folder), list(self.PLAIN))

    def test_the_first_name_in_a_list_is_one_where_the_server_knows_no_numbers(self):
        self.put(self.file, *self.PLAIN)
        result = self.run_on("names", "acl", self.file, "--edit", "add user:nobody; permissions read")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertRegex(self.list_of(self.file)[-1][3], "^nobody@[^@]+$")
        result = self.run_on("names", "acl", self.file, "--edit", "add user:4711; permissions read")
        self.assertEqual(result.returncode, 1)
        self.assertIn("does not know somebody whom the list names", result.stderr)

    def test_a_list_that_is_too_long_says_how_long_one_may_be(self):
        self.put(self.file, *self.PLAIN)
        before = self.list_of(self.file)
        script = ";".join(f"add user:{10000 + i}; permissions read" for i in range(1022))
        result = self.run_on("linux", "acl", self.file, "--edit", script)
        self.assertEqual(result.returncode, 1)
        self.assertIn("The list would have 1025 entries; it can have at most 1024.", result.stderr)
        result = self.run_on("short", "acl", self.file, "--edit", "add user:4711; permissions read")
        self.assertEqual(result.returncode, 1)
        self.assertIn("some no list of so many entries (4)", result.stderr)
        self.assertEqual(self.list_of(self.file), before)

    def test_a_list_that_is_too_long_below_a_folder_is_explained(self):
        self.put(self.file, *self.PLAIN)
        self.put(self.folder, *self.PLAIN, (ALLOW, FILES | FOLDERS, 0x1200A1, "4711"))
        result = self.run_on("short", "acl", self.folder, "--propagate")
        self.assertEqual(result.returncode, 1)
        self.assertIn("(Input/output error). The server of the network mount has refused the list without a reason. ",
                      result.stderr)
        self.assertIn("some no list of so many entries (4)", result.stderr)
        self.assertEqual(self.list_of(self.file), list(self.PLAIN))

    def test_what_root_may_is_asked_of_the_server_by_root_alone(self):
        os.chmod(self.folder, 0o755)
        os.chmod(self.file, 0)
        os.chown(self.file, 4711, 4711)
        self.put(self.file, (ALLOW, 0, 0x160180, "OWNER@"))
        result = self.run_on("linux", "access", self.file, "--user", "root")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        for box in ("Read Data", "Write Data", "Change Owner"):
            self.assertIn(f"[x] {box}", result.stdout)
        os.chmod(self.file, 0o644)
        result = self.run_on("linux", "access", self.file, "--user", "root", user=4711)
        self.assertEqual(result.returncode, 1)
        self.assertIn("What root may do on a network mount is for its server to say", result.stderr)

    def test_files_are_renamed_and_folders_are_refused_with_the_reason(self):
        folder, new = os.path.join(self.folder, "folder"), os.path.join(self.folder, "new")
        os.mkdir(folder)
        result = self.run_on("linux", "rename", self.file, "new", folder, "other")
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertEqual(result.stderr, "morvane: 1 of 2 items could not be renamed:\n"
                         f"  '{folder}': this file system cannot rename it without the risk of overwriting; "
                         "where nobody else changes the folder, mv can\n")
        self.assertEqual(sorted(os.listdir(self.folder)), ["folder", "new"])
        self.assertEqual(os.stat(new).st_nlink, 1)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
