#!/usr/bin/env python3
"""Services a fleet of machines with Ansible: whole ones, and some that are broken in each way.

    fleet.py --linux TESSEL --tlx TLX --key PEM [--json OUT] [--filter GLOB] [-v] [--machines N]

The collection is built and installed as its users do it. The rows go from one to the next: what one leaves is
what the next begins with. Without ansible-core they are skipped; some also without mounts of their own.
"""

import contextlib
import fcntl
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

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / 'tests' / 'patches'))

import agreement  # pylint: disable=wrong-import-position
import gate_runs  # pylint: disable=wrong-import-position
import machines  # pylint: disable=wrong-import-position
import rehearsals  # pylint: disable=wrong-import-position
import surroundings  # pylint: disable=wrong-import-position
import world  # pylint: disable=wrong-import-position
from world import expect  # pylint: disable=wrong-import-position

MODULES = ('tlx_apply', 'tlx_machine_check', 'tlx_undo', 'tlx_verify', 'volume_image')
FORKS = '8'
BATCH = 8
LONGEST = 1800  # seconds, for a play that doesn't end
KEY = 'root="HKEY_LOCAL_MACHINE" key="SOFTWARE\\Fleet" value="runs"'
# Run twice, it leaves something else than run once.
PATCH = (f'<regCreateKey root="HKEY_LOCAL_MACHINE" key="SOFTWARE\\Fleet"/><assign var="n" value="0"/>'
         f'<regRead {KEY} var="n"><onerror><assign var="n" value="0"/></onerror></regRead>'
         f'<addInt var="n" value="1"/><regWrite {KEY} data="%n%" type="REG_SZ"/>'
         r'<fileCopySingle src="%scriptdir%\payload.txt" dest="C:\Users\settings.txt" failIfExists="false"/>'
         r'<fileMove src="C:\Users\old.txt" dest="C:\Users\new.txt"/><exit code="%code%"/>')
SETTINGS, PAYLOAD = b'Server=old\r\n', b'Server=new\r\n'
UNINSTALL = r'SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall'


def pending(name, mode=0o700):
    def leave(machine):
        folder = machine / '$TesselCommit'
        folder.mkdir()
        (folder / name).touch()
        folder.chmod(mode)
    return leave


def hive(change, name='SOFTWARE'):
    return lambda machine: change((machine / machines.HIVE).with_name(name))


def written(name, content):
    return lambda machine: (machine / name).write_bytes(content)


def emptied(machine):
    shutil.rmtree(machine)
    machine.mkdir()


def bind_read_only(machine):
    for words in (('--bind', machine, machine), ('-o', 'remount,bind,ro', machine)):
        subprocess.run(['mount', *words], check=True)


def fill(machine):
    copy = machine.with_suffix('.copy')
    machine.rename(copy)
    machine.mkdir()
    subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=8M', 'none', machine], check=True)
    shutil.copytree(copy, machine, symlinks=True, dirs_exist_ok=True)
    shutil.rmtree(copy)
    with contextlib.suppress(OSError), open(machine / 'fill', 'wb', buffering=0) as file:
        while file.write(bytes(1 << 16)):
            pass


# How a machine is broken, and the code of its refusal; 0 where a run would only be unwise.
BROKEN = {
    'missing': (shutil.rmtree, 1005),
    'no-windows': (emptied, 1005),
    'hibernated': (written('hiberfil.sys', b'hibr' + bytes(4096)), 726),
    'fast-startup': (written('hiberfil.sys', b'RSTR' + bytes(4096)), 726),
    'no-hive': (hive(pathlib.Path.unlink), 1009),
    'no-system-hive': (hive(pathlib.Path.unlink, 'SYSTEM'), 1009),
    'zeroed-hive': (hive(lambda path: path.write_bytes(bytes(path.stat().st_size))), 1009),
    'no-version': (None, 1009),
    'unfinished-hive': (hive(lambda path: machines.unfinished(path, ())), 0),
    'torn-hive': (hive(lambda path: os.truncate(path, path.stat().st_size - 4096)), 1009),
    'damaged-bin': (hive(lambda path: gate_runs.change_byte(path, b'hbin')), 0),
    'no-product': (None, 0),
    'unbelieved-commit': (pending('journal', 0o777), 1604),
    'damaged-commit': (pending('journal'), 1604),
}
MOUNTED = {'read-only': (bind_read_only, 19), 'full': (fill, 112)}
# These are serviced: what was interrupted is ended first.
INTERRUPTED = {'dropped-commit': pending('1'), 'finished-commit': pending('done')}


