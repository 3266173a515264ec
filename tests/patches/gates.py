#!/usr/bin/env python3
"""Runs patches through all the gates, on machines that have the functions that catalogs need.

    gates.py --linux TESSEL --tlx TLX --key PEM --json OUT [--image EXE] [--filter GLOB] [-v]
             [--windows TESSEL_EXE [--wine wine] [--system-library DLL]...]

Each run has a machine and a patch folder of its own; the certificates are made for all of them.
--image is some program of Windows, to be signed; --json gets what that of run.py does, and --windows,
--wine and --system-library are its own too.
"""

import argparse
import contextlib
import dataclasses
import fcntl
import fnmatch
import functools
import json
import operator
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
from typing import Callable

import jsonschema

import expectations
import run
import spooled_events
import world
from world import INSTALL, expect

VERIFICATION = jsonschema.Draft7Validator(json.loads(
    (pathlib.Path(__file__).resolve().parents[2] / 'docs' / 'verify.schema.json').read_text()))
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
        """What 'tlx verify' says of the run to come. It changes nothing."""
        before = snapshot(self.folder)
        tool = subprocess.run([self.gates.tlx, 'verify', self.patch, '--machine', self.machine,
                               '--json'], capture_output=True, check=False)
        said = json.loads(tool.stdout)
        VERIFICATION.validate(said)
        expect(snapshot(self.folder) == before or self.has_company, 'tlx verify changed something')
        expect(tool.returncode == (0 if said['starts'] else 1), f'tlx verify: {tool}')
        return said

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


# --- Where a patch lies, and who started it

UPDATE_WORDS = ['Update patch is not executed with correct permissions.']
PASSED = ['Started from install path...', 'CheckRightsForInstallPath returned 0']


def update_runs(this, folder, base):
    this.trusted(folder)
    ended = this.ended('/detach', before=this.parent(folder))
    check(ended, -3, stdout=['Patch validation finished.'], trace=[
        *PASSED, r'set script path: \patches\fix.tlx', f'compare with {base} path passed',
        'Execute', f'Trace: in *{folder.name}/patches/'])
    expect(not this.protected(), 'an update patch has no protected folder')


def update_as_nobody(this):
    this.trusted(INSTALL)
    for place in (this.machine, *this.machine.rglob('*')):
        os.chmod(place, 0o777)
    # The user may be kept out of where the build lies.
    program = shutil.copy2(this.gates.tessel, this.folder)
    ended = this.finish(this.start([*this.parent(INSTALL), program, *this.command()[1:]],
                                   user=NOBODY, group=NOBODY, extra_groups=[]))
    check(ended, 5, UPDATE_WORDS, ['Run by S-1-22-1-65534', 'CheckRightsForInstallPath returned 5'],
          critical=5)


def update_by(this, words, code, before):
    this.trusted(INSTALL)
    ended = this.ended(before=before)
    check(ended, code, UPDATE_WORDS, [*words, f'CheckRightsForInstallPath returned {code}'],
          critical=code)
    told = ended.events[-1]['tessera']
    folder = world.drive_path(INSTALL)
    expect(told['install_dir'] == folder and told['update_service_path'] == folder,
           f'the folders that are told: {told}')
    expect(('parent_process' in told) == (code == 127), f'the parents that are told: {told}')


def mistyped(this, kind, is_trusted):
    if is_trusted:
        this.trusted(INSTALL, kind=kind)
        check(this.ended(), 1629, ['Patch type for update patches is invalid.'],
              ['Started from install path...', 'PatchType did not match. Reporting...'],
              critical=1629)
    else:
        this.external(is_signed=False, kind=kind)
        check(this.ended(), 1169, ['Patch type for external patches is invalid.'],
              ['Started from custom path...', 'This is first instance running...',
               'PatchType did not match. Aborting...'], critical=1169)


def undecryptable(this, place, name, is_removed):
    patch = (this.machine / INSTALL if place == 'install' else this.place) / name
    patch.write_bytes(b'junk' * 100)
    this.patch = patch
    lines = ['Error decrypting patch content', f'Extension of file {patch.suffix}']
    if is_removed:
        lines += ['Patch to be removed', rf'set script path: \{name}']
    check(this.ended(), 6001, ['Failed to decrypt the patch.'], lines,
          critical=1637 if is_removed else None)
    expect(patch.exists() != is_removed, 'the file is there' if is_removed else 'the file is gone')


def location_rows():
    def row(name, action, *arguments, machine='machine'):
        return name, lambda this: action(this, *arguments), machine
    yield row('update/in-install-folder', update_runs, INSTALL, 'install')
    yield row('update/in-service-folder', update_runs, SERVICE, 'service', machine='elsewhere')
    yield row('update/not-system', update_as_nobody)
    yield row('update/other-parent', update_by,
              ['Run by S-1-5-18', 'It is not run from installpath.'], 127, [])
    yield row('update/no-parent', update_by, ['Failed to get parent pid for pid 1'], 1293,
              ['unshare', '--pid', '--fork', '--mount-proc', '--propagation', 'private'])
    yield row('update/unreadable-parent', update_by,
              ['Run by S-1-5-18', 'Failed to get path for pid *'], 1293,
              ['setpriv', '--bounding-set', '-sys_ptrace,-chown'])
    for kind, is_trusted in (('external', True), ('Update', True), ('update', False), ('', False)):
        yield row(f'type/{kind or "none"}', mistyped, kind, is_trusted)
    for place, name, is_removed in (('install', 'a.tlx', True), ('install', 'a.TLX', False),
                                    ('custom', 'a.tlx', False)):
        yield row(f'undecryptable/{place}-{name}', undecryptable, place, name, is_removed)


