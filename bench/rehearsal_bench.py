"""Measures what a rehearsal costs beside the run itself, that it costs no more on a large machine, and how a commit
grows with what it changes."""

import subprocess

import measure

FILES = 100_000
TIMES = 10
COMMITS = 3
KEPT = 60  # milliseconds that a view may cost whatever the run does


def _fill(machine):
    for folder in range(FILES // 1000):
        place = machine / f"filled {folder:03}"
        place.mkdir()
        for number in range(1000):
            (place / f"file {number:03}.dat").touch()


def _times(command, environment):
    return [measure.run(command, environment) for _ in range(TIMES)]


def _apply(tlx, pack, work, environment, count):
    """Milliseconds of a patch that is applied, with so many new files, on a new machine in `work` each."""
    source = work / f"{count} files"
    source.mkdir()
    for number in range(count):
        (source / f"file {number:05}.dat").write_bytes(b"x" * 100)
    patch = pack(work, f"apply {count}", f"<dirCopyRec src='{measure.to_drive(source)}' dest='C:\\new'>"
                 "<onerror><exit code='1'/></onerror></dirCopyRec><exit code='0'/>")
    times = []
    for number in range(COMMITS):
        machine = work / f"machine {count} {number}"
        subprocess.run([tlx, "machine", "create", "--windows", "7", machine], check=True)
        times.append(measure.run([str(tlx), "apply", str(patch)],
                                 dict(environment, TESSEL_MACHINE=str(machine))))
    return times


def rows(tessel, tlx, pack, work, environment):
    """The table's rows; `pack(folder, name, body)` makes a patch."""
    machine = work / "rehearsed"
    subprocess.run([tlx, "machine", "create", "--windows", "7", machine], check=True)
    named = dict(environment, TESSEL_MACHINE=str(machine))
    patch = pack(work, "rehearsed", "<regWrite root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\bench' "
                 "value='a' type='REG_SZ' data='b'/><fileCreate path='C:\\bench'/><exit code='0'/>")
    run, rehearsal = [str(tessel), "/encfile", str(patch)], [str(tlx), "rehearse", str(patch)]
    small = _times(rehearsal, named)
    _fill(machine)
    large = _times(rehearsal, named)
    yield from [
        measure.Row("rehearse on 100,000 files", large, "half of 60 ms, and the run",
                    [KEPT / 2 + time for time in _times(run, named)], 2),
        measure.Row("rehearse on 100,000 files", large, "a new machine", small, 1.5),
    ]
    # Each run removes what it has prepared, which on a disk may count against the next one's files.
    with measure.memory_or(work) as place:
        yield measure.Row("apply 10,000 new files", _apply(tlx, pack, place, environment, 10_000),
                          "1,000 new files", _apply(tlx, pack, place, environment, 1_000),
                          measure.GROWTH)
