"""Runs of patches through all the gates: what they need, and what is looked at afterwards."""

import dataclasses
import json
import os
import pathlib
import re
import shutil
import subprocess
import time
from typing import Callable

import jsonschema

import expectations
import run
import spooled_events
import world
from world import INSTALL, expect

DOCS = pathlib.Path(__file__).resolve().parents[2] / 'docs'
SCHEMAS = {name: json.loads((DOCS / name).read_text())
           for name in ('inspect.schema.json', 'verify.schema.json')}
VERIFICATION = jsonschema.Draft7Validator(SCHEMAS['verify.schema.json'])
INSPECTION = jsonschema.Draft7Validator(
    SCHEMAS['inspect.schema.json'],
    resolver=jsonschema.RefResolver('', SCHEMAS['inspect.schema.json'], store=SCHEMAS))
NOBODY = 65534
SERVICE = pathlib.PurePath('Update Service')
# Runs until the file 'go' is there, and tells by the file 'started' that it does.
WAIT = ('<fileCreate path="@DIR@\\started"/><nothing id="wait"/><sleep milisec="5"/>'
        '<fileExists path="@DIR@\\go"><onFalse><goto target="wait"/></onFalse></fileExists>'
        '<exit code="3"/>')
BODY = '<trace value="in %scriptdir%"/><exit code="3"/>'


@dataclasses.dataclass
class Ended:
    exit_code: int
    stdout: list
    stderr: list
    trace: list
    events: list
    expected_code: Callable[[int], int]  # what such an exit code is seen as
    foretold: dict = None  # what 'tlx verify' said of it


def refused_serial(program):
    """One of the serials that were built into the program."""
    header = program.parents[1] / 'refused-serials' / 'refused_serials.h'
    return re.search(r'u"([0-9a-f]{32})"', header.read_text(encoding='ascii'))[1]


class Gates(world.World):
    """What all runs share."""

    def __init__(self, options, folder):
        super().__init__(options.linux, options.tlx, options.key, folder)
        self.image = options.image
        stranger = world.Authority(folder, 'stranger')
        self.signers = {
            'other-organisation': self.root.issue(
                'other-organisation', subject=world.PUBLISHER.replace('O=Corvane', 'O=Other')),
            'other-name': self.root.issue('other-name', subject='/O=Corvane SRL/CN=Corvane'),
            'refused-serial': self.root.issue('refused-serial', serial=refused_serial(self.tessel)),
            'wrong-purpose': self.root.issue('wrong-purpose', purpose='serverAuth'),
            'expired': self.root.issue('expired', days='-1'),
            'untrusted-root': stranger.issue('untrusted-root'),
        }
        self.machine = self.make_machine(folder / 'machine')
        self.elsewhere = self.make_machine(folder / 'machine-with-service-elsewhere', r"""
            <regWrite root="HKEY_LOCAL_MACHINE" type="REG_EXPAND_SZ" value="ImagePath"
             key="SYSTEM\CurrentControlSet\Services\AmUpdateService"
             data="&quot;C:\Update Service\updater.exe&quot; -run"/>""")
        self.windows = options.windows and run.Windows(options.windows, options.wine,
                                                       options.system_library)


