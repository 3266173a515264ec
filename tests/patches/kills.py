#!/usr/bin/python3
"""Kills runs at each of their writes to the registry, and lets many write at once.

    kills.py --tessel TESSEL --tlx TLX --key PEM [--json OUT] [--jobs N]

For the native program. After a kill the hives, completed from their logs by a reader that shares
nothing with the program, hold what they held after some finished command, and none that had finished
is missing; the next run goes on from there, and other readers read what it leaves. --json gets
{"passed": n, "failed": n, "skipped": n, "failures": [...]}, counted per run.
"""

import multiprocessing
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

import failing_calls
import hive_logs
import world
from world import expect

_HIVES = pathlib.Path('Windows', 'System32', 'config')
_NAMES = ('SOFTWARE', 'SYSTEM')
_ROOT = 'root="HKEY_LOCAL_MACHINE"'
_KEY = f'{_ROOT} key="SOFTWARE\\Kills'
_SERVICE = 'serviceType="16" startType="3" errorControl="1" path="C:\\a.exe"'
_TREE = [f'<regCreateKey {_KEY}\\Tree\\{name}\\Deep"/>' for name in 'abc']
_COMMANDS = [
    f'<regCreateKey {_KEY}\\Below"/>',
    f'<regWrite {_KEY}" value="text" type="REG_SZ" data="one"/>',
    f'<regWrite {_KEY}" value="large" type="REG_SZ" data="{"x" * 30000}"/>',
    *_TREE,
    f'<serviceCreate name="KillsA" {_SERVICE} dependencies="RpcSs"/>',
    f'<serviceCreate name="KillsB" {_SERVICE}/>',
    f'<regWrite {_KEY}" value="text" type="REG_SZ" data="two"/>',
    '<serviceDelete name="KillsA"/>',
    f'<regDeleteKey {_KEY}\\Tree"/>',
    f'<regDeleteValue {_KEY}" value="large"/>',
    f'<regWrite {_KEY}\\Below" value="last" type="REG_DWORD" data="7"/>',
]
_WRITES = ('write', 'pwrite', 'ftruncate', 'fdatasync')
_TOGETHER = 24


def _export(content):
    """The keys and values of a hive, as text."""
    with tempfile.NamedTemporaryFile() as file:
        file.write(content)
        file.flush()
        return subprocess.run(['hivexregedit', '--export', file.name, '\\'], check=True,
                              capture_output=True).stdout


def _state(machine):
    return [_export(hive_logs.replayed(machine / _HIVES / name)) for name in _NAMES]


