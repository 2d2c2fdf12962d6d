# SPDX-License-Identifier: MIT
"""Folders for many items."""
import os
import tempfile

MEMORY = "/dev/shm"


def large_folder(test):
    """A folder that ends with the test, in memory where there is such a place: a disk takes a minute for many items."""
    folder = tempfile.TemporaryDirectory(dir=MEMORY if os.access(MEMORY, os.W_OK) else None)
    test.addCleanup(folder.cleanup)
    return folder.name
