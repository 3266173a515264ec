#!/usr/bin/python3
"""Breaks off runs and takes away their disk, and looks at what that leaves in the spool folder.

    spool_faults.py --tessel TESSEL --tlx TLX --key PEM --json OUT

For the native program. The faults of the disk need root, for a mount of their own. --json gets
{"passed": n, "failed": n, "skipped": n, "failures": [...]}.
"""

import argparse
import json
import os
import pathlib
import random
import shlex
import subprocess
import sys
import tempfile
import time

import spooled_events

_SCRIPT = """<?xml version="1.0" encoding="UTF-8"?>
<patch version="1.0">
  <header>
    <property name="id" value="spool"/>
    <property name="patchType" value="external"/>
    <property name="created" value="{now}"/>
  </header>
  <script><exit code="3"/></script>
</patch>
"""
_KILLS = 200
_RUNS_AT_ONCE = 100
_EXIT_CODE = -3 & 0xFF
# Seeded, so that a failure comes again.
_RANDOM = random.Random(20)


class Fault(Exception):
    """What a run left that it should not."""


class Bench:
    """A machine of version 6.1, which runs a patch without asking for its catalog, and the patch."""

    def __init__(self, options, root):
        self.tessel = pathlib.Path(options.tessel).resolve()
        self.machine = root / 'machine'
        self.install = self.machine / 'Program Files' / 'Ambry Shield'
        self.spool = self.install / 'matrix' / 'events'
        self.patch = root / 'patch.tlx'
        subprocess.run([options.tlx, 'machine', 'create', self.machine, '--windows', '7'],
                       check=True)
        self.install.mkdir(parents=True, exist_ok=True)
        script = root / 'script.xml'
        script.write_text(_SCRIPT.format(now=int(time.time())), encoding='utf-8')
        subprocess.run([options.tlx, 'pack', '--key', options.key, '--in', script, '--out',
                        self.patch], check=True)
        self.environment = dict(os.environ, TESSEL_MACHINE=str(self.machine))

    def command(self):
        return [str(self.tessel), '/encfile', str(self.patch), '/diagnostic']

    def start(self):
        return subprocess.Popen(self.command(), env=self.environment, stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE)

    def run_in(self, preparation):
        """Runs behind a shell's preparation that can mount what nobody else sees. Returns the exit
        code and the lines of the trace."""
        line = f'{preparation} && exec {shlex.join(self.command())}'
        run = subprocess.run(['unshare', '--mount', '--propagation', 'private', 'sh', '-c', line],
                             env=self.environment, capture_output=True, text=True, check=False)
        return run.returncode, run.stdout.split('\n'), run.stderr


def _expect(condition, text):
    if not condition:
        raise Fault(text)


def killed_at_any_moment(bench):
    """Whole events and ".tmp" files are all that a killed run leaves."""
    started = time.monotonic()
    bench.start().communicate()
    length = time.monotonic() - started
    for _ in range(_KILLS):
        run = bench.start()
        # The second half, where the event is written, is hit twice as often.
        time.sleep(length * max(_RANDOM.random(), _RANDOM.random()) * 1.1)
        run.kill()
        run.communicate()
        events = spooled_events.load(bench.spool)
        _expect(all(event['exit_code'] == -3 for event in events), f'a wrong event: {events}')
    _expect(events, 'no run came to its end: the kills prove nothing')
    _expect(len(events) <= _KILLS, 'every run came to its end: the kills prove nothing')


def many_at_once(bench):
    """Each of many runs leaves its one event."""
    before = len(spooled_events.load(bench.spool))
    runs = [bench.start() for _ in range(_RUNS_AT_ONCE)]
    for run in runs:
        _, words = run.communicate()
        _expect(run.returncode == _EXIT_CODE, f'a run ended with {run.returncode}: {words}')
    count = len(spooled_events.load(bench.spool)) - before
    _expect(count == _RUNS_AT_ONCE, f'{_RUNS_AT_ONCE} runs left {count} events')


def _without_disk(bench, preparation, last_words):
    code, trace, words = bench.run_in(preparation)
    _expect(code == _EXIT_CODE, f'the exit code is {code}: {words}')
    _expect(last_words in trace, '\n'.join([f'the trace has no {last_words!r}'] + trace))
    _expect('End execution' in trace, 'the run did not come to its end')


def full_disk(bench):
    """The trace tells of it, and nothing else does."""
    place = shlex.quote(str(bench.spool))
    _without_disk(bench, f'mount -t tmpfs -o size=64k none {place} && '
                  f'{{ cat /dev/zero > {place}/fill.tmp 2>/dev/null || true; }}',
                  'Error writing the event: ios_base::failbit set: iostream error')


def read_only_folder(bench):
    place = shlex.quote(str(bench.spool))
    _without_disk(bench, f'mount -t tmpfs -o ro none {place}', 'ToolRan::Process result = [1006]')


def file_in_place_of_the_folder(bench):
    place = shlex.quote(str(bench.install / 'matrix'))
    fresh = f'mount -t tmpfs none {place} && '
    _without_disk(bench, fresh + f'touch {place}/events', 'ToolRan::Process result = [1006]')


def file_in_place_of_the_parent(bench):
    place = shlex.quote(str(bench.install))
    _without_disk(bench, f'mount -t tmpfs none {place} && touch {place}/matrix',
                  'ToolRan::Process result = [1359]')


def main():
    parser = argparse.ArgumentParser(description='Breaks the spool.')
    parser.add_argument('--tessel', required=True)
    parser.add_argument('--tlx', required=True)
    parser.add_argument('--key', required=True)
    parser.add_argument('--json', required=True)
    options = parser.parse_args()
    tests = [killed_at_any_moment, many_at_once]
    of_the_disk = [full_disk, read_only_folder, file_in_place_of_the_folder,
                   file_in_place_of_the_parent]
    can_mount = subprocess.run(['unshare', '--mount', 'true'], capture_output=True,
                               check=False).returncode == 0
    tests += of_the_disk if can_mount else []
    failures = []
    with tempfile.TemporaryDirectory(prefix='tessel-spool.') as root:
        bench = Bench(options, pathlib.Path(root).resolve())
        for test in tests:
            try:
                test(bench)
            except (Fault, spooled_events.BrokenEvent) as fault:
                failures.append(f'spool {test.__name__}: {fault}')
                print(f'FAILED  {failures[-1]}\n')
    summary = {'passed': len(tests) - len(failures), 'failed': len(failures),
               'skipped': 0 if can_mount else len(of_the_disk), 'failures': failures}
    pathlib.Path(options.json).write_text(json.dumps(summary, indent=1) + '\n', encoding='utf-8')
    print('{passed} passed, {failed} failed, {skipped} skipped'.format(**summary))
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
