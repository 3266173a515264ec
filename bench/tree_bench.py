"""Measures the commands on trees of files beside the host's own tools.

Each round copies to folders that are new, and ours and the tool take turns at going first. Nothing is
deleted before the last copy is made: a file system such as ext4 shuns the places of files that were
deleted a moment ago, and whoever makes files then pays for the search."""

import pathlib
import statistics
import sys

import measure

SIZES = {10_000: 5, 100_000: 2}  # files in one folder, and how many rounds


def _to_drive(path):
    return "Z:" + str(path).replace("/", "\\")


class _Trees:
    """A source of so many files, with what is copied from it."""

    def __init__(self, tessel, pack, work, environment, count):
        self._tessel, self._pack, self._environment = tessel, pack, environment
        self._folder = work / str(count)
        self._source = self._folder / "source"
        self._count = count
        self._source.mkdir(parents=True)
        for number in range(count):
            pathlib.Path(self._source, f"file {number:06}.dat").write_bytes(b"x" * 100)

    def _pair(self, what, number, body, peer):
        patch = self._pack(self._folder, f"{what} {number}", f"{body}<exit code='0'/>")
        return measure.run_pair([self._tessel, "/encfile", str(patch)], peer, self._environment,
                                ours_first=number % 2 == 0)

    def _copies(self, number):
        return self._folder / f"copy {number}", self._folder / f"peer's copy {number}"

    def find(self, number):
        body = (f"<fileFind dir='{_to_drive(self._source)}' pattern='*' var='all' delim=';'"
                " depth='9'/>")
        return self._pair("find", number, body, ["find", self._source])

    def copy(self, number):
        ours, peers = self._copies(number)
        body = f"<dirCopyRec src='{_to_drive(self._source)}' dest='{_to_drive(ours)}'/>"
        pair = self._pair("copy", number, body, ["cp", "-r", self._source, peers])
        if len(list(ours.iterdir())) != self._count:
            sys.exit(f"the copy has not {self._count} files")
        return pair

    def delete(self, number):
        ours, peers = self._copies(number)
        body = f"<dirDeleteRec path='{_to_drive(ours)}'/>"
        pair = self._pair("delete", number, body, ["rm", "-rf", peers])
        if ours.exists():
            sys.exit("the copy was not deleted")
        return pair


def rows(tessel, pack, work, environment):
    """Rows of the table, of the round with the median ratio each; `pack(folder, name, body)` makes a
    patch."""
    trees = {count: _Trees(tessel, pack, work, environment, count) for count in SIZES}
    few, many = SIZES
    table = []
    for what, peer, target in (("find", "find", "2"), ("copy", "cp -r", "1.5"),
                               ("delete", "rm -rf", "1.5")):
        ours = {}
        for count, rounds in SIZES.items():
            pairs = [getattr(trees[count], what)(number) for number in range(rounds)]
            mine, theirs = sorted(pairs, key=lambda pair: pair[0] / pair[1])[rounds // 2]
            table.append((f"{what} {count:,} files", mine, peer, theirs, target))
            ours[count] = statistics.median(pair[0] for pair in pairs)
        table.append((f"{what} {many:,} files", ours[many], f"{few:,} files", ours[few], "12"))
    return table
