# SPDX-License-Identifier: MIT
"""Prints the sizes of paths, counted independently of the walker: one line for each path."""

import os
import stat
import sys

def size_of(path, status, device, met):
    if stat.S_ISREG(status.st_mode):
        if status.st_dev != device:
            return 0
        if status.st_nlink > 1:
            if (status.st_dev, status.st_ino) in met:
                return 0
            met.add((status.st_dev, status.st_ino))
        return status.st_size
    if not stat.S_ISDIR(status.st_mode) or status.st_dev != device:
        return 0
    total = 0
    try:
        with os.scandir(path) as entries:
            for entry in entries:
                try:
                    total += size_of(entry.path, entry.stat(follow_symlinks=False), device, met)
                except OSError:
                    pass
    except OSError:
        pass
    return total


sys.setrecursionlimit(10000)
for root in map(os.fsencode, sys.argv[1:]):
    try:
        root_status = os.lstat(root)
        print(size_of(root, root_status, root_status.st_dev, set()))
    except OSError:
        print(0)