# --- Machines that can't be judged, and so are no old Windows, on which everything runs

HIVE = pathlib.PurePath('Windows', 'System32', 'config', 'SOFTWARE')
VERSION = r'root="HKEY_LOCAL_MACHINE" key="SOFTWARE\Microsoft\Windows NT\CurrentVersion" value='


# Commands that give a run's machine another volume, in a mount namespace of its own.
MOUNTED = ['unshare', '--mount', '--propagation', 'private', 'sh', '-ec']
READ_ONLY = 'mount --bind "$0" "$0"; mount -o remount,bind,ro "$0"; exec "$@"'
FULL = ('cp -a "$0" "$0.copy"; mount -t tmpfs -o size=32M none "$0"; cp -a "$0.copy/." "$0"; '
        'cat /dev/zero >"$0/fill" 2>"$0.words" || exec "$@"')


def unjudged(this, arrange, code, problem, before=(), **user):
    ran = this.folder / 'ran'
    this.external(is_signed=False, body='<fileCreate path="@DIR@\\ran"/><exit code="3"/>')
    os.chmod(this.folder, 0o777)
    arrange(this)
    was = sorted(this.machine.rglob('*')) if code != 1009 else None
    program = shutil.copy2(this.gates.tessel, this.folder)
    words = [*MOUNTED, *before, str(this.machine)] if before else []
    ended = this.finish(this.start([*words, program, *this.command()[1:]], **user))
    words = f"The machine '{this.machine}' is refused: *{problem}*. *"
    expect(ended.exit_code == this.expected_code(code), f'it ended: {ended}')
    expect(expectations.differ([words], ended.stderr, 'standard error') is None, f'{ended}')
    expect(not ran.exists() and all(event['exit_code'] == code for event in ended.events), f'{ended}')
    expect(code == 1009 or was == sorted(this.machine.rglob('*')), 'the machine was changed')


    if not before and not user:
        told = this.checked()
        expect(not told['isFit'] and told['exitCode'] == code and problem in told['refusal'],
               f'tlx machine check tells {told}')


def awake(this, signature):
    this.external()
    (this.machine / 'Hiberfil.sys').write_bytes(signature + bytes(4096))
    check(this.ended(), -3)
    told = this.checked()
    expect(told['isFit'] and not told['volume']['isHibernated']
           and all(hive['isClean'] and hive['format'] == '1.5' for hive in told['hives'])
           and len(told['hives']) == 5, f'tlx machine check tells {told}')


def worrying_hive(this, change, **wanted):
    change(this.machine / HIVE)
    told = this.checked()
    hive = told['hives'][1]
    expect(not told['isFit'] and told['warnings'], f'nothing worries: {told}')
    expect({name: hive.get(name) for name in wanted} == wanted, f'the hive: {hive}')


def unfinished(path, entries):
    """A write to the hive was begun, and the log has these numbers behind the last one that ended."""
    hive = bytearray(path.read_bytes())
    last = int.from_bytes(hive[8:12], 'little')
    hive[4:8] = (last + 1).to_bytes(4, 'little')
    words = [int.from_bytes(hive[at:at + 4], 'little') for at in range(0, 508, 4)]
    hive[508:512] = functools.reduce(operator.xor, words).to_bytes(4, 'little')
    path.write_bytes(hive)
    log = [b'HvLE' + (512).to_bytes(4, 'little') + bytes(4) + (last + number).to_bytes(4, 'little')
           + bytes(496) for number in entries]
    path.with_name('software.log1').write_bytes(hive[:512] + b''.join(log))


def kept_elsewhere(this):
    """What the mount can't read, and what Windows has no drive for when it starts."""
    os.symlink('unsupported reparse tag 0x80000017', this.machine / 'compressed')
    this.external(body=r'''<fileCopySingle src="C:\compressed" dest="C:\copy"/>
        <fileCreate path="@DIR@\host"/><fileCreate path="C:\own"/>
        <fileMove src="@DIR@\host" dest="C:\x" afterReboot="true"/>
        <fileMove src="C:\own" dest="@DIR@\x" afterReboot="true"/><exit code="3"/>''')
    failed = "fileMove function end with error. err:'17'"
    check(this.ended(), -3, trace=["Windows keeps the file in a form that can't be read here*",
                                   "*error. err:'1920'", failed, failed])
    expect(not this.checked()['pendingMoves'], 'there is a pending move')


def with_version(this, *changes):
    """The machine becomes one whose version is what the changes of an old one leave."""
    shutil.rmtree(this.machine)
    this.gates.tool('machine', 'create', this.machine, '--windows', '7')
    patch = this.folder / 'change.tlx'
    this.gates.pack(patch, ''.join(f'<{name} {VERSION}{rest}/>' for name, rest in changes)
                    + '<exit/>')
    this.finish(this.start([this.gates.tessel, '/encfile', patch]))
    for folder in (world.TRACES, world.SPOOL):
        shutil.rmtree(this.machine / folder)


