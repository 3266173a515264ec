"""Times runs of programs."""

import os
import subprocess
import sys
import time
from typing import NamedTuple


class Row(NamedTuple):
    """A row of the table: what of ours stands beside what, and the ratio that is wanted at most."""
    what: str
    ours: float
    beside: str
    peer: float
    at_most: float | None = None
    unit: str = "ms"



def to_drive(path):
    """How a script names a file of the host."""
    return "Z:" + str(path).replace("/", "\\")


def run(command, environment):
    """Milliseconds of one run, from a disk that has nothing left to write."""
    os.sync()
    start = time.perf_counter()
    code = subprocess.run(command, env=environment, stdout=subprocess.DEVNULL).returncode
    milliseconds = (time.perf_counter() - start) * 1e3
    if code != 0:
        sys.exit(f"{command[0]} ended with {code}")
    return milliseconds


def peak(command, environment):
    """Megabytes of memory that a run has at its most."""
    process = subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{command[0]} ended with {process.returncode}")
    return usage.ru_maxrss / 1024


def run_pair(ours, peer, environment, ours_first):
    """(ours, the peer's) in milliseconds."""
    if ours_first:
        mine = run(ours, environment)
        return mine, run(peer, environment)
    theirs = run(peer, environment)
    return run(ours, environment), theirs
