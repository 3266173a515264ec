#!/usr/bin/python3
"""Makes each call of a run fail in turn, and looks at what the run leaves.

    faults.py --tessel TESSEL --tlx TLX --key PEM [--json OUT] [--runs N | --only N[.ERROR]]
              [--jobs N] [-v]

For the native program. The script in faults.xml touches every family, behind all gates and with a
payload. A first run counts the calls that it makes of the system; then, on a machine of its own for
each, a run has just one call fail, by either of two errors. All of them take half an hour, so --runs
of them are made, a fixed stride apart. --only makes one, and -v tells of all calls and runs. --json gets
{"passed": n, "failed": n, "skipped": n, "failures": [...]}, counted per run.
"""

import collections
import hashlib
import multiprocessing
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

import failing_calls
import hive_logs
import http_files
import spooled_events
import world
from world import Fault, expect

_HERE = pathlib.Path(__file__).resolve().parent
_CATALOGS = pathlib.Path('Windows', 'System32', 'CatRoot', '{F750E6C3-38EE-11D1-85E5-00C04FC295EE}')
_HIVES = pathlib.Path('Windows', 'System32', 'config')
# What each machine has before its run, beside what the script makes of it.
_SETUP = r"""
<regCreateKey root="HKEY_LOCAL_MACHINE" key="SOFTWARE\Faults\Old\Below"/>
<regWrite root="HKEY_LOCAL_MACHINE" key="SOFTWARE\Faults" value="text" type="REG_SZ" data="old"/>
<regWrite root="HKEY_LOCAL_MACHINE" key="SOFTWARE\Faults" value="number" type="REG_DWORD" data="7"/>
<regWrite root="HKEY_LOCAL_MACHINE" key="SOFTWARE\Faults" value="stale" type="REG_SZ" data="x"/>
<serviceCreate name="OldFaults" serviceType="16" startType="3" errorControl="1" path="C:\old.exe"/>"""
_FILES = {
    'one.txt': b'one\n' * 20000, 'replaced.txt': b'old\n', 'kept.txt': b'read only\n',
    'hidden.txt': b'hidden\n',
    'from.txt': b'moved\n', 'from2.txt': b'moved over\n', 'taken.txt': b'old\n',
    'later.txt': b'later\n', 'logs/1.log': b'log 1\n', 'logs/2.log': b'log 2\n',
    'into/1.log': b'old log\n', 'delete/1.tmp': b'x', 'delete/2.tmp': b'x', 'delete/3.old': b'x',
    'tree/a.txt': b'a', 'tree/b.skip': b'b', 'tree/sub/c.bin': bytes(range(256)) * 400,
    'tree/sub/deeper/d.txt': b'd', 'movable/e.txt': b'e', 'gone/f.txt': b'f',
    'gone/sub/g.txt': b'g', 'downloaded-over.txt': b'old\n', 'signed.txt': b'signed\n',
    'settings.ini': b'[Service]\r\nServer=old\r\n', 'settings.json': b'{"name": "old"}\n',
    'settings.xml': b'<settings>\n<name>old</name>\n</settings>\n'}
# An attribute of Windows, hidden, and one of the host's: a copy keeps the one, a new version both.
_EXTENDED = {'hidden.txt': ('user.DOSATTRIB', b'0x22'), 'replaced.txt': ('user.note', b'kept'),
             'settings.ini': ('user.note', b'kept'), 'settings.xml': ('user.note', b'kept')}
_CONDITIONS = {'fileExists', 'dirExists', 'fileIsSigned', 'regExistsKey', 'serviceInstalled',
               'serviceRunning', 'test'}
_UNFAILING = {'assign', 'trace', 'exit', 'iniGetValue', 'processRevertToSelf'}
_EXIT_CODE = 3
_RUNS = 450  # take some two minutes
# How a run that didn't come to its script ends: what it says for each exit code of the language.
_REFUSALS = {
    3: 'Patch not found.', 6001: 'Failed to decrypt the patch.',
    1618: 'Execution of another patch is in progress', 1169: 'Patch type for external',
    323: 'Integrity check failed. Reason: ', 13: 'Failed to load patch.', 1636: 'Failed to load',
    1006: 'Failed to load the patch. Error: 1006.', 1005: 'let TESSEL_MACHINE name the folder',
    726: "hiberfil.sys can't be read", 1009: 'Repair or restore its hives'}