def machine_rows():
    def other(make):
        def arrange(this):
            this.machine = this.folder / 'other'
            make(this.machine)
        return arrange

    def hive(change):
        return lambda this: change(this.machine / HIVE)

    def text(data):
        return 'regWrite', f'"CurrentVersion" type="REG_SZ" data="{data}"'

    folder, registry, version = (1005,), (1009, 'registry is damaged'), (1009, "registry doesn't tell")
    rows = [
        ('missing', other(lambda path: None), *folder, 'no such folder'),
        ('file', other(pathlib.Path.touch), *folder, 'it is no folder'),
        ('forgotten-mount', other(pathlib.Path.mkdir), *folder, 'no Windows volume'),
        ('other-volume', other(lambda path: (path / 'Windows' / 'System32').mkdir(parents=True)),
         *folder, 'no Windows volume'),
        ('no-hive', hive(pathlib.Path.unlink), 1009, 'a hive of its registry is missing'),
        ('no-system-hive', hive(lambda path: path.with_name('SYSTEM').unlink()), 1009,
         'a hive of its registry is missing'),
        ('empty-hive', hive(lambda path: os.truncate(path, 0)), *registry),
        ('cut-hive', hive(lambda path: os.truncate(path, 5000)), *registry),
        ('zeroed-hive', hive(lambda path: path.write_bytes(bytes(path.stat().st_size))), *registry),
        ('byte-changed-in-hive', hive(lambda path: change_byte(path, b'regf')), *registry),
        ('pipe-for-hive', hive(lambda path: (path.unlink(), os.mkfifo(path))), *registry),
        ('folder-for-hive', hive(lambda path: (path.unlink(), path.mkdir())), *registry),
        ('no-version', lambda this: with_version(this, ('regDeleteValue', '"CurrentVersion"')),
         *version),
        ('other-type', lambda this: with_version(
            this, ('regWrite', '"CurrentVersion" type="REG_DWORD" data="6"')), *version),
        ('number-of-other-type', lambda this: with_version(this, text('6.3'), (
            'regWrite', '"CurrentMajorVersionNumber" type="REG_SZ" data="5"')), *version),
    ]
    rows += [(f'hibernated-{text}', lambda this, text=text: (
        this.machine / 'hiberfil.sys').write_text(text + 100 * '.'), 726, 'hibernated')
             for text in ('hibr', 'HIBR', 'RSTR')]
    rows += [('hibernation-unknown', lambda this: (this.machine / 'hiberfil.sys').mkdir(), 726,
              "hiberfil.sys can't be read")]
    rows += [(f'version-{data or "empty"}', lambda this, data=data: with_version(this, text(data)),
              *version) for data in ('', '6', '6.x', 'abc', '.', '0.0', '-6.1', '9999999999.1')]
    for name, *row in rows:
        yield f'machine/{name}', lambda this, row=row: unjudged(this, *row)
    for signature in (b'', b'wake', b'WAKE', bytes(4)):
        yield f'machine/awake-{signature.hex()}', lambda this, signature=signature: awake(this, signature)
    for name, change, wanted in (
            ('pending', lambda path: unfinished(path, (-1, 0, 1, 5)),
             {'isClean': False, 'pendingEntries': 2}),
            ('unlogged', lambda path: unfinished(path, ()), {'isClean': False, 'pendingEntries': 0}),
            ('torn', lambda path: os.truncate(path, path.stat().st_size - 4096), {'isClean': True}),
            ('broken-bin', lambda path: change_byte(path, b'hbin'), {'damagedAt': 4096})):
        yield f'machine/hive-{name}', lambda this, change=change, wanted=wanted: worrying_hive(
            this, change, **wanted)
    yield 'machine/kept-elsewhere', kept_elsewhere
    for name, code, problem, words in (('writable', 19, 'mounted read-only', READ_ONLY),
                                       ('roomy', 112, 'no room for the trace', FULL)):
        yield f'machine/not-{name}', lambda this, code=code, problem=problem, words=words: unjudged(
            this, lambda _: None, code, problem, [words])
    yield 'machine/not-for-this-user', lambda this: unjudged(
        this, hive(lambda path: path.chmod(0o600)), 1009, 'access is denied', user=NOBODY,
        group=NOBODY, extra_groups=[])


# --- The catalog

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


