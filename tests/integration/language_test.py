# SPDX-License-Identifier: MIT
"""The command in each language that has a catalogue, with the real file service, on real files.

usage: language_test.py MORVANE LIBEXEC-DIR CATALOGUES POLICY [unittest arguments]
"""
import gettext
import json
import os
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

MORVANE, LIBEXEC, CATALOGUES, POLICY = map(os.path.abspath, sys.argv[1:5])
TIME_LIMIT = 120  # a watchdog; nothing here takes long
LANGUAGES = sorted(os.listdir(CATALOGUES))


def environment(language):
    # The locale need not be there on the system: only its texts are wanted.
    return {**os.environ, "MORVANE_LIBEXEC_DIR": LIBEXEC, "MORVANE_LOCALE_DIR": CATALOGUES, "LC_ALL": "C.UTF-8",
            "LANGUAGE": language}


def in_each_language(test):
    """Calls `test` with each language and its texts."""
    def tests(self):
        for language in LANGUAGES:
            with self.subTest(language):
                test(self, language, gettext.translation("morvaneoperation", CATALOGUES, [language]))
    return tests


class Language(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        os.mkdir(f"{self.folder}/folder")
        with open(f"{self.folder}/file", "wb"):
            pass

    def run_morvane(self, language, *arguments):
        return subprocess.run([MORVANE, *arguments], env=environment(language), cwd=self.folder, capture_output=True,
                              text=True, encoding="utf-8", timeout=TIME_LIMIT)

    def test_there_are_six_languages(self):
        self.assertEqual(LANGUAGES, ["de", "es", "fr", "ja", "pt_BR", "zh_CN"])

    @in_each_language
    def test_a_list_is_shown_in_the_language_of_the_user(self, language, texts):
        shown = self.run_morvane(language, "acl", "--tree", "folder")
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))
        for key in "Who", "Rule", "Permissions", "Applies to", "Inherited", "Allow":
            self.assertIn(texts.gettext(key), shown.stdout)
        for key in "Read", "Write", "Execute":
            self.assertIn("] " + texts.pgettext("ACL", key), shown.stdout)
        self.assertIn(texts.pgettext("ACL", "This item"), shown.stdout)
        self.assertIn(texts.gettext("everyone"), shown.stdout)
        self.assertIn(texts.gettext("%1 (owner)").replace("%1", ""), shown.stdout)
        self.assertNotIn("This item", shown.stdout)

    @in_each_language
    def test_what_programs_read_is_the_same_in_every_language(self, language, _):
        for arguments in ("acl", "--json", "folder"), ("access", "--json", "--user", "0", "folder"):
            english = self.run_morvane("en", *arguments)
            self.assertEqual((english.returncode, english.stderr), (0, ""))
            self.assertEqual("Write Attributes" in english.stdout, arguments[0] == "access")
            self.assertEqual(json.loads(self.run_morvane(language, *arguments).stdout), json.loads(english.stdout))

    @in_each_language
    def test_a_service_s_refusal_comes_with_its_arguments_in_the_language_of_the_user(self, language, texts):
        refused = self.run_morvane(language, "rename", "file", "a/b")
        self.assertEqual(refused.returncode, 1)
        why = texts.gettext('The new name "%1" holds a slash; an item stays in its folder.').replace("%1", "a/b")
        self.assertEqual(refused.stderr, "morvane: " + texts.gettext("cannot rename: %1").replace("%1", why) +
                         "\n  " + texts.gettext("Nothing was renamed. Give each item a name of its own.") + "\n")
        self.assertNotIn("slash", refused.stderr)

    @in_each_language
    def test_what_a_list_cannot_hold_is_told_in_the_language_of_the_user(self, language, texts):
        refused = self.run_morvane(language, "acl", "folder", "--edit", "add user:4711; permissions read; on Delete")
        self.assertEqual((refused.returncode, refused.stdout), (1, ""))
        self.assertIn(texts.gettext("who may delete an item is told by the folder that it is in"), refused.stderr)
        self.assertIn(texts.pgettext("ACL", "Delete"), refused.stderr)
        self.assertIn(texts.gettext("allow %1").replace("%1", "uid 4711"), refused.stderr)
        self.assertIn(texts.gettext("cannot change the access-control list of '%1'").replace("%1", "folder"),
                      refused.stderr)
        self.assertNotIn("would lose", refused.stderr)

    @in_each_language
    def test_boxes_are_found_by_their_names_in_both_languages(self, language, texts):
        own = texts.pgettext("ACL", "Write Data")
        for name in "Append Data", own:
            edited = self.run_morvane(language, "acl", "file", "--dry-run", "--edit",
                                      f"add user:4711; permissions read; on '{name}'; on 'Write Data'; "
                                      "on 'Append Data'; on 'Write Extended Attributes'")
            self.assertEqual(edited.returncode, 0, edited.stderr)
        unknown = self.run_morvane(language, "acl", "file", "--edit", "add user:4711; on x")
        self.assertEqual(unknown.returncode, 2)
        self.assertIn(f"'{own}'", unknown.stderr)

    @in_each_language
    def test_help_is_in_the_language_of_the_user(self, language, texts):
        shown = self.run_morvane(language, "--help")
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))
        self.assertIn(texts.gettext("Usage") + ": morvane", shown.stdout)
        self.assertIn(texts.gettext("List folders, each in its own order"), shown.stdout)
        edit = self.run_morvane(language, "help", "edit")
        self.assertIn(texts.gettext("Switches it off."), edit.stdout)
        self.assertLessEqual(max(map(len, edit.stdout.splitlines())), 80)

    @in_each_language
    def test_a_command_line_that_is_not_understood_is_answered_in_the_language_of_the_user(self, language, texts):
        refused = self.run_morvane(language, "acl", "--tree", "--json", "file")
        self.assertEqual(refused.returncode, 2)
        self.assertIn(json.loads(refused.stdout)["error"]["message"], refused.stderr)
        why = texts.gettext("%1 excludes %2")
        self.assertIn(refused.stderr.splitlines()[0],
                      ["morvane: " + why.replace("%1", a).replace("%2", b)
                       for a, b in (("--json", "--tree"), ("--tree", "--json"))])

    def test_the_policy_service_is_asked_with_prompts_in_each_language(self):
        name = "{http://www.w3.org/XML/1998/namespace}lang"
        for action in xml.etree.ElementTree.parse(POLICY).iter("action"):
            for kind in "description", "message":
                prompts = {prompt.get(name): prompt.text for prompt in action.iter(kind)}
                self.assertEqual(sorted(prompts, key=str), sorted([None, *LANGUAGES], key=str))
                self.assertEqual(len(set(prompts.values())), len(prompts))

    def test_without_a_catalogue_it_speaks_english(self):
        refused = self.run_morvane("xx", "rename", "file", "a/b")
        self.assertIn('The new name "a/b" holds a slash', refused.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
