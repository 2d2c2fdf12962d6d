# SPDX-License-Identifier: MIT
"""Reads ("check FILE", "check-large FILE") and writes ("write FILE") the archives of PythonArchiveTest.cpp."""
import plistlib
import sys
import uuid

UID = plistlib.UID
UUID = uuid.UUID("6ba7b810-9dad-11d1-80b4-00c04fd430c8").bytes
TEXT = "Größe \U0001F4C1"


def check(path):
    with open(path, "rb") as file:
        archive = plistlib.load(file, fmt=plistlib.FMT_BINARY)
    assert sorted(archive) == ["$archiver", "$objects", "$top", "$version"], archive
    assert archive["$version"] == 100000 and archive["$archiver"] == "NSKeyedArchiver"
    objects = archive["$objects"]
    assert objects[0] == "$null"

    def at(uid):
        assert isinstance(uid, UID)
        return objects[uid.data]

    def of_class(thing, *ancestry):
        assert at(thing["$class"]) == {"$classname": ancestry[0], "$classes": list(ancestry)}
        return thing

    root = of_class(at(archive["$top"]["root"]), "Values", "NSObject")
    assert root["flag"] is True
    assert root["narrow"] == -7
    assert root["wide"] == 1 << 40
    assert root["real"] == 0.5
    assert at(root["text"]) == TEXT
    assert at(root["data"]) == b"\1\2\3"
    assert of_class(at(root["uuid"]), "NSUUID", "NSObject")["NS.uuidbytes"] == UUID
    url = of_class(at(root["url"]), "NSURL", "NSObject")
    assert at(url["NS.base"]) == "$null" and at(url["NS.relative"]) == "file:///a%20b"
    path = of_class(at(root["path"]), "NSIndexPath", "NSObject")
    assert path["NSIndexPathLength"] == 0
    error = of_class(at(root["error"]), "NSError", "NSObject")
    assert at(error["NSDomain"]) == "D" and error["NSCode"] == 5
    info = of_class(at(error["NSUserInfo"]), "NSDictionary", "NSObject")
    assert [at(key) for key in info["NS.keys"]] == ["k"]
    assert [at(value) for value in info["NS.objects"]] == ["v"]
    for key, expected in (("strings", ["one", "zwei"]), ("integers", [1, -1]), ("urls", [])):
        array = of_class(at(root[key]), "NSArray", "NSObject")
        assert [at(element) for element in array["NS.objects"]] == expected
    assert len(root) == 14, sorted(root)


def check_large(path):
    with open(path, "rb") as file:
        archive = plistlib.load(file, fmt=plistlib.FMT_BINARY)
    objects = archive["$objects"]
    root = objects[archive["$top"]["root"].data]
    children = [objects[uid.data] for uid in objects[root["objects"].data]["NS.objects"]]
    assert [child["number"] for child in children] == [i * i for i in range(50000)]
    assert all(child["next"] == root["next"] for child in children)
    assert objects[root["next"].data]["number"] == -1
    classes = {child["$class"].data for child in children}
    assert [objects[uid]["$classname"] for uid in classes] == ["Node"]


def write(path):
    def described(*ancestry):
        return {"$classname": ancestry[0], "$classes": list(ancestry)}

    objects = [
        "$null",
        {"flag": True, "narrow": -7, "wide": 1 << 40, "real": 0.5, "text": UID(2),
         "data": UID(3), "uuid": UID(4), "url": UID(6), "error": UID(0), "strings": UID(9),
         "$class": UID(13)},
        TEXT,
        b"\1\2\3",
        {"NS.uuidbytes": UUID, "$class": UID(5)},
        described("NSUUID", "NSObject"),
        {"NS.base": UID(0), "NS.relative": UID(7), "$class": UID(8)},
        "file:///a%20b",
        described("NSURL", "NSObject"),
        {"NS.objects": [UID(10), UID(11)], "$class": UID(12)},
        "one",
        "zwei",
        described("NSMutableArray", "NSArray", "NSObject"),
        described("Values", "NSObject"),
    ]
    with open(path, "wb") as file:
        plistlib.dump({"$version": 100000, "$archiver": "NSKeyedArchiver",
                       "$top": {"root": UID(1)}, "$objects": objects},
                      file, fmt=plistlib.FMT_BINARY)


{"check": check, "check-large": check_large, "write": write}[sys.argv[1]](sys.argv[2])
