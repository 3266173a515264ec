"""Runs in the hands of an enemy: of the patch folder, of the machine's volume, of what lies on it.

Whatever is tried, nothing unsigned runs or is copied, and nothing of the host is reached. gates.py runs
these rows among its own; `gates.py --filter 'volume/*'` is one part of them.
"""

import ctypes
import os
import shutil
import threading
import time

import world
from gate_runs import (
    COPY_OUT, NOBODY, WAIT, check, make_script, put_pipe, refused, wait_for, wait_until)
from world import INSTALL, expect


def patch_is_pipe(this):
    this.external()
    put_pipe(this.patch)
    check(this.ended(), 222, ['Failed to load the patch. Error: 222.'])


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


# --- Programs that lie on the machine's volume

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


# --- A patch folder, and a place for its copies, that others shape

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
    yield 'folder/without-mask', without_mask


# --- A volume with links that lead out of it

def host_folder(this):
    """A folder of the host that no run may change, and what it holds."""
    host = this.folder / 'host'
    (host / 'sub').mkdir(parents=True)
    for name in ('victim', 'sub/victim'):
        (host / name).write_text('victim', encoding='ascii')
    return host


def expect_untouched(host):
    found = {str(path.relative_to(host)): path.read_bytes()
             for path in host.rglob('*') if not path.is_dir()}
    expect(found == {'victim': b'victim', 'sub/victim': b'victim'}, f'the host was changed: {found}')


# What a script may do to files, in a folder of the volume.
CHANGES = ('<fileCreate path="C:\\@\\new"/><dirCreate path="C:\\@\\folder"/>'
           '<fileCopySingle src="%scriptdir%\\payload.txt" dest="C:\\@\\victim"/>'
           '<fileCopySingle src="%scriptdir%\\payload.txt" dest="C:\\@\\copied"/>'
           '<dirCopyRec src="%scriptdir%" dest="C:\\@\\sub"/>'
           '<iniSetValue path="C:\\@\\victim" section="s" key="k" value="v"/>'
           '<fileMove src="C:\\@\\copied" dest="C:\\@\\moved"/><fileDeletePattern path="C:\\@\\v*"/>'
           '<dirDeleteRec path="C:\\@\\sub"/>')


def volume_links(this):
    """Neither the run's own files nor the script's get out by a link, wherever it is."""
    host = host_folder(this)
    links = {'absolute': host, 'climbing': os.path.relpath(host, this.machine), 'root': '/',
             'file': host / 'victim'}
    for name, target in links.items():
        (this.machine / name).symlink_to(target)
    for folder in (world.TRACES, world.SPOOL):
        shutil.rmtree(this.machine / folder, ignore_errors=True)
        (this.machine / folder).parent.mkdir(parents=True, exist_ok=True)
        (this.machine / folder).symlink_to(host)
    body = ''.join(CHANGES.replace('@', name) for name in (
        'absolute', 'climbing', 'root\\' + '\\'.join(host.parts[1:])))
    body += ('<fileCopySingle src="%scriptdir%\\payload.txt" dest="C:\\file"/>'
             '<dirDeleteRec path="C:\\absolute"/><dirDeleteRec path="C:\\climbing"/>')
    this.external(body=body + '<exit code="3"/>')
    process = this.start()
    process.communicate()
    expect(process.returncode == -3 & 0xFF, f'it ended with {process.returncode}')
    expect_untouched(host)


def volume_swapped(this, rounds=8):
    """A folder of the volume gives way to a link, and comes back, while the script works in it."""
    host = host_folder(this)
    area, spare = this.machine / 'area', this.machine / 'spare'
    area.mkdir()
    (area / 'sub').mkdir()
    spare.symlink_to(host)
    this.external(body=CHANGES.replace('@', 'area') * 40 + '<exit code="3"/>')
    stop = threading.Event()
    swaps = 0

    def swap():
        nonlocal swaps
        exchange = ctypes.CDLL(None, use_errno=True).renameat2
        here, flag = -100, 2  # AT_FDCWD, RENAME_EXCHANGE
        while not stop.is_set():
            swaps += exchange(here, bytes(area), here, bytes(spare), flag) == 0
            time.sleep(0.0005)

    swapper = threading.Thread(target=swap)
    swapper.start()
    try:
        for _ in range(rounds):
            ended = this.finish(this.start())
            expect(ended.exit_code == -3 & 0xFF, f'it ended: {ended}')
            expect_untouched(host)
    finally:
        stop.set()
        swapper.join()
    expect(swaps > 10 * rounds, f'there were too few swaps: {swaps}')


def volume_rows():
    yield 'volume/links', volume_links
    yield 'volume/folder-swapped', volume_swapped


def all_rows():
    for rows in (folder_rows, program_rows, race_rows, volume_rows):
        yield from rows()