_NO_CALL = 'no call'
_UNREADABLE = re.compile(r'Failed to load the patch. Error: (\d+)\.')
# The keys above one that can't be deleted stay open, as the language wants it.
_LEFT_OPEN = 'leak:EnterDoomedKey\n'
_FOLDER_STAYS = 'Could not remove the protected folder for custom patches'
_SANITIZER = re.compile(r'Sanitizer|runtime error:')


def _telling(script):
    """The script, with what tells of each command's end."""
    root = ElementTree.fromstring(script)
    for number, command in enumerate(list(root)):
        name = f'{number} {command.tag}'
        if command.tag in _CONDITIONS:
            for answer in ('onTrue', 'onFalse'):
                handler = ElementTree.SubElement(command, answer)
                ElementTree.SubElement(handler, 'trace', value=f'{name}: {answer}')
        elif command.tag not in _UNFAILING:
            handler = ElementTree.SubElement(command, 'onerror')
            ElementTree.SubElement(handler, 'trace', value=f'{name}: %error%')
    return ''.join(ElementTree.tostring(command, encoding='unicode') for command in root)


class Bench(world.World):
    """The program, the patch, and the machine that each run gets a copy of."""

    def __init__(self, options, root):
        program = pathlib.Path(options.tessel).resolve()
        super().__init__(self._install_program(program, root / 'product' / 'bin'), options.tlx,
                         options.key, root)
        self.suppressions = root / 'suppressions'
        self.suppressions.write_text(_LEFT_OPEN, encoding='ascii')
        self.template = self.make_machine(root / 'template', _SETUP)
        self._fill_machine(program.parents[1] / 'tests' / 'libraries' / 'entry.dll')
        self.patch = root / 'patch' / 'fix.tlx'
        self.patch.parent.mkdir()
        text = (_HERE / 'faults.xml').read_text(encoding='utf-8')
        (self.patch.parent / 'payload.txt').write_bytes(b'payload\n')
        self.pack(self.patch, _telling(text.replace('%SERVER%', http_files.address())))
        self.sign(self.patch.parent)

    @staticmethod
    def _install_program(program, folder):
        """The libraries of the product stand in for the real ones."""
        folder.mkdir(parents=True)
        libraries = program.parents[1] / 'tests' / 'libraries'
        world.link_or_copy(program, folder / program.name)
        world.link_or_copy(libraries / 'runlevelbroker.dll', folder / 'runlevelbroker.dll')
        world.link_or_copy(libraries / 'cvn.integration.comm.dll',
                           folder.parent / 'cvn.integration.comm.dll')
        return folder / program.name

    def _fill_machine(self, library):
        (self.template / world.INSTALL).mkdir(exist_ok=True)
        work = self.template / 'work'
        for name, content in _FILES.items():
            (work / name).parent.mkdir(parents=True, exist_ok=True)
            (work / name).write_bytes(content)
        (work / 'kept.txt').chmod(0o444)
        for name, (attribute, value) in _EXTENDED.items():
            os.setxattr(work / name, attribute, value)
            (work / name).chmod(0o640)
        with (work / 'holes.bin').open('wb') as file:
            file.write(b'begin')
            file.seek(1 << 20)
            file.write(b'end')
        shutil.copy2('/bin/sleep', work / 'waiter.exe')
        shutil.copy2(library, work)
        signed = self.folder / 'signed'
        signed.mkdir()
        shutil.copy2(work / 'signed.txt', signed)
        self.sign(signed)
        (self.template / _CATALOGS).mkdir(parents=True, exist_ok=True)
        shutil.copy2(signed / 'patch.cat', self.template / _CATALOGS / 'faults.cat')

    def run(self, own_processes, fail_at=None, choice=0):
        """Runs the patch on a new machine. Returns what there is to say of the run."""
        with tempfile.TemporaryDirectory(prefix='run.', dir=self.folder) as folder, \
                tempfile.TemporaryDirectory(prefix='tessel-faults.', dir='/dev/shm') as elsewhere:
            folder = pathlib.Path(folder)
            machine = shutil.copytree(self.template, folder / 'machine', symlinks=True)
            pathlib.Path(elsewhere, 'elsewhere.txt').write_bytes(b'from elsewhere\n')
            output = [folder / 'out', folder / 'err']
            leaks = f'suppressions={self.suppressions}:print_suppressions=0'
            environment = {**os.environ, 'TESSEL_MACHINE': str(machine), 'LSAN_OPTIONS': leaks,
                           'ELSEWHERE': world.host_to_drive(elsewhere)}
            with output[0].open('wb') as out, output[1].open('wb') as err:
                ended = failing_calls.run(
                    [self.tessel, '/encfile', self.patch, '/diagnostic'], environment, folder,
                    (out.fileno(), err.fileno()), fail_at, choice, own_processes)
            hosts = ((elsewhere, '@ELSEWHERE@'), (str(folder), '@DIR@'), (str(self.folder), '@ROOT@'))
            return Observation(ended, machine, pathlib.Path(elsewhere), output, hosts)


