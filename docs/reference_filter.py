#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What the reference sees of a header: the messages of a protocol's list as member functions with their comments."""
import re
import sys

with open(sys.argv[1], encoding="utf-8") as file:
    text = file.read()
for name, rows in re.findall(r"#define (\w+Messages)\(MESSAGE\)((?:.*\\\n)+.*)\n", text):
    rows = " ".join(rows.replace("\\\n", " ").split())
    members = []
    for comment, member, selector, parameters in re.findall(
            r'(?:/\* ([^/]*) \*/ )?MESSAGE\((\w+), ("[^"]*"), (\([^()]*\)), \(', rows):
        members.append(f"/** {comment} The selector is {selector}. */ virtual void {member}{parameters} = 0;")
    if len(members) != rows.count("MESSAGE("):
        sys.exit(f"{sys.argv[1]}: a row of {name} is not understood")
    text = text.replace(f"    {name}(NSXPC_DECLARE_MESSAGE)", " ".join(members))
sys.stdout.write(text)
