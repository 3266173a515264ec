#!/usr/bin/env python3
"""Lists and follows the events of several machines and folders, and has a log shipper send them.

    events.py --linux TESSEL --tlx TLX --key PEM --json OUT [--filter GLOB] [-v] [--shipper FOLDER]

The row of the shipper is skipped without --shipper (scripts/log-shipper gives the folder), and where
there are no namespaces.
"""

import collections
import json
import os
import pathlib
import pty
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading

import jsonschema

import world
from event_files import Follower, START, list_events, spool_of, write
from world import expect

ROOT = pathlib.Path(__file__).resolve().parents[2]
CONFIGURATION = ROOT / 'docs' / 'samples' / 'syslog-ng-tessel.conf'
RECORD = json.loads((ROOT / 'docs' / 'event-record.schema.json').read_text(encoding='utf-8'))
EVIL = '\x9b31m"\\\u202e\u200d\U000e0041é\x7f'
# The zone is one hour ahead of UTC, and in 2026 two from 29 March to 25 October.
ZONE = 'CET-1CEST,M3.5.0,M10.5.0/3'
BEFORE = 1_774_738_800_000  # 2026-03-28T23:00Z
# What --since takes, and the moment from BEFORE that it is, in minutes; None for what it refuses.
MOMENTS = {
    '2026-03-28T23:00Z': 0, '2026-03-29': 0, '2026-03-29 00:00:00.000': 0, '2026-03-29T00:00+01:00': 0,
    '2026-03-28T18:00-0500': 0, '2026-03-29T03:30': 150, '2026-03-29T02:30': 150,
    '2026-03-29T00:00:60': 1, '': None, '2026-02-29': None, '2026-03-29T24:00': None, '20260329': None,
    '2026-03-29T00:00:00.Z': None, '2026-03-29T00:00Zx': None, '2026-03-29Z': None, '3': None,
    '3d2': None, 'd': None, '-1d': None, '99999999999d': None,
}


class Events(world.World):
    """A machine that patches run on, and one that only has events."""

    def __init__(self, options, folder):
        super().__init__(options.linux, options.tlx, options.key, folder)
        self.runs, self.other = folder / 'runs', folder / 'other'
        # The old kind takes patches that nobody signed.
        self.tool('machine', 'create', self.runs, '--windows', '7')
        self.tool('machine', 'create', self.other)
        self.shipper = options.shipper

    def run(self, folder, code):
        """A run of the product on the first machine. Gives its event's file."""
        before = set(os.listdir(spool_of(self.runs))) if spool_of(self.runs).is_dir() else set()
        self.pack(folder / 'run.tlx', f'<exit code="{code}"/>')
        subprocess.run([self.tessel, '/encfile', folder / 'run.tlx'], check=False, capture_output=True,
                       env={**os.environ, 'TESSEL_MACHINE': str(self.runs)}, timeout=world.TIME_LIMIT)
        new = set(os.listdir(spool_of(self.runs))) - before
        expect(len(new) == 1, f'the run left {new}')
        return new.pop()


def listed(this, folder):
    """Events of several places are one list by time; filters and totals count what they say."""
    spool = folder / 'spool'
    ran = this.run(folder, 7)
    rows = [(spool, START + 1, 'b', 'success', 0), (spool_of(this.other), START + 1, 'z', 'PatchExpired', 1636),
            (spool, START + 1, 'a', '-3', -3), (spool, START, 'c', 'success', 0)]
    for place, moment, name, reason, code in rows:
        write(place, moment, reason, code, name)
    places = (this.other, spool, spool / '..' / 'spool', this.runs)
    lines, _ = list_events(this.tlx, '--records', *places)
    records = [json.loads(line) for line in lines]
    for record in records:
        jsonschema.validate(record, RECORD)
    expect([record['id'] for record in records] == ['c', 'z', 'a', 'b', ran], f'{records}')
    expect([record.get('machine', record.get('spool')) for record in records] ==
           list(map(str, (spool, this.other, spool, spool, this.runs))), f'{records}')
    expect(records[0]['time'] == '2023-11-14T22:13:20.000Z' and records[1]['code'] == 1636, f'{records}')
    table, _ = list_events(this.tlx, *places)
    expect([line.split()[-1] for line in table[1:4]] == list(map(str, (spool, this.other, spool))),
           f'{table}')
    spooled, _ = list_events(this.tlx, '--json', *places)
    expect([json.loads(line)['data']['fields'] for line in spooled] ==
           [record['event'] for record in records], f'{spooled}')
    for words, names in (
            (('--reason', 'success'), ['c', 'b']), (('--reason', '-3', '--reason', 'PatchExpired'), ['z', 'a']),
            (('--since', '1h'), [ran]), (('--since', '2023-11-14T22:13:20.001Z'), ['z', 'a', 'b', ran])):
        lines, _ = list_events(this.tlx, '--records', *words, *places)
        expect([json.loads(line)['id'] for line in lines] == names, f'{words}: {lines}')
    counted, _ = list_events(this.tlx, '--totals', '--json', *places)
    seen = collections.Counter()
    for record in map(json.loads, counted):
        origin = record.get('machine', record.get('spool', 'all'))
        seen[origin if origin == 'all' else pathlib.Path(origin).name, record['reason']] = record['count']
    expect(seen == {('other', 'PatchExpired'): 1, ('spool', 'success'): 2, ('spool', '-3'): 1,
                    ('runs', '-7'): 1, ('all', 'PatchExpired'): 1, ('all', 'success'): 2,
                    ('all', '-3'): 1, ('all', '-7'): 1}, f'{seen}')
    _, errors = list_events(this.tlx, '--reason', 'success ', spool, code=2)
    expect('PatchAnotherInstanceRunning\n' in errors, errors)


