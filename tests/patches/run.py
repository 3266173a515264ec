#!/usr/bin/env python3
"""Runs the patch cases over one or both platforms and compares what they do with what they should.

    run.py --linux TESSEL --tlx TLX --key PEM [--json OUT] [--windows TESSEL_EXE]
           [--wine wine] [--system-library DLL]... [--filter GLOB] [-v]

A case is described in expectations.py. Each run has a folder of its own. On Linux it has a machine
of its own too; under Wine the machine is the prefix that WINEPREFIX names, so that one run at a
time uses it. A --system-library takes the place of Wine's own of that name in the prefix while the
cases run. What a case does on both platforms must be the same to the last line of the trace.

--json gets {"passed": n, "failed": n, "skipped": n, "failures": [...]}, counted per case and platform.
The exit code is 1 when something failed.
"""

import concurrent.futures
import contextlib
import dataclasses
import fnmatch
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

import container_cases
import document_cases
import example_cases
import expectations
import http_files
import load_cases
import script_cases
import spooled_events
import trees
import world
from world import Fault

MACHINE = 'machine'  # a Linux run's, in the case's folder
PRODUCT = pathlib.Path('product', 'bin')  # a copy of the program's folder, in the case's folder
# The roots of the registry have the same values everywhere.
POINTER = re.compile(r'0x(?!FFFFFFFF8000000)[0-9A-F]{16}')
TRACE_NAME = re.compile(r'ts-\d+-\d+\.txt')
UNITS = {'d': 86400, 'h': 3600, 'm': 60, 's': 1}


@dataclasses.dataclass
class Observation:
    program: pathlib.Path  # that ran
    exit_code: int
    trace: list
    stdout: list
    stderr: list
    events: list  # as spooled_events.tell has them


class Platform:
    """One program and the way to run it."""

    def __init__(self, name, program):
        self.name = name
        self.program = pathlib.Path(program).resolve()
        if not self.program.is_file():
            sys.exit(f'run.py: there is no program {program}')

    def program_for(self, case, folder):
        """The program to run: a copy in the case's folder when the case puts libraries around it."""
        libraries = case.expectations.libraries
        if libraries is None:
            return self.program
        bin_folder = folder / PRODUCT
        bin_folder.mkdir(parents=True)
        for file in (self.program, *self.program.parent.glob('*.dll')):
            world.link_or_copy(file, bin_folder / file.name)
        for line in libraries:
            place, library = line.split()
            world.link_or_copy(self.program.parents[1] / 'tests' / 'libraries' / library,
                               bin_folder / place.replace('\\', '/'))
        return bin_folder / self.program.name

    def normalise(self, line, folder, program):
        for host, token in ((program, '@PROGRAM@'), (program.parent, '@BIN@'), (folder, '@DIR@')):
            line = line.replace(world.host_to_drive(host), token).replace(str(host), token)
        line = line.replace(http_files.address(), '@HTTP@')
        return POINTER.sub('@P@', line)

    def observe(self, case, folder):
        environment = dict(os.environ)
        for name, value in case.expectations.environment.items():
            environment[name] = fill_in(value, folder, case)
        arguments = [fill_in(a, folder, case) for a in case.expectations.arguments]
        program = self.program_for(case, folder)
        exit_code, stdout, stderr, trace = self.start(program, arguments, environment, folder)
        trace, statuses = spooled_events.part(trace)
        stdout, _ = spooled_events.part(stdout)
        events = spooled_events.load(self.spool(folder))
        is_elsewhere = b' log="' in (case.script or b'')  # where the trace ends
        if not is_elsewhere and statuses != [spooled_events.status_of(e) for e in events]:
            raise Fault(f'the trace tells of {statuses}, and the events are {events}')
        return Observation(program, exit_code,
                           *([self.normalise(line, folder, program) for line in lines]
                             for lines in (trace, stdout, stderr)),
                           [spooled_events.tell(event) for event in events])

    def spawn(self, command, environment, folder):
        try:
            return subprocess.run(command, env=environment, cwd=folder, capture_output=True,
                                  stdin=subprocess.DEVNULL, timeout=world.TIME_LIMIT, check=False)
        except subprocess.TimeoutExpired:
            raise Fault(f'it did not end within {world.TIME_LIMIT} seconds') from None

    @staticmethod
    def only_trace(folder, run):
        names = sorted(path.name for path in folder.iterdir()) if folder.is_dir() else []
        if len(names) != 1 or not TRACE_NAME.fullmatch(names[0]):
            words = run.stderr.decode(errors='replace')
            raise Fault(f'the trace folder should hold one trace file; it holds {names}\n{words}')
        return world.read_trace(folder / names[0])


