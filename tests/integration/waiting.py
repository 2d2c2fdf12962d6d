# SPDX-License-Identifier: MIT
"""Waiting for what another process does."""
import time

TIME_LIMIT = 300  # a watchdog; a machine inside a machine is slow


def wait_until(true, what):
    """Returns once true() is; what is waited for comes sooner, unless it never comes."""
    limit = time.monotonic() + TIME_LIMIT
    while not true():
        if time.monotonic() > limit:
            raise AssertionError(f"waited in vain: {what}")
        time.sleep(0.02)
