# SPDX-License-Identifier: MIT
"""What a program shows on a terminal, and the questions for a password that it asks there."""
import errno
import os
import pty
import re
import select
import termios
import time

TIME_LIMIT = 120  # a watchdog


def read(terminal, limit, until=None):
    """What is shown up to and with `until`, or up to the program's end; `limit` in seconds is a watchdog."""
    text = ""
    while until is None or until not in text:
        if not select.select([terminal], [], [], limit)[0]:
            raise AssertionError(f"nothing more is shown after {text!r}")
        try:
            data = os.read(terminal, 65536)
        except OSError:  # the terminal's other end is closed
            break
        if not data:
            break
        text += data.decode(errors="replace")
    return text


def agents_below(program):
    """polkit's textual agents among the processes that the program has started."""
    parents, agents = {}, []
    for number in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{number}/stat", encoding="utf-8", errors="replace") as f:
                name, rest = f.read().split("(", 1)[1].rsplit(")", 1)
        except OSError:  # it has ended
            continue
        parents[int(number)] = int(rest.split()[1])
        if name == "pkttyagent":
            agents.append(int(number))
    for agent in agents:
        above = agent
        while above in parents and above != program:
            above = parents[above]
        if above == program:
            yield agent


def reads_password(program):
    """Whether an agent below the program reads a password. It throws away what is typed before it has turned off the
    echo of its own terminal, which need not be the one that the program was started on."""
    for agent in agents_below(program):
        try:
            own = os.open(f"/proc/{agent}/fd/0", os.O_RDONLY | os.O_NOCTTY)
        except OSError:
            continue
        try:
            if not termios.tcgetattr(own)[3] & termios.ECHO:
                return True
        finally:
            os.close(own)
    return False


class Outcome:
    def __init__(self, code, text, questions):
        self.code, self.text, self.questions = code, text, questions


def on_terminal(command, password=None):
    """Runs the command with a terminal of its own, and answers each question for a password with that one; without
    one there is none to be asked."""
    pid, terminal = pty.fork()
    if pid == 0:
        os.execvp(command[0], command)
    text, unseen, questions, limit = b"", b"", 0, time.monotonic() + TIME_LIMIT
    while True:
        if select.select([terminal], [], [], 0.05)[0]:
            try:
                data = os.read(terminal, 65536)
            except OSError as error:
                if error.errno != errno.EIO:
                    raise
                data = b""
            if not data:
                break
            text += data
            unseen += data
        if password and re.search(rb"[Pp]assword: ?$", unseen) and reads_password(pid):
            questions, unseen = questions + 1, b""
            os.write(terminal, password.encode() + b"\n")
        if time.monotonic() > limit:
            os.kill(pid, 9)
            text += b"\nIt hangs."
            break
    code = os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])
    os.close(terminal)
    return Outcome(code, text.decode(errors="replace").replace("\r\n", "\n"), questions)
