#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Sees what the privileged helper takes while a stranger keeps it busy; takes minutes, and is no part of the tests.

usage: helper_under_load.py HELPER POLICY-FILE POLICY-AGENT MORVANE [SECONDS [FILES]]

For SECONDS (300) a user without any right sends requests of 0.96 MB, whose archives unfold into a quarter of a
million objects, over 32 connections; half of them never take a reply. Over eight more it answers, with 15 MiB and
without an end, what nobody has asked. Two more processes of that user connect, send the beginning of a frame and leave,
again and again. Meanwhile another user propagates a folder's list over FILES (300000),
again and again too. Prints the most memory and threads that the helper had, how many requests were refused, how the
propagations ended and what the log was told. Ends with 1 if not every item has the list, if the log has not both lines
of each propagation, or if the helper took 64 MiB. The helper is under the limits of its unit, in cgroups of its own; it
says so if none can be made.
"""
import os
import plistlib
import re
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from rig import Rig, SOCKET, enter_namespaces  # noqa: E402
from waiting import wait_until  # noqa: E402

STRANGER = 65533
CONNECTIONS = 32
ANSWERS = 8
KNOCKING = 2
MOST_MEMORY = 64 << 20
UNIT = "helpers/privileged_helper/io.github.morvaneoperation.PrivilegedHelper.service.in"
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
CGROUPS = "/sys/fs/cgroup"
SELECTOR = b"setAclEntries:url:reply:"
HEADER = struct.Struct("<4sBBBBIIQ")


def request():
    """A list of one entry, a quarter of a million times."""
    objects = ["$null", {"NS.objects": [plistlib.UID(3)] * 235000, "$class": plistlib.UID(2)},
               {"$classname": "NSArray", "$classes": ["NSArray", "NSObject"]}, {"$class": plistlib.UID(4)},
               {"$classname": "MVAclEntry", "$classes": ["MVAclEntry", "NSObject"]}]
    body = plistlib.dumps({"$version": 100000, "$archiver": "NSKeyedArchiver", "$objects": objects,
                           "$top": {"0": plistlib.UID(1)}}, fmt=plistlib.FMT_BINARY)
    body += b"\0" * max(0, 960_000 - len(body))
    payload = SELECTOR + body
    return HEADER.pack(b"MVX1", 1, 0, len(SELECTOR), 0, len(payload), 0, 1) + payload


def receive(connection, count):
    data = b""
    while len(data) < count:
        part = connection.recv(count - len(data))
        if not part:
            raise ConnectionError
        data += part
    return data


def attack(reads, end, refused):
    """One connection after the other until `end`; counts the refusals that it has read."""
    message = request()
    while time.monotonic() < end:
        try:
            with socket.socket(socket.AF_UNIX) as connection:
                connection.settimeout(5)
                connection.connect(SOCKET)
                while time.monotonic() < end:
                    connection.sendall(message)
                    if reads:
                        receive(connection, HEADER.unpack(receive(connection, HEADER.size))[5])
                        refused[0] += 1
        except OSError:
            time.sleep(0.01)


def answer(end):
    """What nobody has asked; frames without anything in them keep it from its end."""
    frame = HEADER.pack(b"MVX1", 2, 1, 0, 0, 1 << 20, 0, 1) + bytes(1 << 20)
    while time.monotonic() < end:
        try:
            with socket.socket(socket.AF_UNIX) as connection:
                connection.settimeout(5)
                connection.connect(SOCKET)
                for _ in range(15):
                    connection.sendall(frame)
                while time.monotonic() < end:
                    connection.sendall(HEADER.pack(b"MVX1", 2, 1, 0, 0, 0, 0, 1))
                    time.sleep(1)
        except OSError:
            time.sleep(0.01)


def knock(end):
    while time.monotonic() < end:
        try:
            with socket.socket(socket.AF_UNIX) as connection:
                connection.settimeout(5)
                connection.connect(SOCKET)
                connection.sendall(b"MVX1\1\0")
        except OSError:
            time.sleep(0.01)


def be_the_stranger(seconds):
    os.setgroups([])
    os.setgid(STRANGER)
    os.setuid(STRANGER)
    end = time.monotonic() + seconds
    for _ in range(KNOCKING):
        if os.fork() == 0:
            knock(end)
            os._exit(0)
    counts = [[0] for _ in range(CONNECTIONS)]
    threads = [threading.Thread(target=attack, args=(i % 2 == 0, end, counts[i])) for i in range(CONNECTIONS)]
    threads += [threading.Thread(target=answer, args=(end,)) for _ in range(ANSWERS)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    print(sum(count for count, in counts))


def unit_limits():
    with open(os.path.join(SOURCE, UNIT), encoding="utf-8") as f:
        found = re.findall(r"^(MemoryMax|TasksMax|LimitNOFILE)=(\d+)([MG]?)$", f.read(), re.MULTILINE)
    return {name: int(number) << {"": 0, "M": 20, "G": 30}[scale] for name, number, scale in found}


def make_cgroups(limits):
    """The folders of what the helper is to be put into, in either hierarchy; none where none can be made."""
    made = []
    name = f"morvane-under-load-{time.time_ns()}"
    try:
        for controller, files, limit in (("memory", ("memory.limit_in_bytes", "memory.max"), limits["MemoryMax"]),
                                         ("pids", ("pids.max",), limits["TasksMax"])):
            above = os.path.join(CGROUPS, controller)
            if not os.path.isdir(above):  # one tree for all
                above = CGROUPS
                with open(f"{above}/cgroup.subtree_control", "w", encoding="ascii") as f:
                    f.write(f"+{controller}")
            folder = os.path.join(above, name)
            if folder not in made:
                os.mkdir(folder)
                made.append(folder)
            with open(next(path for each in files if os.path.exists(path := os.path.join(folder, each))),
                      "w", encoding="ascii") as f:
                f.write(str(limit))
    except (OSError, StopIteration) as error:
        print(f"The helper is in no cgroup of its own: {error!r}")
        remove_cgroups(made)
        return []
    return made


def peak_of(cgroups):
    """What their memory was at most, the kernel's for it included; None if nothing tells."""
    for path in (os.path.join(folder, name) for folder in cgroups
                 for name in ("memory.max_usage_in_bytes", "memory.peak")):
        if os.path.exists(path):
            with open(path, encoding="ascii") as f:
                return int(f.read())
    return None


