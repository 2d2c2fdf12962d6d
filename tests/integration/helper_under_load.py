#!/usr/bin/env python3
"""Sees what the privileged helper takes while a stranger keeps it busy; takes minutes, and is no part of the tests.

usage: helper_under_load.py HELPER POLICY-FILE POLICY-AGENT MORVANE [SECONDS [FILES]]

For SECONDS (300) a user without any right sends requests of 0.96 MB, whose archives unfold into a quarter of a
million objects, over 32 connections; half of them never take a reply. Two more processes of that user connect, send the
beginning of a frame and leave, again and again. Meanwhile another user propagates a folder's
list over FILES (300000). Prints the most memory and threads that the helper had, how many requests were refused, how
the propagation ended and what the log was told. Ends with 1 if not every item has the list, if the log has not both
lines of each propagation, or if the helper took 64 MiB.
"""
import os
import plistlib
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from rig import Rig, SOCKET, enter_namespaces, wait_until  # noqa: E402

STRANGER = 65533
CONNECTIONS = 32
KNOCKING = 2
MOST_MEMORY = 64 << 20
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
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    print(sum(count for count, in counts))


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
    rig.start_helper("prlimit", "--nofile=16384", "--nproc=2048")
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
        runs = 0
        whole = True
        while whole and (runs == 0 or time.monotonic() - begin < seconds):
            program = rig.start([morvane, "--privileged", "acl", tree, "--propagate"], "allow").finish(limit=None)
            runs += 1
            whole = program.code == 0
            print(f"propagation {runs} over {files} files: status {program.code} after "
                  f"{time.monotonic() - begin:.0f} s {program.message.strip()}")
            if program.code == 0 and time.monotonic() - begin < seconds:
                time.sleep(max(0, seconds - (time.monotonic() - begin)))
        refused = stranger.communicate()[0].strip()
        done.set()
        watcher.join()
        changed = sum(os.lstat(os.path.join(at, name)).st_mode & 0o777 == 0o640
                      for at, _, names in os.walk(tree) for name in names)
        print(f"{changed} files have the list")
        whole = whole and changed == files // 1000 * 999
    told = {outcome: sum(f"]: {outcome}: uid " in line for line in rig.logged) for outcome in ("begun", "done", "refused")}
    print("lines of the log:", ", ".join(f"{count} {outcome}" for outcome, count in told.items()))
    # The command reads the list before it is propagated.
    told_whole = all(sum(f"]: {outcome}: uid " in line and "propagateAclEntries" in line for line in rig.logged) == runs
                     for outcome in ("begun", "done"))
    print(f"refused {refused} requests; the helper had at most {most['memory'] / 2**20:.1f} MiB and "
          f"{most['threads']} threads")
    return 0 if whole and told_whole and most["memory"] < MOST_MEMORY else 1


if __name__ == "__main__":
    sys.exit(main())
