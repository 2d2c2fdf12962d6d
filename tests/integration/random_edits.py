#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes random edits of random lists through the real service, and sees for each that it is stored or refused as the
rules say (list_model.py), and that nobody can then do more than the list asks for, nor less: the kernel is asked by
users who try it, on the item and on what they find made in it.

usage: random_edits.py ACL-EDITS LIBEXEC-DIR [COUNT [SEED [FOLDER]]]

The items are made in a folder of their own below FOLDER. Needs root, which becomes the users. They and their groups
are known in a mount namespace of this program only.
"""
import json
import os
import random
import re
import socket
import struct
import subprocess
import sys
import tempfile
from collections import Counter

from list_model import EXECUTE, READ, RIGHTS, WRITE, Asked, Item, Loss, statement_of, without_execution_by_read

DRIVER, LIBEXEC = map(os.path.abspath, sys.argv[1:3])
COUNT = int(sys.argv[3]) if len(sys.argv) > 3 else 500
SEED = int(sys.argv[4]) if len(sys.argv) > 4 else 20261122
TOP = sys.argv[5] if len(sys.argv) > 5 else None
BATCH = 250

GROUPS = {"staff-o": 4850, "staff-1": 4851, "staff-2": 4852, "staff-3": 4853}
# Users with the groups that they are in. Those after "maker" have no entry in any list.
USERS = {"owner": (4801, ["staff-1"]),
         "user-1": (4802, []), "user-2": (4803, ["staff-1"]), "user-3": (4804, ["staff-1", "staff-2"]),
         "user-4": (4805, ["staff-o"]), "user-5": (4806, ["staff-2", "staff-3"]),
         "maker": (4807, ["staff-1"]),
         "none": (4808, []), "o": (4809, ["staff-o"]), "1": (4810, ["staff-1"]), "o-1": (4811, ["staff-o", "staff-1"]),
         "2-3": (4812, ["staff-2", "staff-3"]), "3": (4813, ["staff-3"]),
         "all": (4814, ["staff-o", "staff-1", "staff-2", "staff-3"])}
EVERYBODYS = 4899  # each user's own group, which is in no list
OWNER, OWNING_GROUP = USERS["owner"][0], GROUPS["staff-o"]
MAKER, MAKERS_GROUP = USERS["maker"][0], 4898
LETTERS = dict(zip(RIGHTS, "rwx"))


# The world.

def in_a_world_with_the_users():
    """Runs this program again where /etc/passwd and /etc/group have the users."""
    if "RANDOM_EDITS_ALONE" not in os.environ:
        os.environ["RANDOM_EDITS_ALONE"] = "yes"
        os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable, *sys.argv])
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/mnt"], check=True)
    for part in "users", "work":
        os.mkdir(f"/mnt/{part}", 0o755)
    with open("/etc/passwd", encoding="utf-8") as old, open("/mnt/users/passwd", "w", encoding="utf-8") as new:
        new.write(old.read())
        new.writelines(f"{name}:x:{uid}:{EVERYBODYS}::/:/bin/sh\n" for name, (uid, _) in USERS.items())
    with open("/etc/group", encoding="utf-8") as old, open("/mnt/users/group", "w", encoding="utf-8") as new:
        new.write(old.read())
        for group, gid in GROUPS.items():
            members = ",".join(name for name, (_, groups) in USERS.items() if group in groups)
            new.write(f"{group}:x:{gid}:{members}\n")
    # All of the folder: a mount on a file is lost when another program replaces the file.
    subprocess.run(["mount", "-t", "overlay", "-o", "lowerdir=/etc,upperdir=/mnt/users,workdir=/mnt/work", "overlay",
                    "/etc"], check=True)


class Actor:
    """A process of one user, which tries what it can do."""

    def __init__(self, name):
        uid, groups = USERS[name]
        self.name, self.who = name, ("user", uid)
        self.groups = [("group", GROUPS[group]) for group in groups]
        self.socket, other = socket.socketpair()
        if os.fork() == 0:
            try:
                self.socket.close()
                os.setgroups([GROUPS[group] for group in groups])
                os.setresgid(EVERYBODYS, EVERYBODYS, EVERYBODYS)
                os.setresuid(uid, uid, uid)
                with other.makefile("rw") as questions:
                    for line in questions:
                        print(json.dumps([self.rights(path) for path in json.loads(line)]), file=questions, flush=True)
            finally:
                os._exit(0)
        other.close()
        self.file = self.socket.makefile("rw")

    @staticmethod
    def opens(path, flags):
        try:
            os.close(os.open(path, flags))
            return True
        except PermissionError:
            return False

    @classmethod
    def rights(cls, path):
        said = {right: os.access(path, kind) for right, kind in ((READ, os.R_OK), (WRITE, os.W_OK), (EXECUTE, os.X_OK))}
        assert said[READ] == cls.opens(path, os.O_RDONLY), path
        if os.path.isdir(path):
            assert said[EXECUTE] == cls.opens(f"{path}/.", os.O_PATH), path
        else:
            assert said[WRITE] == cls.opens(path, os.O_WRONLY), path
        return sum(right for right in RIGHTS if said[right])

    def ask(self, paths):
        print(json.dumps(paths), file=self.file, flush=True)

    def answer(self):
        return json.loads(self.file.readline())


def tried(actors, paths):
    """{path: {actor's name: rights}}"""
    for actor in actors:
        actor.ask(paths)
    result = {path: {} for path in paths}
    for actor in actors:
        for path, rights in zip(paths, actor.answer(), strict=True):
            result[path][actor.name] = rights
    return result


# Lists.

def attributes(path):
    """All that is stored of the lists."""
    status = os.stat(path)
    return (status.st_mode, *(os.getxattr(path, f"system.posix_acl_{kind}") if f"system.posix_acl_{kind}" in
                              os.listxattr(path) else None for kind in ("access", "default")))


class Stored(dict):
    """A stored list: what each identity has, the mask considered."""

    def __init__(self, path):
        super().__init__()
        self.is_masked = False
        mode, access, _ = attributes(path)
        if access is None:
            self.update({"owner": mode >> 6 & 7, "group": mode >> 3 & 7, "others": mode & 7})
            return
        mask, kinds = 7, {1: "owner", 4: "group", 0x20: "others", 2: "user", 8: "group"}
        for tag, rights, who in struct.iter_unpack("<HHI", access[4:]):
            if tag == 0x10:
                mask = rights
            else:
                self[(kinds[tag], who) if tag in (2, 8) else kinds[tag]] = rights
        for who in self:
            if who not in ("owner", "others"):
                self[who] &= mask
        self.is_masked = mask == 0


def text_of(rights):
    return "".join(letter if rights & right else "-" for right, letter in LETTERS.items())


def random_list(rng, prefix):
    users = rng.sample([4802, 4803, 4804, 4805, 4806], rng.randint(0, 3)) + [OWNER] * (rng.random() < 0.05)
    groups = rng.sample([4851, 4852, 4853], rng.randint(0, 2)) + [OWNING_GROUP] * (rng.random() < 0.05)
    some = lambda: text_of(rng.choice([0, 4, 5, 6, 7, rng.randint(0, 7)]))
    lines = [f"user::{some()}", *(f"user:{uid}:{some()}" for uid in users),
             f"group::{some()}", *(f"group:{gid}:{some()}" for gid in groups), f"other::{some()}"]
    if users or groups:
        lines.append(f"mask::{text_of(rng.choice([7, 7, rng.randint(0, 7)]))}")
    return [prefix + line for line in lines]


# Edits.

FILE_BOXES = ["Read", "Write", "Administration", "Read Data", "Read Attributes", "Read Extended Attributes",
              "Read Permissions", "Write Data", "Append Data", "Write Attributes", "Write Extended Attributes",
              "Execute File", "Delete", "Change Permissions", "Change Owner"]
FOLDER_BOXES = [{"Read Data": "List Folder Contents", "Write Data": "Create Files", "Append Data": "Create Folder",
                 "Execute File": "Traverse Folder"}.get(box, box) for box in FILE_BOXES]
WHOLE_RIGHTS = {False: (["Read Data", "Read Extended Attributes"],
                        ["Write Data", "Append Data", "Write Extended Attributes"], ["Execute File"]),
                True: (["List Folder Contents", "Read Extended Attributes"],
                       ["Create Files", "Create Folder", "Delete Subfolders and Files", "Write Extended Attributes"],
                       ["Traverse Folder"])}


def random_who(rng, folder):
    kind = rng.random()
    if kind < 0.4:
        return f"user:user-{rng.randint(1, 5)}"
    if kind < 0.75:
        return f"group:staff-{rng.randint(1, 3)}"
    return rng.choice(["user:owner", "group:staff-o", "everyone"] + ["creator", "creator-group"] * folder)


def random_changes(rng, folder):
    boxes = FOLDER_BOXES if folder else FILE_BOXES
    kind = rng.random()
    if kind < 0.35:
        yield "permissions " + rng.choice(["read", "write", "read-write", "all", "none"])
    elif kind < 0.75:
        yield from ("off Read", "off Write", "off Administration")
        for right in rng.sample(WHOLE_RIGHTS[folder], rng.randint(1, 2)):
            yield from (f'on "{box}"' for box in right)
        if rng.random() < 0.6:
            yield "deny"
    else:
        for _ in range(rng.randint(1, 3)):
            yield f'{rng.choice(["on", "off", "toggle"])} "{rng.choice(boxes)}"'
        if rng.random() < 0.2:
            yield rng.choice(["deny", "allow"])
    if folder and rng.random() < 0.5:
        yield from ('on "Child files"', 'on "Child folders"', 'on "All descendants"')
        if rng.random() < 0.3:
            yield 'off "This item"'
    elif folder and rng.random() < 0.15:
        yield rng.choice(['on "Child files"', 'on "Child folders"', 'off "This item"'])


def random_script(rng, folder):
    commands = []
    for _ in range(rng.choice([1, 1, 1, 2, 3])):
        kind = rng.random()
        if kind < 0.5:
            commands.append(f"add {random_who(rng, folder)}")
            if rng.random() < 0.85:
                commands += random_changes(rng, folder)
        else:
            commands.append(f"entry {rng.randint(1, 8)}")
            if kind < 0.62:
                commands.append("remove")
            elif kind < 0.68:
                commands.append(f"who {random_who(rng, folder)}")
            else:
                commands += random_changes(rng, folder)
    return "; ".join(commands)


def edited(driver, path, script, lossy):
    print(json.dumps({"path": path, "script": script, "lossy": lossy}), file=driver.stdin, flush=True)
    return json.loads(driver.stdout.readline())


# The comparison.

def who_of(entry):
    name = entry["identity"]
    if name in ("everyone", "creator", "creator group"):
        return (name,)
    kind = "group" if entry["isGroup"] else "user"
    if name.startswith(("uid ", "gid ")):
        return (kind, int(name[4:]))
    return (kind, GROUPS[name] if kind == "group" else USERS[name][0])


def losses_told(message):
    """What a refusal names."""
    start = message.index("It would lose: ") + len("It would lose")
    told = re.findall(r'[:;] entry \d+ \(((?:allow|deny) [^()]*)\): ("([^"]*)": )?', message[start:])
    return Counter(Loss(entry, box) for entry, _, box in told)


class Edit:
    def __init__(self, path, script, lossy, answer, before, after):
        self.path, self.script, self.lossy, self.answer = path, script, lossy, answer
        self.before, self.after = before, after
        self.item = Item(os.path.isdir(path), ("user", OWNER), ("group", OWNING_GROUP),
                         any(rights & EXECUTE for rights in before["list"].values()))
        self.statements, self.losses = [], Counter()
        for entry in answer["asked"]:
            statement, losses = statement_of(entry, who_of(entry), self.item)
            self.statements += [statement] if statement else []
            self.losses.update(losses)
        self.statements = without_execution_by_read(self.statements, self.item)
        self.shown = [statement for entry in answer["read"]
                      if (statement := statement_of(entry, who_of(entry), self.item)[0])]
        self.has_children = any(s.of_children for s in self.statements)

        self.asked = {False: Asked(self.statements, self.item, self.shown)}
        self.look_for_escaped(False)
        if self.has_children:
            self.asked[True] = Asked(self.statements, self.item, self.shown, True, self.classes())
            self.look_for_escaped(True)

    def look_for_escaped(self, children):
        escaped = list(self.asked[children].escaped_denials(self.had(children)))
        self.escaped = {(other, right) for _, other, right in escaped}
        self.losses.update(Loss(denial.text, "") for denial, _ in {(denial, other == ("creator",))
                                                                    for denial, other, _ in escaped})

    def classes(self):
        """What the item's owner, group and others are to have."""
        owners_groups = [("group", GROUPS[group]) for group in USERS["owner"][1]]
        return [sum(right for right in RIGHTS if self.asked[False].decision(who, groups, right) and
                    (who, right) not in self.escaped)
                for who, groups in ((self.item.owner, owners_groups), (self.item.group, ()), (("everyone",), ()))]

    def wrong(self):
        """What is not as the rules say."""
        code, message = self.answer["exit"], self.answer["message"]
        if code not in (0, 1) or (code == 0 and message):
            yield f"exit status {code}"
        elif code == 1:
            if self.after["stored"] != self.before["stored"]:
                yield "it was refused and changed"
            if self.lossy or not self.losses:
                yield "it was refused"
            elif losses_told(message) != self.losses:
                yield f"it names {dict(losses_told(message))}\n  and not {dict(self.losses)}"
        elif self.losses and not self.lossy:
            yield f"it was stored in spite of {dict(self.losses)}"
        if code == 0:
            yield from self.wrong_access(False)
            if self.has_children:
                yield from self.wrong_access(True)
            elif "child" in self.after:
                yield "there is a list for what is made in it"

    def had(self, children):
        """(What a group had before, whether an entry denied it.)"""
        shown = Asked(self.shown, self.item, self.shown, children, None)

        def answer(who, right):
            return (who in shown.named and shown.decision(who, (), right),
                    any(s.deny and shown.is_same_group(s.who, who) and s.rights & right for s in shown.statements))
        return answer

    def wrong_access(self, children):
        asked = self.asked[children]
        key = "child" if children else "item"
        for actor in ACTORS:
            who = ("creator",) if children and actor.who == ("user", MAKER) else actor.who
            for right in RIGHTS:
                can = bool(self.after[key][actor.name] & right)
                # So could whoever else is in these groups, of whom an edit may make this user one.
                could = bool(self.before.get(key, {}).get(actor.name, 0) & right) or \
                    Asked(self.shown, self.item, self.shown, children).may(("user", None), actor.groups, right, False)
                strictly = asked.may(who, actor.groups, right)
                if can and not strictly and not (could and asked.may(who, actor.groups, right, False)):
                    yield f"{actor.name} {'below ' * children}has {LETTERS[right]}, which nobody asked for"
                # Under an empty mask the kernel looks at no list: who is in the owning group has nothing by another.
                is_masked = self.after["list"].is_masked and not children and self.item.group in actor.groups
                if strictly and not can and not self.lossy and not is_masked:
                    yield f"{actor.name} {'below ' * children}does not have {LETTERS[right]}"

    def told(self):
        def told_list(entries):
            for entry in entries:
                boxes = [f"{group['name']}({','.join(b['name'] for b in group['children'] if b['state'] == 1)})"
                         if group["children"] else f"{group['name']}={group['state']}"
                         for group in entry["permissions"]]
                yield f"    {'-+-'[entry['tag']]} {entry['identity']}: {' '.join(boxes)}"
        return "\n".join([f"{self.path}: {self.script}{' (lossy)' * self.lossy}", f"  {self.answer['message']}",
                          "  before:", self.before["getfacl"], "  after:", self.after["getfacl"],
                          "  read:", *told_list(self.answer["read"]),
                          "  asked:", *told_list(self.answer["asked"])])


def getfacl(paths):
    text = subprocess.run(["getfacl", "-n", "-p", "-E", "--omit-header", *paths], check=True, text=True,
                          stdout=subprocess.PIPE).stdout
    return ["    " + part.replace("\n", " ") for part in text.rstrip("\n").split("\n\n")]


def states(paths, name_of_child):
    """For each item what is stored, and what everybody can do to it and to a file that is made in it."""
    children = {}
    for path in paths:
        if attributes(path)[2] is not None:
            child = children[path] = f"{path}/{name_of_child}"
            os.close(os.open(child, os.O_CREAT | os.O_EXCL, 0o777))
            os.chown(child, MAKER, MAKERS_GROUP)
    # The folder's own list may keep them out: they look at the file by another name.
    for path, child in children.items():
        os.rename(child, f"{path}.{name_of_child}")
        children[path] = f"{path}.{name_of_child}"
    rights = tried(ACTORS, [*paths, *children.values()])
    result = {}
    for path, text in zip(paths, getfacl(paths), strict=True):
        result[path] = {"stored": attributes(path), "list": Stored(path), "item": rights[path], "getfacl": text}
        if path in children:
            result[path]["child"] = rights[children[path]]
    return result


def make_items(rng, top, count):
    restore, paths = [], []
    for i in range(count):
        folder = rng.random() < 0.5
        path = f"{top}/{i}"
        paths.append(path)
        if folder:
            os.mkdir(path)
        else:
            os.close(os.open(path, os.O_CREAT))
        os.chown(path, OWNER, OWNING_GROUP)
        lines = random_list(rng, "")
        if folder and rng.random() < 0.6:
            lines += ["default:" + line for line in lines] if rng.random() < 0.3 else random_list(rng, "default:")
        restore.append("\n".join([f"# file: {path}", *lines]))
    subprocess.run(["setfacl", "--restore=-"], input="\n\n".join(restore) + "\n", text=True, check=True, cwd="/")
    return paths


def main():
    in_a_world_with_the_users()
    global ACTORS
    ACTORS = [Actor(name) for name in USERS]
    rng = random.Random(SEED)
    os.umask(0)
    done, wrong, outcomes = 0, 0, Counter()
    driver = subprocess.Popen([DRIVER], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                              env={**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8"})
    while done < COUNT:
        with tempfile.TemporaryDirectory(dir=TOP) as top:
            os.chmod(top, 0o755)
            paths = make_items(rng, top, min(BATCH, COUNT - done))
            before = states(paths, "before")
            edits = []
            for path in paths:
                lossy = rng.random() < 0.25
                while True:
                    script = random_script(rng, os.path.isdir(path))
                    answer = edited(driver, path, script, lossy)
                    if answer["exit"] != 2:  # else it is none
                        break
                edits.append((path, script, lossy, answer))
            after = states(paths, "after")
            for path, script, lossy, answer in edits:
                edit = Edit(path, script, lossy, answer, before[path], after[path])
                problems = list(edit.wrong())
                outcomes["refused" if answer["exit"] else "stored lossily" if lossy else "stored"] += 1
                if problems:
                    wrong += 1
                    if wrong <= 20:
                        print(f"seed {SEED}:", edit.told(), *problems, sep="\n", flush=True)
        done += len(paths)
    driver.stdin.close()
    driver.wait()
    print(f"{done} edits ({', '.join(f'{n} {what}' for what, n in sorted(outcomes.items()))}), {wrong} wrong")
    return 1 if wrong else 0


ACTORS = []

if __name__ == "__main__":
    if os.geteuid() != 0:
        sys.exit("the edits are tried as other users: this needs root")
    sys.exit(main())
