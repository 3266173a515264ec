#!/usr/bin/env python3
"""A rehearsal tells what a run does, and what was applied can be taken back: for the scripts of all cases.

    agreement.py --linux TESSEL --tlx TLX --key PEM [--json OUT] [--filter GLOB] [-v]

Each script has a new machine, and its case's folder is C:\\case on it. The script is rehearsed, applied and
taken back, and then run by the product. The machine is looked at in between, by this program's own means and
by hivexregedit: a rehearsal and what was taken back leave it as it was, to the last bit (the registry by
content); the change set is the difference that the run makes; exit code and trace are the run's.

A rehearsal answers for what reaches beyond the machine. When it answers otherwise than the run had it, it is
rehearsed once more with `--answer`. Only where one command had several ends, or what a rehearsal didn't do
had succeeded, are the two compared no further than up to there.
"""

import concurrent.futures
import contextlib
import dataclasses
import fnmatch
import functools
import hashlib
import itertools
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

import document_cases
import example_cases
import expectations
import load_cases
import run
import script_cases
import spooled_events
import surroundings
import trees
import world
from world import expect

CASE = 'case'
_MOST_SECONDS = 20
_SAMPLES = pathlib.Path(__file__).resolve().parents[2] / 'docs' / 'samples'
_HIVE = re.compile(r'(?:Windows/System32/config/(?:SOFTWARE|SYSTEM|SAM|SECURITY|DEFAULT)'
                   r'|Users/[^/]+/NTUSER\.DAT)(\.LOG\d?)?', re.I)
_OWN = re.compile(r'C:\\ProgramData\\Tessera\\ts-N\.txt|' + re.escape(world.drive_path(world.SPOOL))
                  + r'\\[-0-9a-f]{36}')  # what a run leaves of itself
# What has its own number in each run: names of traces, and of folders that wait to be deleted; pointers.
_NUMBERED = re.compile(r'(?<=\bts-)\d+-\d+|(?<=\bdeleted_)\d+|' + run.POINTER.pattern)
_TICKS_TO_1970 = 116_444_736_000_000_000


# --- The machine, as this program sees it


def _attributes(path, status):
    bits = 0 if path.is_dir() else 0x20
    with contextlib.suppress(OSError):
        bits = int(os.getxattr(path, 'user.DOSATTRIB').split(b'\0')[0], 16) & 0x26
    return bits | (0x10 if path.is_dir() else 0) | (0 if status.st_mode & 0o222 else 1)


def _entry(path):
    """A file, folder or link in the manifest's words."""
    status = path.lstat()
    if path.is_symlink():
        return {'kind': 'link', 'target': os.readlink(path)}
    entry = {'kind': 'folder' if path.is_dir() else 'file', 'mode': f'{status.st_mode & 0o7777:04o}',
             'written': status.st_mtime_ns // 100 + _TICKS_TO_1970,
             'attributes': _attributes(path, status)}
    extended = [{'name': name, 'value': os.getxattr(path, name).hex()}
                for name in sorted(os.listxattr(path)) if name != 'user.DOSATTRIB']
    if extended:
        entry['extended'] = extended
    if entry['kind'] == 'file':
        content = path.read_bytes()
        entry |= {'size': len(content), 'digest': hashlib.sha256(content).hexdigest()}
    return entry


def _normal(text):
    return _NUMBERED.sub('N', text)


def _normal_data(data):
    """A value's data, which may name files."""
    text = bytes.fromhex(data).decode('utf-16-le', 'surrogatepass') if len(data) % 4 == 0 else ''
    return _normal(text).encode('utf-16-le', 'surrogatepass').hex() if 'deleted_' in text else data


def files_of(machine):
    """All but hives, by their paths on C:."""
    found = {}
    for place, folders, files in os.walk(machine):
        for name in folders + files:
            path = pathlib.Path(place, name)
            within = str(path.relative_to(machine))
            if not _HIVE.fullmatch(within):
                found[_normal(world.drive_path(within))] = _entry(path)
    return found


@functools.lru_cache(maxsize=256)
def keys_in(content):
    """The keys of a hive, each as its values' types and data by their names."""
    with tempfile.NamedTemporaryFile() as file:
        file.write(content)
        file.flush()
        text = subprocess.run(['hivexregedit', '--export', file.name, '\\'], check=True,
                              capture_output=True).stdout.decode('utf-8')
    keys = {}
    for line in text.split('\n\n'):
        lines = line.strip('\n').split('\n')
        if not lines[0].startswith('[\\'):
            continue
        values = keys[lines[0][2:-1]] = {}
        for row in lines[1:]:
            name, kind, data = re.fullmatch(r'(@|"(?:.*)")=(?:hex\((\w+)\)|dword):(.*)', row).groups()
            name = '' if name == '@' else re.sub(r'\\(.)', r'\1', name[1:-1])
            data = data.replace(',', '')
            values[name] = ((int(kind, 16), _normal_data(data)) if kind
                            else (4, bytes.fromhex(data)[::-1].hex()))
    return keys


