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
import fnmatch
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import traceback
from typing import Callable

import authority
import expectations
import run
import spooled_events

NOBODY = 65534
INSTALL = pathlib.Path('Program Files', 'Ambry Shield')
SERVICE = pathlib.Path('Update Service')
# What runs until the file 'go' is there, and tells by the file 'started' that it does.
WAIT = ('<fileCreate path="@DIR@\\started"/><nothing id="wait"/><sleep milisec="5"/>'
        '<fileExists path="@DIR@\\go"><onFalse><goto target="wait"/></onFalse></fileExists>')
SCRIPT = """<patch version="1.0"><header><property name="id" value="gates"/>
<property name="patchType" value="{kind}"/><property name="created" value="{created}"/>
<property name="tags" value="first"/></header><script>{body}</script></patch>"""


class Fault(Exception):
    """What a run did wrong."""


@dataclasses.dataclass
class Ended:
    exit_code: int
    stdout: list
    stderr: list
    trace: list
    events: list
    expected_code: Callable[[int], int]  # what such an exit code is seen as


def refused_serial(program):
    """One of the serials that were built into the program."""
    header = program.parents[1] / 'refused-serials' / 'refused_serials.h'
    return re.search(r'u"([0-9a-f]{32})"', header.read_text(encoding='ascii'))[1]


class World:
    """What all runs share."""

    def __init__(self, options, folder):
        self.tessel = pathlib.Path(options.linux).resolve()
        self.tlx = options.tlx
        self.image = options.image
        self.patch_key = options.key
        self.folder = folder
        self.root = authority.Authority(folder, 'root')
        stranger = authority.Authority(folder, 'stranger')
        organisation = authority.PUBLISHER.replace('O=Corvane', 'O=Other')
        self.signers = {
            'publisher': self.root.issue('publisher'),
            'other-organisation': self.root.issue('other-organisation', subject=organisation),
            'other-name': self.root.issue('other-name', subject='/O=Corvane SRL/CN=Corvane'),
            'refused-serial': self.root.issue('refused-serial', serial=refused_serial(self.tessel)),
            'wrong-purpose': self.root.issue('wrong-purpose', purpose='serverAuth'),
            'expired': self.root.issue('expired', days='-1'),
            'untrusted-root': stranger.issue('untrusted-root'),
        }
        self.machine = folder / 'machine'
        self.make_machine(self.machine)
        self.elsewhere = folder / 'machine-with-service-elsewhere'
        self.make_machine(self.elsewhere, '--windows', '7')
        self.change_machine(self.elsewhere, r"""
            <regWrite root="HKEY_LOCAL_MACHINE" type="REG_EXPAND_SZ" value="ImagePath"
             key="SYSTEM\CurrentControlSet\Services\AmUpdateService"
             data="&quot;C:\Update Service\updater.exe&quot; -run"/>""")
        self.bare = folder / 'machine-without-product'
        self.make_machine(self.bare, '--windows', '7')
        self.change_machine(self.bare, r"""
            <regDeleteKey root="HKEY_LOCAL_MACHINE"
             key="SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Ambry Shield"/>
            <serviceDelete name="AMSecurityService"/><serviceDelete name="AmUpdateService"/>""")
        self.windows = options.windows and run.WindowsHome(options.windows, options.wine,
                                                           options.system_library)

    def make_machine(self, folder, *more):
        subprocess.run([self.tlx, 'machine', 'create', folder, '--trust', self.root.certificate,
                        *more], check=True)

    def change_machine(self, machine, body):
        """Runs commands on a machine of the old kind, and makes one of the new kind of it."""
        version = r'SOFTWARE\Microsoft\Windows NT\CurrentVersion'
        body += f'<regWrite root="HKEY_LOCAL_MACHINE" key="{version}" value="CurrentVersion"' \
                ' type="REG_SZ" data="6.3"/><exit code="0"/>'
        patch = machine.with_suffix('.tlx')
        self.pack(patch, body)
        ended = subprocess.run([self.tessel, '/encfile', patch], check=False, capture_output=True,
                               env={**os.environ, 'TESSEL_MACHINE': str(machine)})
        if ended.returncode != 0:
            sys.exit(f'gates.py: the machine could not be changed: {ended}')
        shutil.rmtree(machine / 'ProgramData' / 'Tessera')
        shutil.rmtree(machine / INSTALL / 'matrix', ignore_errors=True)

    def pack(self, patch, body, kind='external', created=None):
        script = patch.with_suffix('.xml')
        text = SCRIPT.format(kind=kind, created=created or int(time.time()), body=body)
        script.write_text(text, encoding='utf-8')
        subprocess.run([self.tlx, 'pack', '--force', '--key', self.patch_key, '--in', script,
                        '--out', patch], check=True)
        script.unlink()

    def sign(self, folder, signer='publisher'):
        certificate, key = self.signers[signer]
        subprocess.run([self.tlx, 'catalog', '--force', '--cert', certificate, '--key', key,
                        '--chain', self.root.certificate, '--dir', folder], check=True)


