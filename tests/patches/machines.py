"""Machines that a run refuses, and what tlx machine check says of them."""

import functools
import operator
import os
import pathlib
import shutil

import expectations
import surroundings
import world
from gate_runs import NOBODY, WAIT, change_byte, check, wait_for
from world import expect

# --- Machines that can't be judged, and so are no old Windows, on which everything runs

HIVE = pathlib.PurePath('Windows', 'System32', 'config', 'SOFTWARE')
VERSION = r'root="HKEY_LOCAL_MACHINE" key="SOFTWARE\Microsoft\Windows NT\CurrentVersion" value='


# Commands that give a run's machine another volume, in a mount namespace of its own.
MOUNTED = [*surroundings.MOUNTED, 'sh', '-ec']
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


def killed_in_between(this):
    """What a killed run logged is told, worries nobody, and is there for the next run."""
    key = 'root="HKEY_LOCAL_MACHINE" key="SOFTWARE\\Left"'
    this.external(body=f'<regCreateKey {key}/>'
                       f'<regWrite {key} value="v" data="2" type="REG_SZ"/>' + WAIT)
    process = this.start()
    wait_for(this.folder / 'started')
    process.kill()
    process.communicate()
    told = this.checked()
    hive = told['hives'][1]
    expect(told['isFit'] and (hive['isClean'], hive['pendingEntries']) == (False, 2),
           f'tlx machine check tells {told}')
    this.gates.pack(this.patch, f'<regRead {key} value="v" var="x"/><trace value="has %x%"/>'
                                '<exit code="3"/>')
    this.gates.sign(this.place)
    shutil.rmtree(this.machine / world.TRACES)
    check(this.ended(), -3, trace=['Trace: has 2'])


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
            ('unlogged', lambda path: unfinished(path, ()), {'isClean': False, 'pendingEntries': 0}),
            ('without-sums', lambda path: unfinished(path, (0, 1)), {'pendingEntries': 0}),
            ('torn', lambda path: os.truncate(path, path.stat().st_size - 4096), {'isClean': True}),
            ('broken-bin', lambda path: change_byte(path, b'hbin'), {'damagedAt': 4096})):
        yield f'machine/hive-{name}', lambda this, change=change, wanted=wanted: worrying_hive(
            this, change, **wanted)
    yield 'machine/kept-elsewhere', kept_elsewhere
    yield 'machine/killed-in-between', killed_in_between
    for name, code, problem, words in (('writable', 19, 'mounted read-only', READ_ONLY),
                                       ('roomy', 112, 'no room for the trace', FULL)):
        yield f'machine/not-{name}', lambda this, code=code, problem=problem, words=words: unjudged(
            this, lambda _: None, code, problem, [words])
    yield 'machine/not-for-this-user', lambda this: unjudged(
        this, hive(lambda path: path.chmod(0o600)), 1009, 'access is denied', user=NOBODY,
        group=NOBODY, extra_groups=[])