_VARIABLE = [(re.compile(pattern), text) for pattern, text in (
    (r'ts-\d+-\d+', 'ts'), (r'(customPatches.)\d+-\d+', r'\1run'),
    (r'[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}', 'UUID'), (r'deleted_-?\d+_', 'deleted_'),
    (r'tessel-\d+-[0-9a-f]{16}\.tmp', 'tessel.tmp'),
    (r'0x[0-9A-F]{16}', 'POINTER'), (r'(?i)process(es)? (with )?(id )?\W*\d+', 'process N'))]


def _steady(text):
    """Without what differs from one run to the next."""
    for pattern, replacement in _VARIABLE:
        text = pattern.sub(replacement, text)
    return text


class Observation:
    """What a run said and left."""

    def __init__(self, ended, machine, elsewhere, output, hosts):
        self.ended = ended
        self.machine = machine
        self.hosts = hosts
        self.stdout, self.stderr = (self._lines(path.read_bytes()) for path in output)
        self.traces = [self._lines(path.read_bytes()[3:], has_stamps=True)
                       for path in (machine / world.TRACES).glob('ts-*')]
        self.fault = None
        self.events = []
        try:
            self.events = spooled_events.load(machine / world.SPOOL)
        except spooled_events.BrokenEvent as fault:
            self.fault = f'the spool: {fault}'
        self.state = {'elsewhere.txt': (elsewhere / 'elsewhere.txt').exists()}
        try:
            self.state.update(_state_of(machine))
        except (ElementTree.ParseError, subprocess.CalledProcessError, ValueError) as fault:
            self.fault = f'a hive does not load: {fault}'

    def _lines(self, data, has_stamps=False):
        text = data.decode('utf-8', errors='replace').replace('\r\n', '\n')
        for host, token in self.hosts:
            text = text.replace(world.host_to_drive(host), token).replace(host, token)
        lines = text.split('\n')
        if has_stamps:
            lines = [world.STAMP.sub('', line) for line in lines]
        lines, statuses = spooled_events.part(lines)
        return [_steady(line) for line in lines] + statuses

    @property
    def code(self):
        return self.ended.status

    def said(self):
        return self.stdout, self.stderr, self.traces


def _state_of(machine):
    """Every file's content, and every value in the hives, by its path."""
    state = {}
    for place in machine.rglob('*'):
        path = place.relative_to(machine)
        name = _steady(str(path))
        if path.name.endswith('.LOG1'):
            continue  # what counts is the hive that it completes
        if place.is_file() and (path.is_relative_to(_HIVES) or path.name == 'NTUSER.DAT'):
            state.update(_values_of(path, hive_logs.replayed(place)))
            state[f'{name} itself'] = _surroundings(place)
        elif place.is_symlink():
            state[name] = os.readlink(place)
        elif place.is_dir():
            state[name] = 'folder'
        elif not name.startswith('ProgramData/Tessera/ts') and not name.endswith('events/UUID'):
            state[name] = _digest(place), *_surroundings(place)
    return state


