"""Measures the commands on trees of files beside the host's own tools."""

import os
import pathlib
import shutil
import subprocess
import sys
import time

SIZES = ((10_000, 5), (100_000, 1))  # files in one folder, and how often to measure


def _time(command, environment):
    """Milliseconds of one run, from a disk that has nothing left to write."""
    os.sync()
    start = time.perf_counter()
    code = subprocess.run(command, env=environment, stdout=subprocess.DEVNULL).returncode
    milliseconds = (time.perf_counter() - start) * 1e3
    if code != 0:
        sys.exit(f"{command[0]} ended with {code}")
    return milliseconds


def _to_drive(path):
    return "Z:" + str(path).replace("/", "\\")


def _measure(tessel, pack, work, environment, count, times):
    """The best of some rounds, by what was done: (ours, the host's tool) in milliseconds."""
    source, copy, peer_copy = (work / name for name in ("source", "copy", "peer-copy"))
    source.mkdir()
    for number in range(count):
        pathlib.Path(source, f"file {number:06}.dat").write_bytes(b"x" * 100)
    ours = {
        "find": f"<fileFind dir='{_to_drive(source)}' pattern='*' var='all' delim=';' depth='9'/>",
        "copy": f"<dirCopyRec src='{_to_drive(source)}' dest='{_to_drive(copy)}'/>",
        "delete": f"<dirDeleteRec path='{_to_drive(copy)}'/>",
    }
    patches = {what: pack(work, what, f"{body}<exit code='0'/>") for what, body in ours.items()}
    peers = {
        "find": ["find", source],
        "copy": ["cp", "-r", source, peer_copy],
        "delete": ["rm", "-rf", peer_copy],
    }
    best = {}
    for _ in range(times):
        for what, patch in patches.items():
            pair = (_time([tessel, "/encfile", str(patch)], environment),
                    _time(peers[what], environment))
            if what == "copy" and len(list(copy.iterdir())) != count:
                sys.exit(f"the copy has not {count} files")
            if what == "delete" and copy.exists():
                sys.exit("the copy was not deleted")
            best[what] = tuple(map(min, pair, best.get(what, pair)))
    shutil.rmtree(source)
    return best


def rows(tessel, pack, work, environment):
    """Rows of the table; `pack(folder, name, body)` makes a patch."""
    figures = {count: _measure(tessel, pack, work, environment, count, times)
               for count, times in SIZES}
    peers = {"find": ("find", "2"), "copy": ("cp -r", "1.5"), "delete": ("rm -rf", "1.5")}
    table = []
    for what, (peer, target) in peers.items():
        for count, figure in figures.items():
            table.append((f"{what} {count:,} files", figure[what][0], peer, figure[what][1], target))
        (few, _), (many, _) = SIZES
        table.append((f"{what} {many:,} files", figures[many][what][0], f"{few:,} files",
                      figures[few][what][0], "12"))
    return table