class Linux(Platform):
    def __init__(self, program, tlx, root):
        super().__init__('linux', program)
        # Without the functions that catalogs need, as Wine has it here: the gates are skipped.
        self.machine = root / 'old-machine'
        subprocess.run([tlx, 'machine', 'create', '--windows', '7', self.machine], check=True)

    def prepare(self, folder):
        shutil.copytree(self.machine, folder / MACHINE)

    def start(self, program, arguments, environment, folder):
        machine = folder / MACHINE
        environment['TESSEL_MACHINE'] = str(machine)
        run = self.spawn([str(program), *arguments], environment, folder)
        if run.returncode < 0:
            words = run.stderr.decode(errors='replace')
            raise Fault(f'signal {-run.returncode} ended it\n{words}')
        return (run.returncode, world.decode_lines(run.stdout, 'standard output', '\n'),
                world.decode_lines(run.stderr, 'standard error', '\n'),
                self.only_trace(machine / world.TRACES, run))

    @staticmethod
    def spool(folder):
        return folder / MACHINE / world.SPOOL

    @staticmethod
    def expected_code(code):
        return code & 0xFF or (255 if code else 0)


class Windows(Platform):
    def __init__(self, program, wine, libraries):
        super().__init__('windows', program)
        self.wine = wine
        self.libraries = [pathlib.Path(library).resolve() for library in libraries]
        if not os.environ.get('WINEPREFIX'):
            sys.exit('run.py: WINEPREFIX must name the prefix to run in')
        drive = pathlib.Path(os.environ['WINEPREFIX'], 'drive_c')
        self.trace_folder = drive / world.TRACES
        self.spool_folder = drive / world.SPOOL
        # What every machine has that tlx makes.
        key = 'HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Ambry Shield'
        subprocess.run([self.wine, 'reg', 'add', key, '/f', '/v', 'InstallLocation', '/d',
                        world.drive_path(world.SPOOL.parents[1])],
                       stdout=subprocess.DEVNULL, check=True)

    def spool(self, _):
        return self.spool_folder

    def prepare(self, folder):
        pass

    @contextlib.contextmanager
    def system_libraries(self):
        """Puts the libraries that stand in for Wine's into its system folder, and Wine's back."""
        system = pathlib.Path(os.environ['WINEPREFIX'], 'drive_c', 'windows', 'system32')
        with tempfile.TemporaryDirectory() as kept, contextlib.ExitStack() as undo:
            for library in self.libraries:
                place = system / library.name
                own = shutil.move(place, pathlib.Path(kept, library.name))
                undo.callback(shutil.move, own, place)
                shutil.copy(library, place)
            yield

    def command(self, program, arguments, environment, code_file):
        """A command line that runs the program, and then writes its exit code to a file. It needs
        the environment, which this completes."""
        for library in self.libraries:
            environment['WINEDLLOVERRIDES'] = ';'.join(filter(None, [
                environment.get('WINEDLLOVERRIDES'), f'{library.stem}=n']))
        line = subprocess.list2cmdline([world.host_to_drive(program), *arguments])
        if '%' in line:
            raise Fault("cmd would expand the '%' in the command line")
        # Wine's own exit code has 8 bits; cmd knows all of them.
        environment.setdefault('WINEDEBUG', '-all')
        environment['RUN_LINE'] = line
        return [self.wine, 'cmd', '/v:on', '/c',
                f'!RUN_LINE! & echo !errorlevel!>{world.host_to_drive(code_file)}']

    @staticmethod
    def told_code(code_file, stderr):
        # Wine's cmd writes it however the program ends, so that it is cmd that was not run to its end.
        try:
            return int(code_file.read_text(encoding='ascii'))
        except (OSError, ValueError):
            words = stderr.decode(errors='replace')
            raise world.NotRun(f'Wine told no exit code\n{words}') from None

    def start(self, program, arguments, environment, folder):
        shutil.rmtree(self.trace_folder, ignore_errors=True)
        shutil.rmtree(self.spool_folder, ignore_errors=True)
        code_file = folder / 'exit-code.txt'
        command = self.command(program, arguments, environment, code_file)
        run = self.spawn(command, environment, folder)
        # On a busy machine Wine now and then fails to make a process, which leaves nothing but this.
        if b"Can't recognize '" in run.stderr and not self.trace_folder.exists():
            raise world.NotRun('Wine made no process')
        exit_code = self.told_code(code_file, run.stderr)
        return (exit_code, world.decode_lines(run.stdout, 'standard output', '\r\n'),
                world.decode_lines(run.stderr, 'standard error', '\r\n'),
                self.only_trace(self.trace_folder, run))

    @staticmethod
    def expected_code(code):
        return code


