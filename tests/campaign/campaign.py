#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Looks for what ordinary tests are too short to find, and prints one table.

usage: campaign.py [MINUTES] [--only PART...] [--calls CALL...] [--fuzzers NAME...]

Parts: soak (a million requests from several threads, with a thousand kills of the service), frames (a million
malformed frames for a listening service under sanitizers), faults (each call of a kind failing in turn, once and
for good, in host and service; CALLs alone if named), fuzz (every fuzzer, or the named ones, for MINUTES of processor
time each, 60 unless told). Each part that was run whole, and each fuzzer with 60 minutes or more, takes its place in
docs/campaign.md with its date and commit, beside what others have left there. What was found lies below
build/campaign. Ends with 1 if anything was found. Run by `./test campaign`, which builds what it needs.
"""
import argparse
import concurrent.futures
import json
import os
import random
import select
import shutil
import subprocess
import sys
import tempfile
import time

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DEV = os.path.join(TOP, "build/dev")
SANITIZED = os.path.join(TOP, "build/asan-ubsan")
FOUND = os.path.join(TOP, "build/campaign")
SERVICE = "io.github.morvaneoperation.FileService"
WHOLE_MINUTES = 60
PROCESSORS = os.cpu_count() or 1
AT_ONCE = 8 * PROCESSORS  # runs of the scenario, which mostly wait
TIME_LIMIT = 120  # for one run of the scenario; it has a watchdog of its own
LEAVE_LIMIT = 10  # for a service whose host has gone

CALLS = ("malloc", "read", "recvmsg", "send", "sendmsg", "epoll_wait", "socketpair", "accept4", "posix_spawn",
         "eventfd", "pthread_create", "openat", "statx", "getxattr", "fgetxattr", "setxattr", "fsetxattr", "mmap")
ENDS = {0: "as it should", 1: "ended twice", 2: "never ended", 3: "next request not answered"}


def keep(name, text):
    os.makedirs(FOUND, exist_ok=True)
    with open(os.path.join(FOUND, name), "a", encoding="utf-8") as file:
        file.write(text + "\n")


# Faults.

def scenario(call, number, for_good, program):
    """One run with that fault: whether the fault was reached, and what came of it."""
    with tempfile.TemporaryDirectory() as work:
        items = os.path.join(work, "items")
        for folder in ("tree/folder/deep", "slow-tree"):
            os.makedirs(os.path.join(items, folder))
        for name in ("file", "one", "two", "tree/file", "tree/folder/file", "tree/folder/deep/file", "slow-tree/slow"):
            with open(os.path.join(items, name), "w", encoding="ascii") as file:
                file.write("x")
        os.link(os.path.join(items, "tree/file"), os.path.join(items, "tree/link"))
        os.symlink("file", os.path.join(items, "tree/symbolic"))
        mark = os.path.join(work, "mark")
        environment = {**os.environ, "MORVANE_LIBEXEC_DIR": os.path.join(DEV, "libexec"),
                       "LD_PRELOAD": os.path.join(DEV, "tests/campaign/libfailing_calls.so"),
                       "FAILING_CALL": call, "FAILING_AT": str(number), "FAILING_FOR_GOOD": "1" if for_good else "0",
                       "FAILING_PROGRAM": program, "FAILING_MARK": mark}
        if program == "campaign_scenario":
            environment["FAILING_WAITS"] = "1"
        output = os.path.join(work, "output")
        # A service holds this end as long as it lives.
        lives, held = os.pipe()
        with open(output, "wb") as file:
            host = subprocess.Popen([os.path.join(DEV, "tests/campaign/campaign_scenario"), items], env=environment,
                                    stdin=held, stdout=file, stderr=subprocess.STDOUT)
        os.close(held)
        try:
            host.wait(TIME_LIMIT)
        except subprocess.TimeoutExpired:
            host.kill()
            host.wait()
            end = "hung"
        else:
            end = None
        if not select.select([lives], [], [], LEAVE_LIMIT)[0]:
            end = "the service outlived its host"
        os.close(lives)
        with open(output, encoding="utf-8", errors="replace") as file:
            output = file.read()
        if end:
            return os.path.exists(mark), end, output
        code = host.returncode
        end = ENDS.get(code, f"signal {-code}" if code < 0 else f"status {code}")
        # A service that fails for good need not answer the host's last request.
        if code == 3 and for_good and program == SERVICE:
            end = ENDS[0]
        return os.path.exists(mark), end, output


def faults(calls):
    rows, findings = [], 0
    total, never = 0, []
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        for program, role in (("campaign_scenario", "host"), (SERVICE, "service")):
            for call in calls:
                for for_good in (False, True):
                    tried, bad, number, reached = 0, 0, 1, True
                    while reached:
                        numbers = range(number, number + AT_ONCE)
                        number += AT_ONCE
                        for at, result in zip(numbers, pool.map(
                                lambda n: scenario(call, n, for_good, program), numbers)):
                            was_reached, end, output = result
                            reached = reached and was_reached
                            if not was_reached:
                                continue
                            tried += 1
                            if end != ENDS[0]:
                                bad += 1
                                keep("faults", f"{role} {call} at {at}{' and all behind' if for_good else ''}: {end}\n"
                                               f"{output}")
                    total += tried
                    findings += bad
                    if tried:
                        rows.append((f"{role}: {call} fails {'for good' if for_good else 'once'}", tried, bad))
                    elif not for_good:
                        never.append(f"{role}: {call}")
    return [("all", total, findings), *rows, (f"never called there: {', '.join(never)}", 0, "")], findings


# The soak.

def soak(requests, kills, threads=8):
    environment = {**os.environ, "MORVANE_LIBEXEC_DIR": os.path.join(DEV, "tests/campaign")}
    run = subprocess.run([os.path.join(DEV, "tests/campaign/campaign_soak"), str(requests), str(kills), str(threads)],
                         env=environment, capture_output=True, text=True, check=False)
    if not run.stdout:
        keep("soak", f"status {run.returncode}: {run.stderr}")
        return [("soak", 0, 1)], 1
    seen = json.loads(run.stdout)
    findings = seen["never ended"] + seen["ended twice"] + seen["out of order"]
    for what, slack in (("descriptors", 4), ("threads", 8), ("kilobytes", 8192)):
        early, late = seen[what]
        if late > early + slack:
            findings += 1
    if findings:
        keep("soak", run.stdout)
    ended = f"{seen['answered']} answered, {seen['interrupted']} interrupted, {seen['invalid']} not sent"
    return [(f"requests with {seen['kills']} kills: {ended}", seen["requests"], findings),
            *((f"{what}: early, late", " ".join(map(str, seen[what])), "") for what in
              ("descriptors", "threads", "kilobytes"))], findings


# Frames.

def frames(count):
    with tempfile.TemporaryDirectory() as work:
        run = subprocess.run([os.path.join(SANITIZED, "tests/campaign/campaign_frames"),
                              os.path.join(SANITIZED, "tests/platform/xpc/xpc_test_service"),
                              os.path.join(work, "socket"), str(count), str(random.randrange(1 << 30))],
                             capture_output=True, text=True, errors="replace", check=False)
    found = 0 if run.returncode == 0 else 1
    if found:
        keep("frames", f"status {run.returncode}\n{run.stdout}{run.stderr}")
    seen = json.loads(run.stdout) if run.stdout.startswith("{") else {"frames": 0, "connections": 0}
    return [(f"malformed frames, under sanitizers, over {seen['connections']} connections", seen["frames"], found)], found


# Fuzzers.

def fuzz_one(name, minutes):
    """Until it has had that much of a processor, whatever else the machine does."""
    folder = os.path.join(FOUND, name)
    os.makedirs(folder, exist_ok=True)
    log = os.path.join(FOUND, f"{name}.log")
    inputs, spent, status = 0, 0.0, 0
    while status == 0 and spent < 60 * minutes:
        with open(log, "w", encoding="utf-8") as output:
            left = max(1, round(60 * minutes - spent))
            run = subprocess.Popen([os.path.join(SANITIZED, "fuzz", f"{name}_fuzzer"), f"-max_total_time={left}",
                                    "-rss_limit_mb=2048", "-print_final_stats=1", f"-artifact_prefix={folder}/",
                                    folder, os.path.join(TOP, "fuzz/corpus", name)],
                                   stdout=output, stderr=subprocess.STDOUT)
            status, used = os.wait4(run.pid, 0)[1:]
            run.returncode = os.waitstatus_to_exitcode(status)
        spent += used.ru_utime + used.ru_stime
        with open(log, encoding="utf-8", errors="replace") as output:
            inputs += sum(int(line.split()[1]) for line in output
                          if line.startswith("stat::number_of_executed_units:"))
    return (f"fuzzer {name}, {spent / 60:.0f} minutes of a processor, inputs", inputs, 0 if status == 0 else 1)


def all_fuzzers():
    return sorted(file.removesuffix("_fuzzer.cpp") for file in os.listdir(os.path.join(TOP, "fuzz"))
                  if file.endswith("_fuzzer.cpp"))


def fuzz(names, minutes):
    with concurrent.futures.ThreadPoolExecutor(PROCESSORS) as pool:
        rows = list(pool.map(lambda name: fuzz_one(name, minutes), names))
    return rows, sum(row[2] for row in rows)


def table(rows):
    lines = ["| part | what | how many | found | when | commit |", "|---|---|---:|---:|---|---|"]
    lines += ["| " + " | ".join(map(str, row)) + " |" for row in rows]
    return "\n".join(lines)


# The document is what remembers the parts that ran earlier.
RECORD = os.path.join(TOP, "docs/campaign.md")
ABOUT = """# The last campaign