def registry_of(machine):
    """All keys, by their hives and paths."""
    return {(world.drive_path(path.relative_to(machine)), key): values
            for path in machine.rglob('*')
            if (match := _HIVE.fullmatch(str(path.relative_to(machine)))) and not match[1]
            for key, values in keys_in(path.read_bytes()).items()}


@dataclasses.dataclass
class State:
    files: dict
    keys: dict


def state_of(machine):
    return State(files_of(machine), registry_of(machine))


def difference(before, after, what):
    """What is wrong when two tables should be the same."""
    rows = [f'    {key}: {before.get(key)} -> {after.get(key)}'
            for key in sorted({*before, *after}, key=str) if before.get(key) != after.get(key)]
    return '\n'.join([f'{what}:', *rows[:12], *(['    ...'] if len(rows) > 12 else [])]) if rows else ''


def expect_same(before, after, what):
    expect(not (fault := difference(before.files, after.files, what)), fault)
    expect(not (fault := difference(before.keys, after.keys, what)), fault)


# --- The change set, and the difference that a run has made


def _text(value):
    if isinstance(value, str):
        return value
    return bytes.fromhex(value['utf16']).decode('utf-16-be', 'surrogatepass')


def changes_in(manifest):
    """(before, after) of files and of registry keys, as far as they differ."""
    files = ({}, {})
    for change in manifest['files']:
        for side, where in ((0, change.get('movedFrom', change['path'])), (1, change['path'])):
            entry = change.get(('before', 'after')[side])
            if entry:
                entry = {**entry, 'written': int(entry['written'])} if 'written' in entry else entry
                files[side][_normal(_text(where))] = entry
    keys = ({}, {})
    for change in manifest['keys']:
        where = _text(change['hive']), _text(change['path'])
        for side, name in enumerate(('before', 'after')):
            if name in change:
                keys[side][where] = {_text(value['name']): (value[name]['type'], _normal_data(value[name]['data']))
                                     for value in change['values'] if name in value}
    return files, keys


def changes_between(before, after):
    files = ({}, {})
    keys = ({}, {})
    for told, was, now in ((files, before.files, after.files), (keys, before.keys, after.keys)):
        for where in {*was, *now}:
            if was.get(where) != now.get(where):
                for side, table in ((0, was), (1, now)):
                    if where in table:
                        told[side][where] = table[where]
    for where in {*keys[0]} & {*keys[1]}:
        both = [keys[side][where] for side in (0, 1)]
        for side in (0, 1):
            keys[side][where] = {name: value for name, value in both[side].items()
                                 if both[1 - side].get(name) != value}
    return files, keys


def _comparable(entries, start):
    """The entries but for a run's own, with one word for all moments since the start."""
    now = int(start * 10_000_000) + _TICKS_TO_1970
    return {where: {name: 'now' if name == 'written' and value >= now else value
                    for name, value in entry.items()}
            for where, entry in entries.items() if not _OWN.fullmatch(where)}


def expect_told(told, made, start, is_same_text):
    """The changes that were told are those that were made, but for moments."""
    for side, name in enumerate(('before', 'after')):
        files = [_comparable(each[0][side], start) for each in (told, made)]
        for where in {*files[0]} & {*files[1]}:
            digests = [each[where].get('digest') for each in files]
            if side == 1 and digests[0] != digests[1] and is_same_text(where, digests[0]):
                files[0][where]['digest'] = digests[1]
        for what, left, right in (('files', *files), ('keys', told[1][side], made[1][side])):
            fault = difference(left, right, f'{what} {name} the run, as told -> as they are')
            expect(not fault, fault)


# --- Runs


@dataclasses.dataclass
class Ended:
    exit_code: int  # as a shell sees it; None of what was cut short
    trace: list
    would: list = dataclasses.field(default_factory=list)  # as the JSON has it
    changes: tuple = ()




