# SPDX-License-Identifier: MIT
"""The size and ls commands with the real file service, on real trees.

usage: size_command_test.py MORVANE LIBEXEC-DIR [unittest arguments]
"""
import fcntl
import json
import os
import pty
import random
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import unittest

import terminal as terminals
from large_folder import large_folder

MORVANE, LIBEXEC = map(os.path.abspath, sys.argv[1:3])
COUNTER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "helpers", "walks", "size_walk.py")
# Runs what follows as a user to whom modes apply.
AS_NOBODY = () if os.geteuid() else ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")
TIME_LIMIT = 120  # a watchdog; nothing here takes long
CONFIGURATION = tempfile.TemporaryDirectory()  # not what the user has chosen
ENVIRONMENT = {**os.environ, "XDG_CONFIG_HOME": CONFIGURATION.name, "MORVANE_LIBEXEC_DIR": LIBEXEC, "LC_ALL": "C.UTF-8"}


def run(*arguments, prefix=()):
    return subprocess.run([*prefix, MORVANE, *arguments], env=ENVIRONMENT, capture_output=True,
                          timeout=TIME_LIMIT)


def independent_sum(path):
    """Bytes of the regular files at and below path, each hard-linked file once."""
    seen = set()

    def add(entry_stat):
        if not stat.S_ISREG(entry_stat.st_mode):
            return 0
        identity = (entry_stat.st_dev, entry_stat.st_ino)
        if identity in seen:
            return 0
        seen.add(identity)
        return entry_stat.st_size

    def walk(folder):
        total = 0
        with os.scandir(folder) as entries:
            for entry in entries:
                total += add(entry.stat(follow_symlinks=False))
                if entry.is_dir(follow_symlinks=False):
                    total += walk(entry.path)
        return total

    if not stat.S_ISDIR(os.lstat(path).st_mode):
        return add(os.lstat(path))
    return walk(path)


