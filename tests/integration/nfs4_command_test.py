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

MORVANE, LIBEXEC, MOUNT = map(os.path.abspath, sys.argv[1:4])
TIME_LIMIT = 60  # a watchdog; nothing here takes long
ENVIRONMENT = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8", "LD_PRELOAD": MOUNT}

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


class Mounted(unittest.TestCase):
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
        return json.loads(self.run_morvane("acl", "--json", path))

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
            mine))
        self.assertEqual(self.run_morvane("acl", self.folder, "--propagate"), "")
        kept = (AUDIT, 0x10, 0x7, "EVERYONE@")
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"),
                         named(kept, (DENY, INHERITED, 0x2, "4712"), (ALLOW, INHERITED, 0x1, "4711")))
        self.assertEqual(os.getxattr(sub, "user.nfs4_acl"),
                         named(kept, (DENY, INHERITED, 0x2, "4712"),
                               (ALLOW, INHERITED | FILES | FOLDERS, 0x21, "4711")))
        self.assertEqual(os.getxattr(inner, "user.nfs4_acl"), named(kept, (ALLOW, INHERITED, 0x1, "4711")))
        self.assertEqual(os.getxattr(program, "user.nfs4_acl"), named(kept, (ALLOW, INHERITED, 0x21, "4711")))

    def test_a_damaged_list_is_told_and_kept(self):
        damaged = named((ALLOW, 0, 0x1, "EVERYONE@"))[:-1]
        os.setxattr(self.file, "user.nfs4_acl", damaged)
        result = subprocess.run([MORVANE, "acl", self.file, "--edit", "add user:4711"], env=ENVIRONMENT,
                                capture_output=True, text=True, timeout=TIME_LIMIT)
        self.assertEqual(result.returncode, 1)
        self.assertIn("The item's NFSv4 access-control list is damaged", result.stderr)
        self.assertEqual(os.getxattr(self.file, "user.nfs4_acl"), damaged)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