class Fleet(world.World):
    """The machines, the patch, and what runs playbooks over them."""

    def __init__(self, options, place, has_mounts):
        super().__init__(options.linux, pathlib.Path(options.tlx).resolve(), options.key, place)
        self.place, self.results, self.seconds = place, place / 'results', {}
        self.patch, self.sets, self.machines = place / 'patch', place / 'sets', place / 'machines'
        self.collections = place / 'collections'
        self.broken = {**BROKEN, **(MOUNTED if has_mounts else {})}
        self.mounts = []
        self.config = place / 'ansible.cfg'
        self.config.write_text('[defaults]\n')
        self.patch.mkdir()
        (self.patch / 'payload.txt').write_bytes(PAYLOAD)
        self.pack(self.patch / 'fix.tlx', PATCH.replace('%code%', '0'))
        self.sign(self.patch)

    def make_template(self, name, changes=None):
        template = self.make_machine(self.place / name, changes)
        (template / 'Users' / 'settings.txt').write_bytes(SETTINGS)
        (template / 'Users' / 'old.txt').write_bytes(b'moved')
        return template

    def make_machines(self, count):
        template = self.make_template('template')
        uninstall = f'<regDeleteKey root="HKEY_LOCAL_MACHINE" key="{UNINSTALL}"/>'
        others = {'no-product': self.make_template('other', uninstall), 'no-version': self.without_version()}
        names = [*self.broken, *INTERRUPTED]
        self.whole = [f'whole-{number:03}' for number in range(count - len(names))]
        self.machines.mkdir()
        for name in [*names, *self.whole]:
            machine = self.machines / name
            shutil.copytree(others.get(name, template), machine, symlinks=True)
            change = INTERRUPTED.get(name) or self.broken.get(name, (None,))[0]
            if name in MOUNTED:
                self.mounts.append(machine)
            if change:
                change(machine)
        self.good = [*INTERRUPTED, *self.whole]
        # Broken ones are spread among the others.
        self.hosts = sorted([*names, *self.whole], key=lambda name: hashlib.sha256(name.encode()).digest())
        self.before = self.content()

    def without_version(self):
        machine = self.place / 'versionless'
        self.tool('machine', 'create', machine, '--windows', '7')
        patch = self.place / 'change.tlx'
        self.pack(patch, f'<regDeleteValue {machines.VERSION}"CurrentVersion"/><exit code="0"/>')
        subprocess.run([self.tessel, '/encfile', patch], check=True, capture_output=True,
                       env={**os.environ, 'TESSEL_MACHINE': str(machine)})
        return machine

    def release(self):
        for machine in self.mounts:
            subprocess.run(['umount', machine], check=False)

    def snapshot(self):
        """Every bit of all machines, with all times but those of reading."""
        return {name: rehearsals.snapshot(self.machines / name) for name in self.hosts
                if (self.machines / name).exists()}

    def content(self):
        """What an undo gives back, of the machines that can be serviced."""
        return {name: (rehearsals.files_of(self.machines / name), agreement.registry_of(self.machines / name))
                for name in self.whole}

    def inventory(self, hosts):
        settings = {'ansible_connection': 'local', 'ansible_python_interpreter': '/usr/bin/python3',
                    'rollout_machine': f'{self.machines}/{{{{ inventory_hostname }}}}', 'rollout_tlx': str(self.tlx),
                    'rollout_patch': str(self.patch), 'rollout_sets': str(self.sets), 'rollout_name': 'all'}
        return json.dumps({'all': {'hosts': {name: {} for name in hosts}, 'vars': settings}})

    def environment(self):
        home = self.place / 'home'
        # What a killed module leaves goes with the test.
        temporary = home / 'tmp'
        temporary.mkdir(parents=True, exist_ok=True)
        settings = {'HOME': home, 'COLLECTIONS_PATH': self.collections, 'CONFIG': self.config,
                    'CALLBACK_PLUGINS': pathlib.Path(__file__).parent / 'callbacks', 'RETRY_FILES_ENABLED': 0,
                    'CALLBACKS_ENABLED': 'results_log', 'LOAD_CALLBACK_PLUGINS': 1, 'LOCALHOST_WARNING': 0,
                    'REMOTE_TMP': home / 'remote'}
        return {**os.environ, 'HOME': str(home), 'TMPDIR': str(temporary), 'LC_ALL': 'C.UTF-8',
                'TESSEL_RESULTS': str(self.results),
                **{f'ANSIBLE_{name}': str(value) for name, value in settings.items()}}

    def start(self, playbook, variables, *options, hosts=None):
        self.results.unlink(missing_ok=True)
        inventory = self.place / 'inventory.json'
        inventory.write_text(self.inventory(hosts or self.hosts))
        # A module by itself, or a playbook.
        what = ['ansible', 'all', '-m'] if playbook in MODULES else ['ansible-playbook']
        return subprocess.Popen(
            [*what, f'ambry_shield.tessel.{playbook}', '-i', inventory, '-f', FORKS, '-e', json.dumps(variables),
             *options], env=self.environment(), cwd=self.place, text=True, start_new_session=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def told(self):
        lines = self.results.read_text(encoding='utf-8').splitlines() if self.results.exists() else []
        return [json.loads(line) for line in lines]

    def kill(self, playbook, variables, outcome, wanted):
        """Kills a play, with all its processes, when it has so many results."""
        process = self.start(playbook, variables)
        while sum(one['result'].get('outcome') == outcome for one in self.told()) < wanted:
            expect(process.poll() is None, 'it ended by itself')
            time.sleep(0.01)  # only spares the processor
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()

    def play(self, playbook, exit_codes, variables=None, *options, task, hosts=None):
        """The results of a module, by host."""
        start = time.monotonic()
        process = self.start(playbook, variables or {}, *options, hosts=hosts)
        out = process.communicate(timeout=LONGEST)[0]
        self.seconds[f'{playbook} {" ".join(options)} {len(hosts or self.hosts)}'] = time.monotonic() - start
        expect(process.returncode in exit_codes, f'{playbook} ended with {process.returncode}:\n{out[-1500:]}')
        warnings = [line for line in re.findall(r'\[WARNING\]:.*', out) if 'playbook inside collection' not in line]
        expect(not warnings, f'{warnings}')
        return {one['host']: {**one['result'], 'failed': one['state'] != 'ok'} for one in self.told()
                if one['task'] == f'ambry_shield.tessel.{task}'}

    def expect_broken(self, results, **more):
        for name, (_, code) in self.broken.items():
            wanted = {'outcome': 'unfit', 'code': code, 'changed': False, 'failed': True, **more}
            found = {key: results[name].get(key) for key in wanted}
            expect(found == wanted and results[name]['msg'], f'{name}: {results[name]}')


def expect_each(results, names, **wanted):
    for name in names:
        found = {key: results[name].get(key) for key in wanted}
        expect(found == wanted, f'{name}: {found}, not {wanted}: {results[name]}')


def expect_as_before(fleet):
    for name, (files, keys) in fleet.content().items():
        old_files, old_keys = fleet.before[name]
        fault = agreement.difference(old_files, files, f'{name}, files') or agreement.difference(
            old_keys, keys, f'{name}, keys')
        expect(not fault, fault)


def collection(fleet):
    """It is built, installed and documented."""
    def call(*words):
        ended = subprocess.run(list(map(str, words)), env=fleet.environment(), cwd=fleet.place, capture_output=True,
                               text=True, check=False)
        expect(ended.returncode == 0 and 'ERROR' not in ended.stderr, f'{words}: {ended}')
        return ended.stdout
    call('ansible-galaxy', 'collection', 'build', ROOT / 'integrations' / 'ansible', '--output-path', fleet.place)
    archive = next(fleet.place.glob('ambry_shield-tessel-*.tar.gz'))
    call('ansible-galaxy', 'collection', 'install', '--offline', archive, '-p', fleet.collections)
    for module in MODULES:
        text = call('ansible-doc', f'ambry_shield.tessel.{module}')
        expect('OPTIONS' in text and 'EXAMPLES' in text and 'RETURN VALUES' in text or module == 'volume_image', text)


def looked_at(fleet):
    """All are judged, and none is touched."""
    before = fleet.snapshot()
    results = fleet.play('check', (2,), task='tlx_machine_check')
    expect_each(results, fleet.whole, is_fit=True, code=0, changed=False)
    for name, (_, code) in fleet.broken.items():
        wanted = {'is_pending': True} if 'commit' in name else {'is_pending': False, 'code': code}
        expect_each(results, [name], is_fit=False, changed=False, failed=True, **wanted)
    expect_each(results, INTERRUPTED, is_pending=True, changed=False)
    expect(fleet.snapshot() == before, 'a machine was touched')


def judged(fleet):
    """A patch is judged without being run, and without anything else."""
    before = fleet.snapshot()
    where = f'patch={fleet.patch} machine={fleet.machines}/{{{{inventory_hostname}}}} executable={fleet.tlx}'
    hosts = [*fleet.whole[:1], *INTERRUPTED, 'hibernated', 'missing']
    results = fleet.play('tlx_verify', (2,), {}, '-a', where, task='tlx_verify', hosts=hosts)
    expect_each(results, fleet.whole[:1], starts=True, code=0, changed=False, obstacles=[])
    expect(results[fleet.whole[0]]['header']['id'] == 'world', f'{results[fleet.whole[0]]}')
    expect_each(results, ['hibernated', 'missing'], starts=False, changed=False, failed=True)
    expect(results['hibernated']['code'] == 726, f'{results["hibernated"]}')
    expect(fleet.snapshot() == before, 'a machine was touched')


def rehearsed(fleet):
    """Check mode tells what would come, and touches nothing."""
    before = fleet.snapshot()
    results = fleet.play('fleet', (2,), {'rollout_max_fail_percentage': 100, 'rollout_serial': '100%'},
                         '--check', '--diff', task='tlx_apply')
    expect_each(results, fleet.whole, outcome='rehearsed', code=0, reason='success', changed=True)
    one = results[fleet.whole[0]]
    files = {(row['kind'], row['path']) for row in one['changes']['files']}
    expect(files == {('changed', r'C:\Users\settings.txt'), ('moved', r'C:\Users\new.txt')}
           and one['changes']['keys'][0]['path'].endswith(r'SOFTWARE\Fleet'), f'{one["changes"]}')
    expect('-Server=old' in one['diff']['prepared'] and '+"runs": REG_SZ "1"' in one['diff']['prepared'],
           one['diff']['prepared'])
    waiting = [name for name in fleet.hosts if 'commit' in name]
    expect_each(results, waiting, outcome='pending', changed=True)
    for name in waiting:
        results[name] = {'outcome': 'unfit', 'changed': False, 'failed': True, 'msg': '-',
                         'code': fleet.broken.get(name, (0, 0))[1]}
    fleet.expect_broken(results)
    expect(fleet.snapshot() == before and not fleet.sets.exists(), 'something was touched')


def stopped(fleet):
    """Behind the first batch with a failure nothing is done, and that batch is as it was."""
    hosts = [*fleet.whole[:BATCH], 'hibernated', *fleet.whole[BATCH:2 * BATCH]]
    before = fleet.snapshot()
    variables = {'rollout_name': 'stopped', 'rollout_serial': [2, BATCH], 'rollout_report': str(fleet.place)}
    results = fleet.play('fleet', (2,), variables, task='tlx_apply', hosts=hosts)
    expect(set(results) == {*fleet.whole[:BATCH], 'hibernated', fleet.whole[BATCH]}, f'{set(results)}')
    expect_each(results, set(results) - {'hibernated'}, outcome='committed', changed=True)
    now, after = fleet.content(), fleet.snapshot()
    applied = {name for name in fleet.whole if now[name] != fleet.before[name]}
    expect(applied == set(fleet.whole[:2]), f'changed: {applied}')
    expect(all(after.get(name) == before.get(name) for name in fleet.hosts if name not in results), 'more was touched')
    report = json.loads((fleet.place / f'{fleet.whole[2]}.json').read_text())
    expect(report['undo']['outcome'] == 'undone' and report['apply']['outcome'] == 'committed', f'{report}')
    results = fleet.play('undo', (0,), variables, task='tlx_undo', hosts=fleet.whole[:2])
    expect_each(results, fleet.whole[:2], outcome='undone', changed=True)
    expect_as_before(fleet)


def interrupted(fleet):
    """A play that is killed is repeated to the end, and each machine has the patch once."""
    variables = {'rollout_max_fail_percentage': 100, 'rollout_serial': '100%'}
    for wanted in (1, len(fleet.good) // 2):
        fleet.kill('fleet', variables, 'committed', wanted)
    results = fleet.play('fleet', (2,), variables, task='tlx_apply')
    outcomes = [results[name].get('outcome') for name in fleet.good]
    expect(set(outcomes) == {'committed', 'already'}, f'{outcomes}')
    fleet.expect_broken(results)
    expect_once(fleet)
    results = fleet.play('fleet', (2,), variables, task='tlx_apply')
    expect_each(results, fleet.good, outcome='already', changed=False)
    expect_once(fleet)


def expect_once(fleet):
    for name in fleet.good:
        machine = fleet.machines / name
        runs = {values['runs'] for (_, key), values in agreement.registry_of(machine).items() if key == 'Fleet'}
        expect(runs == {(1, '1\0'.encode('utf-16-le').hex())}, f'{name}: {runs}')
        expect((machine / 'Users/settings.txt').read_bytes() == PAYLOAD and (machine / 'Users/new.txt').exists()
               and not (machine / '$TesselCommit').exists(), f'{name} lacks a part')


def undone(fleet):
    """The old bytes are back, also after a kill; a conflict keeps one from it, and no other."""
    changed, rest = fleet.whole[0], fleet.whole[1:]
    settings = fleet.machines / changed / 'Users' / 'settings.txt'
    settings.write_bytes(b'Server=mine\r\n')
    before = fleet.snapshot()
    results = fleet.play('undo', (2,), {}, '--check', task='tlx_undo')
    expect_each(results, rest, outcome='possible', changed=True)
    expect(fleet.snapshot() == before, 'a machine was touched')
    fleet.kill('undo', {}, 'undone', len(rest) // 2)
    results = fleet.play('undo', (2,), {}, task='tlx_undo')
    expect({results[name]['outcome'] for name in rest} == {'undone', 'nothing'}, f'{results}')
    expect_each(results, [changed], outcome='conflicts', changed=False, failed=True)
    expect(results[changed]['conflicts'][0]['place'] == r'C:\Users\settings.txt', f'{results[changed]}')
    settings.write_bytes(PAYLOAD)
    results = fleet.play('undo', (0,), {}, task='tlx_undo', hosts=fleet.good)
    expect_each(results, [changed], outcome='undone', changed=True)
    expect_each(results, rest, outcome='nothing', changed=False)
    expect_as_before(fleet)


def again(fleet):
    """A patch that changes nothing changes nothing; codes, variables and copies are as they are told."""
    patch = fleet.place / 'quiet'
    patch.mkdir()
    fleet.pack(patch / 'fix.tlx', '<trace value="%x%" std="out"/><exit code="3"/>')
    fleet.sign(patch)
    hosts = fleet.whole[:2]
    variables = {'rollout_name': 'quiet', 'rollout_patch': '', 'rollout_patch_source': str(patch),
                 'rollout_variables': {'x': 'seen'}, 'rollout_once': False}
    for options in (['--check'], []):
        results = fleet.play('fleet', (2,), variables, *options, task='tlx_apply', hosts=hosts)
        told = results[hosts[0]]
        expect_each(results, hosts[:1], outcome='refused', code=-3, changed=False, failed=True)
        expect(any('seen' in line for line in told['trace_lines']) and told['events'], f'{told}')
        results = fleet.play('fleet', (0,), {**variables, 'rollout_accept': [-3]}, *options, task='tlx_apply',
                             hosts=hosts)
        expect_each(results, hosts, code=-3, changed=False)
    expect(not list((fleet.place / 'home').glob('**/patch.*')), 'a copy of the patch is left')
    results = fleet.play('undo', (0,), variables, task='tlx_undo', hosts=hosts)
    expect_each(results, hosts, outcome='undone', changed=True)
    expect_as_before(fleet)
    (patch / 'patch.cat').unlink()
    results = fleet.play('fleet', (2,), variables, task='tlx_apply', hosts=hosts[:1])
    expect_each(results, hosts[:1], outcome='refused', code=323, changed=False)


def busy(fleet):
    """One that others have is refused when its time is over."""
    folder = os.open(fleet.machines / fleet.whole[0], os.O_RDONLY | os.O_DIRECTORY)
    fcntl.flock(folder, fcntl.LOCK_EX)
    results = fleet.play('fleet', (2,), {'rollout_name': 'busy'}, task='tlx_apply', hosts=fleet.whole[:1])
    os.close(folder)
    expect_each(results, fleet.whole[:1], outcome='unfit', code=170, changed=False)


def image(fleet):
    """An image is mounted for its task alone, also for one that fails; in check mode it isn't touched."""
    path, point = fleet.place / 'image', fleet.place / 'point'
    with open(path, 'wb') as file:
        file.truncate(64 << 20)
    subprocess.run(['mkntfs', '-qF', path], check=True, capture_output=True)
    point.mkdir()
    subprocess.run(['ntfs-3g', '-o', 'permissions', path, point], check=True, capture_output=True)
    shutil.copytree(fleet.place / 'template', point, symlinks=True, dirs_exist_ok=True)
    subprocess.run(['umount', point], check=True)
    host = fleet.whole[:1]
    variables = {'rollout_name': 'image', 'rollout_machine': '', 'rollout_image': str(path),
                 'rollout_folder': str(point)}
    failing = {**variables, 'rollout_accept': [5]}

    def play(codes, these, *options, playbook='fleet', task='tlx_apply'):
        results = fleet.play(playbook, codes, these, *options, task=task, hosts=host)
        expect(not point.is_mount() and not list(fleet.place.glob('point.*')), 'something is left of the mount')
        return results

    fleet_bytes = hashlib.sha256(path.read_bytes()).digest()
    expect_each(play((0,), variables, '--check'), host, outcome='rehearsed', changed=True)
    expect(hashlib.sha256(path.read_bytes()).digest() == fleet_bytes, 'check mode has changed the image')
    expect_each(play((2,), failing), host, outcome='refused', code=0)
    expect_each(play((0,), variables), host, outcome='committed', changed=True)
    expect_each(play((0,), variables), host, outcome='already', changed=False)
    expect_each(play((0,), variables, playbook='undo', task='tlx_undo'), host, outcome='undone')
    expect_each(play((0,), variables), host, outcome='committed', changed=True)
    results = play((2,), {**variables, 'rollout_image_format': 'qcow2'}, task='volume_image')
    if not list(pathlib.Path('/sys/block').glob('nbd*')) and not shutil.which('guestmount'):
        told = [one['result'].get('msg', '') for one in fleet.told() if one['state'] == 'failed']
        expect(any('qemu-nbd' in words and 'guestmount' in words for words in told), f'{told}')


ROWS = {'collection': collection, 'looked-at': looked_at, 'judged': judged, 'rehearsed': rehearsed, 'stopped': stopped,
        'again': again, 'interrupted': interrupted, 'undone': undone, 'busy': busy, 'image': image}


def own_mounts():
    """Goes on in a namespace for mounts, if there can be one. Whether it is in one."""
    if os.environ.pop('TESSEL_OWN_MOUNTS', ''):
        return True
    if surroundings.mounts():
        return False
    os.environ['TESSEL_OWN_MOUNTS'] = '1'
    os.execvp(surroundings.MOUNTED[0], [*surroundings.MOUNTED, sys.executable, *sys.argv])
    return False


def main():
    parser = world.option_parser('Services a fleet of machines with Ansible.')
    parser.add_argument('--machines', type=int, default=40)
    options = parser.parse_args()
    lacking = surroundings.views() if shutil.which('ansible-playbook') else 'there is no ansible-core'
    if lacking:
        return world.report({}, {lacking: len(ROWS)}, options.json)
    has_mounts = own_mounts()
    with tempfile.TemporaryDirectory(prefix='tessel-fleet.') as name:
        fleet = Fleet(options, pathlib.Path(name).resolve(), has_mounts)
        try:
            fleet.make_machines(options.machines)
            code = world.run_rows(ROWS.items(), options, lambda row: surroundings.ntfs() if row == 'image' else None,
                                  lambda _, action: world.fault_of(lambda: action(fleet)))
        finally:
            fleet.release()
        if options.v:
            print(*(f'{seconds:7.1f} s  {what}' for what, seconds in fleet.seconds.items()), sep='\n')
    return code


if __name__ == '__main__':
    sys.exit(main())
