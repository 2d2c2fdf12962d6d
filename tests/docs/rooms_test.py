#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Sees that the table of rooms in docs/architecture.md is true: no source file includes a header of a room that its own
may not use, and each layer of the build uses what the table says.

usage: rooms_test.py SOURCE-FOLDER INSTALLED-HEADER..."""
import collections
import os
import re
import sys
import unittest

SOURCE, INSTALLED = sys.argv[1], {os.path.relpath(path, sys.argv[1]) for path in sys.argv[2:]}
# Public headers that have no source file of their own.
HEADERS_ALONE = {"MVFileRequest.h": "service", "MVFileResponse.h": "service", "MVServiceNames.h": "service",
                 "PosixAcl.h": "lists"}
PLATFORM = ("foundation", "archive", "dispatch", "identity", "host", "xpc", "security")
LIBRARY = {"acl", "lists", "size", "service", "client", *(f"platform/{room}" for room in PLATFORM)}


def named(path):
    return path.rstrip("/") if "/" in path.rstrip("/") or path.endswith("/") else f"platform/{path}"


def table():
    """What each room may use itself, and which headers besides, by the name of the room; None for everything."""
    rows = {}
    with open(os.path.join(SOURCE, "docs/architecture.md"), encoding="utf-8") as f:
        text = f.read()
    for names, uses in re.findall(r"^\| (`[^|]*`) \|[^|]*\| ([^|]*) \|$", text, re.MULTILINE):
        words = re.findall(r"`([^`]+)`", uses)
        rooms = {named(word) for word in words if not word.endswith(".h")}
        if "the library" in uses:
            rooms |= LIBRARY
        for name in re.findall(r"`([^`]+)`", names):
            rows[name.rstrip("/")] = None if uses == "everything" else (rooms, {w for w in words if w.endswith(".h")})
    return rows


def told_libraries():
    """The libraries from outside that the second table names, by the folder."""
    with open(os.path.join(SOURCE, "docs/architecture.md"), encoding="utf-8") as f:
        table = re.search(r"^\| folder \| libraries from outside \|\n.*\n((?:\|.*\n)+)", f.read(), re.MULTILINE)[1]
    return {folder: set(re.findall(r"`([^`]+)`", libraries))
            for folder, libraries in re.findall(r"^\| `([^`]+)/` \| (.*) \|$", table, re.MULTILINE)}


def linked_libraries():
    """The packages that the build looks for, by the folder that does."""
    found = {}
    for folder, _, names in os.walk(SOURCE):
        room = os.path.relpath(folder, SOURCE)
        if "CMakeLists.txt" not in names or room.split("/")[0] in ("tests", "bench", "fuzz", "examples", "build"):
            continue
        with open(os.path.join(folder, "CMakeLists.txt"), encoding="utf-8") as f:
            text = f.read()
        words = " ".join(re.findall(r"^(?:pkg_check_modules\(|set\(MORVANE_(?=\w+_PACKAGES [a-z]))\w+ ([^$)]*)", text,
                                    re.MULTILINE)).split()
        packages = {re.sub("[<>=].*", "", word) for word in words if re.match("[a-z]", word)}
        packages |= set(re.findall(r"^find_package\((\w+)", text, re.MULTILINE)) - {"Threads", "PkgConfig", "Python3"}
        if packages:
            found[room] = packages
    return found


def with_what_these_use(rooms, direct):
    """The rooms, and those that they use in turn."""
    found, left = set(), set(rooms)
    while left:
        room = left.pop()
        found.add(room)
        left |= direct.get(room, set()) - found
    return found


def layers():
    """What each layer of the build uses itself."""
    uses = collections.defaultdict(set)
    for folder, _, names in os.walk(SOURCE):
        if "CMakeLists.txt" not in names or "/build" in folder:
            continue
        with open(os.path.join(folder, "CMakeLists.txt"), encoding="utf-8") as f:
            for layer, body in re.findall(r"^morvane_layer\((\w+)([^)]*)\)", f.read(), re.MULTILINE):
                words = re.sub(r"\$\{rooms\}", " ".join(PLATFORM), body).split()
                room = os.path.relpath(folder, SOURCE)
                uses[room] |= {name if name in LIBRARY else f"platform/{name}"
                               for name in (words[words.index("USES") + 1:] if "USES" in words else ())}
    return dict(uses)


def files():
    for folder, folders, names in os.walk(SOURCE):
        folders[:] = [name for name in folders if name not in ("build", ".git")]
        for name in names:
            if name.endswith((".h", ".cpp")):
                yield os.path.relpath(os.path.join(folder, name), SOURCE)


class Rooms(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.table, cls.files = table(), list(files())
        cls.direct = {room: uses[0] for room, uses in cls.table.items() if uses}
        cls.owner = dict(HEADERS_ALONE)
        for path in cls.files:
            room = os.path.dirname(path)
            if path.endswith(".cpp") and room in LIBRARY:
                cls.owner.setdefault(os.path.basename(path)[:-4] + ".h", room)
        cls.private = {os.path.basename(path): path for path in cls.files
                       if path.endswith(".h") and not path.startswith(("include/", "platform/", "tests/"))}

    def room_of(self, path):
        """The row of a file, which may be that of a folder above."""
        if path.startswith("include/"):
            return self.owner.get(os.path.basename(path), "include/MorvaneOperation")
        room = os.path.dirname(path)
        while room and room not in self.table:
            room = os.path.dirname(room)
        return room

    def header(self, name):
        """The file that an #include means; None for one of the system."""
        public = re.fullmatch(r"MorvaneOperation/((?:platform|qt)/.+)", name)
        if public:
            return public[1]
        return f"include/{name}" if name.startswith("MorvaneOperation/") else self.private.get(name)

    def test_every_folder_with_sources_has_its_row(self):
        self.assertEqual([path for path in self.files if not self.room_of(path)], [])

    def test_no_file_includes_what_its_room_may_not_use(self):
        wrong = []
        for path in self.files:
            room = self.room_of(path)
            if self.table[room] is None:
                continue
            rooms, headers = self.table[room]
            may = with_what_these_use(rooms, self.direct) | {room}
            with open(os.path.join(SOURCE, path), encoding="utf-8") as f:
                names = re.findall(r'^#include [<"]([^>"]+)[>"]', f.read(), re.MULTILINE)
            for header in filter(None, map(self.header, names)):
                inside = room in LIBRARY or room.startswith("platform/") or not header.startswith("platform/") or \
                    header in INSTALLED
                if (self.room_of(header) not in may or not inside) and \
                        header.removeprefix("platform/") not in headers:
                    wrong.append(f"{path}: {header}")
        self.assertEqual(wrong, [])

    def test_the_layers_of_the_build_use_what_the_table_says(self):
        for room, uses in layers().items():
            with self.subTest(room):
                self.assertEqual(with_what_these_use(uses, layers()), with_what_these_use(self.direct[room], self.direct))

    def test_the_build_looks_for_the_libraries_that_the_table_names(self):
        self.assertEqual(linked_libraries(), told_libraries())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