def catalog_rows():
    """Name, what is done to the signed patch folder, reason, CheckCatalog's code."""
    bad_signature, bad_hash = ('invalid digital signature', 1643), 'file hash mismatch'
    rows = [
        ('as-signed', lambda this: None),
        ('renamed-by-case', lambda this: (this.place / 'Payload.txt').rename(
            this.place / 'PAYLOAD.TXT')),
        ('missing', lambda this: (this.place / 'patch.cat').unlink(), 'catalog not found', 2),
        ('empty', lambda this: (this.place / 'patch.cat').write_bytes(b''), *bad_signature),
        ('junk', lambda this: (this.place / 'patch.cat').write_bytes(b'junk' * 100), *bad_signature),
        ('byte-changed', lambda this: change_byte(
            this.place / 'patch.cat', 'Payload'.encode('utf-16-le')), *bad_signature),
        ('of-other-patch', lambda this: this.gates.pack(this.patch, '<exit code="4"/>'), bad_hash,
         323),
        ('payload-byte-changed', lambda this: change_byte(this.place / 'Sub' / 'Deep.bin'), bad_hash,
         13),
        ('payload-missing', lambda this: (this.place / 'Payload.txt').unlink(), bad_hash, 13),
        ('payload-is-folder', lambda this: ((this.place / 'Payload.txt').unlink(),
                                            (this.place / 'Payload.txt').mkdir()), bad_hash, 13),
        ('payload-is-pipe', lambda this: put_pipe(this.place / 'Payload.txt'), bad_hash, 13),
        ('payload-is-device', lambda this: put_link(this.place / 'Payload.txt', '/dev/null'),
         bad_hash, 13),
        ('payload-is-elsewhere', lambda this: put_link(
            this.place / 'Payload.txt', shutil.copy2(this.place / 'Payload.txt', this.folder)),
         bad_hash, 13),
        ('payload-in-two-other-cases', lambda this: (
            (this.place / 'Payload.txt').rename(this.place / 'PAYLOAD.txt'),
            shutil.copy2(this.place / 'PAYLOAD.txt', this.place / 'PAYLOAD.TXT')), bad_hash, 13),
        ('pipe', lambda this: put_pipe(this.place / 'patch.cat'), 'failed to load catalog', 1006),
    ]
    rows += [(signer, lambda this, signer=signer: this.gates.sign(
        this.place, this.gates.signers[signer]), *bad_signature)
             for signer in ('other-organisation', 'other-name', 'refused-serial', 'wrong-purpose',
                            'expired', 'untrusted-root')]
    for name, *row in rows:
        yield f'catalog/{name}', lambda this, row=row: catalog(this, *row)
    yield 'catalog/signed-but-no-catalog', no_catalog


def no_catalog(this):
    """A signed program under the catalog's name verifies, but there is nothing to walk."""
    this.external(is_signed=False)
    certificate, key = this.gates.publisher
    subprocess.run(['osslsigncode', 'sign', '-certs', certificate, '-key', key, '-ac',
                    this.gates.root.certificate, '-in', this.gates.image, '-out',
                    this.place / 'patch.cat'], check=True, capture_output=True)
    check(this.ended(), 323, refused('failed to load catalog'),
          ['error loading catalog file: *', 'CheckCatalog returned 1006'], critical=1006)


def patch_is_pipe(this):
    this.external()
    put_pipe(this.patch)
    check(this.ended(), 222, ['Failed to load the patch. Error: 222.'])


# --- The protected folder

COPY_OUT = ('<fileCopySingle src="%scriptdir%\\payload.txt" dest="@DIR@\\seen"/>'
            '<exit code="3"/>')


def spelled(this):
    """What others put beside the files, in another case, is neither verified nor used."""
    this.external(body=COPY_OUT)
    for name in ('PAYLOAD.TXT', 'payload.txt', 'Fix.tlx', 'PATCH.CAT'):
        (this.place / name).write_text('evil', encoding='ascii')
    (this.folder / 'Patch').mkdir()
    (this.place / 'sub').mkdir()
    check(this.ended(), -3)
    expect((this.folder / 'seen').read_text() == 'payload', 'the script saw what nobody signed')


def named(this, form):
    """However the patch is named, its files are copied."""
    this.external()
    (this.place / 'latest.tlx').symlink_to('fix.tlx')
    this.patch = form.replace('@', str(this.place))
    check(this.ended(), -3, trace=['Trace: in C:*customPatches*'])


def refused_folder(this, arrange, words):
    this.external()
    arrange(this.install / 'customPatches')
    check(this.ended(), 323, refused(words), ['CheckCatalog returned 13'], critical=13)


def open_volume(this):
    """Where others can rename what is on the way, the copies lie on the host."""
    os.chmod(this.install.parent, 0o777)
    this.external(body=WAIT.replace('<exit', '<trace value="in %scriptdir%"/>' + COPY_OUT + '<exit'))
    place = this.folder / 'tmp'
    place.mkdir(0o700)
    process = this.start(environment={'TMPDIR': str(place)})
    wait_for(this.folder / 'started')
    folders = list(place.iterdir())
    expect(not this.protected() and len(folders) == 1 and
           folders[0].stat().st_mode & 0o777 == 0o700, f'the copies lie elsewhere: {folders}')
    (this.folder / 'go').touch()
    check(this.finish(process), -3, trace=[
        'Other accounts can change what lies in the install folder, *', 'Trace: in C:*customPatches*',
        'Protected folder for custom patches removed'])
    expect((this.folder / 'seen').read_text() == 'payload' and not list(place.iterdir()),
           'it saw something else, or the folder stayed')


def left_behind(this):
    """What a killed run left goes with the next; what a living one uses stays."""
    this.external(body=WAIT)
    for round_ in range(2):
        (this.folder / 'started').unlink(missing_ok=True)
        process = this.start(this.command('/skipInstanceCheck'))
        wait_for(this.folder / 'started')
        if round_ == 0:
            process.kill()
            process.communicate()
    living = this.protected()
    expect(len(living) == 1, f'there should be one folder: {living}')
    (this.folder / 'go').touch()
    check_busy = this.start(this.command('/skipInstanceCheck'))
    check_busy.communicate()
    process.communicate()
    expect((process.returncode, check_busy.returncode) == (-3 & 0xFF, -3 & 0xFF), 'one was disturbed')
    expect(not this.protected(), 'a folder stayed')