class Run:
    """A machine, a patch folder, and what is started there."""

    def __init__(self, world, folder, machine=None):
        self.world = world
        self.folder = folder
        self.machine = self.take_machine(machine)
        os.chmod(folder, 0o755)
        self.install = self.machine / INSTALL
        self.install.mkdir(parents=True, exist_ok=True)
        self.place = folder / 'patch'
        self.place.mkdir()
        self.patch = self.place / 'fix.tlx'

    def take_machine(self, machine):
        return shutil.copytree(machine, self.folder / 'machine')

    def external(self, body='<trace value="in %scriptdir%"/><exit code="3"/>', **header):
        self.world.pack(self.patch, body.replace('@DIR@', run.host_to_drive(self.folder)), **header)
        (self.place / 'Payload.txt').write_text('payload', encoding='ascii')
        (self.place / 'Sub').mkdir()
        (self.place / 'Sub' / 'Deep.bin').write_bytes(bytes(range(256)) * 1000)

    def trusted(self, folder, body='<trace value="in %scriptdir%"/><exit code="3"/>',
                kind='update'):
        place = self.machine / folder / 'patches'
        place.mkdir(parents=True)
        self.patch = place / 'fix.tlx'
        self.world.pack(self.patch, body, kind=kind, created=5)

    def command(self, *options):
        return [str(self.world.tessel), '/encfile', str(self.patch), *options]

    def parent(self, folder):
        """A program in a folder of the machine, which starts what follows it."""
        program = self.machine / folder / 'updater.exe'
        program.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2('/bin/sh', program)
        return [str(program), '-c', '"$@"; exit $?', 'updater']

    def start(self, command, **how):
        environment = {**os.environ, 'TESSEL_MACHINE': str(self.machine)}
        return self.spawn(command, environment, **how)

    def spawn(self, command, environment, stderr=subprocess.PIPE, **how):
        return subprocess.Popen(command, env=environment, cwd=self.folder, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=stderr, **how)

    def traces(self):
        folder = self.machine / 'ProgramData' / 'Tessera'
        return {path: run.read_trace(path) for path in folder.glob('ts-*.txt')}

    def is_traced(self, text):
        """Whether some trace, of a run that may go on, has the text."""
        folder = self.machine / 'ProgramData' / 'Tessera'
        return any(text.encode('ascii') in path.read_bytes() for path in folder.glob('ts-*.txt'))

    def exit_code(self, process, _):
        return process.returncode

    expected_code = staticmethod(run.LinuxHome.expected_code)

    def finish(self, process):
        out, err = (data or b'' for data in process.communicate(timeout=run.TIME_LIMIT))
        traces = list(self.traces().values())
        ended = Ended(self.exit_code(process, err), out.decode().splitlines(),
                      err.decode().splitlines(), traces[0] if len(traces) == 1 else [],
                      spooled_events.load(self.install / 'matrix' / 'events'), self.expected_code)
        return ended

    def ended(self, *options, before=(), **how):
        return self.finish(self.start([*before, *self.command(*options)], **how))

    def protected(self):
        folder = self.install / 'customPatches'
        return sorted(folder.iterdir()) if folder.is_dir() else []