def moments(this, folder):
    """Times are those of the calendar, in the zone that they have or this computer's."""
    names = {minutes: write(folder / 's', BEFORE + minutes * 60_000) for minutes in (-1, 0, 1, 149, 150)}
    for text, first in MOMENTS.items():
        lines, _ = list_events(this.tlx, '--records', '--since', text, folder / 's',
                               code=2 if first is None else 0, zone=ZONE)
        expected = [name for minutes, name in names.items() if first is not None and minutes >= first]
        expect([json.loads(line)['id'] for line in lines] == expected, f'{text}: {lines}')


def hostile(this, folder):
    """What is no event is told with its path, on a line, and keeps nothing else from being listed."""
    spool = folder / 'spool'
    good = [write(spool, patch=EVIL), write(spool, 2**62), write(spool, -1), write(spool, name='a\n\x1b[2J')]
    os.mkfifo(spool / 'pipe')
    (spool / 'link').symlink_to(spool / good[0])
    (spool / 'gone').symlink_to('nowhere')
    (spool / 'folder').mkdir()
    with socket.socket(socket.AF_UNIX) as one:
        one.bind(os.path.relpath(spool / 'socket'))
    with (spool / 'huge').open('wb') as file:
        file.truncate(1 << 40)
    (spool / 'line\nbreak\x1b[2J').write_bytes(b'\0' * 100)
    (spool / 'back\\slash').write_bytes(b'{}')
    (spool / 'raw\xff'.encode('latin-1').decode('utf-8', 'surrogateescape')).write_bytes(b'')
    (folder / 'file').write_bytes(b'')
    lines, errors = list_events(this.tlx, '--records', folder / 'file', spool, folder / 'missing', code=1)
    expect(sorted(json.loads(line)['id'] for line in lines) == sorted(good), f'{lines}')
    for record in map(json.loads, lines):
        jsonschema.validate(record, RECORD)
    told = errors.splitlines()
    for name in ('/pipe', '/link', '/gone', '/socket', '/huge', r'/line\x0Abreak\x1B[2J', r'/back\slash',
                 '/file', '/missing'):
        expect(sum(f'{name}: error: ' in line for line in told) == 1, f'{name}: {errors}')
    expect(len(told) == 10 and '\x1b' not in errors, errors)
    for form in ((), ('--json',), ('--records',), ('--totals',)):
        leader, follower = pty.openpty()
        subprocess.run([this.tlx, 'events', *form, spool], stdout=follower, stderr=subprocess.DEVNULL,
                       check=False, timeout=world.TIME_LIMIT)
        os.close(follower)
        shown = b''
        try:
            while part := os.read(leader, 65536):
                shown += part
        except OSError:  # the terminal has no other end any more
            pass
        os.close(leader)
        shown = shown.decode().replace('\r\n', '')
        expect(shown.isprintable(), f'{form}: {shown!r}')


def arrives(this, folder):
    """What comes while a listing goes on, and later, is told once; folders come, go and come again."""
    late, busy, machine = folder / 'late', folder / 'busy', folder / 'machine'
    names = [write(busy) for _ in range(50)]
    writers = [threading.Thread(target=lambda: names.extend([write(busy) for _ in range(100)]))
               for _ in range(3)]
    for writer in writers:
        writer.start()
    with Follower(this.tlx, this.runs, busy, late, machine, busy) as follower:
        for writer in writers:
            writer.join()
        names += os.listdir(spool_of(this.runs)) if spool_of(this.runs).is_dir() else []
        names += [write(late), this.run(folder, 1)]
        follower.until(names)
        (late / 'draft.tmp').write_bytes(b'')
        kept = names[-2]
        shutil.rmtree(late)
        shutil.rmtree(busy)
        this.tool('machine', 'create', machine)
        names += [write(busy), write(spool_of(machine))]
        write(late, name=kept)
        names += [write(late)]
        follower.until(names)
        machine.rename(folder / 'away')
        (folder / 'away').rename(machine)
        names += [write(spool_of(machine)), this.run(folder, 0)]
        follower.until(names)
        code = follower.end(signal.SIGTERM)
    expect(code == 0, f'it ended with {code}')