class Bench(world.World):
    def __init__(self, options, root):
        super().__init__(pathlib.Path(options.tessel).resolve(), options.tlx, options.key, root)
        self.template = root / 'template'
        self.tool('machine', 'create', self.template, '--windows', '7')
        self.patch = self._packed('all', _COMMANDS)
        self.more = self._packed('more', [f'<regCreateKey {_ROOT} key="{name}\\Next"/>'
                                          for name in _NAMES])
        self.states = []  # after so many commands
        for count in range(len(_COMMANDS) + 1):
            with self.machine() as machine:
                self.run(self._packed(f'first {count}', _COMMANDS[:count]), machine)
                self.states.append(_state(machine))
        expect(len({str(state) for state in self.states}) == len(self.states), 'two states are one')

    def _packed(self, name, commands):
        patch = self.folder / f'{name}.tlx'
        self.pack(patch, ''.join(commands) + '<exit code="0"/>')
        return patch

    def machine(self):
        return _Machine(self.template)

    def run(self, patch, machine):
        ended = subprocess.run([self.tessel, '/encfile', patch], capture_output=True, check=False,
                               env={**os.environ, 'TESSEL_MACHINE': str(machine)},
                               timeout=world.TIME_LIMIT)
        expect(ended.returncode == 0, f'{patch.name} ended with {ended.returncode}: {ended.stderr}')

    def run_and_kill(self, machine, number):
        """Returns the calls of the whole run, or the one that it was killed at."""
        environment = {**os.environ, 'TESSEL_MACHINE': str(machine)}
        with open(os.devnull, 'wb') as nowhere:
            return failing_calls.run([self.tessel, '/encfile', self.patch], environment, '/',
                                     (nowhere.fileno(),) * 2, number, failing_calls.KILL).calls

    def look_at_kill(self, number):
        with self.machine() as machine:
            self.run_and_kill(machine, number)
            trace = b''.join(file.read_bytes() for file in (machine / world.TRACES).glob('ts-*'))
            finished = trace.count(b'function end with success')
            expect(b"end with error" not in trace, 'a command failed')
            state = _state(machine)
            expect(state in self.states[finished:finished + 2],
                   f'after {finished} finished commands the registry is that after '
                   f'{self.states.index(state) if state in self.states else "none"}')
            self.run(self.more, machine)
            left = [_export((machine / _HIVES / name).read_bytes()) for name in _NAMES]
            expect([each.replace(b'[\\Next]\n\n', b'') for each in left] == state,
                   'the next run did not go on from there')
            for name in _NAMES:
                subprocess.run(['regfexport', machine / _HIVES / name], check=True,
                               capture_output=True)

    def look_at_many(self):
        """Each writes a value and makes a service, all at once."""
        with self.machine() as machine:
            self.run(self._packed('key', [f'<regCreateKey {_KEY}"/>']), machine)
            patches = [self._packed(f'one of many {i}', [
                f'<regWrite {_KEY}" value="v{i}." type="REG_SZ" data="{i}"/>',
                f'<serviceCreate name="Kills{i}." {_SERVICE}/>']) for i in range(_TOGETHER)]
            environment = {**os.environ, 'TESSEL_MACHINE': str(machine)}
            runs = [subprocess.Popen([self.tessel, '/encfile', patch], env=environment)
                    for patch in patches]
            codes = [run.wait(world.TIME_LIMIT) for run in runs]
            expect(not any(codes), f'they ended with {codes}')
            left = b''.join(_export((machine / _HIVES / name).read_bytes()) for name in _NAMES)
            lost = [i for i in range(_TOGETHER)
                    if b'"v%d."' % i not in left or b'Services\\Kills%d.]' % i not in left]
            expect(not lost, f'lost: {lost}')


class _Machine:
    """A copy of a machine, for a while."""

    def __init__(self, template):
        self._template = template
        self._folder = tempfile.TemporaryDirectory(prefix='tessel-kills.')

    def __enter__(self):
        return shutil.copytree(self._template, pathlib.Path(self._folder.name) / 'machine')

    def __exit__(self, *_):
        self._folder.cleanup()


class _Worker:
    bench = None

    @classmethod
    def begin(cls, bench):
        cls.bench = bench

    @classmethod
    def work(cls, case):
        number, call = case
        return f'kill {number} {call}', world.fault_of(lambda: cls.bench.look_at_kill(number))


def _run_all(options, outcomes):
    with tempfile.TemporaryDirectory(prefix='tessel-kills.') as root:
        bench = Bench(options, pathlib.Path(root).resolve())
        outcomes['many at once'] = world.fault_of(bench.look_at_many)
        with bench.machine() as machine:
            calls = bench.run_and_kill(machine, None)
            cases = [(number, call.replace(str(machine), '')) for number, call in enumerate(calls, 1)
                     if call.split()[0] in _WRITES and str(_HIVES) in call]
        expect(len(cases) > len(_COMMANDS), f'the run has {len(cases)} writes')
        with multiprocessing.get_context('fork').Pool(options.jobs, _Worker.begin, (bench,)) as pool:
            outcomes.update(pool.imap_unordered(_Worker.work, cases))


def main():
    parser = failing_calls.option_parser('Kills runs at their writes to the registry.')
    return failing_calls.run_and_report(parser.parse_args(), _run_all)


if __name__ == '__main__':
    sys.exit(main())