class WindowsRun(Run):
    """The same under Wine, where the prefix is the machine of all runs, one at a time."""

    def take_machine(self, _):
        drive = pathlib.Path(os.environ['WINEPREFIX'], 'drive_c')
        for place in (drive / 'ProgramData' / 'Tessera', drive / INSTALL):
            shutil.rmtree(place, ignore_errors=True)
        return drive

    def command(self, *options):
        patch = self.patch
        inside = patch.is_relative_to(self.machine)
        name = run.drive_path(patch.relative_to(self.machine)) if inside else run.host_to_drive(patch)
        return ['/encfile', name, *options]

    def start(self, command, **how):
        home = self.world.windows
        environment = dict(os.environ)
        code_file = self.folder / f'exit-code-{len(list(self.folder.glob("exit-code-*")))}.txt'
        code_file.touch()
        process = self.spawn(home.command(home.program, command, environment, code_file),
                             environment, **how)
        process.code_file = code_file
        return process

    def exit_code(self, process, stderr):
        return self.world.windows.told_code(process.code_file, stderr)

    expected_code = staticmethod(run.WindowsHome.expected_code)


def check_events(ended, *end):
    return expectations.differ(spooled_events.expected(*end),
                               [spooled_events.tell(event) for event in ended.events], 'events')


def check(ended, exit_code, stderr=(), trace=(), stdout=(), critical=None, reason=None,
          has_spool=True):
    """Looks at a run that had its machine for itself."""
    faults = [check_events(ended, exit_code, critical, reason) if has_spool else None]
    if ended.exit_code != ended.expected_code(exit_code):
        faults.append(f'the exit code is {ended.exit_code}, not {exit_code}')
    faults.append(expectations.differ(list(stderr), ended.stderr, 'standard error'))
    faults.append(expectations.differ(list(stdout), ended.stdout, 'standard output'))
    faults.append(expectations.lack(list(trace), ended.trace, 'trace'))
    faults = [fault for fault in faults if fault]
    if faults:
        raise Fault('\n'.join(faults))


def expect(condition, words):
    if not condition:
        raise Fault(words)


# --- Where a patch lies, and who started it

TYPES = ('update', 'external', 'Update', 'External', '')
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
    program = shutil.copy2(this.world.tessel, this.folder)
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
    folder = run.drive_path(INSTALL)
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
        this.external(kind=kind)
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
    yield 'update/in-install-folder', lambda this: update_runs(this, INSTALL, 'install')
    yield ('update/in-service-folder', lambda this: update_runs(this, SERVICE, 'service'),
           'elsewhere')
    yield 'update/beside-install-folder', beside
    yield 'update/not-system', update_as_nobody
    yield 'update/other-parent', lambda this: update_by(
        this, ['Run by S-1-5-18', 'It is not run from installpath.'], 127, [])
    yield 'update/no-parent', lambda this: update_by(
        this, ['Failed to get parent pid for pid 1'], 1293,
        ['unshare', '--pid', '--fork', '--mount-proc', '--propagation', 'private'])
    yield 'update/unreadable-parent', lambda this: update_by(
        this, ['Run by S-1-5-18', 'Failed to get path for pid *'], 1293,
        ['setpriv', '--bounding-set', '-sys_ptrace,-chown'])
    for kind in TYPES:
        if kind != 'update':
            yield (f'type/install-{kind or "none"}',
                   lambda this, kind=kind: mistyped(this, kind, True))
        if kind != 'external':
            yield (f'type/custom-{kind or "none"}',
                   lambda this, kind=kind: mistyped(this, kind, False))
    for place, name, is_removed in (('install', 'a.tlx', True), ('install', 'a.TLX', False),
                                    ('install', 'a.txt', False), ('custom', 'a.tlx', False)):
        yield (f'undecryptable/{place}-{name}',
               lambda this, row=(place, name, is_removed): undecryptable(this, *row))


# What begins as the install folder's name does lies in it, by the rule that characters are compared.
def beside(this):
    folder = INSTALL.with_name('Ambry Shield2')
    this.trusted(folder)
    check(this.ended(before=this.parent(folder)), -3, trace=[
        *PASSED, r'set script path: 2\patches\fix.tlx'])