def half_written(this, folder):
    """A file may be written where it stands; one that doesn't become an event is told once."""
    spool = folder / 'spool'
    whole = (folder / 'whole') / write(folder / 'whole')
    spool.mkdir()
    with Follower(this.tlx, spool) as follower:
        names = [write(spool)]
        follower.until(names)
        text = whole.read_bytes()
        with (spool / 'slow').open('wb', buffering=0) as slow:
            slow.write(text[:50])
            os.mkfifo(spool / 'pipe')
            names.append(write(spool))
            follower.until(names)
            slow.write(text[50:])
        follower.until([*names, 'slow'])
        follower.until_error(f'{spool}/pipe: error: ')
        code = follower.end(signal.SIGINT)
        expect(code == 1 and follower.errors.empty(), f'it ended with {code}')


def reader_goes(this, folder):
    """It ends when nobody reads any more, and when it is asked to while nobody does yet."""
    spool = folder / 'spool'
    for _ in range(500):
        write(spool)
    for asked in (False, True):
        with subprocess.Popen([this.tlx, 'events', '--follow', '--json', spool],
                              stdout=subprocess.PIPE) as running:
            running.stdout.readline()
            if asked:
                running.terminate()
            else:
                running.stdout.close()
            expect(running.wait(world.TIME_LIMIT) == 0, f'asked {asked}: {running.returncode}')


def many(this, folder):
    """As many folders as a host has neither descriptors nor watches for."""
    spools = [folder / str(index) for index in range(1100)]
    names = [write(spool) for spool in spools]
    with Follower(this.tlx, *spools) as follower:
        follower.until(names)
        names += [write(spool) for spool in spools[::100]]
        follower.until(names)
        expect(follower.end(signal.SIGTERM) == 0, 'it failed')


IN_NAMESPACES = [
    'unshare', '--map-root-user', '--mount', '--net', '--pid', '--fork', '--kill-child', 'sh', '-ec',
    'mount --bind "$1" /srv; mount --bind "$2" /etc/hosts; shift 2; exec "$@"', '-']


def shipped(this, folder):
    """The shipper, configured as documented, delivers all events, each as it is."""
    machines = folder / 'srv' / 'machines'
    for name in ('one', 'two'):
        this.tool('machine', 'create', machines / name)
    written = {write(spool_of(machines / name), START + 1, reason, 3, patch=text)
               for name, reason, text in (('one', 'success', EVIL), ('two', 'PatchExpired', 'x' * 100_000))}
    hosts = folder / 'hosts'
    hosts.write_text('127.0.0.1 logs.example.com\n', encoding='utf-8')
    state = folder / 'state'
    state.mkdir()
    count = 40
    with subprocess.Popen(
            [*IN_NAMESPACES, folder / 'srv', hosts, sys.executable, ROOT / 'tests' / 'patches' / 'shipped.py',
             this.shipper, CONFIGURATION, state, str(count)], stdout=subprocess.PIPE,
            env={**os.environ, 'PATH': f'{pathlib.Path(this.tlx).resolve().parent}:{os.environ["PATH"]}'}
    ) as running:
        messages = [json.loads(running.stdout.readline()) for _ in range(2)]
        written |= {write(spool_of(machines / 'one'), START + 2) for _ in range(count - 2)}
        messages += [json.loads(line) for line in running.stdout]
    expect(running.returncode == 0 and len(messages) == count, f'it ended with {running.returncode}')
    records = []
    for message in messages:
        head, _, text = message.partition('] ')
        records.append(json.loads(text))
        priority = '<13>' if records[-1]['reason'] == 'success' else '<12>'
        expect(head.startswith(f'{priority}1 2023-11-14T22:13:20.00') and records[-1]['machine'] in head, head)
    places = [f'{machines}/{name}' for name in ('one', 'two')]
    true = [json.loads(line) for line in list_events(this.tlx, '--records', *places)[0]]
    for record in true:
        record['machine'] = record['machine'].removeprefix(str(folder))

    def by_id(record):
        return record['id']

    expect(sorted(records, key=by_id) == sorted(true, key=by_id) and
           {record['id'] for record in records} == written, f'{records}')


ROWS = {'listed': (listed,), 'moments': (moments,), 'hostile': (hostile,),
        'follow/arrives': (arrives,), 'follow/half-written': (half_written,),
        'follow/reader': (reader_goes,), 'follow/many': (many,), 'shipper': (shipped,)}


def lacks_for_shipper(options):
    if not options.shipper:
        return 'there is no log shipper'
    probe = subprocess.run([*IN_NAMESPACES, '/srv', '/etc/hosts', 'true'], capture_output=True,
                           text=True, check=False)
    if probe.returncode != 0:
        return f'no namespaces for the log shipper: {probe.stderr.strip()}'
    return None


def main():
    parser = world.option_parser('Lists, follows and ships the events of several machines.')
    parser.add_argument('--shipper', metavar='FOLDER', help='with syslog-ng')
    options = parser.parse_args()
    reason = lacks_for_shipper(options)
    with tempfile.TemporaryDirectory(prefix='tessel-events.') as name:
        this = Events(options, pathlib.Path(name).resolve())

        def run(row, action):
            folder = this.folder / row.replace('/', '.')
            folder.mkdir()
            return world.fault_of(lambda: action(this, folder))

        return world.run_rows(((row, *rest) for row, rest in ROWS.items()), options,
                              lambda row: reason if row == 'shipper' else None, run)


if __name__ == '__main__':
    sys.exit(main())