def _surroundings(place):
    return place.stat().st_mode, {name: os.getxattr(place, name) for name in os.listxattr(place)}


def _digest(place):
    return hashlib.sha256(place.read_bytes()).hexdigest()


_hives = {}  # the values by the hive's content: most runs leave most hives alone


def _values_of(path, content):
    known = (path, hashlib.sha256(content).digest())
    if known not in _hives:
        with tempfile.NamedTemporaryFile() as file:
            file.write(content)
            file.flush()
            document = subprocess.run(['hivexml', file.name], check=True, capture_output=True).stdout
        _hives[known] = {}
        _add_values(ElementTree.fromstring(document), str(path), _hives[known])
    return _hives[known]


def _add_values(key, path, values):
    values[path] = 'key'
    for child in key:
        name = child.get('name') or child.get('key') or ''
        if child.tag == 'node':
            _add_values(child, f'{path}\\{name}', values)
        elif child.tag == 'value':
            texts = [text.text for text in child.iter('string')]
            values[f'{path}\\{name}='] = child.get('type'), child.get('value'), texts


def _is_left_for_boot(path):
    """What can't be deleted gets another name, and is deleted by the next boot."""
    return path.endswith('PendingFileRenameOperations=') or path.startswith('work/delete/deleted_')


class Judge:
    """Knows how a machine is before the run, and all that it may be after one."""

    def __init__(self, before, good):
        self.before = before
        self.good = good

    def look_at(self, seen):
        """Raises what is wrong with a run, whether one of its calls failed or none."""
        expect(seen.code is not None, 'it did not end')
        words = '\n'.join(seen.stderr)
        expect(not _SANITIZER.search(words), words)
        expect(seen.code >= 0, f'it was ended by signal {-seen.code}')
        expect(seen.fault is None, seen.fault)
        call = seen.ended.calls[0] if seen.ended.calls else 'nothing'
        self._look_at_end(seen, words, call)
        self._look_at_events(seen)
        self._look_at_files(seen)
        is_own = 'Tessera/ts-' in call or '/run.' in call and call.endswith(('/out', '/err'))
        if not is_own and seen.said() == self.good.said():
            lost = [path for path in self.differences(seen.state, self.good.state)
                    if not self._may_differ_silently(path, call)]
            expect(not lost, f'nothing tells of what is not as it should be: {lost}')

    @staticmethod
    def _may_differ_silently(path, call):
        """As the language wants it, what was deleted by renaming is gone, what was moved to another
        drive may stay, and so may a tree, as long as it's no file that can't be deleted."""
        if path == 'elsewhere.txt':
            return call.startswith('unlink') and call.endswith(path)
        if path.startswith('work/gone'):
            return not call.startswith('unlink') or call.split()[-1] in ('gone', 'sub')
        return _is_left_for_boot(path)

    @staticmethod
    def _look_at_end(seen, words, call):
        trace = ['\n'.join(lines) for lines in (seen.stdout, *seen.traces)]
        if seen.code == -_EXIT_CODE & 0xFF and any('End execution' in text for text in trace):
            return
        unreadable = _UNREADABLE.search(words)
        codes = [code for code, text in _REFUSALS.items() if text in words]
        if unreadable:
            codes.append(int(unreadable[1]))
        if call.endswith('/err'):
            codes = list(_REFUSALS)  # what it says was lost
        expect(seen.code in [code & 0xFF for code in codes],
               f'the exit code {seen.code} is not that of what it says: {words!r}')

    @staticmethod
    def _look_at_events(seen):
        kinds = collections.Counter(event['event_name'] for event in seen.events)
        expect(all(count == 1 for count in kinds.values()), f'too many events: {kinds}')

    def _look_at_files(self, seen):
        """Everything is as it was or as it should be."""
        wrong = []
        for path in {*seen.state, *self.before, *self.good.state}:
            now = seen.state.get(path)
            is_known = now in (self.before.get(path), self.good.state.get(path))
            if not is_known and not self._may_stay(path, seen):
                wrong.append(f'{path} is {now}, and was {self.before.get(path)}')
        expect(not wrong, '\n'.join(sorted(wrong)))

    @staticmethod
    def _may_stay(path, seen):
        """What another way of a command's leaves, and what the trace says is still there."""
        if '/customPatches' in path:
            return any(line.startswith(_FOLDER_STAYS) for line in seen.stdout)
        if path.endswith('events/UUID.tmp'):
            return 'ToolRan 0' not in seen.stdout
        return _is_left_for_boot(path)

    @staticmethod
    def differences(one, other):
        return sorted(path for path in {*one, *other} if one.get(path) != other.get(path))


