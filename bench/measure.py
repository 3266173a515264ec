"""Times runs of programs."""

import os
import subprocess
import sys
import time
from typing import NamedTuple


class Row(NamedTuple):
    """A row of the table: our figure, the peer's, and the highest ratio that is accepted."""
    what: str
    ours: float
    beside: str
    peer: float
    at_most: float | None = None
    unit: str = "ms"



def to_drive(path):
    """The path by which a script names a file of the host."""
    return "Z:" + str(path).replace("/", "\\")


def run(command, environment):
    """Milliseconds of one run, started when the disk has nothing left to write."""
    os.sync()
    start = time.perf_counter()
    code = subprocess.run(command, env=environment, stdout=subprocess.DEVNULL).returncode
    milliseconds = (time.perf_counter() - start) * 1e3
    if code != 0:
        sys.exit(f"{command[0]} ended with {code}")
    return milliseconds


# A process's peak includes its parent's memory at the fork, so a small process starts the run.
_TELL_PEAK = ("import os, sys; process = os.posix_spawn(sys.argv[1], sys.argv[1:], os.environ); "
              "_, status, usage = os.wait4(process, 0); "
              "print(usage.ru_maxrss); sys.exit(os.waitstatus_to_exitcode(status))")


def peak(command, environment):
    """The peak memory of a run in megabytes; `program` is an absolute path."""
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