def in_folder(this):
    """While the script runs, the copies are there for the system's account alone."""
    this.external(body=WAIT)
    process = this.start()
    wait_for(this.folder / 'started')
    folders = this.protected()
    expect(len(folders) == 1, f'there should be one folder: {folders}')
    seen = {path.relative_to(folders[0]).as_posix(): path.read_bytes()
            for path in folders[0].rglob('*') if path.is_file()}
    wanted = {'Payload.txt': b'payload', 'Sub/Deep.bin': bytes(range(256)) * 1000}
    expect(seen == wanted, f'it holds {sorted(seen)}')
    for folder in (folders[0], folders[0].parent):
        expect(folder.stat().st_mode & 0o777 == 0o700, f'{folder} is open to others')
    (this.folder / 'go').touch()
    check(this.finish(process), -3, trace=['Protected folder for custom patches removed'])
    expect(not this.protected(), 'the folder stayed')


def loaded_in_vain(this, stderr, reason=None, **header):
    this.external(**header)
    check(this.ended(), 1636, [stderr], ['CheckCatalog returned 0',
                                         'Protected folder for custom patches removed'],
          reason=reason)
    expect(not this.protected(), 'the folder stayed')


def folder_rows():
    yield 'folder/other-spellings', spelled
    yield 'folder/patch-is-pipe', patch_is_pipe
    for name, form in (('doubled', '@//fix.tlx'), ('dotted', '@/./Sub/../fix.tlx'),
                       ('mixed', '@\\fix.tlx'), ('drive', 'Z:@/fix.tlx'), ('link', '@/latest.tlx'),
                       ('other-case', '@/FIX.tlx')):
        yield f'folder/named-{name}', lambda this, form=form: named(this, form)
    words = 'the folder customPatches in the install folder '
    yield 'folder/place-is-link', lambda this: refused_folder(
        this, lambda place: place.symlink_to(this.folder), words + 'is a link; remove it')
    yield 'folder/place-is-file', lambda this: refused_folder(
        this, lambda place: place.touch(),
        'no folder for the files could be made in the install folder (error 267)')
    yield 'update/place-of-another', lambda this: refused_folder(
        this, lambda place: (place.mkdir(), os.chown(place, NOBODY, NOBODY)),
        words + 'belongs to another account; remove it')
    yield 'folder/open-volume', open_volume
    yield 'folder/left-behind', left_behind
    yield 'folder/without-mask', without_mask
    yield 'folder/while-the-script-runs', in_folder
    yield 'folder/after-a-script-that-is-none', lambda this: loaded_in_vain(
        this, 'Failed to load patch.', body='<nope/>')
    yield 'folder/after-an-expired-patch', lambda this: loaded_in_vain(
        this, 'Patch is no longer valid.', 'PatchExpired', created=5)


# --- Programs that lie on the machine's volume

TOUCH = '#!/bin/sh\n: >"$1"\n'


def make_script(path, text=TOUCH):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding='ascii')
    path.chmod(0o755)


def plant(this):
    """What the volume has, and paths that lead there; all but the last few are the volume's."""
    host, volume = this.folder, this.machine / 'tools'
    make_script(volume / 'script')
    shutil.copy2('/bin/touch', volume / 'program')
    shutil.copy2('/bin/touch', this.machine / 'Windows' / 'System32' / 'regsvr32.exe')
    (volume / 'out').symlink_to('/bin/touch')
    (volume / 'in').symlink_to('/tools/program')  # C:'s, and no folder of the host
    (host / 'to-file').symlink_to(volume / 'program')
    (host / 'to-folder').symlink_to(volume)
    make_script(host / 'by-volume', f'#!{volume}/program\n')
    make_script(host / 'by-link', f'#! {host}/to-folder/program -a\n')
    make_script(host / 'by-script', f'#!{host}/by-volume\n')
    make_script(host / 'script')
    drive = world.host_to_drive
    own = [r'C:\tools\script', r'C:\tools\program', r'C:\tools\in', 'regsvr32', r'%windir%\program',
           r'machine\tools\script', drive(volume / 'program'), drive(host / 'to-file'),
           drive(host / 'to-folder' / 'script'), drive(host / 'to-folder' / 'out'),
           *(drive(host / name) for name in ('by-volume', 'by-link', 'by-script'))]
    shutil.copy2('/bin/touch', this.machine / 'Windows' / 'program')
    return own, [drive(host / 'script'), r'Z:\bin\touch', r'%scriptdir%\script', r'%scriptdir%\program']


def volume_programs(this, is_allowed):
    library = this.gates.tessel.parents[1] / 'tests' / 'libraries' / 'entry.dll'
    own, others = plant(this)
    shutil.copy2(library, this.machine / 'tools')
    call = 'entrypoint="Succeed" dllTextArgument="x"'
    body = ''.join(f'<processRun path="{path}" args="{this.folder}/{number}" waittime="-1"/>'
                   for number, path in enumerate([*own, *others]))
    for place in (r'C:\tools', '%scriptdir%'):
        body += f'<processEntrypoint path="{place}\\entry.dll" {call}/>'
    shutil.copy2(library, this.place)
    make_script(this.place / 'script')
    shutil.copy2('/bin/touch', this.place / 'program')
    this.external(body=body + '<exit code="3"/>')
    environment = {'TESSEL_RUN_VOLUME_PROGRAMS': '1'} if is_allowed else {}
    ended = this.finish(this.start(environment=environment))
    ends = [line.split(' function end with ')[1] for line in ended.trace if ' function end ' in line]
    good = "success. err:''"
    wanted = good if is_allowed else "error. err:'193'"
    expect(ends == [wanted] * len(own) + [good] * len(others) + [wanted, good], f'{ended}')
    ran = sorted(int(path.name) for path in this.folder.iterdir() if path.name.isdigit())
    first = 0 if is_allowed else len(own)
    expect(ran == list(range(first, len(own) + len(others))), f'these ran: {ran}')