class Bench:
    """One case, in a folder of its own."""

    def __init__(self, case, session):
        self.case, self.options = case, session.options
        self.root = session.root / case.name.replace('/', '.')
        self.kept = self.root / 'rehearsed'
        self.machine = self.root / 'machine'
        self.folder = self.machine / CASE
        self.patch = self.folder / case.patch_name
        self.tessel, self.tlx = (pathlib.Path(each).resolve()
                                 for each in (self.options.linux, self.options.tlx))

    def fill_in(self, text):
        # The case's own programs are the host's, which may be started.
        product = world.host_to_drive(self.root / 'product')
        text = re.sub(r'@DIR@\\+product\b', lambda _: product, text)
        text = text.replace('@DIR@', world.drive_path(CASE))
        return run.fill_in(text, self.folder, self.case)

    def make(self, template, first):
        """Makes the machine. `first` is a script that runs on it before the case begins, if there is one."""
        shutil.copytree(template, self.machine)
        self.folder.mkdir()
        if first:
            run.make_patch(dataclasses.replace(self.case, script=first), self.folder, self.options, False)
            self.run()
            shutil.rmtree(self.machine / world.TRACES)
            shutil.rmtree(self.machine / world.SPOOL)
        if self.case.expectations.libraries is not None:
            self.tessel = run.Platform('linux', self.tessel).program_for(self.case, self.root)
            world.link_or_copy(self.tlx, self.tessel.with_name('tlx'))
            self.tlx = self.tessel.with_name('tlx')
        script = self.fill_in(self.case.script.decode('utf-8', 'surrogateescape'))
        run.make_patch(dataclasses.replace(
            self.case, script=script.encode('utf-8', 'surrogateescape')), self.folder, self.options, False)
        trees.make(self.folder, self.case.expectations.make)

    def variables(self, key):
        """Of the case's command line, for another one."""
        words = [self.fill_in(word) for word in self.case.expectations.arguments]
        at = [i for i, word in enumerate(words) if word.lower() == '/var']
        return [word for i in at for word in (key, *words[i + 1:i + 3])]

    def call(self, *words):
        own = {name: self.fill_in(value) for name, value in self.case.expectations.environment.items()}
        return subprocess.run(list(map(str, words)), cwd=self.folder, capture_output=True, check=False,
                              stdin=subprocess.DEVNULL, timeout=world.TIME_LIMIT,
                              env={**os.environ, **own, 'TESSEL_MACHINE': str(self.machine)})

    def restore(self):
        shutil.rmtree(self.machine, ignore_errors=True)
        shutil.copytree(self.root / 'was', self.machine, symlinks=True)

    def _trace(self, lines):
        own, product = map(world.host_to_drive, (self.tlx, self.tessel))
        return [_normal(line.replace(own, product)) for line in lines]

    def rehearse(self, answers):
        shutil.rmtree(self.kept, ignore_errors=True)
        words = [word for pair in answers.items() for word in ('--answer', '='.join(pair))]
        words += ['--max-seconds', _MOST_SECONDS]  # for one that waits for what a program would do
        ended = self.call(self.tlx, 'rehearse', self.patch, '--machine', self.machine,
                          *self.variables('--var'), '--keep', self.kept, '--json', *words)
        expect(self.kept.is_dir(), f'the rehearsal: {ended}')
        told = json.loads(ended.stdout)
        code = run.Linux.expected_code(told['exitCode']) if told['end'] == 'ended' else None
        expect(ended.returncode == (0 if code == 0 else 1), f'tlx ended with {ended.returncode}, not as {code}')
        return Ended(code, self._trace(world.trace_lines(told['trace'].encode(), 'the trace')),
                     told['would'], self._changes(self.kept))

    def _changes(self, kept):
        return changes_in(json.loads((kept / 'manifest.json').read_text(encoding='utf-8')))

    def run(self):
        ended = self.call(self.tessel, '/encfile', f'Z:{self.patch}', *self.variables('/var'))
        trace = run.Platform.only_trace(self.machine / world.TRACES, ended)
        return Ended(ended.returncode, self._trace(trace))

    def is_same_text(self, where, digest):
        """Whether what the run left and what is kept differ in stamps only."""
        contents = [path.read_bytes() for path in (
            self.root / 'after' / where[3:].replace('\\', '/'), self.kept / 'bytes' / digest)]
        return len({world.STAMP.sub('', each.decode('utf-8', 'replace')) for each in contents}) == 1

    def rehearse_as_run(self, ran):
        """A rehearsal that answers as the run had it; none when none can."""
        answers = {}
        while True:
            rehearsed = self.rehearse(answers)
            if rehearsed.trace == ran.trace:
                return rehearsed
            command, answer = answer_for(rehearsed, ran.trace)
            expect(command, expectations.differ([line.replace('*', '[*]') for line in ran.trace],
                                                rehearsed.trace, 'the trace'))
            if command in answers or not answer or rehearsed.exit_code is None:
                return None
            answers[command] = answer

    def apply_and_undo(self, before, code):
        """What is applied is kept as it was told to be; gives that."""
        shutil.rmtree(self.kept)
        ended = self.call(self.tlx, 'apply', self.patch, '--machine', self.machine, '--accept', code,
                          '--undo', self.kept, *self.variables('--var'))
        expect(self.kept.is_dir(), f'nothing was applied: {ended}')
        changes = self._changes(self.kept)
        expect_told(changes, changes_between(before, state_of(self.machine)), 0, None)
        ended = self.call(self.tlx, 'undo', self.kept, '--machine', self.machine)
        expect(ended.returncode == 0, f'it could not be taken back: {ended}')
        expect_same(before, state_of(self.machine), 'it was not all taken back')
        return changes

    def check(self):
        before, start = state_of(self.machine), time.time()
        self.rehearse({})
        expect_same(before, state_of(self.machine), 'a rehearsal has changed the machine')
        ran = self.run()
        changes = changes_between(before, state_of(self.machine))
        code = spooled_events.load(self.machine / world.SPOOL)[-1]['exit_code']
        self.machine.rename(self.root / 'after')
        self.restore()
        rehearsed = self.rehearse_as_run(ran)
        if rehearsed is not None:
            expect(rehearsed.exit_code == ran.exit_code, f'{rehearsed.exit_code}, not {ran.exit_code}')
        if rehearsed is not None and all(would['answer'] for would in rehearsed.would):
            expect_told(rehearsed.changes, changes, start, self.is_same_text)
        expect_told(self.apply_and_undo(before, code), changes, start, self.is_same_text)