class _Worker:
    """What a process of the pool works with."""
    bench = judge = own_processes = None

    @classmethod
    def begin(cls, bench, judge):
        cls.bench, cls.judge = bench, judge
        cls.own_processes = failing_calls.use_own_processes()

    @classmethod
    def good_run(cls, _):
        return cls.bench.run(cls.own_processes)

    @classmethod
    def work(cls, case):
        """One run. Returns what failed, and what is wrong with it."""
        seen = cls.bench.run(cls.own_processes, *case)
        call = seen.ended.calls[0] if seen.ended.calls else _NO_CALL
        for host, token in seen.hosts:
            call = call.replace(host, token)
        try:
            cls.judge.look_at(seen)
            return case, call, None
        except Fault as fault:
            return case, call, str(fault)


def _pool(count, bench, judge=None):
    return multiprocessing.get_context('fork').Pool(count, _Worker.begin, (bench, judge))


def _learn(bench):
    """Two runs without a fault, which must say and leave the same. Returns what judges others, and
    the calls that such a run makes."""
    with _pool(1, bench) as pool:
        first, second = pool.map(_Worker.good_run, range(2))
    judge = Judge({**_state_of(bench.template), 'elsewhere.txt': True}, first)
    if first.said() != second.said() or first.state != second.state:
        changes = Judge.differences(first.state, second.state)
        sys.exit(f'faults.py: two runs differ: {first.said()}\n{second.said()}\n{changes}')
    judge.look_at(second)
    return judge, first.ended.calls


def _cases(options, count):
    """The runs to make: by its number, a call that fails, and by which error."""
    if options.only:
        number, _, choice = options.only.partition('.')
        return [(int(number), int(choice or 0))]
    # First each call by the one error or the other, then by the one that is left.
    everything = [(number, (number + turn) % failing_calls.ERRORS)
                  for turn in range(failing_calls.ERRORS)
                  for number in range(1, count + 1)]
    return everything[::-(-len(everything) // options.runs) | 1]


def _run_all(options, outcomes):
    with tempfile.TemporaryDirectory(prefix='tessel-faults.') as root:
        bench = Bench(options, pathlib.Path(root).resolve())
        judge, calls = _learn(bench)
        cases = _cases(options, len(calls))
        if options.v:
            print('\n'.join(f'{number} {call}' for number, call in enumerate(calls, 1)))
        missed = 0
        with _pool(options.jobs, bench, judge) as pool:
            for (number, choice), call, fault in pool.imap_unordered(_Worker.work, cases):
                missed += call == _NO_CALL
                outcomes[f'faults {number}.{choice} {call}'] = fault
                if options.v or fault:
                    print(f'{number}.{choice} {call}', 'FAILED' if fault else '', flush=True)
        # A run may make a few calls less than the one that counted them.
        if missed > len(cases) // 20:
            outcomes['faults'] = f'in {missed} runs no call failed'
        print(f'{len(cases)} runs, {len(calls)} calls to fail')


def main():
    parser = failing_calls.option_parser('Makes calls of the system fail.')
    parser.add_argument('--only', metavar='N[.ERROR]')
    parser.add_argument('--runs', type=int, default=_RUNS, metavar='N')
    parser.add_argument('-v', action='store_true')
    return failing_calls.run_and_report(parser.parse_args(), _run_all)


if __name__ == '__main__':
    sys.exit(main())