def open_to_others(place):
    return [path for path in place.rglob('*')
            if not path.is_symlink() and path.stat().st_mode & 0o022]


def without_mask(this):
    """What a run writes under a mask that keeps nobody out, while it runs and at its end."""
    before = os.umask(0)
    try:
        this.machine = this.folder / 'open'
        this.gates.make_machine(this.machine)
        this.install = this.machine / INSTALL
        make_script(this.place / 'script', '#!/bin/sh\nmkdir "$1"; : >"$1/file"\n')
        (this.place / 'open.bin').write_bytes(bytes(9))
        key = r'root="HKEY_LOCAL_MACHINE" key="SOFTWARE\Other"'
        this.external(f'<regCreateKey {key}/><dirCreate path="C:\\made"/>'
                      r'<fileCopySingle src="%scriptdir%\open.bin" dest="C:\made\copy.bin"/>'
                      fr'<processRun path="%scriptdir%\script" args="{this.machine}/child"'
                      ' waittime="-1"/>' + WAIT)
        process = this.start()
        wait_for(this.folder / 'started')
        expect(this.protected(), 'nothing is protected')
        opened = open_to_others(this.machine)
        (this.folder / 'go').touch()
        check(this.finish(process), -3)
    finally:
        os.umask(before)
    opened += open_to_others(this.machine)
    expect(not opened, f'others can write {opened}')
    for path in ('made/copy.bin', 'child/file', world.SPOOL, world.TRACES):
        expect((this.machine / path).exists(), f'{path} is not there')


def from_folder(this, is_removed):
    """The host's paths are the same from a folder of the machine, and from one that is gone. No file
    of the run gets the number of a stream that the caller closed."""
    place = this.machine / 'here'
    place.mkdir()
    this.external(WAIT)
    patch = this.patch if is_removed else '../../' + str(this.patch.relative_to(this.folder))
    remove = f'rmdir "{place}"; ' if is_removed else ''
    words = f'cd "{place}"; {remove} exec "$@" <&- >&- 2>&-'
    process = this.start(['/bin/sh', '-c', words, 'sh', str(this.gates.tessel), '/encfile', str(patch)])
    wait_for(this.folder / 'started')
    streams = [os.readlink(f'/proc/{process.pid}/fd/{number}') for number in range(3)]
    (this.folder / 'go').touch()
    check(this.finish(process), -3)
    expect(streams == ['/dev/null'] * 3, f'the standard streams are {streams}')


def program_rows():
    for is_removed in (False, True):
        yield f'programs/from-a-folder-{"removed" if is_removed else "of-the-machine"}', \
            lambda this, is_removed=is_removed: from_folder(this, is_removed)
    yield 'programs/of-the-volume', lambda this: volume_programs(this, False)
    yield 'programs/of-an-open-volume', lambda this: (
        os.chmod(this.install.parent, 0o777), volume_programs(this, False))
    yield 'programs/of-the-volume-allowed', lambda this: volume_programs(this, True)


# --- How a run ends as others see it

SIGNALLED = r'root="HKEY_LOCAL_MACHINE" key="SOFTWARE\Microsoft"'
WAITS = {  # each would last longer than a test may
    'sleep': '<sleep milisec="-1"/>',
    'program': '<processRun path="/bin/sleep" args="20" waittime="-1"/>',
    'loop': '<nothing id="again"/><goto target="again"/>',
    'download': '<fileDownload url="http://127.0.0.1:@PORT@/" file="@DIR@\\got"/>'}


def signalled(this, number, wait, ignored=()):
    """What ran ends, nothing else starts, and all is left as after any other run."""
    with socket.create_server(('127.0.0.1', 0)) as silent:
        wait = WAITS[wait].replace('@PORT@', str(silent.getsockname()[1]))
        this.external(body=f'<regWrite {SIGNALLED} value="Signalled" type="REG_SZ" data="kept"/>'
                      + '<fileCreate path="@DIR@\\started"/>' + wait.replace(
                          '@DIR@', world.host_to_drive(this.folder))
                      + '<fileCreate path="@DIR@\\after"/><exit code="3"/>')
        process = this.start(preexec_fn=lambda: [signal.signal(one, signal.SIG_IGN)
                                                 for one in ignored])
        wait_for(this.folder / 'started')
        for one in (*ignored, number):
            process.send_signal(one)
            time.sleep(0.05)
        ended = this.finish(process)
    faults = [check_events(ended, -1223, None, 'PatchCancelled'), expectations.lack(
        ['Asked to stop. No other command starts.', 'End execution',
         'Protected folder for custom patches removed'], ended.trace, 'trace')]
    expect(not any(faults), '\n'.join(filter(None, faults)))
    expect(ended.exit_code == -number, f'it ended with {ended.exit_code}')
    expect(not (this.folder / 'after').exists() and not this.protected(), 'it went on, or left a folder')
    shown = subprocess.run([this.gates.tlx, 'machine', 'show', this.machine, r'HKLM\SOFTWARE\Microsoft'],
                           capture_output=True, text=True, check=True).stdout
    expect('"kept"' in shown, f'the registry: {shown}')


