# SPDX-License-Identifier: MIT
"""usage: told.py read|propagate FILE: reads the list as administrator where that is needed, or propagates it with the
user's own rights, and prints what the program is told."""
import os
import sys

from from_python import NEVER, Client, GLib, Morvane

client, progress = Client(), Morvane.Progress()
try:
    if sys.argv[1] == "read":
        print(len(client.read(sys.argv[2], Morvane.Privilege.WHEN_REFUSED)))
    else:
        client.propagate_acl(client.read(sys.argv[2]), NEVER, progress, None)
except GLib.Error as error:
    print(error.domain, error.code)
if sys.argv[1] == "propagate":
    print(progress.props.items_done, progress.props.items_failed)
for failure in progress.props.failures:
    error = failure.props.error
    assert error.message == failure.props.message, error.message
    print(os.fsencode(failure.props.file.get_path()), error.domain, error.code, error.message)
