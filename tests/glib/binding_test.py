# SPDX-License-Identifier: MIT
"""The binding as PyGObject and Vala see it, on real files.

usage: binding_test.py FROM-VALA LIBRARY TYPELIB-FOLDER [unittest arguments]
"""
import os
import re
import subprocess
import sys
import tempfile
import unittest
from xml.etree import ElementTree

from from_python import NEVER, Client, Gio, GLib, Morvane

FROM_VALA, LIBRARY, GLIB = sys.argv[1:4]
os.environ.pop("LD_PRELOAD", None)  # What it brings is in this program now; others have their own.


def getfacl(path):
    return subprocess.run(["getfacl", "-cp", path], check=True, capture_output=True, text=True).stdout


def named(model, name):
    return next(item for item in model if item.props.name == name)


class Binding(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.file = os.path.join(folder.name, "file")
        with open(self.file, "w", encoding="ascii") as f:
            f.write("x" * 1234)
        os.chmod(self.file, 0o640)
        self.client = Client()

    def test_a_list_is_read_edited_and_saved(self):
        acl = self.client.read(self.file)
        self.assertEqual([entry.props.who for entry in acl],
                         ["user root (owner)", "group root (owning group)", "everyone"])
        self.assertEqual([entry.props.letters for entry in acl], ["rw-", "r--", "---"])
        entry = acl.add(Morvane.Identity.new_for_user(1))
        seen = []
        entry.connect("notify", lambda _entry, prop: seen.append(prop.name))
        entry.props.permission_group = Morvane.PermissionGroup.READ
        self.assertLessEqual({"permission-group", "permissions-text", "letters"}, set(seen))
        self.assertTrue(self.client.write_acl(acl, NEVER, None))
        self.assertIn("user:daemon:r--\n", getfacl(self.file))

    def test_a_box_is_ticked_and_its_group_follows(self):
        acl = self.client.read(self.file)
        entry = acl.add(Morvane.Identity.new_for_group(1))
        entry.props.permission_group = Morvane.PermissionGroup.READ
        write = entry.props.permissions[1]
        named(write.props.children, "Write Data").toggle()
        named(write.props.children, "Append Data").toggle()
        named(write.props.children, "Write Extended Attributes").toggle()
        self.assertEqual(write.props.state, Morvane.State.MIXED)
        self.assertEqual(entry.props.permissions_text, "Custom (Read, part of Write)")
        self.client.write_acl(acl, NEVER, None)
        self.assertIn("group:daemon:rw-\n", getfacl(self.file))

    def test_menus_say_what_cannot_be_chosen_and_why(self):
        entry = self.client.read(self.file).add(Morvane.Identity.new_for_user(1))
        self.assertEqual([(choice.props.name, choice.props.reason) for choice in entry.list_permission_groups()],
                         [("All", "only the owner has it"), ("Read and Write", None), ("Read", None),
                          ("Write", None)])
        self.assertEqual([choice.props.name for choice in entry.list_rules()], ["Allow", "Deny"])

    def test_an_error_has_a_domain_and_a_code(self):
        with self.assertRaises(GLib.Error) as caught:
            self.client.read("/there-is-none")
        self.assertTrue(caught.exception.matches(Gio.io_error_quark(), Gio.IOErrorEnum.NOT_FOUND))
        acl = self.client.read(self.file)
        os.chmod(self.file, 0o600)
        with self.assertRaises(GLib.Error) as caught:
            self.client.write_acl(acl, NEVER, None)
        self.assertTrue(caught.exception.matches(Morvane.Error.quark(), Morvane.Error.CHANGED))

    def test_a_service_that_cannot_be_started_is_an_error_of_its_own(self):
        kept = os.environ["MORVANE_LIBEXEC_DIR"]
        GLib.setenv("MORVANE_LIBEXEC_DIR", self.folder, True)
        self.addCleanup(GLib.setenv, "MORVANE_LIBEXEC_DIR", kept, True)
        with self.assertRaises(GLib.Error) as caught:
            self.client.read(self.file)
        self.assertTrue(caught.exception.matches(Morvane.Error.quark(), Morvane.Error.SERVICE),
                        caught.exception.message)

    def test_sizes_renames_and_propagation(self):
        sizes = Morvane.Sizes.new([Gio.File.new_for_path(self.file)])
        self.assertTrue(self.client.measure(sizes, NEVER, None))
        self.assertEqual((sizes.props.total, sizes[0].props.text), (1234, "1.2 KB"))
        places = self.client.rename([Gio.File.new_for_path(self.file)], ["other"], NEVER, None, None)
        self.assertEqual([place.get_path() for place in places], [os.path.join(self.folder, "other")])
        self.assertEqual(os.listdir(self.folder), ["other"])
        acl = self.client.read(self.folder)
        entry = acl.add(Morvane.Identity.new_for_user(1))
        entry.props.permission_group = Morvane.PermissionGroup.READ
        entry.props.applies_to = max(choice.props.code for choice in entry.list_applies_to()
                                     if not choice.props.reason and "All descendants" in choice.props.name)
        self.client.propagate_acl(acl, NEVER, None, None)
        self.assertIn("user:daemon:r-x\t#effective:r--\n", getfacl(os.path.join(self.folder, "other")))

    def test_a_name_that_is_not_utf_8_is_shown_and_read(self):
        path = os.path.join(os.fsencode(self.folder), b"\xff")
        os.close(os.open(path, os.O_CREAT | os.O_WRONLY))
        acl = self.client.read_acl(Gio.File.new_for_uri(f"file://{self.folder}/%FF"), NEVER, None)
        self.assertEqual(len(acl), 3)
        os.unlink(path)
        with self.assertRaises(GLib.Error) as caught:
            self.client.rename([Gio.File.new_for_uri(f"file://{self.folder}/%FF")], ["other"], NEVER, None, None)
        self.assertIn("\N{REPLACEMENT CHARACTER}", caught.exception.message)

    def test_a_new_name_is_taken_as_bytes_and_has_to_be_utf_8(self):
        odd = os.path.join(os.fsencode(self.folder), b"\xff")
        os.rename(self.file, odd)
        files = [Gio.File.new_for_path(odd)]
        for name in (b"\xff\xfe", "\udcff\udcfe"):
            with self.assertRaises(GLib.Error) as caught:
                self.client.rename(files, [name], NEVER, None, None)
            self.assertTrue(caught.exception.matches(Gio.io_error_quark(), Gio.IOErrorEnum.INVALID_ARGUMENT))
            self.assertEqual(caught.exception.message,
                             "The new name \"\ufffd\ufffd\" is not UTF-8. Choose one that is.")
        self.assertEqual(os.listdir(os.fsencode(self.folder)), [b"\xff"])
        places = self.client.rename(files, ["ü".encode()], NEVER, None, None)
        self.assertEqual([place.get_path() for place in places], [os.path.join(self.folder, "ü")])

    def test_what_failed_has_the_error_of_the_operation(self):
        progress = Morvane.Progress()
        missing = Gio.File.new_for_path(os.path.join(self.folder, "missing"))
        with self.assertRaises(GLib.Error) as caught:
            self.client.rename([missing], ["other"], NEVER, progress, None)
        failure, = progress.props.failures
        self.assertTrue(failure.props.file.equal(missing))
        self.assertTrue(failure.props.error.matches(Gio.io_error_quark(), Gio.IOErrorEnum.NOT_FOUND))
        self.assertEqual(failure.props.error.message, failure.props.message)
        self.assertEqual(caught.exception.code, failure.props.error.code)

    def test_vala_reads_edits_and_saves(self):
        outcome = subprocess.run([FROM_VALA, self.file, self.folder], capture_output=True, text=True, check=False)
        self.assertEqual((outcome.returncode, outcome.stderr, outcome.stdout),
                         (0, "", "now Read\nRead: on\ncancelled\nchanged meanwhile\n1.2 KB (1,234 bytes)\n"
                                 "0 losses, 4 entries\n"))
        self.assertIn("user:daemon:r--\n", getfacl(self.file))


class Interface(unittest.TestCase):
    def test_only_what_the_headers_declare_is_exported(self):
        folder = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../glib/morvane")
        text = ""
        for name in os.listdir(folder):
            with open(os.path.join(folder, name), encoding="utf-8") as f:
                text += re.sub(r"/\*.*?\*/", "", f.read(), flags=re.DOTALL)
        declared = set(re.findall(r"\b(morvane_\w+)\(", text))
        declared = {name for name in declared if not name.endswith("_get_type")} | \
            set(re.findall(r"\b(morvane_\w+_get_type)\b", text))
        symbols = subprocess.run(["nm", "-D", "--defined-only", LIBRARY], check=True, capture_output=True,
                                 text=True).stdout
        exported = set(re.findall(r" T (\w+)@@MORVANE_GLIB_0$", symbols, re.MULTILINE))
        self.assertEqual(exported, declared)
        self.assertEqual(re.findall(r" [A-Z] (?!morvane_\w+@@|MORVANE_GLIB_0)\S+$", symbols, re.MULTILINE), [])

    def test_properties_that_may_be_null_say_so(self):
        nullable = {"Acl": ("file", "storage-text"), "AclEntry": ("identity", "keep-reason", "letters"),
                    "Choice": ("reason",), "Failure": ("file",), "Permission": ("children", "reason")}
        gir = ElementTree.parse(os.path.join(GLIB, "MorvaneOperation-1.0.gir")).getroot()
        core = "{http://www.gtk.org/introspection/core/1.0}"
        with open(os.path.join(GLIB, "morvaneoperation-glib-1.0.vapi"), encoding="utf-8") as f:
            vapi = f.read()
        for name, properties in nullable.items():
            described = gir.find(f"./{core}namespace/{core}class[@name='{name}']")
            declared = re.search(rf"public sealed class {name} .*?\n\t}}", vapi, re.DOTALL).group(0)
            for prop in properties:
                getter = described.find(f"{core}property[@name='{prop}']").get("getter")
                answer = described.find(f"{core}method[@name='{getter}']/{core}return-value")
                self.assertEqual(answer.get("nullable"), "1", f"{name}.{prop}")
                self.assertRegex(declared, rf"public [\w.]+\? {prop.replace('-', '_')} {{")

    def test_every_function_and_property_is_documented(self):
        with open(os.path.join(GLIB, "MorvaneOperation-1.0.gir"), encoding="utf-8") as f:
            gir = f.read()
        for kind in ("method", "constructor", "class", "enumeration"):
            undocumented = re.findall(rf'<{kind} name="(\w+)"[^>]*>(?!\s*<doc)', gir)
            self.assertEqual(undocumented, [], kind)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