def low_byte(this, code):
    this.external(body=f'<exit code="{code}"/>')
    ended = this.ended()
    expect(ended.exit_code == 255 and check_events(ended, -abs(code)) is None, f'it ended: {ended}')


def ending_rows():
    for wait in WAITS:
        yield f'ending/signal-{wait}', lambda this, wait=wait: signalled(this, signal.SIGTERM, wait)
    yield 'ending/signal-INT', lambda this: signalled(this, signal.SIGINT, 'sleep')
    yield 'ending/signal-HUP', lambda this: signalled(this, signal.SIGHUP, 'sleep')
    yield 'ending/signal-ignored', lambda this: signalled(
        this, signal.SIGTERM, 'sleep', [signal.SIGHUP, signal.SIGINT])
    for code in (256, 65536, -2147483648):
        yield f'ending/code-{code}', lambda this, code=code: low_byte(this, code)


# --- The instance guard

BUSY = ['Execution of another patch is in progress, could not apply current patch.']


def wait_until(condition, words):
    limit = time.monotonic() + world.TIME_LIMIT
    while not condition():
        expect(time.monotonic() < limit, words)
        time.sleep(0.005)


def wait_for(path):
    wait_until(path.exists, f'{path} did not appear')


def expect_busy(this, ended, which):
    expect((ended.exit_code, ended.stderr) == (this.expected_code(1618), BUSY), f'{which}: {ended}')
    expect(ended.foretold is None or ended.foretold['exitCode'] == 1618, f'{which}: {ended}')


def guard(this):
    this.external(body=WAIT)
    first = this.start()
    wait_for(this.folder / 'started')
    this.has_company = True
    second = this.ended()
    expect_busy(this, second, 'the second')
    fault = check_events(second, 1618, 1618)
    expect(fault is None, fault)
    (this.folder / 'started').unlink()
    skipping = this.start(this.command('/skipInstanceCheck'))
    wait_for(this.folder / 'started')
    first.kill()
    first.communicate()
    expect_busy(this, this.ended(), 'one that skipped the check holds the guard too')
    (this.folder / 'go').touch()
    skipping.communicate()
    fourth = this.ended()
    expect(fourth.exit_code == -3 & 0xFF, f'nobody holds the guard: {fourth}')


def held_to_the_last_word(this):
    """A refused run holds the guard until its words and then its reports are out."""
    this.external(is_signed=False)
    reading, writing = os.pipe()
    fcntl.fcntl(writing, fcntl.F_SETPIPE_SZ, 4096)
    os.write(writing, bytes(4096))
    first = this.start(stderr=writing)
    os.close(writing)
    with open(reading, 'rb') as words:
        wait_until(lambda: any(b'CheckCatalog FAILED!' in path.read_bytes()
                               for path in this.traces()), 'the first was not refused')
        expect_busy(this, this.ended(), 'the second')
        expect('PatchCatalogFileNotFound' not in str(this.events()), 'it reports before it speaks')
        expect(words.read().endswith(b'Reason: catalog not found.\n'), 'the words')
    expect(first.wait() == 323 & 0xFF, 'the first')


def many_starts(this, count=50):
    this.external(body=WAIT)
    processes = [this.start() for _ in range(count)]
    wait_until(lambda: sum(process.poll() is None for process in processes) <= 1,
               'more than one goes on')
    (this.folder / 'go').touch()
    codes = sorted(this.finish(process).exit_code for process in processes)
    wanted = sorted([1618 & 0xFF] * (count - 1) + [-3 & 0xFF])
    expect(codes == wanted, f'exactly one should have been first: {codes}')


def foretold_with_log(this):
    """The file of a script's attribute 'log' is opened by the load."""
    log = this.folder / 'log.txt'
    this.external(start=f'<script log="{world.host_to_drive(log)}">')
    expect(this.foretell()['starts'], 'it would start')
    check(this.ended(), -3, trace=['set trace file: *'])
    expect(log.exists(), 'the run opens it')


def guard_rows():
    yield 'verify/script-with-log', foretold_with_log
    yield 'guard/held-by-who-runs', guard
    yield 'guard/held-to-the-last-word', held_to_the_last_word
    yield 'guard/many-starts', many_starts


# --- Races

def swapped(this, rounds=15):
    """The script copies its payload out; what it saw must be what was signed."""
    good, evil = b'good' * 50000, b'evil' * 50000
    this.external(body=COPY_OUT)
    payload, seen = this.place / 'Payload.txt', this.folder / 'seen'
    payload.write_bytes(good)
    this.gates.sign(this.place)
    stop = threading.Event()

    def swap():
        bad = this.place / 'bad.tmp'
        while not stop.is_set():
            for content in (evil, good):
                bad.write_bytes(content)
                os.replace(bad, payload)
            for word in (b'evil', b'good'):
                with payload.open('r+b') as file:
                    file.write(word)

    swapper = threading.Thread(target=swap)
    this.has_company = True
    swapper.start()
    try:
        for _ in range(rounds):
            seen.unlink(missing_ok=True)
            ended = this.ended()
            if ended.exit_code == -3 & 0xFF:
                expect(seen.read_bytes() == good, 'the script saw what nobody signed')
            else:
                expect(ended.exit_code == 323 & 0xFF and not seen.exists(), f'it ended: {ended}')
    finally:
        stop.set()
        swapper.join()


