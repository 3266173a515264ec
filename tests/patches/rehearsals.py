#!/usr/bin/env python3
"""Rehearses scripts and patches, and looks at what they leave: nothing. Applies some, and takes them back.

    rehearsals.py --linux TESSEL --tlx TLX --key PEM --json OUT [--filter GLOB] [-v]

Each row runs as this user and, if that is root, as an ordinary one as well.
"""

import hashlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import jsonschema

import surroundings
import world
from world import INSTALL, expect, host_to_drive

SCHEMAS = pathlib.Path(__file__).resolve().parents[2] / 'docs'
NOBODY = 65534
HEADER = ('<patch version="1.0"><header><property name="id" value="r"/><property name="patchType" '
          'value="external"/><property name="created" value="1704067200"/>'
          '<property name="expires" value="24855"/></header><script>\n')  # its commands begin in line 2


def snapshot(folder):
    """All that a run could change in a machine, but for the times of reading."""
    state = {}
    for path in [folder, *sorted(folder.rglob('*'))]:
        status = path.lstat()
        content = hashlib.sha256(path.read_bytes()).hexdigest() if path.is_file() else ''
        marks = [(name, os.getxattr(path, name, follow_symlinks=False))
                 for name in os.listxattr(path, follow_symlinks=False)]
        state[path] = (status.st_mode, status.st_uid, status.st_nlink, status.st_mtime_ns,
                       status.st_ctime_ns, content, marks)
    return state


class Stage:
    """A machine, a folder for temporary files, and a user."""

    def __init__(self, these, folder, user):
        self.these, self.folder, self.user = these, folder, user
        self.machine, self.temporary = folder / 'machine', folder / 'temporary'
        shutil.copytree(these.machine, self.machine, symlinks=True)
        self.temporary.mkdir()
        for path in [folder, *folder.rglob('*')]:
            os.lchown(path, user, user)
        self.before = snapshot(self.machine)

    def words(self, operand, *options):
        user = [] if self.user == os.geteuid() else [
            'setpriv', f'--reuid={self.user}', f'--regid={self.user}', '--clear-groups']
        return [*user, self.these.tlx, 'rehearse', operand, '--machine', self.machine, *options]

    def script(self, body):
        path = self.folder / 'script.xml'
        path.write_text(HEADER + body + '</script></patch>', encoding='utf-8')
        return path

    def start(self, words):
        return subprocess.Popen(words, env={**os.environ, 'TMPDIR': str(self.temporary)}, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE)

    def ended(self, exit_code, command, operand, *options):
        """What another command of tlx prints, and its errors."""
        words = self.words(operand, *options)
        words[words.index('rehearse')] = command
        process = self.start(words)
        out, errors = process.communicate(timeout=world.TIME_LIMIT)
        expect(process.returncode == exit_code, f'ended with {process.returncode}:\n{out}{errors}')
        return out, errors

    def told(self, words, exit_code):
        """What a rehearsal prints, without the events. It leaves nothing."""
        process = self.start(words)
        out, errors = process.communicate(timeout=world.TIME_LIMIT)
        expect(process.returncode == exit_code, f'ended with {process.returncode}:\n{out}{errors}')
        self.expect_nothing()
        return [line for line in out.splitlines() if not line.startswith('Event: ')], errors

    def rehearse(self, body, exit_code, *options):
        return self.told(self.words(self.script(body), *options), exit_code)[0]

    def expect_nothing(self):
        expect(snapshot(self.machine) == self.before, 'the machine has changed')
        left = list(self.temporary.iterdir())
        expect(not left, f'left behind: {left}')


BEYOND = r"""<serviceStart name="AmUpdateService"/>
<serviceRunning name="AmUpdateService"><onFalse><exit code="-1"/></onFalse></serviceRunning>
<serviceStop name="AmUpdateService"/>
<processRun path="Z:\bin\true" waittime="-1"><onerrorspec err="timeout"><exit code="-2"/></onerrorspec></processRun>
<processKill name="rehearsed-sleep"/><processWait name="rehearsed-sleep" waittime="-1"/>
<processEntrypoint path="C:\none.dll" entrypoint="Go"/>
<fileDownload url="https://example.invalid/x" file="C:\x"/>
<fileExists path="C:\x"><onFalse><exit code="-3"/></onFalse></fileExists>
<processImpersonateUser domain="." username="u" password="p"/>
<amStop name="part"><onerrorspec err="InitFailed"><exit code="-4"/></onerrorspec></amStop>
<exit code="0"/>"""


