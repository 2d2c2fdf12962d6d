# SPDX-License-Identifier: MIT
"""What tells desktops of the window.

usage: data_test.py FOLDER LANGUAGES [unittest arguments]

FOLDER has the files as they are installed, LANGUAGES is the list of the catalogues.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from xml.etree import ElementTree

FOLDER = sys.argv[1]
NAME = "io.github.morvaneoperation.Permissions"
with open(sys.argv[2], encoding="ascii") as f:
    LANGUAGES = f.read().split()
LANGUAGE = "{http://www.w3.org/XML/1998/namespace}lang"

ASKED = """
from gi.repository import Gio
offered = Gio.DesktopAppInfo.new("%s.desktop")
print(offered.supports_files(), offered.should_show(),
      [each for each in ("inode/directory", "application/octet-stream", "text/plain", "image/png")
       if Gio.AppInfo.get_default_for_type(each, False)])
""" % NAME


class Data(unittest.TestCase):
    def test_the_desktop_file_is_valid_and_speaks_each_language(self):
        path = os.path.join(FOLDER, f"{NAME}.desktop")
        subprocess.run(["desktop-file-validate", path], check=True)
        with open(path, encoding="utf-8") as f:
            lines = f.read()
        for key in ("Name", "Comment", "Keywords"):
            for language in LANGUAGES:
                self.assertIn(f"\n{key}[{language}]=", lines)

    def test_it_is_offered_for_what_is_chosen_and_becomes_the_default_of_nothing(self):
        # The desktop has no other program, and nobody has said which one opens what.
        with tempfile.TemporaryDirectory() as folder:
            applications = os.path.join(folder, "applications")
            os.mkdir(applications)
            shutil.copy(os.path.join(FOLDER, f"{NAME}.desktop"), applications)
            program = os.path.join(folder, "morvane-permissions")
            with open(program, "w", encoding="ascii"):
                os.chmod(program, 0o755)
            subprocess.run(["update-desktop-database", applications], check=True)
            asked = subprocess.run([sys.executable, "-c", ASKED], check=True, capture_output=True, text=True,
                                   env={**os.environ, "XDG_DATA_DIRS": folder, "XDG_DATA_HOME": folder, "HOME": folder,
                                        "XDG_CONFIG_HOME": folder, "XDG_CONFIG_DIRS": folder,
                                        "PATH": f"{folder}:{os.environ['PATH']}"})
        self.assertEqual(asked.stdout, "True True []\n")

    def test_what_software_centres_show_is_valid_and_speaks_each_language(self):
        path = os.path.join(FOLDER, f"{NAME}.metainfo.xml")
        subprocess.run(["appstreamcli", "validate", "--no-net", path], check=True, stdout=subprocess.DEVNULL)
        texts = ElementTree.parse(path).getroot()
        for way in ("name", "summary", "description/p", "description/ul/li"):
            found = texts.findall(way)
            originals = [each for each in found if LANGUAGE not in each.attrib]
            self.assertTrue(originals)
            for language in LANGUAGES:
                told = [each.text for each in found if each.get(LANGUAGE) == language]
                self.assertEqual(len(told), len(originals), (way, language))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