def swapped_for_trusted(this):
    """The patch is an old one, and gives way to a link into the install folder while its files are
    copied."""
    this.external(created=5)
    trusted = shutil.copy2(this.patch, this.install / 'fix.tlx')
    big = this.place / 'Sub' / 'Deep.bin'
    with big.open('wb') as file:
        file.truncate(400 << 20)
    this.gates.sign(this.place)
    process = this.start()
    wait_until(this.protected, 'nothing is copied')
    this.patch.unlink()
    this.patch.symlink_to(trusted)
    ended = this.finish(process)
    check(ended, 1636, ['Patch is no longer valid.'],
          ['CheckCatalog returned 0', 'compare with install path passed'], reason='PatchExpired')


def race_rows():
    yield 'race/payload-swapped', swapped
    yield 'race/patch-swapped-for-a-trusted-one', swapped_for_trusted


# --- The spool folder of runs that are broken off

KILLS = 200


def killed(this):
    """Whole events and ".tmp" files are all that a killed run leaves."""
    this.external()
    chance = random.Random(20)  # seeded, so that a failure comes again
    started = time.monotonic()
    this.start().communicate()
    length = time.monotonic() - started
    for _ in range(KILLS):
        process = this.start()
        # The second half, where the event is written, is hit twice as often.
        time.sleep(length * max(chance.random(), chance.random()) * 1.1)
        process.kill()
        process.communicate()
        expect(all(event['exit_code'] == -3 for event in this.events()), f'wrong: {this.events()}')
    expect(this.events(), 'no run came to its end: the kills prove nothing')
    expect(len(this.events()) <= KILLS, 'every run came to its end: the kills prove nothing')


def spool_rows():
    yield 'spool/killed', killed


# --- The program of Windows, under Wine

# Those whose end Wine 8 doesn't change. Its user is never the system's account, it takes each signature
# that it can read for a good one, and it can't hash as catalogs do.
SAME_UNDER_WINE = ('undecryptable/*', 'type/*', 'catalog/missing', 'catalog/empty', 'catalog/junk',
                   'catalog/other-*', 'catalog/refused-serial')


def update_under_wine(this):
    this.trusted(INSTALL)
    ended = this.ended()
    check(ended, 5, UPDATE_WORDS, ['Started from install path...', 'Run by S-1-5-21-*',
                                   'CheckRightsForInstallPath returned 5'], critical=5)
    told = ended.events[-1]['tessera']
    expect((told['install_dir'], told['parent_process']['name'][0]) ==
           (world.drive_path(INSTALL), 'cmd.exe'), f'what is told: {told}')


def wine_rows():
    for rows in (location_rows, catalog_rows):
        for name, action, *_ in rows():
            if any(fnmatch.fnmatchcase(name, pattern) for pattern in SAME_UNDER_WINE):
                yield name, action
    yield 'update/not-system', update_under_wine
    yield 'catalog/as-signed', lambda this: catalog(
        this, lambda this: None, 'file hash mismatch', 323)


def all_rows(options):
    for rows in (location_rows, machine_rows, catalog_rows, folder_rows, program_rows, ending_rows,
                 guard_rows, race_rows, spool_rows):
        for name, action, *machine in rows():
            yield name, action, machine[0] if machine else 'machine'
    if options.windows:
        for name, action in wine_rows():
            yield f'windows/{name}', action, 'machine'


def lacks_surroundings(row, options):
    """Whether the row needs root, or a program to sign, and there is none."""
    return (row.startswith(('update/', 'machine/not-')) and os.geteuid() != 0) or (
        row.startswith('catalog/signed-') and not options.image)


def run_row(gates, row, action, machine, folder):
    """What is wrong with what the row does."""
    folder.mkdir()
    make = WindowsRun if row.startswith('windows/') else Run
    fault = world.fault_of(lambda: action(make(gates, folder, getattr(gates, machine))))
    shutil.rmtree(folder, ignore_errors=True)
    return fault


def main():
    parser = argparse.ArgumentParser(description='Runs patches through the gates.')
    parser.add_argument('--linux', required=True, metavar='TESSEL')
    parser.add_argument('--tlx', required=True)
    parser.add_argument('--key', required=True, metavar='PEM')
    parser.add_argument('--image', metavar='EXE')
    parser.add_argument('--windows', metavar='TESSEL_EXE')
    parser.add_argument('--wine', default='wine')
    parser.add_argument('--system-library', action='append', default=[], metavar='DLL')
    parser.add_argument('--json', metavar='OUT')
    parser.add_argument('--filter', default='*', metavar='GLOB')
    parser.add_argument('-v', action='store_true')
    options = parser.parse_args()
    outcomes = {}
    skipped = 0
    with contextlib.ExitStack() as stack:
        name = stack.enter_context(tempfile.TemporaryDirectory(prefix='tessel-gates.',
                                                               ignore_cleanup_errors=True))
        root = pathlib.Path(name).resolve()
        os.chmod(root, 0o755)
        gates = Gates(options, root)
        if options.windows:
            stack.enter_context(gates.windows.system_libraries())
        for row, action, machine in all_rows(options):
            if not fnmatch.fnmatchcase(row, options.filter):
                continue
            if lacks_surroundings(row, options):
                skipped += 1
                continue
            outcomes[row] = run_row(gates, row, action, machine, root / row.replace('/', '.'))
            if options.v:
                print(f'{"FAILED" if outcomes[row] else "ok":8}{row}', flush=True)
    return world.report(outcomes, skipped, options.json)


if __name__ == '__main__':
    sys.exit(main())
