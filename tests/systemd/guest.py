# SPDX-License-Identifier: MIT
"""What the tests in a machine of their own run there."""
import os
import subprocess

TIME_LIMIT = 300  # a watchdog
UNIT = "io.github.morvaneoperation.PrivilegedHelper"
SOCKET = f"/run/{UNIT}.sock"


def run(*command, limit=TIME_LIMIT, **environment):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, timeout=limit, env={**os.environ, **environment})


def done(*command, **environment):
    outcome = run(*command, **environment)
    if outcome.returncode != 0:
        raise AssertionError(f"{command}: {outcome.stdout}")
    return outcome.stdout


def show(unit, name):
    return done("systemctl", "show", "--value", "-p", name, unit).strip()
