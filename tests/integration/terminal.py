"""Reads what a program shows on a terminal."""
import os
import select


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