class Tree(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = os.path.join(os.fsencode(folder.name), b"tree")
        os.mkdir(self.folder)

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def file(self, *names, size=10):
        with open(self.path(*names), "wb") as f:
            f.truncate(size)
        return self.path(*names)

    def sizes(self, *paths):
        result = run("size", "--json", *paths)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return [item["size"] for item in json.loads(result.stdout)["items"]]


class Sizes(Tree):
    def test_the_sum_is_that_of_the_files_below(self):
        os.mkdir(self.path(b"a"))
        self.file(b"a", b"one", size=1000)
        self.file(b"two", size=234)
        self.assertEqual(self.sizes(self.folder), [1234])

    def test_hard_linked_files_count_once_within_each_item(self):
        one = self.file(b"one", size=1000)
        os.link(one, self.path(b"other"))
        self.assertEqual(self.sizes(self.folder), [1000])
        self.assertEqual(self.sizes(one, self.path(b"other")), [1000, 1000])
        self.assertEqual(self.sizes(one, self.folder), [1000, 1000])

    def test_a_sparse_file_counts_with_its_length(self):
        self.file(b"sparse", size=10**12)
        self.assertEqual(self.sizes(self.folder), [10**12])

    def test_symbolic_links_are_not_followed_and_loops_end(self):
        self.file(b"file", size=5)
        os.symlink(self.folder, self.path(b"loop"))
        os.symlink(b"/usr", self.path(b"away"))
        self.assertEqual(self.sizes(self.folder), [5])

    def test_names_that_are_not_utf8_count(self):
        os.mkdir(self.path(b"\xff"))
        self.file(b"\xff", b"\xfe", size=7)
        self.assertEqual(self.sizes(self.folder), [7])

    def test_a_real_tree_has_the_same_sum_as_an_independent_count(self):
        self.assertEqual(self.sizes("/usr/include"), [independent_sum("/usr/include")])

    def test_sizes_come_in_the_order_of_the_paths(self):
        paths = [self.file(b"%d" % i, size=i) for i in (3, 1, 2)]
        self.assertEqual(self.sizes(*paths), [3, 1, 2])

    def test_an_unreadable_folder_counts_as_nothing_and_is_told(self):
        os.chmod(os.path.dirname(self.folder), 0o755)
        self.file(b"open", size=8)
        os.mkdir(self.path(b"locked"))
        self.file(b"locked", b"hidden", size=100)
        os.chmod(self.path(b"locked"), 0)
        result = run("size", "--json", self.folder, prefix=AS_NOBODY)
        os.chmod(self.path(b"locked"), 0o755)
        self.assertEqual([item["size"] for item in json.loads(result.stdout)["items"]], [8])
        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stderr.startswith(
            b'morvane: 1 item could not be read and counts as nothing, and what is below it was not reached: "' +
            self.folder + b'/locked" (Permission denied)\n  You need the right'), result.stderr)

    def test_a_missing_path_has_no_size_and_is_told(self):
        result = run("size", self.path(b"missing"))
        self.assertEqual((result.returncode, result.stdout), (1, b"--  " + self.path(b"missing") + b"\n"))
        self.assertIn(b"No such file or directory", result.stderr)

    def test_every_key_of_the_json_is_there_and_no_other(self):
        result = run("size", "--json", self.file(b"notes.txt", size=1536))
        item, = json.loads(result.stdout)["items"]
        self.assertEqual(set(item),
                         {"path", "pathBytes", "url", "name", "size", "displaySize", "displayInfo", "leaf", "icon",
                          "elsewhere", "children", "others"})
        self.assertEqual((item["name"], item["leaf"]), ("notes.txt", True))

    def test_sizes_are_shown_in_units_and_as_a_grouped_number(self):
        shown = {0: ("0 bytes", "0"), 1: ("1 bytes", "1"), 999: ("999 bytes", "999"),
                 1000: ("1 KB", "1,000"), 1049: ("1 KB", "1,049"), 1100: ("1.1 KB", "1,100"),
                 1960: ("2 KB", "1,960"), 999960: ("1000 KB", "999,960"),
                 123456789: ("123.5 MB", "123,456,789")}
        paths = [self.file(b"%d" % size, size=size) for size in shown]
        items = json.loads(run("size", "--json", *paths).stdout)["items"]
        for item, (size, (text, number)) in zip(items, shown.items()):
            self.assertEqual((item["size"], item["displaySize"], item["displayInfo"]),
                             (size, text, f"{text} ({number} bytes)"))

    def test_a_choice_of_units_that_cannot_be_kept_is_told(self):
        ENVIRONMENT["XDG_CONFIG_HOME"] = "/dev/null/nowhere"
        try:
            result = run("size", "--base2", "--save", self.folder)
        finally:
            ENVIRONMENT["XDG_CONFIG_HOME"] = CONFIGURATION.name
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertRegex(result.stderr, b"^morvane: cannot keep the choice of units: .*\n"
                                        b"  It is kept in \\$XDG_CONFIG_HOME")

    def test_the_chosen_base_is_kept(self):
        with tempfile.TemporaryDirectory() as configuration:
            ENVIRONMENT["XDG_CONFIG_HOME"] = configuration
            try:
                path = self.file(b"file", size=1536)
                larger = self.file(b"larger", size=1638)
                self.assertTrue(run("size", "--base2", larger).stdout.startswith(b"1.6 KB  "))
                self.assertEqual(os.listdir(configuration), [], "that was for one run")
                self.assertTrue(run("size", "--base2", "--save", path).stdout.startswith(b"1.5 KB  "))
                self.assertTrue(run("size", path).stdout.startswith(b"1.5 KB  "))
                self.assertTrue(run("size", "--base10", self.file(b"f", size=1500))
                                .stdout.startswith(b"1.5 KB  "))
                self.assertTrue(run("size", path).stdout.startswith(b"1.5 KB  "))
                self.assertEqual(run("size", "--base10", "--save").returncode, 0)
                self.assertTrue(run("size", self.file(b"f", size=1500)).stdout.startswith(b"1.5 KB  "))
            finally:
                ENVIRONMENT["XDG_CONFIG_HOME"] = CONFIGURATION.name

    def test_both_bases_at_once_are_a_usage_error(self):
        self.assertEqual(run("size", "--base2", "--base10", "/").returncode, 2)


