# SPDX-License-Identifier: MIT
"""Reads ("check FILE UUID") and writes ("write FILE UUID") the archives of AclEntryArchiveTest.cpp."""
import plistlib
import sys
import uuid

UID = plistlib.UID
# Names, permissions and states of the groups and their boxes.
FOLDER = [
    ("Read", 2, -1, [("List Folder Contents", 0x2, 1), ("Traverse Folder", 0x8, 0), ("Read Attributes", 0x80, 1),
                     ("Read Extended Attributes", 0x200, 1), ("Read Permissions", 0x800, 1)]),
    ("Write", 2, 1, [("Create Files", 0x4, 1), ("Create Folder", 0x20, 1), ("Delete", 0x10, 1),
                     ("Delete Subfolders and Files", 0x40, 1), ("Write Attributes", 0x100, 1),
                     ("Write Extended Attributes", 0x400, 1)]),
    ("Administration", 2, 0, [("Change Permissions", 0x1000, 0), ("Change Owner", 0x2000, 0)]),
    ("Applies To", 0x2000, -1, [("This item", 0x100, 1), ("Child files", 0x20, 0), ("Child folders", 0x40, 0),
                                ("All descendants", 0x80, 0)]),
]
FILE = [
    ("Read", 2, -1, [("Read Data", 0x2, 1), ("Execute File", 0x8, 0), ("Read Attributes", 0x80, 1),
                     ("Read Extended Attributes", 0x200, 1), ("Read Permissions", 0x800, 1)]),
    ("Write", 2, 1, [("Write Data", 0x4, 1), ("Append Data", 0x20, 1), ("Delete", 0x10, 1),
                     ("Write Attributes", 0x100, 1), ("Write Extended Attributes", 0x400, 1)]),
    ("Administration", 2, 0, [("Change Permissions", 0x1000, 0), ("Change Owner", 0x2000, 0)]),
]


class Reader:
    def __init__(self, data):
        archive = plistlib.loads(data, fmt=plistlib.FMT_BINARY)
        assert sorted(archive) == ["$archiver", "$objects", "$top", "$version"], archive
        assert archive["$version"] == 100000 and archive["$archiver"] == "NSKeyedArchiver"
        assert list(archive["$top"]) == ["root"]
        self.objects, self.root = archive["$objects"], archive["$top"]["root"]
        assert self.objects[0] == "$null"

    def at(self, uid):
        assert isinstance(uid, UID)
        return self.objects[uid.data]

    def object(self, uid, ancestry, *keys):
        found = self.at(uid)
        assert self.at(found["$class"]) == {"$classname": ancestry[0], "$classes": list(ancestry)}, found
        assert sorted(found) == sorted(("$class", *keys)), found
        return found

    def array(self, uid):
        return self.object(uid, ("NSArray", "NSObject"), "NS.objects")["NS.objects"]

    def node(self, uid):
        found = self.object(uid, ("MVTreeNode", "NSTreeNode", "NSObject"), "object", "children")
        box = self.object(found["object"], ("MVAclPermission", "NSObject"), "name", "permission", "state")
        children = []
        for blob in self.array(found["children"]):
            assert isinstance(self.at(blob), bytes)
            nested = Reader(self.at(blob))
            children.append(nested.node(nested.root))
        return self.at(box["name"]), box["permission"], box["state"], children


def with_leaves(tree):
    return [(*group, [(*box, []) for box in boxes]) for *group, boxes in tree]


def check(data, who):
    reader = Reader(data)
    entry = reader.object(reader.root, ("MVAclEntry", "NSObject"), "uuid", "tag", "permissions", "inherited")
    assert reader.object(entry["uuid"], ("NSUUID", "NSObject"), "NS.uuidbytes")["NS.uuidbytes"] == who.bytes
    assert entry["tag"] == 2 and entry["inherited"] is True
    tree = [reader.node(uid) for uid in reader.array(entry["permissions"])]
    assert tree == with_leaves(FOLDER), tree


class Writer:
    def __init__(self):
        self.objects = ["$null"]

    def add(self, value):
        self.objects.append(value)
        return UID(len(self.objects) - 1)

    def object(self, ancestry, **values):
        c = self.add({"$classname": ancestry[0], "$classes": list(ancestry)})
        return self.add({**values, "$class": c})

    def array(self, elements):
        return self.object(("NSArray", "NSObject"), **{"NS.objects": elements})

    def node(self, name, permission, state, children):
        blobs = []
        for child in children:
            nested = Writer()
            blobs.append(self.add(nested.archive(nested.node(*child))))
        box = self.object(("MVAclPermission", "NSObject"), name=self.add(name), permission=permission, state=state)
        return self.object(("MVTreeNode", "NSTreeNode", "NSObject"), object=box, children=self.array(blobs))

    def archive(self, root):
        return plistlib.dumps({"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": root},
                               "$objects": self.objects}, fmt=plistlib.FMT_BINARY)


def written(who):
    writer = Writer()
    return writer.archive(writer.object(
        ("MVAclEntry", "NSObject"), inherited=True, tag=2,
        uuid=writer.object(("NSUUID", "NSObject"), **{"NS.uuidbytes": who.bytes}),
        permissions=writer.array([writer.node(*group) for group in with_leaves(FILE)])))


mode, path, user = sys.argv[1], sys.argv[2], uuid.UUID(sys.argv[3])
if mode == "check":
    with open(path, "rb") as file:
        check(file.read(), user)
else:
    with open(path, "wb") as file:
        file.write(written(user))
