# SPDX-License-Identifier: MIT
"""What is installed for the menus of file managers.

usage: files_test.py BUILD-FOLDER LANGUAGES [unittest arguments]

LANGUAGES is the list of the catalogues.
"""
import glob
import os
import subprocess
import sys
import tempfile
import unittest

from gi.repository import GLib

BUILD, LANGUAGES = sys.argv[1:3]
NAME = "io.github.morvaneoperation.Permissions"
ACTION, SERVICE_MENU = f"file-manager/actions/{NAME}.desktop", f"kio/servicemenus/{NAME}.desktop"
# The functions that the file managers look for in an extension.
EXTENSIONS = {"caja": "caja_module", "nautilus": "nautilus_module", "nemo": "nemo_module", "thunar": "thunar_extension"}


class Files(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        subprocess.run(["cmake", "--install", BUILD, "--component", "file_managers", "--prefix", cls.folder.name],
                       check=True, stdout=subprocess.DEVNULL)
        cls.extensions = {os.path.basename(path).removesuffix("-morvane-permissions.so"): path
                          for path in glob.glob(f"{cls.folder.name}/lib*/**/*.so", recursive=True)}

    def read(self, path):
        keys = GLib.KeyFile()
        keys.load_from_file(os.path.join(self.folder.name, "share", path), GLib.KeyFileFlags.KEEP_TRANSLATIONS)
        return keys

    def labels(self, keys, group):
        with open(LANGUAGES, encoding="ascii") as f:
            return {keys.get_locale_string(group, "Name", language) for language in f.read().split()}

    def test_nothing_else_is_installed(self):
        found = {os.path.relpath(os.path.join(folder, name), os.path.join(self.folder.name, "share"))
                 for folder, _, names in os.walk(self.folder.name) for name in names if not name.endswith(".so")}
        self.assertEqual(found, {ACTION, SERVICE_MENU})

    def test_the_action_starts_the_program_for_all_that_is_chosen_and_is_translated(self):
        keys = self.read(ACTION)
        self.assertEqual(keys.get_string("Desktop Entry", "Type"), "Action")
        profile, = keys.get_string_list("Desktop Entry", "Profiles")
        self.assertEqual(keys.get_string(f"X-Action-Profile {profile}", "Exec"), "morvane-permissions %F")
        self.assertEqual(keys.get_locale_string("Desktop Entry", "Name", "xx"), "Permissions…")
        self.assertEqual(len(self.labels(keys, "Desktop Entry") - {"Permissions…"}), 6)

    def test_the_service_menu_starts_the_program_for_all_that_is_chosen_and_is_translated(self):
        keys = self.read(SERVICE_MENU)
        self.assertEqual(keys.get_string("Desktop Entry", "Type"), "Service")
        action, = keys.get_string_list("Desktop Entry", "Actions")
        group = f"Desktop Action {action}"
        self.assertEqual(keys.get_string(group, "Exec"), "morvane-permissions %F")
        self.assertEqual(keys.get_string("Desktop Entry", "X-KDE-Protocols"), "file")
        self.assertEqual(keys.get_locale_string(group, "Name", "xx"), "Permissions…")
        self.assertEqual(len(self.labels(keys, group) - {"Permissions…"}), 6)

    def test_each_extension_has_the_functions_that_its_file_manager_looks_for_and_one_type(self):
        self.assertEqual(set(self.extensions), set(EXTENSIONS))
        for host, path in self.extensions.items():
            # In a process of its own: the types have one name.
            subprocess.run([sys.executable, "-c", OPENED, path, EXTENSIONS[host]], check=True)


OPENED = """
import ctypes, sys
module = ctypes.CDLL(sys.argv[1])
of = lambda name: getattr(module, f"{sys.argv[2]}_{name}")
of("initialize")(None)
types, count = ctypes.POINTER(ctypes.c_size_t)(), ctypes.c_int()
of("list_types")(ctypes.byref(types), ctypes.byref(count))
name = ctypes.CDLL("libgobject-2.0.so.0").g_type_name
name.restype, name.argtypes = ctypes.c_char_p, [ctypes.c_size_t]
assert count.value == 1 and name(types[0]) == b"PermissionsMenu", count.value
of("shutdown")()
"""

if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