class Run:
    """A machine, a patch folder, and what is started there."""

    def __init__(self, gates, folder, machine):
        self.gates = gates
        self.folder = folder
        self.machine = self.take_machine(machine)
        os.chmod(folder, 0o755)
        self.install = self.machine / INSTALL
        self.install.mkdir(parents=True, exist_ok=True)
        self.place = folder / 'patch'
        self.place.mkdir()
        self.patch = self.place / 'fix.tlx'
        self.has_company = False  # something else changes these folders

    def take_machine(self, machine):
        return shutil.copytree(machine, self.folder / 'machine')

    def external(self, body=BODY, is_signed=True, **header):
        """An external patch, with a payload and a catalog."""
        body = body.replace('@DIR@', world.host_to_drive(self.folder))
        self.gates.pack(self.patch, body, **header)
        (self.place / 'Payload.txt').write_text('payload', encoding='ascii')
        (self.place / 'Sub').mkdir()
        (self.place / 'Sub' / 'Deep.bin').write_bytes(bytes(range(256)) * 1000)
        if is_signed:
            self.gates.sign(self.place)

    def trusted(self, folder, kind='update'):
        place = self.machine / folder / 'patches'
        place.mkdir(parents=True)
        self.patch = place / 'fix.tlx'
        self.gates.pack(self.patch, BODY, kind=kind, created=5)

    def command(self, *options):
        return [str(self.gates.tessel), '/encfile', str(self.patch), *options]

    def parent(self, folder):
        """A program in a folder of the machine, which starts what follows it."""
        program = self.machine / folder / 'updater.exe'
        program.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2('/bin/sh', program)
        return [str(program), '-c', '"$@"; exit $?', 'updater']

    def start(self, command=None, environment=(), **how):
        environment = {**os.environ, 'TESSEL_MACHINE': str(self.machine), **dict(environment)}
        return self.spawn(command or self.command(), environment, **how)

    def spawn(self, command, environment, **how):
        return subprocess.Popen(command, env=environment, cwd=self.folder, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, **{'stderr': subprocess.PIPE, **how})

    def traces(self):
        return (self.machine / world.TRACES).glob('ts-*.txt')

    def exit_code(self, process, _):
        return process.returncode

    expected_code = staticmethod(run.Linux.expected_code)

    def events(self):
        return spooled_events.load(self.machine / world.SPOOL)

    def finish(self, process):
        out, err = process.communicate(timeout=world.TIME_LIMIT)
        traces = [world.read_trace(path) for path in self.traces()]
        return Ended(self.exit_code(process, err), out.decode().splitlines(),
                     err.decode().splitlines(), traces[0] if len(traces) == 1 else [],
                     self.events(), self.expected_code)

    def ended(self, *options, before=(), **how):
        foretold = self.foretell()
        ended = self.finish(self.start([*before, *self.command(*options)], **how))
        return dataclasses.replace(ended, foretold=foretold)

    def foretell(self):
        """What 'tlx verify' says of the run to come, and 'tlx inspect' too. They change nothing."""
        # In company, files come and go.
        before = None if self.has_company else snapshot(self.folder)
        tool = subprocess.run([self.gates.tlx, 'verify', self.patch, '--machine', self.machine,
                               '--json'], capture_output=True, check=False)
        said = json.loads(tool.stdout)
        VERIFICATION.validate(said)
        self.inspect(said)
        expect(self.has_company or snapshot(self.folder) == before, 'tlx verify changed something')
        expect(tool.returncode == (0 if said['starts'] else 1), f'tlx verify: {tool}')
        return said

    def inspect(self, verified):
        """'tlx inspect' tells of every patch that can be read, and of its catalog what verify does."""
        tool = subprocess.run([self.gates.tlx, 'inspect', self.patch, '--machine', self.machine,
                               '--json'], capture_output=True, check=False)
        if tool.returncode != 0:
            expect(tool.returncode == 1 and not tool.stdout and not verified['starts'],
                   f'tlx inspect: {tool}')
            return
        told = json.loads(tool.stdout)
        INSPECTION.validate(told)
        expect(told['container']['key'] == 'own' and told['header']['id'] == verified['header']['id'],
               f'tlx inspect: {told}')
        expect(told.get('verification', verified) == verified or self.has_company,
               f'tlx inspect says {told}, and tlx verify {verified}')

    def checked(self):
        """What tlx machine check tells of the machine."""
        tool = subprocess.run([self.gates.tlx, 'machine', 'check', self.machine, '--json'],
                              capture_output=True, check=False)
        told = json.loads(tool.stdout)
        expect(tool.returncode == (0 if told['isFit'] else 1), f'it ended with {tool.returncode}')
        return told

    def protected(self):
        folder = self.install / 'customPatches'
        return sorted(folder.iterdir()) if folder.is_dir() else []


def snapshot(folder):
    return {path: (entry.st_mode, entry.st_size, entry.st_mtime_ns)
            for path in folder.rglob('*') for entry in [path.lstat()]}


