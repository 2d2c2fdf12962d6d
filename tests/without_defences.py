#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Takes each defence away in turn and sees that its tests fail then.

usage: without_defences.py [--fit | WORDS...]

With --fit, only sees whether each row still fits the source; with words, only the defences whose title has one of
them are taken away. The tracked files, as they stand, are copied to
build/without-defences and built and changed there; the checkout stays as it is. Needs root, as the tests of
the privileged road do. Ends with 1 if a test did not notice, or if a row does not fit the source any more.
"""
import filecmp
import functools
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time

from defences import DEFENCES, PROGRAMS

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
COPY = os.path.join(SOURCE, "build/without-defences")
BUILD = os.path.join(COPY, "build/dev")
ROOMS = ("acl", "cli", "client", "helpers", "lists", "platform", "service", "size")
TIME_LIMIT = 240  # one test, a watchdog's minute included


class Misfit(Exception):
    """A row that does not fit the source or the tests."""


def run(*command):
    result = subprocess.run(command, cwd=COPY, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if result.returncode != 0:
        raise Misfit(f"{' '.join(command)}\n{result.stdout}")
    return result.stdout


def copy_sources():
    """What has not changed keeps its time, and with it what was built."""
    tracked = subprocess.run(["git", "ls-files", "-z"], cwd=SOURCE, check=True, text=True,
                             stdout=subprocess.PIPE).stdout.split("\0")[:-1]
    for name in tracked:
        source, copy = os.path.join(SOURCE, name), os.path.join(COPY, name)
        if not os.path.isfile(source) or (os.path.isfile(copy) and filecmp.cmp(source, copy, shallow=False)):
            continue
        os.makedirs(os.path.dirname(copy), exist_ok=True)
        shutil.copy(source, copy)
        os.utime(copy)


def build(tests):
    suites = {re.split("[ .]", test)[0] for test in tests}
    run("cmake", "--build", "--preset", "dev", "--target", *sorted({p for s in suites for p in PROGRAMS[s]}))


class Tests:
    """The tests that ctest knows, run by their commands: `privileged` can then run one of its methods."""

    def __init__(self):
        listed = json.loads(run("ctest", "--test-dir", BUILD, "--show-only=json-v1"))
        self.known = {test["name"]: test for test in listed["tests"]}

    def fails(self, name):
        """None if it succeeds, else what it says."""
        test, _, method = name.partition(" ")
        if "command" not in self.known.get(test, {}):
            raise Misfit(f"there is no test {test}")
        properties = {p["name"]: p["value"] for p in self.known[test]["properties"]}
        environment = dict(entry.split("=", 1) for entry in properties.get("ENVIRONMENT", ()))
        with subprocess.Popen([*self.known[test]["command"], *method.split()], text=True,
                              env={**os.environ, **environment}, cwd=properties["WORKING_DIRECTORY"],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, start_new_session=True) as process:
            try:
                output = process.communicate(timeout=TIME_LIMIT)[0]
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                raise Misfit(f"{name} hangs") from None
        if process.returncode == 0:
            if not re.search(r"^\[  PASSED  \] 1 test|^Ran 1 test", output, re.MULTILINE):
                raise Misfit(f"{name} is not one test:\n{output}")
            return None
        # Killed by a signal it has failed too: some tests are there to see that the program goes on.
        if process.returncode > 0 and not re.search(r": Failure$|^FAILED \(failures=", output, re.MULTILINE):
            raise Misfit(f"{name} ends without a failed expectation:\n{output}")
        return output


@functools.cache
def sources(folder):
    """The tracked files that a defence may stand in, by path."""
    paths = subprocess.run(["git", "-C", SOURCE, "ls-files", "--", *ROOMS], capture_output=True, text=True,
                           check=True).stdout.splitlines()
    texts = {}
    for path in paths:
        with open(os.path.join(folder, path), encoding="utf-8") as f:
            texts[path] = f.read()
    return texts


def place_of(defence, folder):
    """The path of the file that has the row's text, and all that it has."""
    places = [(path, source) for path, source in sources(folder).items() if defence.text in source]
    if len(places) != 1 or places[0][1].count(defence.text) != 1:
        raise Misfit(f"{', '.join(path for path, _ in places) or 'no file'} has, not once:\n{defence.text}\n"
                     "Keep the row up with the source.")
    return places[0]


def all_fit():
    status = 0
    for defence in DEFENCES:
        try:
            place_of(defence, SOURCE)
        except Misfit as misfit:
            print(f"{defence.title} {misfit}")
            status = 1
    return status


def unnoticed(defence):
    """The tests that succeed without the defence."""
    file, source = place_of(defence, COPY)
    path = os.path.join(COPY, file)
    try:
        with open(path, "w", encoding="utf-8") as f:
            f.write(source.replace(defence.text, defence.without))
        build(defence.tests)
        tests = Tests()
        return [test for test in defence.tests if not tests.fails(test)]
    finally:
        with open(path, "w", encoding="utf-8") as f:
            f.write(source)


def main(words):
    if words == ["--fit"]:
        return all_fit()
    chosen = [d for d in DEFENCES if not words or any(word in d.title for word in words)]
    names = sorted({test for defence in chosen for test in defence.tests})
    if not names:
        sys.exit("no defence has such a title")
    copy_sources()
    run("cmake", "--preset", "dev")
    build(names)
    tests = Tests()
    broken = [name for name in names if tests.fails(name)]
    if broken:
        sys.exit("These tests fail although nothing was taken away: " + ", ".join(broken))
    missed = 0
    for defence in chosen:
        begin = time.monotonic()
        try:
            left = unnoticed(defence)
            result = f"NOT NOTICED by {', '.join(left)}" if left else "noticed"
        except Misfit as misfit:
            left = result = f"NOT SHOWN: {misfit}"
        missed += bool(left)
        print(f"{time.monotonic() - begin:5.0f} s  {defence.title} {result}", flush=True)
    print(f"Without {len(chosen) - missed} of {len(chosen)} defences tests fail.")
    return 1 if missed else 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except Misfit as misfit:
        sys.exit(str(misfit))
