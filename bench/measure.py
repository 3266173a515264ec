"""Times runs of programs."""

import contextlib
import os
import pathlib
import resource
import statistics
import subprocess
import sys
import tempfile
import time
from typing import NamedTuple

# For ten times the work, how many times the time.
GROWTH = 11

MEMORY = pathlib.Path("/dev/shm")  # a disk on which each file costs the same, however many there are


@contextlib.contextmanager
def memory_or(work):
    """A folder for what the disk shall have no part in; on the disk, in `work`, where there is no other."""
    with tempfile.TemporaryDirectory(prefix="tessel-bench-",
                                     dir=MEMORY if MEMORY.is_dir() else work) as folder:
        yield pathlib.Path(folder)


class Spread(NamedTuple):
    """The middle of some figures and their quartiles."""
    low: float
    middle: float
    high: float


def spread(figures):
    if len(figures) == 1:
        return Spread(*(tuple(figures) * 3))
    return Spread(*statistics.quantiles(figures, n=4, method="inclusive"))


class Row(NamedTuple):
    """A row of the table: our figures, the peer's, and the highest ratio that is accepted. Each is one
    figure, or those of the repetitions; when there are as many on both sides, the first was measured
    beside the first, and so on."""
    what: str
    ours: float | list[float]
    beside: str
    peer: float | list[float]
    at_most: float | None = None
    unit: str = "ms"

    def columns(self):
        """Our figures and the peer's, as lists."""
        return [list(side) if isinstance(side, (list, tuple)) else [side]
                for side in (self.ours, self.peer)]

    def ratios(self):
        """Of the repetitions. What was measured side by side had the same noise."""
        ours, peer = self.columns()
        if len(ours) != len(peer):
            peer = [statistics.median(peer)] * len(ours)
        return [mine / theirs for mine, theirs in zip(ours, peer)]


def growth_row(what, peer, few, many):
    """How much longer many take than few, against the peer's growth. Both are pairs of figures: ours,
    and the peer's."""
    ours, theirs = ([time / statistics.median(small) for time in large]
                    for small, large in zip(few, many))
    return Row(what, ours, f"that of {peer}", theirs, unit="x ")


def to_drive(path):
    """The path by which a script names a file of the host."""
    return "Z:" + str(path).replace("/", "\\")


def run(command, environment):
    """Milliseconds of one run, started when the disk has nothing left to write."""
    os.sync()
    return _time(command, environment)


def _time(command, environment):
    start = time.perf_counter()
    code = subprocess.run(command, env=environment, stdout=subprocess.DEVNULL).returncode
    milliseconds = (time.perf_counter() - start) * 1e3
    if code != 0:
        sys.exit(f"{command[0]} ended with {code}")
    return milliseconds


def interleaved(commands, environment, times):
    """Milliseconds of runs by the commands' names, which take turns. Nothing is awaited before, as the
    disk is no part of it."""
    figures = {name: [] for name in commands}
    for _ in range(times):
        for name, command in commands.items():
            figures[name].append(_time(command, environment))
    return figures


def processor_time(command, environment):
    """Milliseconds of the processor, without what other work of the machine took."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    _time(command, environment)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime) * 1e3


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
