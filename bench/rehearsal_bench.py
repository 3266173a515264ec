"""Measures what a rehearsal costs beside the run itself, and that it costs no more on a large machine."""

import subprocess

import measure

FILES = 100_000
TIMES = 10
KEPT = 60  # milliseconds that a view may cost whatever the run does


def _fill(machine):
    for folder in range(FILES // 1000):
        place = machine / f"filled {folder:03}"
        place.mkdir()
        for number in range(1000):
            (place / f"file {number:03}.dat").touch()


def _best(command, environment):
    return min(measure.run(command, environment) for _ in range(TIMES))


def rows(tessel, tlx, pack, work, environment):
    """The table's rows; `pack(folder, name, body)` makes a patch."""
    machine = work / "rehearsed"
    subprocess.run([tlx, "machine", "create", "--windows", "7", machine], check=True)
    named = dict(environment, TESSEL_MACHINE=str(machine))
    patch = pack(work, "rehearsed", "<regWrite root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\bench' "
                 "value='a' type='REG_SZ' data='b'/><fileCreate path='C:\\bench'/><exit code='0'/>")
    run, rehearsal = [str(tessel), "/encfile", str(patch)], [str(tlx), "rehearse", str(patch)]
    small = _best(rehearsal, named)
    _fill(machine)
    large = _best(rehearsal, named)
    return [
        measure.Row("rehearse on 100,000 files", large, "half of 60 ms, and the run",
                    KEPT / 2 + _best(run, named), 2),
        measure.Row("rehearse on 100,000 files", large, "a new machine", small, 1.5),
    ]