class Parts(Tree):
    """What is below the paths."""

    def lines(self, *arguments):
        result = run("size", *arguments)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return [line.strip() for line in result.stdout.decode().splitlines()]

    def setUp(self):
        super().setUp()
        os.mkdir(self.path(b"nest"))
        self.file(b"nest", b"inner", size=3000)
        self.file(b"large", size=6000)
        self.file(b"small", size=1000)

    def test_each_level_shows_the_largest_first(self):
        self.assertEqual(self.lines("--depth", "1", self.folder)[1:],
                         ["6 KB   60%  ######        large", "3 KB   30%  ###           nest",
                          "1 KB   10%  #             small"])
        self.assertIn("3 KB   30%  ###             inner", self.lines("--depth", "2", self.folder))

    def test_only_the_largest_are_shown_and_the_rest_together(self):
        self.assertEqual(self.lines("--top", "1", self.folder)[1:],
                         ["6 KB   60%  ######        large", "4 KB   40%  ####          2 others"])

    def test_paths_stay_as_they_are_written_and_several_have_a_total(self):
        result = subprocess.run([MORVANE, "size", "nest", "./large"], env=ENVIRONMENT, capture_output=True,
                                timeout=TIME_LIMIT, cwd=self.folder, text=True)
        self.assertEqual(result.stdout, "3 KB  nest\n6 KB  ./large\n9 KB  total\n")

    def test_a_file_with_two_names_is_explained(self):
        os.link(self.path(b"large"), self.path(b"nest", b"again"))
        self.assertIn("A file with several names counts once in each folder that has one: together the parts may "
                      "have more than the whole.", self.lines("--depth", "1", self.folder))
        self.assertEqual(self.sizes(self.folder), [10000])

    def test_another_file_system_is_named_and_not_added_up(self):
        if os.geteuid():
            self.fail("only root can mount")
        os.mkdir(self.path(b"other"))
        script = ('mount -t tmpfs tmpfs "$1"/other && head -c 5000 /dev/zero >"$1"/other/file && '
                  'mount --bind "$1"/nest "$1"/small && exec "$0" size --depth 1 "$1"')
        os.unlink(self.path(b"small"))
        os.mkdir(self.path(b"small"))
        result = subprocess.run(["unshare", "--mount", "sh", "-c", script, MORVANE, self.folder], env=ENVIRONMENT,
                                capture_output=True, timeout=TIME_LIMIT, text=True)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn("2 items are on other file systems or bind mounts, which are not added up.", result.stdout)
        self.assertIn("--    0%                other", result.stdout)
        self.assertIn("9 KB  100%", result.stdout)

    def test_what_cannot_be_looked_into_is_shown_and_told(self):
        os.chmod(os.path.dirname(self.folder), 0o755)
        os.chmod(self.path(b"nest"), 0)
        result = run("size", "--depth", "2", self.folder, prefix=AS_NOBODY)
        os.chmod(self.path(b"nest"), 0o755)
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"--    0%                nest\n", result.stdout)
        self.assertIn(b"nest", result.stderr)


class RandomTrees(Tree):
    """Compared with the count of another program, which walks as the same user."""

    def setUp(self):
        super().setUp()
        os.chmod(os.path.dirname(self.folder), 0o755)
        os.chmod(self.folder, 0o755)

    def name(self, folder):
        while True:
            name = bytes(self.random.choice(b"ab c\n'\\%\xff\xc3\xa9") for _ in range(6))
            if not os.path.lexists(os.path.join(folder, name)):
                return os.path.join(folder, name)

    def grow(self, folder, depth, files, folders):
        for _ in range(self.random.randrange(8)):
            name = self.name(folder)
            kind = self.random.randrange(8)
            if kind == 0 and files:
                os.link(self.random.choice(files), name)
            elif kind == 1:
                os.symlink(self.random.choice([folder, b"..", b".", name, b"/usr", b"none"]), name)
            elif kind == 2:
                os.mkfifo(name)
            else:
                with open(name, "wb") as file:
                    file.truncate(self.random.choice([0, 1, 4095, 10**6, 10**12]))
                files.append(name)
        for _ in range(self.random.randrange(4) if depth else 0):
            name = self.name(folder)
            os.mkdir(name)
            folders.append(name)
            self.grow(name, depth - 1, files, folders)

    def test_every_sum_is_that_of_an_independent_count(self):
        skipped = 0
        for seed in range(25):
            self.random = random.Random(seed)
            shutil.rmtree(self.folder)
            os.mkdir(self.folder)
            folders = [self.folder]
            self.grow(self.folder, 5, [], folders)
            for folder in folders[1:]:
                os.chmod(folder, self.random.choice([0o755] * 12 + [0o000, 0o444, 0o311]))
            paths = [self.folder, *self.random.sample(folders, min(3, len(folders)))]
            counted = subprocess.run([*AS_NOBODY, "/usr/bin/python3", COUNTER, *paths], capture_output=True,
                                     timeout=TIME_LIMIT)
            result = run("size", "--json", *paths, prefix=AS_NOBODY)
            for folder in reversed(folders):
                os.chmod(folder, 0o755)
            with self.subTest(seed=seed):
                # What cannot be read itself has no size here, and one of 0 there.
                self.assertEqual([item["size"] or 0 for item in json.loads(result.stdout)["items"]],
                                 [int(line) for line in counted.stdout.split()])
                self.assertIn(result.returncode, (0, 1), result.stderr)
            skipped += b"could not be read" in result.stderr
        self.assertGreater(skipped, 0)

    def test_what_vanishes_meanwhile_is_no_failure(self):
        self.file(b"stays", size=1000)
        going = self.path(b"going")
        stop = threading.Event()

        def come_and_go():
            while not stop.is_set():
                for i in range(30):
                    os.makedirs(os.path.join(going, b"%d" % i))
                    with open(os.path.join(going, b"%d" % i, b"empty"), "wb"):
                        pass
                shutil.rmtree(going)

        churn = threading.Thread(target=come_and_go)
        churn.start()
        try:
            for _ in range(10):
                self.assertEqual(self.sizes(*[self.folder] * 50), [1000] * 50)
        finally:
            stop.set()
            churn.join()


