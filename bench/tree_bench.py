"""Measures the commands on trees of files against the host's own tools.

Each round copies to new folders, and alternates which of the two goes first. Nothing is deleted before
the last copy is made: ext4, for one, avoids the inodes of files that were deleted a moment ago, and
the search for others would count against the next copy."""

import functools
import os
import sys

import measure
import ntfs_volume
from measure import MEMORY, Row, to_drive

FEW, MANY = 10_000, 100_000  # files in one folder
ROUNDS = {FEW: 3, MANY: 2}
FIND_ROUNDS = 5  # in each of these: it is so short that one alone tells little


class _Trees:
    """A tree of `count` files, and its copies. The command's time is that of a run, less the best of a
    run without a command."""

    def __init__(self, tessel, pack, folder, environment, count):
        self._tessel, self._pack, self._environment = tessel, pack, environment
        self._folder = folder / str(count)
        self._source = self._folder / "source"
        self._count = count
        self._source.mkdir(parents=True)
        self._fill()
        self.idle = min(
            measure.run(self._run("nothing", number, ""), environment) for number in range(15))

    def _fill(self):
        folder = os.open(self._source, os.O_DIRECTORY)
        for number in range(self._count):
            file = os.open(f"file {number:06}.dat", os.O_WRONLY | os.O_CREAT, 0o644, dir_fd=folder)
            os.write(file, b"x" * 100)
            os.close(file)
        os.close(folder)

    def _run(self, what, number, body):
        patch = self._pack(self._folder, f"{what} {number}", f"{body}<exit code='0'/>")
        return [self._tessel, "/encfile", str(patch)]

    def _pair(self, what, number, body, peer):
        ours, theirs = measure.run_pair(self._run(what, number, body), peer, self._environment,
                                        ours_first=number % 2 == 0)
        return ours - self.idle, theirs

    def _copies(self, number):
        return self._folder / f"copy {number}", self._folder / f"peer's copy {number}"

    def find(self, number):
        body = (f"<fileFind dir='{to_drive(self._source)}' pattern='*' var='all' delim=';'"
                " depth='9'/>")
        return self._pair("find", number, body, ["find", self._source])

    def copy(self, number):
        ours, peers = self._copies(number)
        body = f"<dirCopyRec src='{to_drive(self._source)}' dest='{to_drive(ours)}'/>"
        pair = self._pair("copy", number, body, ["cp", "-r", self._source, peers])
        if len(os.listdir(ours)) != self._count:
            sys.exit(f"the copy has not {self._count} files")
        return pair

    def delete(self, number):
        ours, peers = self._copies(number)
        body = f"<dirDeleteRec path='{to_drive(ours)}'/>"
        pair = self._pair("delete", number, body, ["rm", "-rf", peers])
        if ours.exists():
            sys.exit("the copy was not deleted")
        return pair

    def rounds(self, what):
        count = ROUNDS[self._count] * (FIND_ROUNDS if what == "find" else 1)
        return [getattr(self, what)(number) for number in range(count)]


# Each call is a message to the driver there, and the peers' part of the time is the larger one.
ON_NTFS = (("find", "find", 1.5), ("copy", "cp -r", 1), ("delete", "rm -rf", 1.1))


def _growth(peer, pairs):
    """How the time grows with the folder, against the tool's: the disk has a part in both."""
    return measure.growth_row(f"growth from {FEW:,} on", peer, zip(*pairs[FEW]), zip(*pairs[MANY]))


def _rows_of(what, peer, at_most, trees, growth=None):
    """`growth` is the bound of our own, where the disk has no part in it."""
    all_pairs = {}
    for count in (FEW, MANY):
        pairs = all_pairs[count] = trees[count].rounds(what)
        ours, theirs = zip(*pairs)
        yield Row(f"{what} {count:,} files", ours, peer, theirs, at_most)
        if count == FEW:
            yield Row("the same, the whole run", [time + trees[count].idle for time in ours],
                      peer, theirs)
    if growth is not None:
        few, many = ([ours for ours, _ in all_pairs[count]] for count in (FEW, MANY))
        yield Row("the same", many, f"{FEW:,} files", few, growth)
    yield _growth(peer, all_pairs)


def _rows_in_memory(trees):
    """How copying and deleting grow where each file costs the same. Each round deletes its copies, so that
    only the first, which doesn't count, takes memory that the kernel hasn't had before."""
    pairs = {what: {FEW: [], MANY: []} for what in ("copy", "delete")}
    for number in range(1 + ROUNDS[FEW]):
        for count in (FEW, MANY):
            for what, measured in pairs.items():
                measured[count].append(getattr(trees[count], what)(number))
    for what, peer in (("copy", "cp -r"), ("delete", "rm -rf")):
        counted = {count: measured[1:] for count, measured in pairs[what].items()}
        few, many = ([ours for ours, _ in counted[count]] for count in (FEW, MANY))
        yield Row(f"{what} {MANY:,} files in memory", many, f"{FEW:,} files", few, measure.GROWTH)
        yield _growth(peer, counted)


def _rows_on_ntfs(make_trees, work):
    with ntfs_volume.mounted(work) as folder:
        if folder is None:
            print(f"{'find, copy, delete on NTFS':<32} no FUSE here", flush=True)
            return
        trees = make_trees(folder, (FEW,))[FEW]
        for what, peer, at_most in ON_NTFS:
            ours, theirs = zip(*trees.rounds(what))
            yield Row(f"{what} {FEW:,} files on NTFS", ours, peer, theirs, at_most)


class Rows:
    """Rows of the table; `pack(folder, name, body)` makes a patch."""

    def __init__(self, tessel, pack, work, environment):
        self._work = work
        self._make = functools.partial(_make_trees, tessel, pack, environment)
        self._trees = {}

    def of_copies(self):
        """To come before anything of the bench deletes many files."""
        self._trees = self._make(self._work)
        yield from _rows_of("find", "find", 2, self._trees, measure.GROWTH)
        yield from _rows_of("copy", "cp -r", 1.1, self._trees)

    def of_the_rest(self):
        yield from _rows_of("delete", "rm -rf", 1.5, self._trees)
        if MEMORY.is_dir():
            with measure.memory_or(self._work) as folder:
                yield from _rows_in_memory(self._make(folder))
        yield from _rows_on_ntfs(self._make, self._work)


def _make_trees(tessel, pack, environment, folder, counts=(FEW, MANY)):
    return {count: _Trees(tessel, pack, folder, environment, count) for count in counts}