def beyond(stage):
    sleeper = shutil.copy2('/bin/sleep', stage.folder / 'rehearsed-sleep')
    victim = subprocess.Popen([sleeper, '60'], user=stage.user)
    try:
        told = stage.rehearse(BEYOND, 0)
        expect(victim.poll() is None, 'a process was ended')
    finally:
        victim.kill()
        victim.wait()
    would = [line.split(': would ')[1] for line in told if ': would ' in line]
    expect(would == [
        'start the service AmUpdateService', 'stop the service AmUpdateService',
        r'start the program "Z:\bin\true"', f'end the process rehearsed-sleep ({victim.pid})',
        'call the library C:\\none.dll, Go', 'download https://example.invalid/x',
        'go on as the user .\\u', "call the library runlevelbroker.dll, Stop 'part'"], f'{would}')
    for answer, code in (('processRun=timeout', -2), ('amStop=InitFailed', -4)):
        told = stage.rehearse(BEYOND, 1, '--answer', answer)
        expect(f'Exit code: {code}' in told, f'{answer}: {told}')


PLACES = r"""<assign var="n" value="0"/>
<for var="x" value="a;b" delim=";">
  <addInt var="n" value="1"/>
</for>
<test left="%n%" operator="==" right="2" type="number"><onFalse><exit code="0"/></onFalse></test>
<fileMove src="C:\none" dest="C:\other"><onerror>
  <exit code="-9"/>
</onerror></fileMove>
<nothing/>"""


def places(stage):
    """Lines are the author's, also around a loop that was rewritten."""
    told = stage.rehearse(PLACES, 1)
    expect(told[2:7] == ['Exit code: -9', 'Last failure: line 7, fileMove: error 1168',
                         'Never reached:', '  line 6, exit', '  line 10, nothing'], f'{told}')


def changed(stage):
    """A folder that was there before is moved, and all goes on from there."""
    moved = INSTALL.parent / 'Moved'
    (stage.machine / INSTALL / 'deep' / 'er').mkdir(parents=True)
    (stage.machine / INSTALL / 'deep' / 'er' / 'file').write_text('x')
    for path in (stage.machine / INSTALL).rglob('*'):
        os.lchown(path, stage.user, stage.user)
    stage.before = snapshot(stage.machine)
    stage.rehearse(
        f'<dirMove src="{world.drive_path(INSTALL)}" dest="{world.drive_path(moved)}">'
        '<onerror><exit code="-1"/></onerror></dirMove>'
        f'<dirExists path="{world.drive_path(INSTALL)}"><onTrue><exit code="-2"/></onTrue></dirExists>'
        f'<fileExists path="{world.drive_path(moved / "deep" / "er" / "file")}">'
        '<onFalse><exit code="-3"/></onFalse></fileExists>'
        '<regWrite root="HKEY_LOCAL_MACHINE" key="SOFTWARE\\r" value="a" type="REG_SZ" data="b"/>'
        '<dirDeleteRec path="C:\\Windows\\System32\\config"/><exit code="0"/>', 0)


def sealed(stage):
    """No way to the host's files leads around the view."""
    outside = stage.folder / 'outside'
    outside.mkdir(mode=0o777)
    os.chown(outside, stage.user, stage.user)
    (stage.folder / 'link').symlink_to(f'/proc/{os.getpid()}/root{outside}')
    neighbour = subprocess.Popen(['sleep', '60'], user=stage.user, cwd=outside)
    try:
        ways = [outside, stage.folder / 'link', f'/proc/{neighbour.pid}/cwd',
                f'/proc/{neighbour.pid}/root{outside}', f'/proc/self/root{outside}',
                *(f'/proc/self/fd/{number}' for number in range(3, 24))]
        body = ''.join(f'<fileCreate path="{host_to_drive(way)}\\made"><onsuccess><exit code="-1"/>'
                       '</onsuccess></fileCreate>' for way in ways)
        stage.rehearse(f'{body}<traceSetFile path="{host_to_drive(outside)}\\trace"/>'
                       '<exit code="0"/>', 0)
    finally:
        neighbour.kill()
        neighbour.wait()
    expect(not list(outside.iterdir()), 'the host has changed')


FOREVER = '<nothing id="again"/><goto target="again"/>'
FILLING = ('<addInt id="again" var="n" value="1"/><fileCopySingle '
           r'src="C:\Windows\System32\config\SOFTWARE" dest="C:\%n%"/><goto target="again"/>')


