#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The pieces of code in documents and in the comments of headers.

usage: code_blocks.py write OUTPUT KIND GIVEN FILE...  writes a C++ program that has all pieces of a kind in it
       code_blocks.py run MORVANE SERVICES FILE...     runs the transcripts, and compares what is printed

In a document a piece stands between fences that name its kind: cpp, cpp qt (C++ with the library for Qt), console (a
transcript: commands behind "$ ", each with what it prints), or text, which is none of these. In a header it is indented by
four columns in a comment, and of the kind that is asked for.

A piece of C++ may use what the header GIVEN declares. Its classes and macros come first; what follows is the body of a
function, which is run if there is an assert() in it. The transcripts of a document share a folder; what has to be there before
is made by the command in a comment `<!-- given: COMMAND -->` right above the fence.
"""
import os
import re
import subprocess
import sys
import tempfile
import textwrap

# What a piece is a member function of, by its kind.
HOSTS = {"cpp": "given::Host", "cpp qt": "given::QtHost"}
TIME_LIMIT = 60  # a watchdog; nothing here takes long


class Piece:
    def __init__(self, path, line, kind, given=None):
        self.path, self.line, self.kind, self.given, self.lines = path, line, kind, given, []

    @property
    def place(self):
        return f"{self.path}:{self.line}"

    @property
    def text(self):
        return textwrap.dedent("\n".join(self.lines)).rstrip() + "\n"


def pieces_of_document(path, lines):
    piece = given = None
    for number, line in enumerate(lines, 1):
        if piece and line == "```":
            yield piece
            piece = None
        elif piece:
            piece.lines.append(line)
        elif line.startswith("```"):
            piece = Piece(path, number + 1, line[3:], given)
        else:
            comment = re.fullmatch(r"<!-- given: (.*) -->", line)
            given = comment[1] if comment else None


def pieces_of_header(path, lines):
    piece = None
    for number, line in enumerate([*lines, ""], 1):
        comment = re.fullmatch(r" *(?:///| \*)( *)(.*)", line)
        if comment and comment[2] and len(comment[1]) >= 5:
            piece = piece or Piece(path, number, None)
            piece.lines.append(comment[1] + comment[2])
        elif piece and comment and not comment[2]:
            piece.lines.append("")
        elif piece:
            yield piece
            piece = None


def pieces(paths):
    for path in paths:
        with open(path, encoding="utf-8") as file:
            lines = file.read().split("\n")
        yield from (pieces_of_document if path.endswith(".md") else pieces_of_header)(path, lines)


def write(output, kind, given, *paths):
    namespaces, table = [], []
    for piece in pieces(paths):
        if piece.kind not in (kind, None):
            continue
        text = re.sub(r"(?m)^#include .*$", "", piece.text)  # the given header has them all
        lines = text.split("\n")
        ends = [number for number, line in enumerate(lines, 1) if line == "};" or line.startswith("NSXPC_PROTOCOL(")]
        declared = ends[-1] if ends else 0

        def part(first, last):
            return f'#line {piece.line + first} "{piece.path}"\n' + "\n".join(lines[first:last]) + "\n"

        name = f"piece{len(namespaces)}"
        namespaces.append(f"namespace {name} {{\nusing namespace given;\n{part(0, declared)}"
                          f"struct Body : {HOSTS[kind]} {{\nvoid run() {{\n{part(declared, None)}}}\n}};\n"
                          f"void run() {{ Body().run(); }}\n}}\n")
        if "assert(" in text:
            table.append(f'    {{"{piece.place}", {name}::run}},\n')
    with open(output, "w", encoding="utf-8") as file:
        file.write(f"#include <{given}>\n\n" + "".join(namespaces) + "\nconst std::vector<Piece> pieces = {\n" + "".join(table)
                   + "};\nint main() { return runAll(pieces); }\n")


def transcript(text):
    """Pairs of a command and what it prints."""
    for part in re.split(r"(?m)^\$ ", text)[1:]:
        command, _, printed = part.partition("\n")
        yield command, printed


def run(morvane, services, *paths):
    failures = count = 0
    with tempfile.TemporaryDirectory() as folder:
        os.symlink(os.path.abspath(morvane), os.path.join(folder, "morvane"))
        environment = {"PATH": os.environ["PATH"], "HOME": folder, "LC_ALL": "C.UTF-8", "TERM": "dumb",
                       "MORVANE_LIBEXEC_DIR": os.path.abspath(services)}

        def printed_by(command):
            return subprocess.run(["bash", "-c", command], cwd=folder, env=environment, timeout=TIME_LIMIT,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                  text=True, check=False).stdout

        for piece in pieces(paths):
            if piece.kind not in ("cpp", "cpp qt", "console", "text"):
                failures += 1
                print(f"{piece.place}: say what the block is: ```cpp, ```cpp qt, ```console or ```text")
            if piece.kind != "console":
                continue
            if piece.given:
                print(printed_by(piece.given), end="")
            for command, expected in transcript(piece.text):
                count += 1
                printed = printed_by(command)
                if printed.rstrip("\n") != expected.rstrip("\n"):
                    failures += 1
                    print(f"{piece.place}: $ {command}\nhas\n{expected}but this was printed:\n{printed}")
    print(f"{count} commands, {failures} failures")
    return 1 if failures or not count else 0


if __name__ == "__main__":
    sys.exit({"write": write, "run": run}[sys.argv[1]](*sys.argv[2:]))
