"""Measures writing to the registry."""

import shutil

import measure

TIMES = 10


def _script(count):
    return ("<regCreateKey root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\Bench'/><assign var='i' value='0'/>"
            "<addInt id='again' var='i' value='1'/>"
            "<regWrite root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\Bench' value='value %i%'"
            " data='data of %i%' type='REG_SZ'><onerror><exit code='1'/></onerror></regWrite>"
            f"<test left='%i%' operator='&lt;' right='{count}' type='number'>"
            "<onTrue><goto target='again'/></onTrue></test>"
            "<exit code='0'/>")


def rows(tessel, pack, work, environment):
    """The table's row. `pack(folder, name, body)` makes a patch; each run has a new machine. The time
    is the best run's, less the best of a script that writes nothing."""
    nothing = pack(work, "write nothing", "<exit code='0'/>")
    figures = []
    for count in (10_000, 1_000):
        patch = pack(work, f"write {count}", _script(count))
        pairs = []
        for number in range(TIMES):
            folder = work / f"machine {count} {number}"
            shutil.copytree(environment["TESSEL_MACHINE"], folder)
            machine = dict(environment, TESSEL_MACHINE=str(folder))
            idle, writes = ([tessel, "/encfile", str(each)] for each in (nothing, patch))
            measure.run(idle, machine)
            pairs.append((measure.run(idle, machine), measure.run(writes, machine)))
        best_idle, best = map(min, zip(*pairs))
        figures.append(best - best_idle)
    return [measure.Row("10,000 regWrites to one key", figures[0], "1,000 regWrites", figures[1], 12)]