def fill_in(text, folder, case):
    now = int(time.time())

    def moment(match):
        offset = match[1] or '+0s'
        return str(now + int(offset[:-1]) * UNITS[offset[-1]])

    text = re.sub(r'@NOW([+-]\d+[dhms])?@', moment, text)
    patch = folder / case.patch_name
    return (text.replace('@PATCH@', world.host_to_drive(patch)).replace('@HOSTPATCH@', str(patch))
            .replace('@DIR@', world.host_to_drive(folder)).replace('@HTTP@', http_files.address()))


def lint(script, tools):
    """What tlx lint tells of a script, as its exit code and its text; None for one whose bytes it
    refuses though the runner makes something of them."""
    content = script.read_bytes()
    if b'\0' in content or '\ufffd' in content.decode('utf-8', 'replace'):
        return None
    told = subprocess.run([tools.tlx, 'lint', script], capture_output=True, text=True, check=False)
    return told.returncode, told.stderr


def differ_from_lint(case, told, seen):
    """Where a run and what lint told of its script don't agree. Of the scripts that authors start
    from, there is nothing to tell."""
    if told is None or expectations.part_of_trace(seen.trace, 'load') is None:
        return None
    code, words = told
    is_told = re.search(': warning: the patch (has expired|is refused)', words)
    if 'Patch is no longer valid.' in seen.stderr:
        agrees = is_told
    elif 'Failed to load patch.' in seen.stderr:
        agrees = code == 1
    else:
        is_model = case.name.startswith('examples/') or 'sample' in case.name
        agrees = code == 0 and not (words if is_model else is_told)
    return None if agrees else f'lint does not say what the load says:\n{words}'


def make_patch(case, folder, tools, is_linted):
    """Puts the case's patch into its folder. Gives what lint tells of its script, if it is asked."""
    patch = folder / case.patch_name
    told = None
    if case.script is not None:
        script = folder / 'script.xml'
        script.write_bytes(fill_in(case.script.decode('utf-8', 'surrogateescape'), folder, case)
                           .encode('utf-8', 'surrogateescape'))
        if is_linted:
            told = lint(script, tools)
        key = tools.strangers_key if case.is_strangers else tools.key
        packed = subprocess.run([tools.tlx, 'pack', '--force', '--key', key, '--in', script,
                                 '--out', patch], capture_output=True, text=True, check=False)
        script.unlink()
        if packed.returncode != 0:
            raise Fault(f'tlx failed: {packed.stderr}')
    if case.prepare is not None:
        case.prepare(patch)
    return told


def differ_in_file(path, expected, folder, case):
    """What is wrong with a file: its lines, or all its bytes."""
    host = pathlib.Path(fill_in(path, folder, case).removeprefix('Z:').replace('\\', '/'))
    if not host.is_file():
        return f'{path} is not there'
    if isinstance(expected, bytes):
        actual = host.read_bytes()
        return None if actual == expected else f'{path} has {actual!r}, not {expected!r}'
    return expectations.differ(expected, host.read_text(encoding='utf-8-sig').splitlines(), path)


def differ_in_hive(file, key, expected, folder):
    hive = folder / MACHINE / 'Windows' / 'System32' / 'config' / file
    told = subprocess.run(['hivexget', hive, key], capture_output=True, text=True, check=False)
    return expectations.differ(expected, told.stdout.splitlines(), f'{file} {key}') or told.stderr