class Interruption(unittest.TestCase):
    def waitForService(self, process):
        """Returns once the host has started its service, which it does after it has taken over SIGINT."""
        while process.poll() is None:
            for task in os.listdir(f"/proc/{process.pid}/task"):
                with open(f"/proc/{process.pid}/task/{task}/children", encoding="ascii") as f:
                    if f.read():
                        return
        self.fail("the host has ended")

    def test_an_interrupt_stops_the_work_and_says_how_far_it_came(self):
        # More than a minute of work, were it not interrupted.
        process = subprocess.Popen([MORVANE, "size", *(["/proc"] * 2000)], env=ENVIRONMENT,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.waitForService(process)
        process.send_signal(signal.SIGINT)
        output, message = process.communicate(timeout=TIME_LIMIT)
        self.assertEqual((process.returncode, output), (130, b""))
        self.assertRegex(message.decode(), r"^morvane: The computation was cancelled\..*\n"
                                           r"  .* were added up so far\.\n$")


class LiveLine(unittest.TestCase):
    def start(self, kind, *paths):
        """With standard error on a terminal of twenty columns."""
        terminal, end = pty.openpty()
        self.addCleanup(os.close, terminal)
        fcntl.ioctl(end, termios.TIOCSWINSZ, struct.pack("4H", 24, 20, 0, 0))
        process = subprocess.Popen([MORVANE, "size", *paths], env={**ENVIRONMENT, "TERM": kind},
                                   stdout=subprocess.DEVNULL, stderr=end)
        os.close(end)
        return process, terminal

    def test_it_is_no_wider_than_the_terminal(self):
        process, terminal = self.start("xterm", *(["/proc"] * 2000))
        shown = terminals.read(terminal, TIME_LIMIT, until="\r\033[K")
        shown += terminals.read(terminal, TIME_LIMIT, until="\r\033[K")
        process.send_signal(signal.SIGINT)
        shown += terminals.read(terminal, TIME_LIMIT)
        self.assertEqual(process.wait(TIME_LIMIT), 130)
        lines = [line for line in shown.split("\r\033[K") if line and "cancelled" not in line]
        self.assertIn(" of 2000 done", lines[0])
        self.assertEqual({len(line) for line in lines}, {19})

    def test_a_terminal_that_cannot_draw_has_none(self):
        with tempfile.NamedTemporaryFile() as file:
            process, terminal = self.start("dumb", file.name)
            self.assertEqual(terminals.read(terminal, TIME_LIMIT), "")
            self.assertEqual(process.wait(TIME_LIMIT), 0)


class Listing(Tree):
    def test_a_folder_is_listed_in_its_own_order(self):
        for i in range(300):
            self.file(b"%d" % (i * 7919 % 300))
        result = run("ls", self.folder)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertEqual(result.stdout.split(b"\n")[:-1], os.listdir(self.folder))

    def test_names_that_are_not_text_arrive_as_they_are(self):
        self.file(b"\xff a\n")
        result = run("ls", "--json", self.folder)
        item, = json.loads(result.stdout)["items"]
        self.assertTrue(item["url"].endswith("/%FF%20a%0A"))

    def test_the_columns_are_those_that_every_user_of_a_shell_knows(self):
        def name(line):
            return line.split(" -> ")[0].split()[-1]

        os.chmod(self.file(b"file", size=1500), 0o4750)
        os.mkdir(self.path(b"nest"))
        os.chmod(self.path(b"nest"), 0o1777)
        os.symlink(b"file", self.path(b"link"))
        subprocess.run(["setfacl", "-m", "u:daemon:r", self.file(b"listed", size=0)], check=True)
        os.utime(self.path(b"file"), (0, 86400 * 365))
        ENVIRONMENT["TZ"] = "UTC"
        for option in "-l", "--long":
            result = run("ls", option, self.folder)
            self.assertEqual((result.returncode, result.stderr), (0, b""))
            rows = {name(line): line.split() for line in result.stdout.decode().splitlines()}
            self.assertEqual(rows["file"][0], "-rwsr-x---")
            self.assertEqual(rows["file"][3:6], ["1.5", "KB", "1971-01-01"])
            self.assertEqual(rows["listed"][0], "-rw-r--r--+")
        self.assertRegex(result.stdout.decode(), r"(?m)^drwxrwxrwt +\S+ +\S+ +- +\S+ \S+ +nest$")
        self.assertRegex(result.stdout.decode(), r"(?m)^lrwxrwxrwx .* link -> file$")
        listed = subprocess.run(["ls", "-l", self.folder], env=ENVIRONMENT, capture_output=True, text=True,
                                check=True).stdout.splitlines()[1:]
        for line in listed:
            self.assertEqual(rows[name(line)][:3], [line.split()[i] for i in (0, 2, 3)])

    def test_an_empty_folder_is_an_empty_list(self):
        self.assertEqual(run("ls", self.folder).stdout, b"")
        self.assertEqual(json.loads(run("ls", "--json", self.folder).stdout)["items"], [])

    def test_a_file_lists_itself_as_it_was_written(self):
        file = self.file(b"file", size=1500)
        self.assertEqual(run("ls", file).stdout, file + b"\n")
        self.assertRegex(run("ls", "-l", file).stdout, rb"^-rw-r--r-- .* 1.5 KB .*  %s\n$" % file)
        item, = json.loads(run("ls", "--json", file).stdout)["items"]
        self.assertEqual((item["path"], item["name"], item["size"]), (os.fsdecode(file), "file", 1500))
        os.symlink(b"nowhere", self.path(b"dangling"))
        self.assertEqual(run("ls", self.path(b"dangling")).stdout, self.path(b"dangling") + b"\n")
        below = run("ls", file + b"/below")
        self.assertEqual((below.returncode, below.stdout), (1, b""))
        self.assertIn(b"Not a directory", below.stderr)

    def test_of_several_files_come_first_and_each_folder_stands_below_its_path(self):
        nest, empty, file = self.path(b"nest"), self.path(b"empty"), self.file(b"file")
        os.mkdir(nest)
        os.mkdir(empty)
        self.file(b"nest", b"inner")
        result = run("ls", nest, self.path(b"missing"), file, empty)
        self.assertEqual((result.returncode, result.stdout),
                         (1, file + b"\n\n" + nest + b":\ninner\n\n" + empty + b":\n"))
        self.assertIn(b"cannot list '" + self.path(b"missing") + b"'", result.stderr)

    def test_without_a_path_the_current_folder_is_meant(self):
        self.file(b"file", size=3)
        for arguments, printed in ((("ls",), b"file\n"), (("size",), b"3 bytes  .\n")):
            result = subprocess.run([MORVANE, *arguments], env=ENVIRONMENT, capture_output=True, timeout=TIME_LIMIT,
                                    cwd=self.folder)
            self.assertEqual((result.stdout, result.stderr), (printed, b""))

    def test_a_missing_folder_is_told(self):
        result = run("ls", self.path(b"missing"))
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"No such file or directory", result.stderr)


class LargeFolders(unittest.TestCase):
    def make_large(self, names):
        folder = large_folder(self)
        descriptor = os.open(folder, os.O_RDONLY)
        try:
            for name in names:
                os.mknod(name, 0o600 | stat.S_IFREG, dir_fd=descriptor)
        finally:
            os.close(descriptor)
        return folder

    def test_a_million_entries_arrive(self):
        folder = self.make_large(b"entry-%d" % i for i in range(1_000_000))
        result = run("ls", folder)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertEqual(result.stdout.split(b"\n")[:-1], os.listdir(os.fsencode(folder)))

    def test_more_than_a_message_holds_is_refused_with_the_reason(self):
        # Each byte of these names takes three in a URL.
        folder = self.make_large(b"\xff" * 240 + b"%d" % i for i in range(330_000))
        result = run("ls", folder)
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertIn(b"The folder has more items than one answer can hold (268435456 bytes).",
                      result.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
