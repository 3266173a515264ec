"""Times runs of programs."""

import os
import subprocess
import sys
import time


def run(command, environment):
    """Milliseconds of one run, from a disk that has nothing left to write."""
    os.sync()
    start = time.perf_counter()
    code = subprocess.run(command, env=environment, stdout=subprocess.DEVNULL).returncode
    milliseconds = (time.perf_counter() - start) * 1e3
    if code != 0:
        sys.exit(f"{command[0]} ended with {code}")
    return milliseconds


def run_pair(ours, peer, environment, ours_first):
    """(ours, the peer's) in milliseconds."""
    if ours_first:
        mine = run(ours, environment)
        return mine, run(peer, environment)
    theirs = run(peer, environment)
    return run(ours, environment), theirs