def runaway(stage):
    for body, option, words in ((FOREVER, '--max-seconds', 'took longer'),
                                (FILLING, '--max-megabytes', 'wrote more')):
        told = stage.rehearse(body, 1, option, '1')
        expect(words in told[2], f'{option}: {told}')
    # What its process had started before it became this program is none of the run's.
    behind = ['sh', '-c', 'sleep 60 >/dev/null 2>&1 & echo $!; exec "$@"', '-']
    told, _ = stage.told([*behind, *stage.words(stage.script(FOREVER), '--max-seconds', '1')], 1)
    os.kill(int(told[0]), signal.SIGKILL)


def children(process):
    text = pathlib.Path(f'/proc/{process}/task/{process}/children').read_text(encoding='ascii')
    return [int(number) for number in text.split()]


def killed(stage):
    """Whoever is killed, nothing is left; after two at once, nothing that the next doesn't remove."""
    for victims in ((0,), (1,), (2,), (0, 1)):
        # setpriv becomes the program.
        process = stage.start(stage.words(stage.script(FOREVER)))
        while len(children(process.pid)) < 2:
            expect(process.poll() is None, 'it ended by itself')
        everyone = [process.pid, *children(process.pid)]  # the tool, the keeper and the task
        for victim in victims:
            os.kill(everyone[victim], signal.SIGKILL)
        if victims == (1,):
            os.kill(everyone[2], signal.SIGTERM)
        process.communicate(timeout=world.TIME_LIMIT)
        deadline = time.monotonic() + world.TIME_LIMIT
        while any(pathlib.Path(f'/proc/{one}').exists() for one in everyone):
            expect(time.monotonic() < deadline, f'{victims}: a process is left')
        if victims == (0, 1):
            stage.rehearse('<exit code="0"/>', 0)
        stage.expect_nothing()


def gated(stage):
    """A patch passes its gates, and is refused where they refuse it."""
    folder = stage.folder / 'patch'
    folder.mkdir()
    stage.these.world.pack(folder / 'fix.tlx', '<exit code="0"/>')
    os.chmod(folder, 0o755)
    told, errors = stage.told(stage.words(folder), 1)
    expect('Integrity check failed' in errors and told[2].startswith('Exit code: 323,'), f'{told}')
    stage.these.world.sign(folder)
    stage.told(stage.words(folder), 0)


