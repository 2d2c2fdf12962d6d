#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Sets random lists with setfacl, compares what is shown with a reader of its own, has the entries
written back as they are, and sees that getfacl prints the very same.

    random_posix_lists.py DUMP-PROGRAM [COUNT [SEED]]

The lists are decoded here from the extended attributes, and the entries expected are worked out from
them without anything of the program under test.
"""

import json
import os
import random
import struct
import subprocess
import sys
import tempfile

TAGS = {0x01: "owner", 0x02: "user", 0x04: "owning", 0x08: "group", 0x10: "mask", 0x20: "others"}
ALWAYS = {"Read Attributes", "Read Permissions"}
OWNERS = {"Write Attributes", "Change Permissions"}
BOXES = {
    False: {4: {"Read Data", "Read Extended Attributes"},
            2: {"Write Data", "Append Data", "Write Extended Attributes"},
            1: {"Execute File"}},
    True: {4: {"List Folder Contents", "Read Extended Attributes"},
           2: {"Create Files", "Create Folder", "Delete Subfolders and Files",
               "Write Extended Attributes"},
           1: {"Traverse Folder"}},
}
THIS, BELOW = {"This item"}, {"Child files", "Child folders", "All descendants"}


def text_of(bits):
    return "".join(letter if bits & bit else "-" for letter, bit in zip("rwx", (4, 2, 1)))


def random_list(rng, prefix, small):
    ids = list(range(5000, 5004 if small else 5040))
    # The owner and the owning group may be named as well.
    users = rng.sample(ids + [os.getuid()], rng.randint(0, 3))
    groups = rng.sample(ids + [os.getgid()], rng.randint(0, 3))
    lines = [f"{prefix}user::{text_of(rng.randint(0, 7))}"]
    lines += [f"{prefix}user:{i}:{text_of(rng.randint(0, 7))}" for i in users]
    lines += [f"{prefix}group::{text_of(rng.randint(0, 7))}"]
    lines += [f"{prefix}group:{i}:{text_of(rng.randint(0, 7))}" for i in groups]
    if users or groups or rng.random() < 0.3:
        lines.append(f"{prefix}mask::{text_of(rng.choice([7, 7, rng.randint(0, 7)]))}")
    lines.append(f"{prefix}other::{text_of(rng.randint(0, 7))}")
    return lines


def decode(path, kind):
    try:
        data = os.getxattr(path, f"system.posix_acl_{kind}")
    except OSError:
        if kind == "default":
            return None
        mode = os.stat(path).st_mode
        return {"owner": mode >> 6 & 7, "owning": mode >> 3 & 7, "others": mode & 7,
                "user": {}, "group": {}}
    assert struct.unpack_from("<I", data)[0] == 2
    result = {"user": {}, "group": {}, "mask": 7}
    for tag, bits, who in struct.iter_unpack("<HHI", data[4:]):
        name = TAGS[tag]
        if name in ("user", "group"):
            result[name][who] = bits
        else:
            result[name] = bits
    for name in ("user", "group"):
        # Under a mask of nothing the kernel looks at no list, and takes the named ones for others.
        result[name] = {who: bits & result["mask"] if result["mask"] else result["others"]
                        for who, bits in result[name].items()}
    result["owning"] &= result["mask"]
    return result


def said(who, granted, later, base=False):
    """What is shown for one identity: (who, tag, rights) of its deny and its allow entry."""
    if not granted and not base:
        yield (who, 2, 7)
        return
    if later & ~granted:
        yield (who, 2, later & ~granted)
    yield (who, 1, granted)


def tree_rights(acl, base, owner=None, owning=None):
    groups = acl["owning"] | acl["others"]
    for bits in acl["group"].values():
        groups |= bits
    named = []
    for uid, bits in acl["user"].items():
        named += said(("uid", uid), bits, 0 if uid == owner else groups)
    for gid, bits in acl["group"].items():
        named += said(("gid", gid), bits, 0 if gid == owning else acl["others"])
    rest = []
    if base:
        rest += said(base[0], acl["owner"], groups, True)
        rest += said(base[1], acl["owning"], acl["others"], True)
        rest += said(("everyone",), acl["others"], 0, True)
    return named, rest


def expected(path):
    status = os.stat(path)
    folder = os.path.isdir(path)
    owner, group = ("uid", status.st_uid), ("gid", status.st_gid)
    access, default = decode(path, "access"), decode(path, "default")
    result = [("flat", who, bits) for who, bits in
              ((owner, access["owner"]), (group, access["owning"]), (("everyone",), access["others"]))]
    named, _ = tree_rights(access, None, status.st_uid, status.st_gid)
    inherited, rest = tree_rights(default, (("creator",), ("creator group",))) if default else ([], [])
    shown = [(entry, THIS | (BELOW if entry in inherited else set())) for entry in named]
    shown += [(entry, BELOW) for entry in inherited if entry not in named]
    shown += [(entry, BELOW) for entry in rest]
    for (who, tag, bits), applies in shown:
        boxes = set()
        for bit, names in BOXES[folder].items():
            if bits & bit:
                boxes |= names
        if tag == 1:
            boxes |= ALWAYS | (OWNERS if who == ("creator",) else set())
        result.append(("tree", who, tag, tuple(sorted(boxes)), tuple(sorted(applies)) if folder else None))
    return sorted(result, key=repr)


def actual(entries, names):
    result = []
    for entry in entries:
        who = names[entry["uuid"]]
        if entry["isAcl"]:
            tree = entry["permissions"]
            boxes = [box for group in tree[:3] for box in group["children"]]
            assert all(box["state"] in (0, 1) for box in boxes)
            applies = None
            if len(tree) == 4:
                applies = tuple(sorted(box["name"] for box in tree[3]["children"] if box["state"] == 1))
            result.append(("tree", who, entry["tag"],
                           tuple(sorted(box["name"] for box in boxes if box["state"] == 1)), applies))
        else:
            assert entry["tag"] == 1
            states = [group["state"] for group in entry["permissions"]]
            assert [group["name"] for group in entry["permissions"]] == ["Read", "Write", "Execute"]
            result.append(("flat", who, states[0] * 4 + states[1] * 2 + states[2]))
    return sorted(result, key=repr)


def name_of(entry, owner_names):
    name = entry["identity"]
    if name in ("everyone", "creator", "creator group"):
        return (name,)
    if name.startswith(("uid ", "gid ")):
        return (name[:3], int(name[4:]))
    return owner_names[entry["isGroup"], name]


def told_by_getfacl(paths):
    """What getfacl prints of each item, but for its name."""
    text = subprocess.run(["getfacl", "-n", "-p", "-E", *paths], check=True, text=True,
                          stdout=subprocess.PIPE).stdout
    items = [part.split("\n", 1)[1] for part in text.strip().split("\n\n")]
    assert len(items) == len(paths)
    return items


def written_otherwise(dump, paths):
    """How many lists are not the same to the letter after they were written back as they were read."""
    def all_of_them():
        return [text for start in range(0, len(paths), 500)
                for text in told_by_getfacl(paths[start:start + 500])]

    before = all_of_them()
    subprocess.run([dump, "--copy"], input="".join(f"{p}\n{p}\n" for p in paths), text=True, check=True)
    wrong = 0
    for path, a, b in zip(paths, before, all_of_them()):
        if a != b:
            wrong += 1
            print(f"{path} written otherwise:", a, b, sep="\n")
    return wrong


def main():
    dump = os.path.abspath(sys.argv[1])
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 10000
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else 20260101
    rng = random.Random(seed)
    import grp
    import pwd
    owner_names = {(False, pwd.getpwuid(os.getuid()).pw_name): ("uid", os.getuid()),
                   (True, grp.getgrgid(os.getgid()).gr_name): ("gid", os.getgid())}
    with tempfile.TemporaryDirectory() as top:
        os.chdir(top)
        restore, paths = [], []
        for i in range(count):
            folder, small = rng.random() < 0.5, rng.random() < 0.7
            path = f"item{i}"
            os.mkdir(path) if folder else open(path, "w").close()
            paths.append(path)
            lines = random_list(rng, "", small)
            if folder and rng.random() < 0.7:
                if rng.random() < 0.3:
                    lines += ["default:" + line for line in lines]
                else:
                    lines += random_list(rng, "default:", small)
            restore.append("\n".join([f"# file: {path}"] + lines))
        subprocess.run(["setfacl", "--restore=-"], input="\n\n".join(restore) + "\n", text=True,
                       check=True)
        answer = subprocess.run([dump], input="\n".join(paths) + "\n", text=True, check=True,
                                stdout=subprocess.PIPE).stdout
        lists = [json.loads(part) for part in answer.split("--\n")[:-1]]
        assert len(lists) == count, (len(lists), count)
        names, wrong = {}, 0
        for path, entries in zip(paths, lists):
            for entry in entries:
                who = name_of(entry, owner_names)
                assert names.setdefault(entry["uuid"], who) == who
            if actual(entries, names) != expected(path):
                wrong += 1
                print(f"seed {seed}, {path}:", subprocess.getoutput(f"getfacl -n {path}"),
                      "expected:", *expected(path), "shown:", *actual(entries, names), sep="\n")
        print(f"{count} lists, {wrong} shown otherwise than expected")
        lost = written_otherwise(dump, paths)
        print(f"{count} lists, {lost} written otherwise than they were")
        return 1 if wrong or lost else 0


if __name__ == "__main__":
    sys.exit(main())
