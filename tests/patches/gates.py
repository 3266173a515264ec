#!/usr/bin/env python3
"""Runs patches through all the gates, on machines that have the functions that catalogs need.

    gates.py --linux TESSEL --tlx TLX --key PEM --json OUT [--image EXE] [--filter GLOB] [-v]
             [--windows TESSEL_EXE [--wine wine] [--system-library DLL]...]

Each run has a machine and a patch folder of its own; the certificates are made for all of them.
--image is some program of Windows, to be signed; --json gets what that of run.py does, and --windows,
--wine and --system-library are its own too.
"""

import contextlib
import fcntl
import fnmatch
import os
import pathlib
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

import expectations
import hostile
import machines
import surroundings
import world
from gate_runs import (
    Gates, NOBODY, Run, SERVICE, WAIT, WindowsRun, catalog, change_byte, check, check_events,
    put_link, put_pipe, refused, wait_for, wait_until)
from world import INSTALL, expect

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
              surroundings.OWN_PROCESSES)
    yield row('update/unreadable-parent', update_by,
              ['Run by S-1-5-18', 'Failed to get path for pid *'], 1293,
              surroundings.UNPRIVILEGED)
    for kind, is_trusted in (('external', True), ('Update', True), ('update', False), ('', False)):
        yield row(f'type/{kind or "none"}', mistyped, kind, is_trusted)
    for place, name, is_removed in (('install', 'a.tlx', True), ('install', 'a.TLX', False),
                                    ('custom', 'a.tlx', False)):
        yield row(f'undecryptable/{place}-{name}', undecryptable, place, name, is_removed)


# --- The catalog

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


# --- The protected folder

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
    yield 'folder/left-behind', left_behind
    yield 'folder/while-the-script-runs', in_folder
    yield 'folder/after-a-script-that-is-none', lambda this: loaded_in_vain(
        this, 'Failed to load patch.', body='<nope/>')
    yield 'folder/after-an-expired-patch', lambda this: loaded_in_vain(
        this, 'Patch is no longer valid.', 'PatchExpired', created=5)


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
        # Whoever runs the tests may ignore some, as a shell does for what it starts behind itself.
        process = this.start(preexec_fn=lambda: [
            signal.signal(one, signal.SIG_IGN if one in ignored else signal.SIG_DFL)
            for one in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)])
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
    for rows in (location_rows, machines.machine_rows, catalog_rows, folder_rows, ending_rows,
                 guard_rows, spool_rows, hostile.all_rows):
        for name, action, *machine in rows():
            yield name, action, machine[0] if machine else 'machine'
    if options.windows:
        for name, action in wine_rows():
            yield f'windows/{name}', action, 'machine'


# The first pattern that a row's name matches tells what the row needs.
NEEDS = {'update/no-parent': surroundings.processes,
         'update/unreadable-parent': surroundings.fewer_privileges, 'update/*': surroundings.root,
         'machine/not-for-this-user': surroundings.root, 'machine/not-*': surroundings.mounts}


def lacking(row, options):
    """Why a row can't run here."""
    if row.startswith('catalog/signed-') and not options.image:
        return 'there is no program to sign'
    return next((reason() for pattern, reason in NEEDS.items() if fnmatch.fnmatchcase(row, pattern)), None)


def run_row(gates, row, action, machine, folder):
    """What is wrong with what the row does."""
    make = WindowsRun if row.startswith('windows/') else Run
    return world.fault_in(folder, lambda: action(make(gates, folder, getattr(gates, machine))))


def main():
    parser = world.option_parser('Runs patches through the gates.')
    parser.add_argument('--image', metavar='EXE')
    parser.add_argument('--system-library', action='append', default=[], metavar='DLL')
    options = parser.parse_args()
    with contextlib.ExitStack() as stack:
        name = stack.enter_context(tempfile.TemporaryDirectory(prefix='tessel-gates.',
                                                               ignore_cleanup_errors=True))
        root = pathlib.Path(name).resolve()
        os.chmod(root, 0o755)
        gates = Gates(options, root)
        if options.windows:
            stack.enter_context(gates.windows.system_libraries())
        return world.run_rows(all_rows(options), options,
                              lambda row: lacking(row, options),
                              lambda row, action, machine: run_row(
                                  gates, row, action, machine, root / row.replace('/', '.')))


if __name__ == '__main__':
    sys.exit(main())
