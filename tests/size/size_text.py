# SPDX-License-Identifier: MIT
"""size_text.py FILE COUNT: checks COUNT or more lines "BASE2 ALLOW_BYTES SIZE TEXT" against size texts made here,
independently."""

import sys

UNITS = ("KB", "MB", "GB", "TB")


def size_text(size, allow_bytes, unit):
    if size < 0:
        return "--"
    if allow_bytes and size < unit:
        return "%d bytes" % size
    power = 1
    while power < 4 and size >= unit ** (power + 1):
        power += 1
    divisor = unit**power
    value = float(size) / float(divisor)
    if int((value - float(size // divisor)) * 10.0) != 0:
        number = ("%.1f" % value).rstrip("0").rstrip(".")
    else:
        number = "%.0f" % value
    return number + " " + UNITS[power - 1]


def main():
    count = 0
    with open(sys.argv[1], encoding="ascii") as lines:
        for line in lines:
            base2, allow_bytes, size, text = line.rstrip("\n").split(" ", 3)
            expected = size_text(int(size), allow_bytes == "1", 1024 if base2 == "1" else 1000)
            if text != expected:
                sys.exit("%s: %r, not %r" % (line.strip(), text, expected))
            count += 1
    if count < int(sys.argv[2]):
        sys.exit("only %d lines" % count)


main()
