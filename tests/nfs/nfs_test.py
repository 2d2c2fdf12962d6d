# SPDX-License-Identifier: MIT
"""Access-control lists on real NFSv4 mounts, of two servers. Runs in a machine of tests/nfs/machine.

usage: nfs_test.py MORVANE LIBEXEC-DIR GANESHA-FOLDER [unittest arguments]

What morvane reads, writes and propagates is compared with nfs4_getfacl, entry by entry: what it does, whom it is for,
its flags and its bits. And with what users really can do: each reads and writes the files on the mount.
"""
import grp
import json
import os
import pwd
import re
import struct
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../integration"))
from waiting import wait_until  # noqa: E402

MORVANE, LIBEXEC, GANESHA = map(os.path.abspath, sys.argv[1:4])
ENVIRONMENT = {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8"}
OWNER, ALICE, BOB = 4710, 4711, 4712
LETTERS = dict(zip("rwaxdDtTnNcCo", (0x1, 0x2, 0x4, 0x20, 0x10000, 0x40, 0x80, 0x100, 0x8, 0x10, 0x20000, 0x40000,
                                     0x80000)))
BOXES = {"Read Data": 0x1, "List Folder Contents": 0x1, "Write Data": 0x2, "Create Files": 0x2, "Append Data": 0x4,
         "Create Folder": 0x4, "Execute File": 0x20, "Traverse Folder": 0x20, "Delete": 0x10000,
         "Delete Subfolders and Files": 0x40, "Read Attributes": 0x80, "Write Attributes": 0x100,
         "Read Extended Attributes": 0x8, "Write Extended Attributes": 0x10, "Read Permissions": 0x20000,
         "Change Permissions": 0x40000, "Change Owner": 0x80000}


def run(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def write(path, text):
    with open(path, "w", encoding="ascii") as f:
        f.write(text)


def mount(what, at, *options):
    os.makedirs(at, exist_ok=True)
    run("mount", "-t", "nfs", "-o", ",".join(("vers=4.2,sec=sys,noac", *options)), what, at)


def start_linux():
    for module in ("nfsd", "nfsv4"):
        run("modprobe", module)
    for folder in ("/exports/linux", "/var/lib/nfs/rpc_pipefs", "/var/lib/nfs/v4recovery"):
        os.makedirs(folder, exist_ok=True)
    run("mount", "-t", "tmpfs", "tmpfs", "/exports/linux")
    run("mount", "-t", "rpc_pipefs", "rpc_pipefs", "/var/lib/nfs/rpc_pipefs")
    run("mount", "-t", "nfsd", "nfsd", "/proc/fs/nfsd")
    write("/etc/exports", "/exports/linux 127.0.0.1(rw,fsid=0,no_subtree_check,no_root_squash,insecure)\n")
    for name in ("nfsv4leasetime", "nfsv4gracetime"):
        write(f"/proc/fs/nfsd/{name}", "10")
    run("exportfs", "-ra")
    run("rpc.mountd", "-N", "3")
    run("rpc.nfsd", "-N", "3", "1")
    write("/proc/fs/nfsd/v4_end_grace", "Y")
    mount("127.0.0.1:/", "/mnt/linux")


def start_ganesha():
    for folder in ("/exports/ganesha", "/var/run/ganesha", "/var/lib/nfs/ganesha"):
        os.makedirs(folder, exist_ok=True)
    run("mount", "-t", "tmpfs", "tmpfs", "/exports/ganesha")
    write("/run/ganesha.conf", f"""
        NFS_CORE_PARAM {{ NFS_Port = 12049; Protocols = 4; Plugins_Dir = {GANESHA}; }}
        NFSV4 {{ Lease_Lifetime = 10; Graceless = true; Minor_Versions = 2; Only_Numeric_Owners = true; }}
        EXPORT {{ Export_ID = 2; Path = /exports/ganesha; Pseudo = /lists; Access_Type = RW; Squash = No_Root_Squash;
                  SecType = sys; FSAL {{ Name = VFS; }} }}
        LOG {{ Default_Log_Level = EVENT; }}""")
    subprocess.Popen([f"{GANESHA}/ganesha.nfsd", "-F", "-f", "/run/ganesha.conf", "-L", "/run/ganesha.log",
                      "-p", "/run/ganesha.pid"], env={**os.environ, "LD_LIBRARY_PATH": GANESHA})

    def initialized():
        try:
            with open("/run/ganesha.log", encoding="utf-8") as f:
                return "NFS SERVER INITIALIZED" in f.read()
        except FileNotFoundError:
            return False

    wait_until(initialized, "server")
    mount("127.0.0.1:/lists", "/mnt/ganesha", "port=12049")


def act(uid, script, path):
    """Whether the user can really do it."""
    return subprocess.run(["setpriv", f"--reuid={uid}", f"--regid={uid}", "--clear-groups", "sh", "-c", script, "sh",
                           path], capture_output=True).returncode == 0


def reads(uid, path):
    return act(uid, 'ls "$1"' if os.path.isdir(path) else 'cat "$1"', path)


def writes(uid, path):
    return act(uid, ': >"$1/by-$$" && rm "$1/by-$$"' if os.path.isdir(path) else ': >>"$1"', path)


class OnAMount:
    """What holds for both servers."""
    MOUNT = None
    PLAIN = "A::OWNER@:rwatTnNcCy", "A::GROUP@:rtncy", "A::EVERYONE@:rtncy"
    number = 0

    def setUp(self):
        OnAMount.number += 1
        self.folder = f"{self.MOUNT}/{OnAMount.number}"
        os.mkdir(self.folder)
        self.give(self.folder, "A::OWNER@:rwaDxtTnNcCy", "A::GROUP@:rxtncy", "A::EVERYONE@:rxtncy")
        self.file = self.make("file")

    def make(self, name, *entries):
        path = f"{self.folder}/{name}"
        write(path, "text\n")
        os.chown(path, OWNER, OWNER)
        self.give(path, *(entries or self.PLAIN))
        return path

    def give(self, path, *entries):
        run("nfs4_setfacl", "-s", ",".join(entries), path)

    def getfacl(self, path):
        """The entries as nfs4_getfacl prints them: (type, flags, whom, bits), without what has no box. The mark of
        what is inherited, which it does not print, is I."""
        lines = [line.split(":") for line in run("nfs4_getfacl", path).splitlines()
                 if line and not line.startswith("#")]
        return [(kind, flags + "I" * bool(stored & 0x80), who,
                 sum(bit for letter, bit in LETTERS.items() if letter in letters))
                for (kind, flags, who, letters), stored in zip(lines, self.flags_stored(path), strict=True)]

    @staticmethod
    def flags_stored(path):
        data, at = os.getxattr(path, "system.nfs4_acl"), 4
        for _ in range(*struct.unpack_from(">I", data)):
            _, flags, _, length = struct.unpack_from(">4I", data, at)
            yield flags
            at += 16 + (length + 3) // 4 * 4

    def shown(self, path):
        """The entries as morvane shows them, in the form of `printed`."""
        entries = []
        for entry in json.loads(self.morvane("acl", "--json", path))["entries"]:
            boxes = {box["name"]: box["state"] == 1 for group in entry["permissions"] for box in group["children"]}
            flags = "I" * entry["inherited"]
            if os.path.isdir(path):
                flags += "f" * boxes["Child files"] + "d" * boxes["Child folders"] + "i" * (not boxes["This item"])
                flags += "n" * (boxes["Child folders"] and not boxes["All descendants"])
            name = entry["identity"]
            if name != "everyone":
                kind = "group" if entry["isGroup"] else "user"
                number = name[4:] if name.startswith(("uid ", "gid ")) else \
                    (grp.getgrnam(name).gr_gid if entry["isGroup"] else pwd.getpwnam(name).pw_uid)
                name = f"{kind} {number}"
            entries.append(("AD"[entry["tag"] - 1], "".join(sorted(flags)), name,
                            sum(bit for box, bit in BOXES.items() if boxes.get(box))))
        return entries

    def printed(self, path):
        """What nfs4_getfacl prints, in the order and the form in which it is to be shown."""
        status = os.stat(path)
        whom = {"OWNER@": f"user {status.st_uid}", "GROUP@": f"group {status.st_gid}", "EVERYONE@": "everyone"}
        bits_of_kind = ~0 if os.path.isdir(path) else ~LETTERS["D"]
        entries = [(kind, "".join(sorted(set(flags) - {"g"})),
                    whom.get(who) or f"{'group' if 'g' in flags else 'user'} {who}", bits & bits_of_kind)
                   for kind, flags, who, bits in self.getfacl(path)]
        return sorted(entries, key=lambda entry: ("I" in entry[1], entry[0] != "D"))

    def assert_shown_is_printed(self, *paths):
        for path in paths:
            self.assertEqual(self.shown(path), self.printed(path), path)

    def try_morvane(self, *arguments):
        return subprocess.run([MORVANE, *arguments], env=ENVIRONMENT, capture_output=True, text=True)

    def morvane(self, *arguments):
        result = self.try_morvane(*arguments)
        self.assertEqual((result.returncode, result.stderr), (0, ""), arguments)
        return result.stdout

    def may(self, uid, path):
        shown = self.morvane("access", path, "--user", str(uid))
        on = set(re.findall(r"\[x\] (.*\S)", shown))
        return ("Read Data" in on or "List Folder Contents" in on,
                {"Write Data", "Append Data"} <= on or {"Create Files", "Create Folder"} <= on)

    def assert_access_is_real(self, path, *users):
        self.assert_shown_is_printed(path)
        for uid in users or (OWNER, ALICE, BOB):
            self.assertEqual(self.may(uid, path), (reads(uid, path), writes(uid, path)),
                             f"{uid}, {path}: {self.getfacl(path)}")

    def test_what_is_shown_is_what_nfs4_getfacl_prints(self):
        self.give(self.file, "A::OWNER@:rwatTcCy", f"D::{ALICE}:wa", f"A::{ALICE}:rtcy", f"A:g:{BOB}:rwatcy",
                  "A::GROUP@:rtcy", "A::EVERYONE@:rwatcy")
        self.assert_access_is_real(self.file)
        whom = {who for _, _, who, _ in self.printed(self.file)}
        self.assertEqual(whom, {f"user {OWNER}", f"user {ALICE}", f"group {BOB}", f"group {OWNER}", "everyone"})
        self.give(self.folder, "A:fdi:OWNER@:rwaDxtTcCy", "A::OWNER@:rwaDxtTcCy", f"A:fd:{ALICE}:rxtcy",
                  f"A:fdg:{BOB}:rxtcy", "A:fd:GROUP@:rxtcy", "A:fd:EVERYONE@:rxtcy")
        self.assert_shown_is_printed(self.folder)
        self.assertTrue({("user " + str(ALICE), "df"), ("user " + str(ALICE), "dfi")} &
                        {(who, flags) for _, flags, who, _ in self.printed(self.folder)})
        self.assertIn(f"group {BOB}", {who for _, _, who, _ in self.printed(self.folder)})

    READ, READ_FOLDER = (sum(LETTERS[letter] for letter in letters) for letters in ("rxtnc", "rxtnc"))

    def test_what_is_written_is_what_nfs4_getfacl_prints(self):
        for number, (who, whom) in enumerate(((f"user:{ALICE}", f"user {ALICE}"), (f"group:{BOB}", f"group {BOB}"))):
            path = self.make(f"file-{number}")
            before = self.printed(path)
            self.morvane("acl", path, "--edit", f"add {who}; permissions read")
            self.assert_shown_is_printed(path)
            self.assert_written(path, before, [("A", "", whom, self.READ)])

            path = f"{self.folder}/folder-{number}"
            os.mkdir(path)
            self.give(path, "A::OWNER@:rwaDxtTnNcCy", "A::GROUP@:rxtncy", "A::EVERYONE@:rxtncy")
            before = self.printed(path)
            below = 'on "Child files"; on "Child folders"; on "All descendants"'
            self.morvane("acl", path, "--edit", f"add {who}; permissions read; {below}; "
                         f'add creator; permissions read-write; {below}; off "This item"')
            self.assert_shown_is_printed(path)
            self.assert_written(path, before, [
                ("A", "df", whom, self.READ),
                ("A", "dfi", "user 0", sum(LETTERS[letter] for letter in "rxtncwadDTN"))])

    def test_each_choice_gives_a_user_what_it_says(self):
        for choice, expected in (("read", (True, False)), ("write", (False, True)), ("read-write", (True, True))):
            with self.subTest(choice):
                path = self.make(choice, "A::OWNER@:rwatTnNcCy", "A::GROUP@:tcy", "A::EVERYONE@:tcy")
                self.morvane("acl", path, "--edit", f"add user:{ALICE}; permissions {choice}")
                self.assertEqual((reads(ALICE, path), writes(ALICE, path)), expected, self.getfacl(path))
                self.assertEqual((reads(BOB, path), writes(BOB, path)), (False, False))
                self.assert_access_is_real(path)

    def test_a_denial_for_a_user_is_one_for_nobody_else(self):
        self.give(self.file, "A::OWNER@:rwatTnNcCy", "A::GROUP@:rwatcy", "A::EVERYONE@:rwatcy")
        self.try_morvane("acl", self.file, "--edit", f"add user:{ALICE}; permissions write; deny")
        self.assertFalse(writes(ALICE, self.file), self.getfacl(self.file))
        self.assertTrue(writes(OWNER, self.file), self.getfacl(self.file))
        self.assertTrue(writes(BOB, self.file), self.getfacl(self.file))
        self.assert_access_is_real(self.file)

    def test_below_a_folder_that_leaves_nothing_to_inherit_the_mode_counts(self):
        os.chown(self.folder, OWNER, OWNER)
        before = os.stat(self.folder).st_mode & 0o777
        self.morvane("acl", self.folder, "--propagate")
        self.assertEqual(os.stat(self.file).st_mode & 0o777, before & 0o666)
        self.assertTrue(reads(OWNER, self.file) and writes(OWNER, self.file), self.getfacl(self.file))
        self.assertTrue(reads(ALICE, self.file))
        self.assertFalse(writes(ALICE, self.file))

    def test_what_a_folder_leaves_is_propagated(self):
        os.mkdir(f"{self.folder}/sub")
        self.give(f"{self.folder}/sub", "A::OWNER@:rwaDxtTnNcCy", "A::GROUP@:tcy", "A::EVERYONE@:tcy")
        deep = self.make("sub/deep", "A::OWNER@:rwatTnNcCy", "A::GROUP@:tcy", "A::EVERYONE@:tcy")
        self.give(self.file, "A::OWNER@:rwatTnNcCy", "A::GROUP@:tcy", "A::EVERYONE@:tcy")
        os.chown(self.folder, OWNER, OWNER)
        self.give(self.folder, "A:fd:OWNER@:rwaDxtTcCy", "A::GROUP@:tcy", "A::EVERYONE@:xtcy",
                  f"A:fd:{ALICE}:rxtcy")
        self.morvane("acl", self.folder, "--propagate")
        for path in (self.file, deep):
            self.assertTrue(reads(ALICE, path), self.getfacl(path))
            self.assertFalse(reads(BOB, path), self.getfacl(path))
            self.assertTrue(reads(OWNER, path) and writes(OWNER, path), self.getfacl(path))
            self.assert_access_is_real(path)
        self.assert_access_is_real(f"{self.folder}/sub")
        for path, flags in ((self.file, self.OF_FILE), (f"{self.folder}/sub", self.OF_FOLDER), (deep, self.OF_FILE)):
            alices = [entry for entry in self.printed(path) if entry[2] == f"user {ALICE}"]
            self.assertEqual([entry[:2] for entry in alices], [("A", some) for some in flags], path)
            for _, _, _, bits in alices:
                self.assertEqual(bits & (LETTERS["r"] | LETTERS["w"] | LETTERS["x"]),
                                 LETTERS["r"] | (LETTERS["x"] if os.path.isdir(path) else 0), path)

    def test_a_file_is_renamed_without_overwriting(self):
        other = self.make("other")
        result = self.try_morvane("rename", self.file, "other")
        self.assertEqual(result.returncode, 1)
        self.assertIn("File exists", result.stderr)
        self.morvane("rename", self.file, "new")
        self.assertEqual(sorted(os.listdir(self.folder)), ["new", "other"])
        self.assertEqual(os.stat(other).st_nlink, 1)
        os.mkdir(f"{self.folder}/folder")
        result = self.try_morvane("rename", f"{self.folder}/folder", "moved")
        self.assertEqual(result.returncode, 1)
        self.assertIn("cannot rename it without the risk of overwriting", result.stderr)

    def test_what_root_may_is_what_root_can(self):
        self.give(self.file, "A::OWNER@:tTcCy", "A::GROUP@:tcy", "A::EVERYONE@:tcy")
        self.assert_access_is_real(self.file, 0)
        result = subprocess.run(["setpriv", f"--reuid={ALICE}", "--clear-groups", MORVANE, "access", self.file,
                                 "--user", "root"], env=ENVIRONMENT, capture_output=True, text=True)
        self.assertIn("What root may do on a network mount is for its server to say", result.stderr)

    def test_a_list_that_is_too_long_is_told_how_long_one_may_be(self):
        script = ";".join(f"add user:{10000 + i}; permissions read" for i in range(1022))
        result = self.try_morvane("acl", self.file, "--edit", script)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, "The list would have 102[0-9] entries; it can have at most 1024")

    def test_a_dry_run_says_that_the_server_decides(self):
        result = self.try_morvane("acl", self.file, "--dry-run", "--edit", f"add user:{ALICE}; permissions read")
        self.assertIn("the server decides", result.stderr)


class Linux(OnAMount, unittest.TestCase):
    """Holds a POSIX list of what it is given."""
    MOUNT = "/mnt/linux"
    # The flags of an entry that was inherited by files and folders.
    OF_FILE, OF_FOLDER = ("",), ("", "dfi")

    def assert_written(self, path, before, entries):
        """What is for the item and what is inherited are entries of their own; of the bits those are held that a mode
        has."""
        after = self.printed(path)
        for kind, flags, who, bits in entries:
            wanted = [flags] if "i" in flags else ["", flags + "i"] if flags else [""]
            for some in wanted:
                found = [stored for stored in after if stored[:3] == (kind, some, who)]
                self.assertEqual(len(found), 1, (some, who, after))
                for right in "rwx":
                    self.assertEqual(found[0][3] & LETTERS[right], bits & LETTERS[right], (right, found))
        classes = [entry for entry in before if entry[2] != f"user {ALICE}"]
        self.assertLessEqual({entry[:3] for entry in classes}, {entry[:3] for entry in after})

    def test_what_is_not_stored_is_told(self):
        result = self.try_morvane("acl", self.file, "--edit",
                                  f'add user:{ALICE}; permissions read; on "Change Owner"')
        self.assertEqual(result.returncode, 4, result.stderr)
        self.assertIn(f'allow uid {ALICE}: "Change Owner"', result.stderr)
        self.assertTrue(reads(ALICE, self.file))

    def test_a_list_that_leaves_nothing_to_who_makes_an_item_is_refused_with_what_helps(self):
        self.give(self.folder, "A::OWNER@:rwaDxtTcCy", "A::GROUP@:rwaDxtcy", "A::EVERYONE@:rwaDxtcy")
        below = 'on "Child files"; on "Child folders"; on "All descendants"'
        script = f"add user:{ALICE}; permissions read; {below}"
        other = f"{self.folder}/other"
        os.mkdir(other)
        self.give(other, "A::OWNER@:rwaDxtTcCy", "A::GROUP@:rwaDxtcy", "A::EVERYONE@:rwaDxtcy")
        result = self.try_morvane("acl", other, "--edit", script)
        self.assertEqual(result.returncode, 1)
        self.assertIn("whoever makes an item in the folder would have no right to it", result.stderr)
        self.try_morvane("acl", other, "--lossy", "--edit", script)
        self.assertTrue(act(BOB, 'umask 0; : >"$1/made"', other), self.getfacl(other))
        self.assertFalse(reads(BOB, f"{other}/made"), self.getfacl(f"{other}/made"))
        self.try_morvane("acl", self.folder, "--edit",
                         f'{script}; add creator; permissions read-write; {below}; off "This item"')
        self.assertTrue(act(BOB, 'umask 0; : >"$1/made"', self.folder), self.getfacl(self.folder))
        self.assertTrue(reads(BOB, f"{self.folder}/made") and writes(BOB, f"{self.folder}/made"),
                        self.getfacl(f"{self.folder}/made"))

    def test_an_entry_for_one_level_is_refused_with_the_reason(self):
        result = self.try_morvane("acl", self.folder, "--lossy", "--edit",
                                  f'add user:{ALICE}; permissions read; on "Child folders"; off "All descendants"')
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn("inherited by one level only", result.stderr)


class LinuxWithNames(unittest.TestCase):
    """Knows users by name and domain only."""

    def test_the_first_name_in_a_list_has_the_domain_of_the_system(self):
        write("/sys/module/nfsd/parameters/nfs4_disable_idmapping", "N")
        write("/etc/idmapd.conf", "[General]\nDomain = example.org\n"
              "[Mapping]\nNobody-User = nobody\nNobody-Group = nogroup\n")
        run("rpc.idmapd", "-S", "-p", "/var/lib/nfs/rpc_pipefs")
        try:
            path = "/mnt/linux/named"
            write(path, "text\n")
            result = subprocess.run([MORVANE, "acl", path, "--edit", "add user:games; permissions read"],
                                    env=ENVIRONMENT, capture_output=True, text=True)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            self.assertIn("::games@example.org:r", run("nfs4_getfacl", path))
            os.chmod(path, 0o640)
            self.assertTrue(reads(5, path))
        finally:
            write("/sys/module/nfsd/parameters/nfs4_disable_idmapping", "Y")


class Ganesha(OnAMount, unittest.TestCase):
    """Holds a list as it is."""
    MOUNT = "/mnt/ganesha"
    OF_FILE, OF_FOLDER = ("I",), ("Idf",)

    def assert_written(self, path, before, entries):
        self.assertEqual(self.printed(path), before + entries)

    def test_what_no_mode_holds_is_stored(self):
        self.morvane("acl", self.file, "--edit", f'add user:{ALICE}; permissions read; on "Change Owner"')
        self.assertTrue(any(who == str(ALICE) and bits & 0x80000 for _, _, who, bits in self.getfacl(self.file)))

    def test_what_is_inherited_is_marked(self):
        self.give(self.folder, "A::OWNER@:rwaDxtTcCy", "A::EVERYONE@:rxtcy", f"A:fd:{ALICE}:rxtcy")
        self.morvane("acl", self.folder, "--propagate")
        self.assertTrue(any(who == str(ALICE) and "I" in flags or flags == "I"
                            for _, flags, who, _ in self.getfacl(self.file)) or
                        b"\x00\x00\x00\x80" in os.getxattr(self.file, "system.nfs4_acl"))


if __name__ == "__main__":
    start_linux()
    start_ganesha()
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
