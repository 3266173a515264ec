#!/usr/bin/env python3
"""Makes the folder of the kit that checks a real Windows, and a report of the same rows on Linux.

    make.py --linux BUILD --windows BUILD --version TEXT --out FOLDER --report FILE [--only GLOB]

The scripts are run here, behind all the gates; what they leave is what the kit's program expects of Windows.
What should hold there but can't be told in plain files, or would leave that Windows changed, is a row that
is skipped, with the reason.
"""

import argparse
import concurrent.futures
import dataclasses
import fnmatch
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import types

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
sys.path.insert(0, str(ROOT / 'tests' / 'patches'))

import agreement  # noqa: E402  pylint: disable=wrong-import-position
import case_files  # noqa: E402  pylint: disable=wrong-import-position
import container_cases  # noqa: E402  pylint: disable=wrong-import-position
import document_cases  # noqa: E402  pylint: disable=wrong-import-position
import example_cases  # noqa: E402  pylint: disable=wrong-import-position
import kit_gates  # noqa: E402  pylint: disable=wrong-import-position
import kit_hives  # noqa: E402  pylint: disable=wrong-import-position
import load_cases  # noqa: E402  pylint: disable=wrong-import-position
import run  # noqa: E402  pylint: disable=wrong-import-position
import script_cases  # noqa: E402  pylint: disable=wrong-import-position
import trees  # noqa: E402  pylint: disable=wrong-import-position
import world  # noqa: E402  pylint: disable=wrong-import-position

PLATFORM_TESTS = ('platform_test', 'catalog_test')
MOST_DAYS = 18  # that the certificates are good for, with a margin
# Cases that stay out, and why.
LEFT_OUT = {'files/move': 'it needs a second drive'}
# What an old Windows, as Wine is, answers otherwise.
BY_BUILD = {'services/life': 'it depends on the build of Windows'}
# The kit looks for keys whose names begin so when it cleans up.
OWN_KEYS = ('tessel', 'example')
ON_EACH_WINDOWS = 'Microsoft\\Windows NT\\CurrentVersion\\IniFileMapping'  # but not on a new machine here


def reason_to_leave_out(case):
    """Why no Windows can run it, and why Wine can't."""
    text = (case.script or b'') + ' '.join(case.expectations.arguments).encode()
    if case.name in LEFT_OUT:
        return LEFT_OUT[case.name], None
    if b'@HTTP@' in text:
        return 'the kit has no web server', None
    reason = case.expectations.only_reason
    if case.expectations.only == 'linux' and 'Wine' not in reason:
        return reason, None
    if any(line.startswith('link ') for line in case.expectations.make):
        return None, "Wine can't make links"
    return None, BY_BUILD.get(case.name, reason)


class Signed(run.Linux):
    """The product on a machine that has the functions for catalogs, and trusts the kit's root."""

    def __init__(self, gates, root):
        super().__init__(gates.tessel, gates.tlx, root)
        self.machine = gates.machine