`./test campaign` looks for what ordinary tests are too short to find (`tests/campaign/campaign.py --help`). Its parts
may run at different times: each row says when its part last ran whole, and on which commit. "Found" counts what
was not as it should be in that run.

"""


def recorded():
    """The rows of each part that has been run whole."""
    rows = {name: [] for name in PARTS}
    if os.path.exists(RECORD):
        with open(RECORD, encoding="utf-8") as file:
            for line in file:
                cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
                if len(cells) == 6 and cells[0] in rows:
                    rows[cells[0]].append(cells)
    return rows


def record(name, rows):
    known = recorded()
    if name == "fuzz":  # of which each row is whole by itself, unless it ended at what it found
        rows = [row for row in rows if row[3] == 0]
        fresh = {row[1].split(",")[0] for row in rows}
        rows += [row for row in known[name] if row[1].split(",")[0] not in fresh]
        rows.sort(key=lambda row: row[1])
    known[name] = rows
    with open(RECORD, "w", encoding="utf-8") as file:
        file.write(ABOUT + table([row for part in known.values() for row in part]) + "\n")


def present_commit():
    def git(*arguments):
        return subprocess.run(["git", "-C", TOP, *arguments], capture_output=True, text=True, check=True).stdout.strip()

    changed = git("status", "--porcelain", "--untracked-files=no", "--", ":!docs")
    return git("rev-parse", "--short", "HEAD") + (" with changes" if changed else "")


PARTS = {"soak": lambda arguments: soak(1_000_000, 1000), "frames": lambda arguments: frames(1_000_000),
         "faults": lambda arguments: faults(arguments.calls),
         "fuzz": lambda arguments: fuzz(arguments.fuzzers, arguments.minutes)}


def is_whole(name, arguments):
    if name == "faults":
        return set(arguments.calls) == set(CALLS)
    return name != "fuzz" or arguments.minutes >= WHOLE_MINUTES


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("minutes", nargs="?", type=float, default=WHOLE_MINUTES)
    parser.add_argument("--only", nargs="+", choices=PARTS, default=list(PARTS))
    parser.add_argument("--calls", nargs="+", choices=CALLS, default=list(CALLS), metavar="CALL")
    parser.add_argument("--fuzzers", nargs="+", choices=all_fuzzers(), default=all_fuzzers(), metavar="NAME")
    arguments = parser.parse_args()
    shutil.rmtree(FOUND, ignore_errors=True)
    all_rows, all_findings, commit = [], 0, present_commit()
    for name in arguments.only:
        rows, findings = PARTS[name](arguments)
        when = time.strftime("%Y-%m-%d")
        rows = [(name, *row, when, commit) for row in rows]
        all_rows += rows
        all_findings += findings
        if is_whole(name, arguments):
            record(name, rows)
    print(table(all_rows))
    if all_findings:
        print(f"What was found lies in {FOUND}.")
    return 1 if all_findings else 0


if __name__ == "__main__":
    sys.exit(main())