def answer_for(rehearsed, trace):
    """The command for which a rehearsal answered otherwise than the run had it, with the run's error. No
    command when nothing beyond the machine had begun where they part, no error where there was none."""
    parted = next(i for i, lines in enumerate(itertools.zip_longest(rehearsed.trace, trace))
                  if lines[0] != lines[1])
    begins = {would['command']: script_cases.beginning(would['command']) for would in rehearsed.would}
    begun = [command for line in trace[:parted + 1] for command, begin in begins.items()
             if line.startswith(begin)]
    ends = (re.search(r"function end with error\. err:'(.+)'", line) for line in trace[parted:])
    return begun[-1] if begun else None, next((end[1] for end in ends if end), None)


def sample_cases():
    """The samples as they are, those that repair the sample product with it on the machine."""
    scripts = {path.stem: path.read_bytes() for path in sorted(_SAMPLES.glob('*.xml'))}
    for name, script in scripts.items():
        case = expectations.Case(f'samples/{name}', expectations.parse('', name), script)
        yield case, scripts['broken_product'] if b'%\\Sample Product' in script else None


class Session:
    def __init__(self, options, root):
        self.options, self.root = options, root
        self.template = run.Linux(options.linux, options.tlx, root).machine

    def run_one(self, case, first):
        bench = Bench(case, self)

        def act():
            bench.root.mkdir()
            bench.make(self.template, first)
            shutil.copytree(bench.machine, bench.root / 'was', symlinks=True)
            bench.check()

        fault = world.fault_of(act)
        shutil.rmtree(bench.root, ignore_errors=True)
        if self.options.v:
            print(f'{"FAILED" if fault else "ok":8}{case.name}', flush=True)
        return fault


def is_script(case):
    """Whether a case has a script that is run, and that draws no lots."""
    return (case.script is not None and case.expectations.only != 'windows'
            and '@PATCH@' in case.expectations.arguments and b'%random%' not in case.script)


def main():
    options = world.option_parser('Compares rehearsals with runs.').parse_args()
    families = (script_cases, document_cases, load_cases, example_cases)
    rows = [*((case, None) for family in families for case in family.all_cases()), *sample_cases()]
    rows = [(case, first) for case, first in rows
            if is_script(case) and fnmatch.fnmatchcase(case.name, options.filter)]
    if reason := surroundings.views():
        return world.report({}, {reason: len(rows)}, options.json)
    with tempfile.TemporaryDirectory(prefix='tessel-agreement.', ignore_cleanup_errors=True) as name, \
            concurrent.futures.ThreadPoolExecutor(2) as pool:
        session = Session(options, pathlib.Path(name).resolve())
        faults = list(pool.map(session.run_one, *zip(*rows)))
    return world.report(dict(zip((case.name for case, _ in rows), faults)), {}, options.json)


if __name__ == '__main__':
    sys.exit(main())