class Kit:
    def __init__(self, options, folder):
        self.out = options.out
        self.options = options
        self.folder = folder
        self.rows = {}  # name to (outcome, detail) on Linux
        key = options.linux / 'dev-keys' / 'private.pem'
        self.tools = types.SimpleNamespace(tlx=options.linux / 'bin' / 'tlx', key=key, v=False)
        self.gates = kit_gates.make(options, key, folder)

    def copy_programs(self):
        windows = self.options.windows
        shutil.copytree(windows / 'bin', self.out / 'bin')
        for name in PLATFORM_TESTS:
            shutil.copy2(windows / 'tests' / f'{name}.exe', self.out / 'bin')
        libraries = self.out / 'bin' / 'libraries'  # where the test programs look for them
        shutil.copytree(windows / 'tests' / 'libraries', libraries, ignore=shutil.ignore_patterns(
            'CMakeFiles', '*.cmake', '*.imports', 'old', 'wine', 'kit.exe'))
        shutil.copy2(windows / 'tests' / 'libraries' / 'kit.exe', self.out / 'kit.exe')
        for name in ('check.cmd', 'README.txt'):
            text = (HERE / name).read_text(encoding='ascii').replace('\n', '\r\n')
            (self.out / name).write_text(text, encoding='ascii', newline='')
        keys = self.out / 'keys'
        keys.mkdir()
        for file, name in ((self.tools.key, 'own.pem'), (self.tools.strangers_key, 'stranger.pem'),
                           *((file, file.name) for file in (*self.gates.publisher, self.gates.root.certificate))):
            shutil.copy2(file, keys / name)

    # --- The programs that test the platform

    def add_platform(self):
        for program in PLATFORM_TESTS:
            names = [name for name, test in self.tests(program, '--gtest_list_tests')
                     if 'tests/platform/conformance_' in test['file'] and self.is_wanted(f'platform/{name}')]
            if names:
                for name, test in self.tests(program, '--gtest_filter=' + ':'.join(names)):
                    if name in names:
                        self.add(f'platform/{name}', *_outcome(test))

    def tests(self, program, option):
        with tempfile.NamedTemporaryFile(suffix='.json') as told:
            environment = {**os.environ, 'XDG_DATA_HOME': str(self.folder / 'data')}
            subprocess.run([self.options.linux / 'tests' / program, f'--gtest_output=json:{told.name}', option],
                           cwd=ROOT, env=environment, capture_output=True, check=False)
            suites = json.loads(pathlib.Path(told.name).read_text(encoding='utf-8'))['testsuites']
        return [(f'{suite["name"]}.{test["name"]}', test) for suite in suites for test in suite['testsuite']]

    # --- The scripts

    def add_scripts(self):
        families = (script_cases, document_cases, container_cases, load_cases, example_cases)
        cases = [case for family in families for case in family.all_cases()
                 if self.is_wanted(f'scripts/{case.name}')]
        linux = run.Linux(self.gates.tessel, self.tools.tlx, self.folder / 'plain')
        session = run.Session(self.tools, [linux], self.folder / 'plain')
        session.run_all(cases)
        signed = Signed(self.gates, self.folder / 'signed')
        before = agreement.registry_of(signed.machine)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            reasons = list(pool.map(lambda case: self.write_case(case, signed, session, before), cases))
        for case, reason in zip(cases, reasons):
            fault = session.outcomes[case.name, 'linux']
            self.add(f'scripts/{case.name}', 'failed' if fault else 'passed', fault)
            if reason:
                print(f'left out: {case.name}: {reason}')
                file = case_files.CaseFile()
                file.add('skip', reason)
                file.write(self.out / 'cases' / 'scripts' / case.name)

    def write_case(self, case, signed, session, before):
        """Writes the case's folder, unless there is a reason not to, which it gives."""
        reason, not_wine = reason_to_leave_out(case)
        if reason:
            return reason
        folder = self.folder / 'signed' / case.name.replace('/', '.')
        folder.mkdir(parents=True)
        place = self.out / 'cases' / 'scripts' / case.name
        try:
            if case.script is not None:
                run.make_patch(dataclasses.replace(case, prepare=None), folder, self.tools, False)
                place.mkdir(parents=True)
                (place / 'script.xml').write_bytes(case.script)
            self.bring_along(case, folder, place)
            self.gates.sign_as_it_is(folder)
            signed.prepare(folder)
            trees.make(folder, case.expectations.make)
            seen = signed.observe(case, folder)
            fault = self.fault_in(case, seen, session, before, folder)
            if fault:
                shutil.rmtree(place)
                return fault
            file = case_files.how_to_run(case, not_wine)
            if not (place / 'script.xml').exists():
                file.lines = [line for line in file.lines if not line.startswith('key ')]
            case_files.what_to_expect(file, case, seen)
            if case.examine:
                for path in sorted([*folder.glob('*.saved'), *folder.glob('*.again')]):
                    file.expect(f'bytes @DIR@\\{path.name}', [path.read_bytes().hex()])
            file.write(place)
            return None
        except world.Fault as fault:
            shutil.rmtree(place, ignore_errors=True)
            return str(fault).split('\n', maxsplit=1)[0]
        finally:
            shutil.rmtree(folder, ignore_errors=True)

    def bring_along(self, case, folder, place):
        """Has the case put its files beside the patch, and keeps them for Windows."""
        if case.prepare is None:
            return
        patch = folder / case.patch_name
        packed = patch.read_bytes() if patch.exists() else None
        case.prepare(patch)
        if patch.exists() and patch.read_bytes() == packed:
            shutil.copytree(folder, place / 'files', ignore=shutil.ignore_patterns(case.patch_name))
        else:  # it has changed the patch itself
            shutil.copytree(folder, place / 'files')
            (place / 'script.xml').unlink(missing_ok=True)

    @staticmethod
    def fault_in(case, seen, session, before, folder):
        """Why the kit can't expect of Windows what was seen."""
        plain = session.observations.get((case.name, 'linux'))
        if plain is None:
            return 'its run had no end on Linux'
        told = [line for _, lines in case.expectations.traces for line in lines]
        if not case.expectations.differs and case.name not in BY_BUILD:
            fault = case_files.fault_of(
                case_files.patterns(case_files.without_gates(seen.trace), told),
                case_files.without_gates(plain.trace))
            if fault:
                return 'it ends otherwise behind the gates'
        after = agreement.registry_of(folder / run.MACHINE)
        foreign = sorted(key for hive, key in {*before, *after}
                         if before.get((hive, key)) != after.get((hive, key)) and key != ON_EACH_WINDOWS
                         and not any(part.lower().startswith(OWN_KEYS) for part in key.split('\\')))
        return f'it leaves {foreign[0]} changed' if foreign else None

    # --- All rows

    def is_wanted(self, name):
        return fnmatch.fnmatchcase(name, self.options.only)

    def add(self, name, outcome, detail=''):
        if self.is_wanted(name):
            self.rows[name] = outcome, ' '.join((detail or '').split())[:300]

    def write(self):
        expires = int(time.time()) + MOST_DAYS * 86400
        rows = ''.join(f'row {name}\n' for name in self.rows)
        (self.out / 'kit.txt').write_text(
            f'version {self.options.version}\nexpires {expires}\n'
            + ''.join(f'gate {line}\n' for line in case_files.GATES) + rows, encoding='utf-8', newline='\n')
        lines = [f'{name}\t{outcome}\t{detail}' for name, (outcome, detail) in self.rows.items()]
        self.options.report.write_text('\n'.join([
            'tessel-report 1', f'version {self.options.version}', 'system Linux', *lines,
            f'end {len(lines)}']) + '\n', encoding='utf-8')
        seen = [outcome for outcome, _ in self.rows.values()]
        print(', '.join(f'{seen.count(what)} {what}' for what in ('passed', 'failed', 'skipped', 'unseen')))


def _outcome(test):
    if test.get('failures'):
        return 'failed', test['failures'][0]['failure']
    return ('skipped', '') if test.get('result') == 'SKIPPED' else ('passed', '')


def main():
    parser = argparse.ArgumentParser(description='Makes the folder of the kit.')
    for name in ('linux', 'windows', 'out', 'report'):
        parser.add_argument(f'--{name}', required=True, type=pathlib.Path)
    parser.add_argument('--version', required=True)
    parser.add_argument('--only', default='*', metavar='GLOB')
    options = parser.parse_args()
    for name in ('linux', 'windows', 'out', 'report'):
        setattr(options, name, getattr(options, name).resolve())
    options.out.mkdir()
    with tempfile.TemporaryDirectory(prefix='tessel-kit.', ignore_cleanup_errors=True) as name:
        folder = pathlib.Path(name).resolve()
        os.chmod(folder, 0o755)
        for part in ('plain', 'signed'):
            (folder / part).mkdir()
        kit = Kit(options, folder)
        kit.add_platform()
        kit.add_scripts()
        kit_gates.add_rows(kit)
        kit_hives.add_rows(kit)
        kit.copy_programs()
        kit.write()
    return 0


if __name__ == '__main__':
    sys.exit(main())
