# SPDX-License-Identifier: MIT
"""What bash, zsh and fish offer for the words of the command line, beside what the help tells of; and the manual.

usage: completion_test.py MORVANE [unittest arguments]
"""
import os
import pty
import re
import select
import subprocess
import sys
import tempfile
import time
import unittest

MORVANE = os.path.abspath(sys.argv[1])
WRITTEN = os.path.dirname(MORVANE)
TIME_LIMIT = 60  # a watchdog; nothing here takes long
WITHOUT_SETTINGS = {"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", "TERM": "xterm"}


def helped(*command):
    """The commands and the long options that the help tells of."""
    result = subprocess.run([MORVANE, *command, "--help"], capture_output=True, text=True, check=True,
                            timeout=TIME_LIMIT)
    lines = result.stdout.splitlines()
    options = {name for line in lines if line.startswith("  -")
               for name in line.split()[0].split(",") if name.startswith("--")}
    commands = lines[lines.index("Subcommands:") + 1:] if "Subcommands:" in lines else []
    return [line.split()[0] for line in commands if line.startswith("  ")], options


class Offers:
    """For each of the shells; complete(WORDS) tells what it offers for the last of the words."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        os.mkdir(os.path.join(self.folder, "nest"))
        open(os.path.join(self.folder, "notes.txt"), "w", encoding="ascii").close()

    def test_every_command_of_the_help_is_offered_and_no_other(self):
        commands, _ = helped()
        self.assertGreater(len(commands), 5)
        self.assertEqual(self.complete("", expected=commands), set(commands))

    def test_every_option_of_the_help_is_offered_and_no_other(self):
        commands, options = helped()
        self.assertEqual(self.complete("--", expected=options), options)
        for command in commands:
            options = helped(command)[1]
            self.assertEqual(self.complete(command, "--", expected=options), options, command)

    def test_an_option_before_the_command_is_not_taken_for_it(self):
        self.assertEqual(self.complete("--privileged", "ac", expected=["acl"]), {"access", "acl"})

    def test_users_and_groups_are_offered_where_one_is_expected(self):
        for option in ("--user", "--group"):
            self.assertIn("daemon", self.complete("access", option, "", expected=["daemon"]))

    def test_items_are_offered_to_most_commands(self):
        for command in ("acl", "access", "ls", "rename", "size"):
            found = {name.rstrip("/") for name in self.complete(command, "n", expected=["notes.txt", "nest"])}
            self.assertEqual(found, {"nest", "notes.txt"}, command)

    def test_words_of_which_there_are_few_are_offered(self):
        self.assertEqual(self.complete("--color", "", expected=["always"]), {"auto", "always", "never"})
        self.assertEqual(self.complete("size", "--sort", "", expected=["name"]), {"size", "name", "none"})
        self.assertEqual(self.complete("--color", "always", "ac", expected=["acl"]), {"access", "acl"})

    def test_the_help_is_offered_its_topics(self):
        topics = [*helped()[0], "edit"]
        self.assertEqual(self.complete("help", "", expected=topics), set(topics))


class Bash(Offers, unittest.TestCase):
    def complete(self, *words, expected=()):
        """The words as bash splits them, at each = too."""
        result = subprocess.run(
            ["bash", "-c", 'source "$0"; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _morvane\n'
             'printf "%s\\n" "${COMPREPLY[@]}"', os.path.join(WRITTEN, "morvane.bash"), "morvane", *words],
            capture_output=True, text=True, timeout=TIME_LIMIT, check=True, cwd=self.folder)
        self.assertEqual(result.stderr, "")
        return set(result.stdout.split())

    def test_users_and_groups_are_offered_behind_the_sign_of_equality(self):
        for option in ("--user", "--group"):
            self.assertIn("daemon", self.complete("access", option, "=", "dae"))
            self.assertIn("daemon", self.complete("access", option, "="))


class Fish(Offers, unittest.TestCase):
    def complete(self, *words, expected=()):
        result = subprocess.run(
            ["fish", "--no-config", "-c", "source $argv[1]/morvane.fish; complete -C $argv[2]", WRITTEN,
             " ".join(["morvane", *words])],
            capture_output=True, text=True, timeout=TIME_LIMIT, check=True, cwd=self.folder,
            env={**WITHOUT_SETTINGS, "HOME": self.folder})
        self.assertEqual(result.stderr, "")
        offered = {line.split("\t")[0] for line in result.stdout.splitlines()}
        return {name for name in offered if words[-1] or not name.startswith(".")}


class Zsh(Offers, unittest.TestCase):
    """On a terminal, as completion is a part of zsh's editor of lines."""

    def complete(self, *words, expected=()):
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.folder)
            os.execvpe("zsh", ["zsh", "-f", "-i"],
                       {**WITHOUT_SETTINGS, "TERM": "dumb", "COLUMNS": "400", "LINES": "500",
                        "ZDOTDIR": self.folder})
        self.addCleanup(os.close, terminal)
        self.addCleanup(os.waitpid, process, 0)

        def read_until(wanted):
            text = ""
            limit = time.monotonic() + TIME_LIMIT
            while not wanted(text):
                ready, _, _ = select.select([terminal], [], [], max(0, limit - time.monotonic()))
                self.assertTrue(ready, f"waited in vain; zsh has written {text!r}")
                text += os.read(terminal, 65536).decode()
            return text

        def offered(text):
            return {word.rstrip("/") for word in re.split(r"[\s\r\n]+", re.sub(r" +-- [^\r\n]*", "", text)) if word}

        os.write(terminal, b"PROMPT= LISTMAX=9999; unset zle_bracketed_paste; unsetopt beep prompt_sp list_types "
                 b"list_ambiguous; fpath=(" + WRITTEN.encode() + b" $fpath); autoload -Uz compinit; compinit -u -D; "
                 b"zstyle ':completion:*' verbose no; bindkey '^I' list-choices; print RE''ADY\n")
        read_until(lambda text: "READY\r\n" in text)
        line = " ".join(["morvane", *words])
        os.write(terminal, line.encode() + b"\t")
        text = read_until(lambda text: set(expected) <= offered(text.replace(line, "", 1)))
        os.write(terminal, b"\x15print DO''NE\n")
        text += read_until(lambda text: "DONE\r\n" in text)
        os.write(terminal, b"exit\n")
        return offered(text.split("print DO")[0].replace(line, ""))


class Manual(unittest.TestCase):
    def test_it_is_whole_and_the_formatter_finds_nothing_wrong(self):
        result = subprocess.run(["groff", "-man", "-ww", "-z", os.path.join(WRITTEN, "morvane.1")],
                                capture_output=True, text=True, timeout=TIME_LIMIT, check=True)
        self.assertEqual(result.stderr, "")
        with open(os.path.join(WRITTEN, "morvane.1"), encoding="ascii") as file:
            manual = file.read().replace("\\-", "-")
        for command in helped()[0]:
            self.assertIn(f".SS morvane {command}\n", manual)
            for option in helped(command)[1]:
                self.assertRegex(manual, rf'\.B[IR]? .*{option}\b', option)
        self.assertIn('.BI "permissions " CHOICE\n', manual)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