class WindowsRun(Run):
    """The same under Wine, where the prefix is the machine of all runs, one at a time."""

    def take_machine(self, _):
        drive = pathlib.Path(os.environ['WINEPREFIX'], 'drive_c')
        for place in (drive / world.TRACES, drive / INSTALL):
            shutil.rmtree(place, ignore_errors=True)
        return drive

    def command(self, *options):
        patch = self.patch
        inside = patch.is_relative_to(self.machine)
        return ['/encfile', world.drive_path(patch.relative_to(self.machine)) if inside
                else world.host_to_drive(patch), *options]

    def start(self, command=None, **how):
        windows = self.gates.windows
        environment = dict(os.environ)
        code_file = self.folder / f'exit-code-{len(list(self.folder.glob("exit-code-*")))}.txt'
        code_file.touch()
        command = windows.command(windows.program, command or self.command(), environment, code_file)
        process = self.spawn(command, environment, **how)
        process.code_file = code_file
        return process

    def foretell(self):
        return None

    def exit_code(self, process, stderr):
        return self.gates.windows.told_code(process.code_file, stderr)

    expected_code = staticmethod(run.Windows.expected_code)


def check_events(ended, *end):
    return expectations.differ(spooled_events.expected(*end),
                               [spooled_events.tell(event) for event in ended.events], 'events')


def check_foretold(ended, exit_code):
    """'tlx verify' told the end of the run, but for what depends on who starts it."""
    if ended.foretold is None or exit_code in (5, 127, 1293):
        return None
    said = (ended.foretold['exitCode'],
            [f'{event["event"]} {event["reason"]}' for event in ended.foretold['events']])
    true = (max(exit_code, 0), [' '.join(spooled_events.tell(event).split()[::2])
                                for event in ended.events] if exit_code > 0 else [])
    return None if said == true else f'tlx verify told {said}, and it was {true}'


def check(ended, exit_code, stderr=(), trace=(), stdout=(), critical=None, reason=None):
    """Looks at a run that had its machine for itself."""
    faults = [check_events(ended, exit_code, critical, reason), check_foretold(ended, exit_code)]
    if ended.exit_code != ended.expected_code(exit_code):
        faults.append(f'the exit code is {ended.exit_code}, not {exit_code}')
    faults.append(expectations.differ(list(stderr), ended.stderr, 'standard error'))
    faults.append(expectations.differ(list(stdout), ended.stdout, 'standard output'))
    faults.append(expectations.lack(list(trace), ended.trace, 'trace'))
    expect(not any(faults), '\n'.join(filter(None, faults)))


def refused(reason):
    return [f'Integrity check failed. Reason: {reason}.']


def change_byte(path, near=b''):
    data = bytearray(path.read_bytes())
    data[data.index(near) if near else len(data) // 2] ^= 1
    path.write_bytes(data)


def put_pipe(path):
    path.unlink()
    os.mkfifo(path)


def put_link(path, target):
    path.unlink()
    path.symlink_to(target)


def catalog(this, arrange, reason='', critical=0):
    this.external()
    arrange(this)
    ended = this.ended('/detach')
    if critical:
        check(ended, 323, refused(reason),
              ['Current folder *', f'CheckCatalog returned {critical}', 'CheckCatalog FAILED!'],
              critical=critical)
    else:
        check(ended, -3, stdout=['Patch validation finished.'], trace=['CheckCatalog returned 0'])
    expect(not this.protected(), f'the protected folder is still there: {this.protected()}')


COPY_OUT = ('<fileCopySingle src="%scriptdir%\\payload.txt" dest="@DIR@\\seen"/>'
            '<exit code="3"/>')


TOUCH = '#!/bin/sh\n: >"$1"\n'


def make_script(path, text=TOUCH):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding='ascii')
    path.chmod(0o755)


def wait_until(condition, words):
    limit = time.monotonic() + world.TIME_LIMIT
    while not condition():
        expect(time.monotonic() < limit, words)
        time.sleep(0.005)


def wait_for(path):
    wait_until(path.exists, f'{path} did not appear')
