#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The rules of access-control entries, written down a second time.

Reads the log of AclModelLog (commands with the states that followed) on standard input or from the
program given as arguments, applies each command to the plain model below, and compares.
"""
import subprocess
import sys

READ = [("Read Data", 0x2, 2), ("List Folder Contents", 0x2, 1), ("Execute File", 0x8, 2),
        ("Traverse Folder", 0x8, 1), ("Read Attributes", 0x80, 3),
        ("Read Extended Attributes", 0x200, 3), ("Read Permissions", 0x800, 3)]
WRITE = [("Write Data", 0x4, 2), ("Create Files", 0x4, 1), ("Append Data", 0x20, 2),
         ("Create Folder", 0x20, 1), ("Delete", 0x10, 3), ("Delete Subfolders and Files", 0x40, 1),
         ("Write Attributes", 0x100, 3), ("Write Extended Attributes", 0x400, 3)]
ADMIN = [("Change Permissions", 0x1000, 3), ("Change Owner", 0x2000, 3)]
FLAGS = [("This item", 0x100), ("Child files", 0x20), ("Child folders", 0x40),
         ("All descendants", 0x80)]
FILE_NAMES = {2: "Read Data", 8: "Execute File", 4: "Write Data", 0x20: "Append Data"}
CODES = {(1, 1, 1): 1, (1, 1, 0): 2, (1, 0, 0): 3, (0, 1, 0): 4}
CHOICES = {2: (1, 1, 0), 3: (1, 0, 0), 4: (0, 1, 0), 5: (0, 0, 0)}


class Box:
    def __init__(self, name, bit, state=0):
        self.name, self.bit, self.state, self.settable = name, bit, state, False
        self.boxes, self.group = [], None

    def add(self, box):
        box.group = self
        self.boxes.append(box)

    def pull(self):
        kinds = {b.state for b in self.boxes}
        self.state = 0 if not kinds else kinds.pop() if len(kinds) == 1 else -1

    def push(self):
        for b in self.boxes:
            b.state = self.state


def standard_tree(folder):
    groups = []
    for title, rows, state in (("Read", READ, 1), ("Write", WRITE, 1), ("Administration", ADMIN, 0)):
        group = Box(title, 2)
        for name, bit, kinds in rows:
            if kinds & (1 if folder else 2):
                group.add(Box(name, bit, state))
        group.pull()
        groups.append(group)
    if folder:
        group = Box("Applies To", 0x2000)
        for i, (name, bit) in enumerate(FLAGS):
            group.add(Box(name, bit, 1 if i == 0 else 0))
        group.pull()
        groups.append(group)
    return groups


class Entry:
    def __init__(self, tag, groups, inherited):
        self.tag, self.groups = tag, groups
        self.guard = self.initialized = False
        self.text, self.code = "", 0
        self.inherit(inherited)
        self.code = self.told_code()

    def inherit(self, flag):
        self.inherited = flag
        for g in self.groups:
            for b in [g] + g.boxes:
                b.settable = not flag
        self.applicability()
        self.guard = False

    def applicability(self):
        if len(self.groups) < 4:
            self.text = "This item"
            return
        boxes = self.groups[-1].boxes
        parts, others, before = "", False, 0
        for b in boxes:
            if b.bit == 0x100:
                parts += b.name if b.state == 1 else "Not this item"
            elif b.state == 1:
                parts += ", " + b.name
                others = others or b.bit != 0x80
            if b.bit == 0x80:
                if before == 0:
                    b.state = 0
                b.settable = before == 1 and not self.inherited
            before = b.state
        if self.initialized and boxes:
            first = boxes[0]
            if not others:
                first.state = 1
            first.settable = not self.inherited and (others or first.state == 0)
        self.text, self.initialized = parts, True

    def told_code(self):
        if len(self.groups) < 3:
            return 6
        rwa = tuple(g.state for g in self.groups[:3])
        if rwa == (0, 0, 0):
            return 6 if self.groups[0].boxes else 5
        return CODES.get(rwa, 6)

    def edit(self, box, state):
        box.state = state
        if self.guard:
            return
        box.push()
        self.applicability()
        if box.group:
            box.group.pull()
        self.code = self.told_code()

    def choose(self, code, queue):
        before, self.code = self.code, code
        if self.guard:
            return
        if code == 6:
            self.guard = True
            queue.append((self, before))
            return
        for group, state in zip(self.groups, CHOICES.get(code, (1, 1, 1))):
            group.state = state
            group.push()

    def to_file(self):
        if len(self.groups) < 4 or not self.groups[3].boxes or self.groups[3].boxes[1].state == 0:
            return False
        for g in self.groups[:2]:
            for b in g.boxes[:2]:
                b.name = FILE_NAMES.get(b.bit, b.name)
        del self.groups[1].boxes[3]
        del self.groups[3]
        self.inherit(True)
        self.code = self.told_code()
        return True

    def to_folder(self):
        if len(self.groups) < 4 or not self.groups[3].boxes or self.groups[3].boxes[2].state == 0:
            return False
        item, files, folders, below = self.groups[3].boxes
        self.edit(item, 1)
        if below.state == 0:
            self.edit(files, 0)
            self.edit(folders, 0)
        self.inherit(True)
        return True

    def shown(self, queue, names):
        def mark(b):
            return ("-" if b.state == -1 else str(b.state)) + ("s" if b.settable else ".")
        score = (self.tag - 1) % 2**32 - (5 if self.inherited else 0)
        shallow = all(g.state == 0 or g.bit == 0x2000 for g in self.groups)
        tree = "/".join("".join(mark(b) for b in [g] + g.boxes) for g in self.groups)
        listed = ";".join(f"{b.name}={b.bit}" for g in self.groups for b in [g] + g.boxes)
        return "|".join([str(self.code), str(int(self.inherited)), str(int(shallow)), str(score),
                         str(int(self.guard)), str(int(self.initialized)), str(len(queue)), tree,
                         self.text, listed if names else ""])


def check(lines):
    entry, queue, count, seen = None, [], 0, {}
    for line in lines:
        command, _, observed = line.rstrip("\n").partition("|")
        verb, *args = command.split(" ")
        args = [int(a) for a in args if a]
        names = verb in "NLRFD"
        if verb == "N":
            entry = Entry(1, standard_tree(args[0] == 1), False)
            entry.inherit(False)
        elif verb == "L":
            entry = Entry(args[0], [Box("Group", 2, s) for s in args[2:]], bool(args[1]))
        elif verb == "R":
            groups = standard_tree(True)
            nodes = [b for g in groups for b in [g] + g.boxes]
            assert len(nodes) == len(args) - 2, command
            for b, state in zip(nodes, args[2:]):
                b.state = state
            entry = Entry(args[0], groups, bool(args[1]))
        elif verb == "T":
            entry.edit(entry.groups[args[0]].boxes[args[1]], args[2])
        elif verb == "G":
            entry.edit(entry.groups[args[0]], args[1])
        elif verb == "P":
            entry.choose(args[0], queue)
        elif verb == "I":
            entry.inherit(bool(args[0]))
        elif verb in "FD":
            done = entry.to_file() if verb == "F" else entry.to_folder()
            assert done == bool(args[0]), f"line {count + 1}: {command}: result should be {done}"
        elif verb == "M":
            turn, queue = queue, []
            for owner, code in turn:
                owner.choose(code, queue)
                owner.guard = False
        else:
            assert verb == "-", command
        count += 1
        seen[verb] = seen.get(verb, 0) + 1
        expected = entry.shown(queue, names)
        if observed != expected:
            sys.exit(f"line {count}: {command}\n  observed {observed}\n  expected {expected}")
    return count, seen


def main():
    if len(sys.argv) > 1:
        with subprocess.Popen(sys.argv[1:], stdout=subprocess.PIPE, text=True) as program:
            count, seen = check(program.stdout)
        if program.returncode:
            sys.exit(f"the program ended with {program.returncode}")
    else:
        count, seen = check(sys.stdin)
    asked = int(sys.argv[2]) if len(sys.argv) > 2 else 0
    assert count >= asked * 4 // 5 and count > 0, f"only {count} steps of {asked}"
    print(f"{count} steps agree: " + ", ".join(f"{k} {v}" for k, v in sorted(seen.items())))


if __name__ == "__main__":
    main()
