# SPDX-License-Identifier: MIT
"""The manual pages of the privileged helper and of its installer.

usage: manuals_test.py WRITTEN SOURCES [unittest arguments]
WRITTEN has the pages, SOURCES what they tell of.
"""
import os
import re
import subprocess
import sys
import unittest

WRITTEN, SOURCES = sys.argv[1:3]
TIME_LIMIT = 60  # a watchdog; nothing here takes long
HELPER = "io.github.morvaneoperation.PrivilegedHelper"
INSTALLER = "morvane-install-helper"


def text_of(*path):
    with open(os.path.join(*path), encoding="ascii") as file:
        return file.read()


def section(page, name):
    """The items (.TP) of a section."""
    text = text_of(WRITTEN, page + ".8").replace("\\-", "-")
    return set(re.findall(r"^\.TP\n\.[BI] (\S+)$", text.split(f".SH {name}\n")[1].split("\n.SH ")[0], re.MULTILINE))


class Manuals(unittest.TestCase):
    def test_the_formatter_finds_nothing_wrong(self):
        for page in (HELPER, INSTALLER):
            result = subprocess.run(["groff", "-man", "-ww", "-z", os.path.join(WRITTEN, page + ".8")],
                                    capture_output=True, text=True, timeout=TIME_LIMIT, check=True)
            self.assertEqual(result.stderr, "")

    def test_every_right_is_explained_and_no_other(self):
        policies = text_of(SOURCES, "io.github.morvaneoperation.policy") + \
            text_of(SOURCES, "io.github.morvaneoperation.InstallHelper.policy.in")
        rights = set(re.findall(r'<action id="io\.github\.morvaneoperation(\.\w+)">', policies))
        self.assertGreater(len(rights), 6)
        self.assertEqual(section(HELPER, "RIGHTS"), rights)

    def test_every_status_of_the_installer_is_explained_and_no_other(self):
        installer = text_of(SOURCES, INSTALLER + ".in")
        statuses = set(re.findall(r"\b(?:fail|exit) (\d)\b", installer)) | {"0"}
        self.assertGreater(len(statuses), 4)
        self.assertEqual(section(INSTALLER, "EXIT STATUS"), statuses)

    def test_every_status_of_the_helper_is_explained_and_no_other(self):
        statuses = set(re.findall(r"constexpr int \w+Error = (\d+);", text_of(SOURCES, "main.cpp"))) | {"0"}
        self.assertEqual(len(statuses), 3)
        self.assertEqual(section(HELPER, "EXIT STATUS"), statuses)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
