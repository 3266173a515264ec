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


# A process's peak counts what its parent had when it was forked, so that a small one has to be between.
_TELL_PEAK = ("import os, sys; process = os.posix_spawn(sys.argv[1], sys.argv[1:], os.environ); "
              "_, status, usage = os.wait4(process, 0); "
              "print(usage.ru_maxrss); sys.exit(os.waitstatus_to_exitcode(status))")


def peak(command, environment):
    """Megabytes of memory that a run has at its most; the program's path is a full one."""
    told = subprocess.run([sys.executable, "-I", "-S", "-c", _TELL_PEAK, *map(str, command)],
                          env=environment, capture_output=True, text=True)
    if told.returncode != 0:
        sys.exit(f"{command[0]} ended with {told.returncode}")
    return int(told.stdout.splitlines()[-1]) / 1024


def run_pair(ours, peer, environment, ours_first):
    """(ours, the peer's) in milliseconds."""
    if ours_first:
        mine = run(ours, environment)
        return mine, run(peer, environment)
    theirs = run(peer, environment)
    return run(ours, environment), theirs