# --- The catalog

def refused(reason):
    return [f'Integrity check failed. Reason: {reason}.']


def change_byte(path, near=b''):
    data = bytearray(path.read_bytes())
    data[data.index(near) if near else len(data) // 2] ^= 1
    path.write_bytes(data)


def catalog(this, arrange, code, reason, critical):
    this.external()
    this.world.sign(this.place)
    arrange(this)
    ended = this.ended('/detach')
    if code == 323:
        check(ended, 323, refused(reason),
              ['Current folder *', f'CheckCatalog returned {critical}', 'CheckCatalog FAILED!'],
              critical=critical)
    else:
        check(ended, code, stdout=['Patch validation finished.'], trace=['CheckCatalog returned 0'])
    expect(not this.protected(), f'the protected folder is still there: {this.protected()}')


def resigned(signer):
    return lambda this: this.world.sign(this.place, signer)


def without_payload(this):
    (this.place / 'Payload.txt').unlink()
    shutil.rmtree(this.place / 'Sub')
    this.world.sign(this.place)


def catalog_rows():
    """Name, what is done to the signed patch folder, exit code, reason, CheckCatalog's code."""
    signature, hash_text = 'invalid digital signature', 'file hash mismatch'
    rows = [
        ('as-signed', lambda this: None, -3, '', 0),
        ('only-the-patch', without_payload, -3, '', 0),
        ('renamed-by-case', lambda this: (this.place / 'Payload.txt').rename(
            this.place / 'PAYLOAD.TXT'), -3, '', 0),
        ('missing', lambda this: (this.place / 'patch.cat').unlink(), 323, 'catalog not found', 2),
        ('empty', lambda this: (this.place / 'patch.cat').write_bytes(b''), 323, signature, 1643),
        ('junk', lambda this: (this.place / 'patch.cat').write_bytes(b'junk' * 100), 323, signature,
         1643),
        ('byte-changed', lambda this: change_byte(
            this.place / 'patch.cat', 'Payload'.encode('utf-16-le')), 323, signature, 1643),
        ('of-other-patch', lambda this: this.world.pack(this.patch, '<exit code="4"/>'), 323,
         hash_text, 323),
        ('patch-byte-added', lambda this: this.patch.write_bytes(this.patch.read_bytes() * 2), 323,
         hash_text, 323),
        ('payload-byte-changed', lambda this: change_byte(this.place / 'Payload.txt'), 323,
         hash_text, 13),
        ('deep-byte-changed', lambda this: change_byte(this.place / 'Sub' / 'Deep.bin'), 323,
         hash_text, 13),
        ('payload-missing', lambda this: (this.place / 'Payload.txt').unlink(), 323, hash_text, 13),
        ('payload-is-folder', lambda this: ((this.place / 'Payload.txt').unlink(),
                                            (this.place / 'Payload.txt').mkdir()), 323,
         hash_text, 13),
    ]
    rows += [(signer, resigned(signer), 323, signature, 1643)
             for signer in ('other-organisation', 'other-name', 'refused-serial', 'wrong-purpose',
                            'expired', 'untrusted-root')]
    for name, *row in rows:
        yield f'catalog/{name}', lambda this, row=row: catalog(this, *row)
    yield 'catalog/signed-but-no-catalog', no_catalog
    yield 'catalog/without-product', without_product, 'bare'
    yield 'catalog/signed-programs', signed_programs


# A signed program under the catalog's name verifies, but there is nothing to walk.
def no_catalog(this):
    this.external()
    program = this.folder / 'program.exe'
    shutil.copy2(this.world.image, program)
    certificate, key = this.world.signers['publisher']
    subprocess.run(['osslsigncode', 'sign', '-certs', certificate, '-key', key, '-ac',
                    this.world.root.certificate, '-in', program, '-out', this.place / 'patch.cat'],
                   check=True, capture_output=True)
    check(this.ended(), 323, refused('failed to load catalog'),
          ['error loading catalog file: *', 'CheckCatalog returned 1006'], critical=1006)


# Of programs, which a script asks about: signed, not, changed since, and listed by the system.
def signed_programs(this):
    certificate, key = this.world.signers['untrusted-root']
    plain = pathlib.Path(this.world.image).read_bytes()
    listed = this.machine / 'Windows' / 'System32' / 'CatRoot' / (
        '{F750E6C3-38EE-11D1-85E5-00C04FC295EE}')
    listed.mkdir(parents=True)
    (listed / 'listed.exe').write_bytes(plain + b'listed!!')
    this.world.sign(listed)
    (listed / 'patch.cat').rename(listed / 'system.cat')
    (listed / 'listed.exe').rename(this.folder / 'listed.exe')
    (this.folder / 'unsigned.exe').write_bytes(plain)
    subprocess.run(['osslsigncode', 'sign', '-certs', certificate, '-key', key, '-in',
                    this.world.image, '-out', this.folder / 'signed.exe'], check=True,
                   capture_output=True)
    shutil.copy2(this.folder / 'signed.exe', this.folder / 'changed.exe')
    change_byte(this.folder / 'changed.exe')
    names = {'signed': True, 'unsigned': False, 'changed': False, 'listed': True, 'missing': False}
    body = ''.join(f'<fileIsSigned path="@DIR@\\{name}.exe"><onTrue><trace value="{name}: yes"/>'
                   f'</onTrue><onFalse><trace value="{name}: no"/></onFalse></fileIsSigned>'
                   for name in names)
    this.external(body=body + '<exit code="3"/>')
    this.world.sign(this.place)
    lines = []
    for name, is_signed in names.items():
        lines += [f'fileIsSigned function called for *\\{name}.exe',
                  f'Trace: {name}: {"yes" if is_signed else "no"}']
    check(this.ended(), -3, trace=lines)


def without_product(this):
    shutil.rmtree(this.install)
    this.external()
    this.world.sign(this.place)
    check(this.ended(), -3, trace=[
        'install path: ', 'Checking file: [*payload.txt]',
        'Could not copy all patch files to protected folder!', 'CheckCatalog returned 0',
        f'Trace: in {this.place}/', 'ToolRan::Process result = [1359]'], has_spool=False)


# --- The protected folder

def in_folder(this):
    """While the script runs, the copies are there for the system's account alone."""
    this.external(body=WAIT + '<exit code="3"/>')
    this.world.sign(this.place)
    process = this.start(this.command())
    wait_for(this.folder / 'started')
    folders = this.protected()
    expect(len(folders) == 1, f'there should be one folder: {folders}')
    seen = {path.relative_to(folders[0]).as_posix(): path.read_bytes()
            for path in folders[0].rglob('*') if path.is_file()}
    wanted = {'payload.txt': b'payload', 'sub/deep.bin': bytes(range(256)) * 1000}
    expect(seen == wanted, f'it holds {sorted(seen)}')
    for folder in (folders[0], folders[0].parent):
        expect(folder.stat().st_mode & 0o777 == 0o700, f'{folder} is open to others')
    (this.folder / 'go').touch()
    check(this.finish(process), -3, trace=['Protected folder for custom patches removed'])
    expect(not this.protected(), 'the folder stayed')


def loaded_in_vain(this, body, code, stderr, reason=None, **header):
    this.external(body=body, **header)
    this.world.sign(this.place)
    check(this.ended(), code, stderr, ['CheckCatalog returned 0',
                                       'Protected folder for custom patches removed'],
          reason=reason)
    expect(not this.protected(), 'the folder stayed')


def through_a_link(this):
    """A link in the payload's place is as good as the file that it leads to."""
    this.external()
    this.world.sign(this.place)
    original = this.place / 'Payload.txt'
    original.rename(this.folder / 'elsewhere.txt')
    original.symlink_to(this.folder / 'elsewhere.txt')
    check(this.ended(), -3, trace=[
        'Copying file to protected folder: [*customPatches*]',
        'Trace: in *customPatches\\*'])


def folder_rows():
    yield 'folder/while-the-script-runs', in_folder
    yield 'folder/payload-is-a-link', through_a_link
    yield 'folder/after-a-script-that-is-none', lambda this: loaded_in_vain(
        this, '<nope/>', 1636, ['Failed to load patch.'])
    yield 'folder/after-an-expired-patch', lambda this: loaded_in_vain(
        this, '<exit/>', 1636, ['Patch is no longer valid.'], 'PatchExpired', created=5)


# --- The instance guard

BUSY = ['Execution of another patch is in progress, could not apply current patch.']


def wait_for(path):
    limit = time.monotonic() + run.TIME_LIMIT
    while not path.exists():
        expect(time.monotonic() < limit, f'{path} did not appear')
        time.sleep(0.005)


def guard(this):
    this.external(body=WAIT + '<exit code="3"/>')
    this.world.sign(this.place)
    first = this.start(this.command())
    wait_for(this.folder / 'started')
    second = this.ended()
    expect((second.exit_code, second.stderr) == (1618 & 0xFF, BUSY), f'the second: {second}')
    fault = check_events(second, 1618, 1618)
    expect(fault is None, fault)
    (this.folder / 'started').unlink()
    skipping = this.start(this.command('/skipInstanceCheck'))
    wait_for(this.folder / 'started')
    first.kill()
    first.communicate()
    third = this.ended()
    expect((third.exit_code, third.stderr) == (1618 & 0xFF, BUSY),
           f'one that skipped the check holds the guard too: {third}')
    (this.folder / 'go').touch()
    skipping.communicate()
    fourth = this.ended()
    expect(fourth.exit_code == -3 & 0xFF, f'nobody holds the guard: {fourth}')


def many_starts(this, count=50):
    this.external(body=WAIT + '<exit code="3"/>')
    this.world.sign(this.place)
    processes = [this.start(this.command()) for _ in range(count)]
    limit = time.monotonic() + run.TIME_LIMIT
    while sum(process.poll() is None for process in processes) > 1:
        expect(time.monotonic() < limit, 'more than one goes on')
        time.sleep(0.01)
    (this.folder / 'go').touch()
    codes = sorted(this.finish(process).exit_code for process in processes)
    wanted = sorted([1618 & 0xFF] * (count - 1) + [-3 & 0xFF])
    expect(codes == wanted, f'exactly one should have been first: {codes}')


def held_to_the_last_word(this):
    """One that was refused holds the guard until it has said so: here to whom nobody listens."""
    this.external()
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    with contextlib.suppress(BlockingIOError):
        while True:
            os.write(writing, b' ' * 4096)
    os.set_blocking(writing, True)
    first = this.start(this.command(), stderr=writing)
    os.close(writing)
    with open(reading, 'rb') as pipe:
        limit = time.monotonic() + run.TIME_LIMIT
        while not this.is_traced('CheckCatalog FAILED!'):
            expect(time.monotonic() < limit, 'the first was not refused')
            time.sleep(0.005)
        second = this.ended()
        expect(not this.is_traced("error : 'PatchCatalogFileNotFound'"),
               'the reports of the first did not wait for its words')
        words = pipe.read().split()
    expect((second.exit_code, second.stderr) == (this.expected_code(1618), BUSY),
           f'the second: {second}')
    expect(this.is_traced('Another instance is running. Aborting...'), 'the second went another way')
    first = this.finish(first)
    expect((first.exit_code, words[-3:]) == (this.expected_code(323), b'catalog not found.'.split()),
           f'the first: {first}, {words}')
    fault = expectations.differ(
        sorted(spooled_events.expected(323, 2) + spooled_events.expected(1618, 1618)),
        sorted(spooled_events.tell(event) for event in first.events), 'events')
    expect(fault is None, fault)


def guard_rows():
    yield 'guard/held-by-whoever-runs', guard
    yield 'guard/held-to-the-last-word', held_to_the_last_word
    yield 'guard/many-starts', many_starts


# --- Races

def swapped(this, rounds=15):
    """The script copies its payload out; what it saw must be what was signed."""
    target = run.host_to_drive(this.folder / 'seen')
    this.external(body=f'<fileCopySingle src="%scriptdir%\\payload.txt" dest="{target}"/>'
                       '<exit code="3"/>')
    payload = this.place / 'Payload.txt'
    payload.write_bytes(b'good' * 50000)
    this.world.sign(this.place)
    stop = threading.Event()

    def swap():
        bad = this.place / 'bad.tmp'
        while not stop.is_set():
            bad.write_bytes(b'evil' * 50000)
            os.replace(bad, payload)
            bad.write_bytes(b'good' * 50000)
            os.replace(bad, payload)
            with payload.open('r+b') as file:
                file.write(b'evil')
            with payload.open('r+b') as file:
                file.write(b'good')

    swapper = threading.Thread(target=swap)
    swapper.start()
    outcomes = set()
    try:
        for _ in range(rounds):
            (this.folder / 'seen').unlink(missing_ok=True)
            ended = this.ended()
            outcomes.add(ended.exit_code)
            seen = this.folder / 'seen'
            if ended.exit_code == -3 & 0xFF:
                expect(seen.read_bytes() == b'good' * 50000, 'the script saw what nobody signed')
            else:
                expect(ended.exit_code == 323 & 0xFF and not seen.exists(), f'it ended: {ended}')
    finally:
        stop.set()
        swapper.join()


def race_rows():
    yield 'race/payload-swapped', swapped


# --- The program of Windows, under Wine

# Those whose end Wine 8 doesn't change.
SAME_UNDER_WINE = ('undecryptable/*', 'type/*', 'guard/held-to-the-last-word', 'catalog/missing',
                   'catalog/empty', 'catalog/junk', 'catalog/other-*', 'catalog/refused-serial')


def update_under_wine(this):
    this.trusted(INSTALL)
    ended = this.ended()
    check(ended, 5, UPDATE_WORDS, ['Started from install path...', 'Run by S-1-5-21-*',
                                   'CheckRightsForInstallPath returned 5'], critical=5)
    told = ended.events[-1]['tessera']
    expect((told['install_dir'], told['parent_process']['name'][0]) ==
           (run.drive_path(INSTALL), 'cmd.exe'), f'what is told: {told}')


def wine_rows():
    for rows in (location_rows, catalog_rows, guard_rows):
        for name, action, *_ in rows():
            if any(fnmatch.fnmatchcase(name, pattern) for pattern in SAME_UNDER_WINE):
                yield name, action
    yield 'update/not-system', update_under_wine
    yield 'catalog/as-signed', lambda this: catalog(
        this, lambda this: None, 323, 'file hash mismatch', 323)


def all_rows(options):
    for rows in (location_rows, catalog_rows, folder_rows, guard_rows, race_rows):
        for name, action, *machine in rows():
            yield name, action, machine[0] if machine else 'machine'
    if options.windows:
        for name, action in wine_rows():
            yield f'windows/{name}', action, 'machine'


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
        world = World(options, root)
        if options.windows:
            stack.enter_context(world.windows.system_libraries())
        for row, action, machine in all_rows(options):
            if not fnmatch.fnmatchcase(row, options.filter):
                continue
            if (row.startswith('update/') and os.geteuid() != 0) or (
                    row.startswith('catalog/signed-') and not options.image):
                skipped += 1
                continue
            folder = root / row.replace('/', '.')
            folder.mkdir()
            try:
                kind = WindowsRun if row.startswith('windows/') else Run
                this = kind(world, folder, getattr(world, machine))
                action(this)
                outcomes[row] = ''
            except Fault as fault:
                outcomes[row] = str(fault)
            except Exception:  # pylint: disable=broad-except
                outcomes[row] = traceback.format_exc()
            shutil.rmtree(folder, ignore_errors=True)
            if options.v:
                print(f'{"FAILED" if outcomes[row] else "ok":8}{row}', flush=True)
    failures = [f'{row}: {fault}' for row, fault in outcomes.items() if fault]
    for failure in failures:
        print(f'FAILED  {failure}\n')
    summary = {'passed': len(outcomes) - len(failures), 'failed': len(failures),
               'skipped': skipped, 'failures': failures}
    if options.json:
        pathlib.Path(options.json).write_text(json.dumps(summary, indent=1) + '\n', encoding='utf-8')
    print('{passed} passed, {failed} failed, {skipped} skipped'.format(**summary))
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
