"""Measures writing to the registry."""

import shutil

import measure

TIMES = 6
PEER_TIMES = 3  # of a tool that takes seconds


def _script(count):
    return ("<regCreateKey root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\Bench'/><assign var='i' value='0'/>"
            "<addInt id='again' var='i' value='1'/>"
            "<regWrite root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\Bench' value='value %i%'"
            " data='data of %i%' type='REG_SZ'><onerror><exit code='1'/></onerror></regWrite>"
            f"<test left='%i%' operator='&lt;' right='{count}' type='number'>"
            "<onTrue><goto target='again'/></onTrue></test>"
            "<exit code='0'/>")


def _copy(environment, folder):
    shutil.copytree(environment["TESSEL_MACHINE"], folder)
    return dict(environment, TESSEL_MACHINE=str(folder))


def _less_idle(commands, environment, folder, idle):
    """Milliseconds of each command, whose runs take turns, less those of an idle run just before. Each
    has a new copy of the machine."""
    times = [[] for _ in commands]
    for _ in range(TIMES):
        for figures, command in zip(times, commands):
            machine = _copy(environment, folder)
            measure.run(idle, machine)
            without = measure.run(idle, machine)
            figures.append(measure.run(command, machine) - without)
            shutil.rmtree(machine["TESSEL_MACHINE"])
    return times


def _many_writes(run, work, environment, idle):
    commands = [run(f"write {count}", _script(count)) for count in (10_000, 1_000)]
    many, few = _less_idle(commands, environment, work / "writing machine", idle)
    return measure.Row("10,000 regWrites to one key", many, "1,000 regWrites", few, measure.GROWTH)


def _large_hives(run, work, environment):
    """One read and one write, in a large hive and in a small one."""
    fill = ("<regCreateKey root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\Bench'/><assign var='v' value='x'/>"
            + "<assign var='v' value='%v%%v%'/>" * 19
            + "<assign var='i' value='0'/><addInt id='again' var='i' value='1'/>"
            "<regCreateKey root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\Bench\\%i%'/>"
            "<regWrite root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\Bench\\%i%' value='v' data='%v%'"
            " type='REG_SZ'><onerror><exit code='1'/></onerror></regWrite>"
            "<test left='%i%' operator='&lt;' right='COUNT' type='number'>"
            "<onTrue><goto target='again'/></onTrue></test><exit code='0'/>")
    touch = run("touch", "<regRead root='HKEY_LOCAL_MACHINE' key='SOFTWARE\\Microsoft\\Windows NT\\"
                "CurrentVersion' value='ProductName' var='a'/><regWrite root='HKEY_LOCAL_MACHINE'"
                " key='SOFTWARE\\Bench\\1' value='new' data='text' type='REG_SZ'>"
                "<onerror><exit code='1'/></onerror></regWrite><exit code='0'/>")
    machines = {}
    for count in (100, 1):  # of a megabyte each
        machines[count] = _copy(environment, work / f"machine of {count} MB")
        measure.run(run(f"fill {count}", fill.replace("COUNT", str(count))), machines[count])
    times = {count: [] for count in machines}
    for _ in range(TIMES):
        for count, machine in machines.items():
            times[count].append(measure.run(touch, machine))
    memory = measure.peak(touch, machines[100])
    for machine in machines.values():
        shutil.rmtree(machine["TESSEL_MACHINE"])
    return [measure.Row("read and write in 100 MB", times[100], "in a hive of 1 MB", times[1], 2),
            measure.Row("the same: memory", memory, "that hive", 100, 0.25, "MB")]


def _beside_hivex(run, work, environment, idle):
    """The same thousand changes, each of which is in the files before the next one begins."""
    script = _script(1_000).replace("regWrite", "regCreateKey")
    script = script.replace("SOFTWARE\\Bench' value='value %i%' data='data of %i%' type='REG_SZ'",
                            "SOFTWARE\\Bench\\key %i%'")
    ours, = _less_idle([run("make keys", script)], environment, work / "ours", idle)
    commands = work / "hivexsh"
    commands.write_text("cd \\\nadd Bench\ncd Bench\n" + "".join(
        f"add key {i}\ncommit\n" for i in range(1, 1001)))
    peers = []
    for _ in range(PEER_TIMES):
        hive = work / "hive"
        shutil.copy(f"{environment['TESSEL_MACHINE']}/Windows/System32/config/SOFTWARE", hive)
        peers.append(measure.run(["hivexsh", "-w", "-f", str(commands), str(hive)], environment))
    return measure.Row("1,000 keys, each kept", ours, "hivexsh, each committed", peers, 0.5)


def rows(tessel, pack, work, environment):
    """The table's rows. `pack(folder, name, body)` makes a patch; each run has a new machine."""
    def run(name, body):
        return [tessel, "/encfile", str(pack(work, name, body))]

    idle = run("write nothing", "<exit code='0'/>")
    yield _many_writes(run, work, environment, idle)
    yield from _large_hives(run, work, environment)
    yield _beside_hivex(run, work, environment, idle)