def check(case, platform, seen, folder):
    """What is wrong with a run: a list of texts, among which some are empty or None."""
    wanted = case.expectations
    faults = []
    if seen.exit_code != platform.expected_code(wanted.exit_code):
        faults.append(f'the exit code is {seen.exit_code}, not {wanted.exit_code}')
    for part, lines in wanted.traces:
        actual = expectations.part_of_trace(seen.trace, part)
        if actual is None:
            faults.append('\n'.join([f'trace {part}: the run did not get there'] + seen.trace))
        else:
            compare = expectations.lack if part == 'some' else expectations.differ
            faults.append(compare(lines, actual, f'trace {part}'))
    faults.append(expectations.differ(wanted.stdout, seen.stdout, 'standard output'))
    faults.append(expectations.differ(wanted.stderr, seen.stderr, 'standard error'))
    is_expired = 'Patch is no longer valid.' in seen.stderr
    events = spooled_events.expected(wanted.exit_code,
                                     reason='PatchExpired' if is_expired else None)
    faults.append(expectations.differ(events, seen.events, 'events'))
    for path, lines in wanted.trees:
        faults.append(expectations.differ(sorted(lines), trees.tell(folder, path), path))
    if platform.name == 'linux':
        faults += [differ_in_hive(*hive, folder) for hive in wanted.hives]
    if case.examine is not None:
        faults += case.examine(folder)
    return faults + [differ_in_file(*file, folder, case) for file in wanted.files]


class Session:
    """All runs, and what came of them."""

    def __init__(self, tools, platforms, root):
        self.tools = tools
        self.platforms = platforms
        self.root = root
        tools.strangers_key = self.root / 'stranger.pem'
        subprocess.run([tools.tlx, 'keygen', '--private', tools.strangers_key,
                        '--public', self.root / 'stranger.pub.pem'], check=True)
        self.observations = {}  # (case name, platform name) to Observation
        self.outcomes = {}  # (case name, platform name) to '' or the fault
        self.skipped = {}

    def run_one(self, case, platform):
        key = (case.name, platform.name)
        folder = self.root / platform.name / case.name.replace('/', '.')

        def act():
            platform.prepare(folder)
            told = make_patch(case, folder, self.tools, platform.name == 'linux')
            trees.make(folder, case.expectations.make)
            seen = self.observations[key] = platform.observe(case, folder)
            faults = [*check(case, platform, seen, folder), differ_from_lint(case, told, seen)]
            world.expect(not any(faults), '\n'.join(filter(None, faults)))

        self.outcomes[key] = world.fault_in(folder, act)
        if self.tools.v and not self.outcomes[key]:
            print(f'ok      {platform.name:8} {case.name}', flush=True)

    def run_all(self, cases):
        # Wine's runs share a prefix, so that they go one by one.
        pools = {platform.name: concurrent.futures.ThreadPoolExecutor(
            1 if platform.name == 'windows' else 2) for platform in self.platforms}
        runs = [pools[platform.name].submit(self.run_one, case, platform)
                for platform in self.platforms for case in cases
                if case.expectations.only in (None, platform.name)]
        if others := len(cases) * len(self.platforms) - len(runs):
            self.skipped['they are about the other platform'] = others
        for run in runs:
            run.result()
        for case in cases:
            self.compare_platforms(case)

    def compare_platforms(self, case):
        pair = [self.observations.get((case.name, name)) for name in expectations.PLATFORMS]
        key = (case.name, 'windows')
        if case.expectations.differs or None in pair or self.outcomes[key]:
            return
        # Where the product is, each platform has to say for itself.
        expected, actual = (expectations.without_location(seen.trace) for seen in pair)
        expected = [line.replace('*', '[*]') for line in expected]
        self.outcomes[key] = expectations.differ(expected, actual,
                                                 'the trace is not that of linux') or ''


def main():
    parser = world.option_parser('Runs the patch cases.')
    parser.add_argument('--system-library', action='append', default=[], metavar='DLL')
    options = parser.parse_args()
    families = (script_cases, document_cases, container_cases, load_cases, example_cases)
    cases = [case for family in families for case in family.all_cases()
             if fnmatch.fnmatchcase(case.name, options.filter)]
    if not cases:
        parser.error(f'no case is named {options.filter}')
    with contextlib.ExitStack() as stack:
        name = stack.enter_context(tempfile.TemporaryDirectory(prefix='tessel-patches.',
                                                               ignore_cleanup_errors=True))
        root = pathlib.Path(name).resolve()
        platforms = [Linux(options.linux, options.tlx, root)]
        if options.windows:
            platforms.append(Windows(options.windows, options.wine, options.system_library))
            stack.enter_context(platforms[-1].system_libraries())
        session = Session(options, platforms, root)
        session.run_all(cases)
    outcomes = {f'{case} ({name})': fault for (case, name), fault in session.outcomes.items()}
    return world.report(outcomes, session.skipped, options.json)


if __name__ == '__main__':
    sys.exit(main())
