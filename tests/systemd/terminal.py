"""A terminal on which questions for a password are answered."""
import errno
import os
import pty
import re
import select
import termios
import time

TIME_LIMIT = 120  # a watchdog


class Outcome:
    def __init__(self, code, text, questions):
        self.code, self.text, self.questions = code, text, questions


def on_terminal(command, password=None, then=None):
    """Runs the command with a terminal of its own and answers each question with the password; without one, with
    the end of the input. `then` is called with the process's number when the first question is there."""
    pid, terminal = pty.fork()
    if pid == 0:
        os.execvp(command[0], command)
    text, unseen, questions, limit = b"", b"", 0, time.monotonic() + TIME_LIMIT
    while True:
        ready = select.select([terminal], [], [], 0.05)[0]
        if ready:
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
        # What is typed before the echo is off is thrown away.
        if re.search(rb"[Pp]assword: ?$", unseen) and not termios.tcgetattr(terminal)[3] & termios.ECHO:
            questions, unseen = questions + 1, b""
            if then:
                then(pid)
                then = None
            os.write(terminal, b"\x04" if password is None else password.encode() + b"\n")
        if time.monotonic() > limit:
            os.kill(pid, 9)
            text += b"\nIt hangs."
            break
    code = os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])
    os.close(terminal)
    return Outcome(code, text.decode(errors="replace").replace("\r\n", "\n"), questions)