def remove_cgroups(folders):
    for folder in folders:
        os.rmdir(folder)


def launcher(limits, cgroups):
    enter = "".join(f"echo $$ >{folder}/cgroup.procs; " for folder in cgroups)
    return ("sh", "-ec", enter + 'exec "$@"', "sh", "prlimit", f"--nofile={limits['LimitNOFILE']}",
            f"--nproc={limits['TasksMax']}")


def watch(pid, most, done):
    while not done.is_set():
        try:
            with open(f"/proc/{pid}/status", encoding="ascii") as f:
                lines = dict(line.split(":", 1) for line in f)
        except OSError:
            return
        most["memory"] = max(most["memory"], int(lines["VmHWM"].split()[0]) << 10)
        most["threads"] = max(most["threads"], int(lines["Threads"]))
        done.wait(0.05)


def main():
    if sys.argv[1] == "--stranger":
        return be_the_stranger(float(sys.argv[2]))
    enter_namespaces()
    helper, policy, agent, morvane = map(os.path.abspath, sys.argv[1:5])
    seconds = float(sys.argv[5]) if len(sys.argv) > 5 else 300
    files = int(sys.argv[6]) if len(sys.argv) > 6 else 300000
    rig = Rig(helper, [policy], agent)
    rig.take_log()
    rig.stop_helper()
    limits = unit_limits()
    cgroups = make_cgroups(limits)
    rig.start_helper(*launcher(limits, cgroups))
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        tree = os.path.join(folder, "tree")
        os.mkdir(tree)
        os.chmod(tree, 0o750)
        for i in range(files // 1000):
            below = os.path.join(tree, str(i))
            os.mkdir(below)
            for j in range(999):
                os.mknod(os.path.join(below, str(j)), 0o600)
        most, done = {"memory": 0, "threads": 0}, threading.Event()
        watcher = threading.Thread(target=watch, args=(rig.helper.pid, most, done))
        begin = time.monotonic()
        stranger = subprocess.Popen([sys.executable, os.path.abspath(__file__), "--stranger", str(seconds)],
                                    stdout=subprocess.PIPE, text=True)
        wait_until(lambda: rig.connections() >= CONNECTIONS // 2, "the stranger")
        watcher.start()
        runs, longest, whole = 0, 0, True
        while whole and (runs == 0 or time.monotonic() - begin < seconds):
            # Another list each time, or there would be nothing to write.
            os.chmod(tree, (0o750, 0o770)[runs % 2])
            started = time.monotonic()
            program = rig.start([morvane, "--privileged", "acl", tree, "--propagate"], "allow").finish(limit=None)
            longest = max(longest, time.monotonic() - started)
            runs += 1
            whole = program.code == 0
        print(f"{runs} propagations over {files} files, which took {longest:.0f} s at most; the last one ended with "
              f"{program.code} {program.message.strip()}")
        refused = stranger.communicate()[0].strip()
        done.set()
        watcher.join()
        last = (0o640, 0o660)[(runs - 1) % 2]
        changed = sum(os.lstat(os.path.join(at, name)).st_mode & 0o777 == last
                      for at, _, names in os.walk(tree) for name in names)
        print(f"{changed} files have the list")
        whole = whole and changed == files // 1000 * 999
    rig.stop_helper()
    peak = peak_of(cgroups)
    remove_cgroups(cgroups)
    told = {outcome: sum(f"]: {outcome}: uid " in line for line in rig.logged) for outcome in ("begun", "done", "refused")}
    print("lines of the log:", ", ".join(f"{count} {outcome}" for outcome, count in told.items()))
    # The command reads the list before it is propagated.
    told_whole = all(sum(f"]: {outcome}: uid " in line and "propagateAclEntries" in line for line in rig.logged) == runs
                     for outcome in ("begun", "done"))
    print(f"refused {refused} requests; the helper had at most {most['memory'] / 2**20:.1f} MiB and "
          f"{most['threads']} threads" + (f"; its cgroup had {peak / 2**20:.1f} MiB" if peak else ""))
    return 0 if whole and told_whole and most["memory"] < MOST_MEMORY else 1


if __name__ == "__main__":
    sys.exit(main())