def files_of(machine):
    """What is taken back, but for the registry, whose keys others compare."""
    return {path: (mode, links, written // 100, content, marks)
            for path, (mode, _, links, written, _, content, marks) in snapshot(machine).items()
            if path.suffix not in ('.LOG1', '.LOG2') and path.name != 'SOFTWARE'}


def signed(stage, name, body):
    folder = stage.folder / name
    folder.mkdir(mode=0o755)
    stage.these.world.pack(folder / 'fix.tlx', body)
    stage.these.world.sign(folder)
    return folder


CHANGING = (r'<fileCreate path="C:\Users\new.txt"/><fileMove src="C:\Users\old" dest="C:\Users\moved"/>'
            '<regCreateKey root="HKEY_LOCAL_MACHINE" key="SOFTWARE\\Applied"/>'
            '<processRun path="Z:\\usr\\bin\\true"/><exit code="{}"/>')


def applied(stage):
    """All is committed with an accepted code, and taken back where the machine is what it was left."""
    users = stage.machine / 'Users'
    (users / 'old').write_text('moved')
    os.link(users / 'old', users / 'other')
    os.chown(users / 'old', stage.user, stage.user)
    for folder in (stage.machine, users):  # the volume's, and no mark of an overlay
        os.setxattr(folder, 'user.overlay.opaque', b'y')
    before, kept = files_of(stage.machine), stage.folder / 'set'
    patch = signed(stage, 'patch', CHANGING.format(3))
    trace = stage.folder / 'trace'
    _, errors = stage.ended(1, 'apply', patch, '--trace', trace, '--undo', kept)
    expect('ended with -3, which' in errors and files_of(stage.machine) == before, errors)
    expect('Exit function called with exitcode 3' in trace.read_text('utf-8'), 'another trace')
    _, errors = stage.ended(1, 'apply', patch, '--trace', patch / 'fix.tlx')
    expect("isn't written over" in errors, errors)
    out, _ = stage.ended(1, 'apply', patch, '--accept', '0,-3', '--undo', kept)
    expect('  line 3, processRun' in out, out)
    after = files_of(stage.machine)
    expect((users / 'new.txt').exists() and os.path.samefile(users / 'moved', users / 'other'),
           f'not committed: {set(after) ^ set(before)}')
    expect(list((stage.machine / world.TRACES).glob('ts-*')), 'no trace is committed')
    (users / 'new.txt').write_text('x')
    _, errors = stage.ended(1, 'undo', kept)
    expect('new.txt: error: has other bytes' in errors and 'because of 1 conflicts' in errors, errors)
    (users / 'new.txt').write_text('')
    stage.ended(0, 'undo', kept)
    left = files_of(stage.machine)
    expect(left == before, f'{[path for path in left | before if left.get(path) != before.get(path)]}')
    _, errors = stage.ended(1, 'undo', kept)
    expect('taken back already' in errors, errors)


def told_to_programs(stage):
    """The JSON of apply and undo, also where a kill came between a commit and the note of it in the set."""
    def told(schema, exit_code, command, operand, *options):
        document = json.loads(stage.ended(exit_code, command, operand, '--json', *options)[0])
        schema = SCHEMAS / f'{schema}.schema.json'
        resolver = jsonschema.RefResolver(schema.as_uri(), json.loads(schema.read_text()))
        jsonschema.Draft7Validator(resolver.referrer, resolver=resolver).validate(document)
        return document

    def undone(exit_code, *options):
        return told('undo', exit_code, 'undo', kept, *options)['result']

    def note(state):
        manifest = kept / 'manifest.json'
        text, count = re.subn('"state" *: *"[a-z]*"', f'"state": "{state}"', manifest.read_text())
        expect(count == 1, f'{count} states in the manifest')
        manifest.write_text(text)

    kept = stage.folder / 'set'
    patch = signed(stage, 'patch', '<trace value="said" std="out"/><fileCreate path="C:\\Users\\new"/>'
                   '<processRun path="Z:\\usr\\bin\\true"/><exit code="3"/>')
    refused = told('rehearsal', 1, 'apply', patch, '--undo', kept)
    expect(refused['commit'] == 'none' and refused['exitCode'] == -3 and 'said' in refused['trace']
           and not kept.exists(), f'{refused}')
    before = files_of(stage.machine)
    applied_now = told('rehearsal', 1, 'apply', patch, '--undo', kept, '--accept', '-3')
    expect(applied_now['commit'] == 'done' and len(applied_now['events']) == 1
           and [one['command'] for one in applied_now['beyond']] == ['processRun']
           and [one['path'] for one in applied_now['changes']['files']] == ['C:\\Users\\new'],
           f'{applied_now["changes"]}')
    note('rehearsed')
    expect(undone(0, '--dry-run') == 'possible', 'what was committed is taken for what was not')
    (stage.machine / 'Users' / 'new').write_text('x')
    expect(undone(1, '--dry-run') == undone(1) == 'conflicts', 'a conflict is not told')
    (stage.machine / 'Users' / 'new').write_text('')
    expect(undone(0) == 'done' and files_of(stage.machine) == before, 'it is not taken back')
    note('rehearsed')
    expect(undone(1) == 'neverCommitted', 'what was not committed is taken for what was')
    note('committed')
    expect(undone(0) == undone(1) == 'wasDone', 'an interrupted undo is not gone on with')


def interrupted(stage):
    """Who comes next clears up, and says so; nothing that others could have put there is believed."""
    left = stage.machine / '$TesselCommit'
    for name, mode, told in (('1', 0o700, 'had changed nothing, was cleared away'),
                             ('done', 0o700, 'was finished'), ('journal', 0o777, 'nothing in it is believed')):
        left.mkdir()
        (left / name).touch()
        for path in (left, left / name):
            os.chown(path, stage.user, stage.user)
        left.chmod(mode)
        patch = stage.folder / 'none.tlx'
        told_now = ''.join(stage.ended(1, 'apply', patch, '--trace', '-'))
        expect(told in told_now and left.exists() == (mode == 0o777), told_now)


def on_ntfs(stage):
    """What is new inherits as in a run, attributes are as after one, and hard links stay."""
    script = r'''set -e
        truncate -s 64M "$1/image"; mkntfs -qF "$1/image" >"$1/log" 2>&1; mkdir "$1/ntfs"
        ntfs-3g -o "$2" "$1/image" "$1/ntfs" >"$1/log" 2>&1; trap 'umount "$1/ntfs"' EXIT
        m=$1/ntfs/C; cp -r "$3" "$m"; cd "$1"; T=$m/Windows/Temp; ln "$T/old" "$T/other"
        mkdir "$T/gone"; touch "$T/gone/1"; for name in old gone/1; do
            setfattr -n system.ntfs_attrib_be -v 0x00000027 "$T/$name"; done
        look() {
            getfattr --only-values -n system.ntfs_acl "$T/new" >acl; test -s acl; sha256sum <acl
            getfattr -e hex -n system.ntfs_attrib_be "$T/new" "$T/moved" "$T/other"; }
        "$4" apply patch --machine "$m" --undo set; look >of-apply
        "$4" undo set --machine "$m"; test ! -e "$T/new"; test -e "$T/gone/1"; test -e "$T/old"
        TESSEL_MACHINE=$m "$5" /encfile "$1/patch/fix.tlx"; look >of-run; test ! -e "$T/gone"; diff of-apply of-run >&2
        test "$(stat -c %h "$T/moved")" = 2; rm -r set ntfs/C; umount "$1/ntfs"; trap - EXIT; rmdir ntfs'''
    (stage.machine / 'Windows/Temp/old').write_text('old')
    signed(stage, 'patch', r'''<fileCreate path="C:\Windows\Temp\new"/>
        <fileMove src="C:\Windows\Temp\old" dest="C:\Windows\Temp\moved"/>
        <dirDeleteRec path="C:\Windows\Temp\gone"/><exit code="0"/>''')
    for options in ('permissions', 'umask=000'):
        ended = subprocess.run(
            ['unshare', '--mount', 'sh', '-c', script, '-', stage.folder, options, stage.machine,
             stage.these.tlx, stage.these.world.tessel], capture_output=True, text=True, check=False)
        expect(ended.returncode == 0, f'{options}: {ended.stdout}{ended.stderr}')


def copied(stage):
    """Where there can be no overlay, the machine is copied; much of it only when that is allowed."""
    (stage.machine / 'large').touch()
    os.truncate(stage.machine / 'large', 300 << 20)
    stage.before = snapshot(stage.machine)
    script = stage.script(r'<dirMove src="C:\Windows" dest="C:\Other"/><exit code="0"/>')
    # An overlay, which only these processes see: it can't be the upper layer of another one.
    layers = [stage.folder / name for name in ('lower', 'upper', 'scratch')]
    for layer in layers:
        layer.mkdir(mode=0o700)
    where = 'lowerdir={},upperdir={},workdir={}'.format(*layers)
    without = ['unshare', '--mount', 'sh', '-c',
               f'mount -t overlay -o {where} none {stage.temporary} && exec "$@"', '-']
    _, errors = stage.told([*without, *stage.words(script)], 1)
    expect('--yes' in errors, errors)
    told, _ = stage.told([*without, *stage.words(script, '--yes')], 0)
    expect('seen through a copy' in told[1], f'{told}')
    expect(not list(layers[1].iterdir()), 'a copy is left')


ROWS = {'beyond': beyond, 'places': places, 'changed': changed, 'sealed': sealed, 'runaway': runaway,
        'killed': killed, 'gated': gated, 'applied': applied, 'interrupted': interrupted,
        'told-to-programs': told_to_programs}


class Rehearsals:
    def __init__(self, options, root):
        self.root, self.tlx = root, shutil.copy2(options.tlx, root)
        self.world = world.World(options.linux, options.tlx, options.key, root)
        self.machine = self.world.make_machine(root / 'machine')

    def rows(self):
        for name, action in ROWS.items():
            yield name, action, os.geteuid()
            if os.geteuid() == 0:
                yield f'{name}/as-user', action, NOBODY
        yield 'root/copied', copied, 0
        yield 'root/on-ntfs', on_ntfs, 0

    def run(self, name, action, user):
        folder = self.root / name.replace('/', '.')
        return world.fault_in(folder, lambda: action(Stage(self, folder, user)))


def lacking(name):
    if name.endswith('/as-user'):
        return surroundings.user_views()
    if name == 'root/on-ntfs':
        return surroundings.ntfs()
    return surroundings.mounts() if name.startswith('root/') else surroundings.views()


def main():
    options = world.option_parser('Rehearses scripts and patches.').parse_args()
    with tempfile.TemporaryDirectory(prefix='tessel-rehearsals.', ignore_cleanup_errors=True) as name:
        root = pathlib.Path(name).resolve()
        os.chmod(root, 0o755)
        rehearsals = Rehearsals(options, root)
        return world.run_rows(rehearsals.rows(), options, lacking, rehearsals.run)


if __name__ == '__main__':
    sys.exit(main())
