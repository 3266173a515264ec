"""What the runners share: machines, patches and certificates, how a trace is read, and the report."""

import argparse
import collections
import fnmatch
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time
import traceback

TIME_LIMIT = 120  # seconds, for a run that does not end
INSTALL = pathlib.PurePath('Program Files', 'Ambry Shield')
SPOOL = INSTALL / 'matrix' / 'events'
TRACES = pathlib.PurePath('ProgramData', 'Tessera')
STAMP = re.compile(r'\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} ')
PUBLISHER = '/C=RO/O=Corvane SRL/CN=Corvane SRL'
_CERTIFICATES = pathlib.Path(__file__).resolve().parents[2] / 'scripts' / 'lib' / 'certificates'
_SCRIPT = """<patch version="1.0"><header><property name="id" value="world"/>
<property name="patchType" value="{kind}"/><property name="created" value="{created}"/>
<property name="tags" value="first"/></header><script>{body}</script></patch>"""

# A shell has what it starts in the background ignore this one, and so would all that is started here.
signal.signal(signal.SIGINT, signal.default_int_handler)


class Fault(Exception):
    """What a run did wrong."""


class NotRun(Exception):
    """What the host did wrong, so that nothing is known of the program."""


def expect(condition, words):
    if not condition:
        raise Fault(words)


def fault_of(action):
    """What is wrong with what it does, as text. What the runner can't cope with is a fault too."""
    try:
        action()
        return ''
    except Fault as fault:
        return str(fault)
    except NotRun:
        raise
    except Exception:  # pylint: disable=broad-except
        return traceback.format_exc()


def fault_in(folder, action):
    """The same of what it does in a new folder, which is removed afterwards. What the host spoils
    once is done once more."""
    fault = ''
    for _ in range(2):
        folder.mkdir(parents=True)
        try:
            return fault_of(action)
        except NotRun as spoilt:
            print(f'{folder.name}: {spoilt}', flush=True)
            fault = str(spoilt)
        finally:
            shutil.rmtree(folder, ignore_errors=True)
    return fault


def host_to_drive(path):
    return 'Z:' + str(path).replace('/', '\\')


def drive_path(path):
    """A path below C:, as programs see it."""
    return 'C:\\' + str(path).replace('/', '\\')


def link_or_copy(source, target):
    try:
        os.link(source, target)
    except OSError:
        shutil.copy2(source, target)


def decode_lines(data, what, line_end):
    try:
        text = data.decode('utf-8')
    except UnicodeDecodeError as fault:
        raise Fault(f'{what} is not UTF-8: {fault}') from None
    lines = text.split(line_end)
    expect(lines[-1] == '', f'{what} does not end with a line end: {lines[-1]!r}')
    expect(line_end == '\n' or not any('\n' in line or '\r' in line for line in lines),
           f'{what} has a line end that is not CR LF')
    return lines[:-1]


def trace_lines(data, what):
    """The lines of a trace without their stamps, or with '~' in front of those that have none."""
    lines = []
    for line in decode_lines(data, what, '\r\n'):
        stamp = STAMP.match(line)
        lines.append(line[stamp.end():] if stamp else '~' + line)
    expect(not lines or lines[0][0] != '~', f'{what} has a first line without a time stamp')
    return lines


def read_trace(path):
    data = path.read_bytes()
    expect(data.startswith(b'\xef\xbb\xbf'), f'{path.name} does not begin with the mark of UTF-8')
    return trace_lines(data[3:], path.name)


class Authority:
    """A root, and what it issues. Files: <name>.pem and <name>.key in the folder."""

    def __init__(self, folder, name):
        self.folder = pathlib.Path(folder)
        self.name = name
        self._make('authority', name)
        self.certificate = self.folder / f'{name}.pem'

    def issue(self, name, subject=PUBLISHER, purpose='codeSigning', serial='', days='20'):
        """Gives the paths of the certificate and of its key. Negative days have run out."""
        self._make('issue', self.name, name, subject, purpose, days, serial)
        return self.folder / f'{name}.pem', self.folder / f'{name}.key'

    def _make(self, *arguments):
        subprocess.run([_CERTIFICATES, *arguments], cwd=self.folder, check=True)


class World:
    """A trusted root with a publisher, and what makes machines, patches and catalogs."""

    def __init__(self, tessel, tlx, key, folder):
        self.tessel = pathlib.Path(tessel).resolve()
        self.tlx, self.key, self.folder = tlx, key, folder
        self.root = Authority(folder, 'root')
        self.publisher = self.root.issue('publisher')

    def tool(self, *words):
        subprocess.run([self.tlx, *words], check=True)

    def make_machine(self, folder, changes=None):
        """Makes a machine, and changes it by commands of a script, for which it is of the old kind
        while they run."""
        self.tool('machine', 'create', folder, '--trust', self.root.certificate,
                  *([] if changes is None else ['--windows', '7']))
        if changes is None:
            return folder
        version = r'SOFTWARE\Microsoft\Windows NT\CurrentVersion'
        changes += f'<regWrite root="HKEY_LOCAL_MACHINE" key="{version}" value="CurrentVersion"' \
                   ' type="REG_SZ" data="6.3"/><exit code="0"/>'
        patch = folder.with_suffix('.tlx')
        self.pack(patch, changes)
        subprocess.run([self.tessel, '/encfile', patch], check=True, capture_output=True,
                       env={**os.environ, 'TESSEL_MACHINE': str(folder)})
        shutil.rmtree(folder / TRACES)
        shutil.rmtree(folder / SPOOL.parent, ignore_errors=True)
        return folder

    def pack(self, patch, body, kind='external', created=None, start='<script>'):
        script = patch.with_suffix('.xml')
        text = _SCRIPT.format(kind=kind, created=created or int(time.time()), body=body)
        text = text.replace('<script>', start)
        script.write_text(text, encoding='utf-8')
        self.tool('pack', '--force', '--key', self.key, '--in', script, '--out', patch)
        script.unlink()

    def sign(self, folder, signer=None):
        certificate, key = signer or self.publisher
        self.tool('catalog', '--force', '--cert', certificate, '--key', key, '--chain',
                  self.root.certificate, '--dir', folder)


def option_parser(words):
    """A parser of the options that all runners over both platforms have."""
    parser = argparse.ArgumentParser(description=words)
    for name, what in (('linux', 'TESSEL'), ('tlx', 'TLX'), ('key', 'PEM')):
        parser.add_argument(f'--{name}', required=True, metavar=what)
    parser.add_argument('--windows', metavar='EXE')
    parser.add_argument('--wine', default='wine')
    parser.add_argument('--json', metavar='OUT')
    parser.add_argument('--filter', default='*', metavar='GLOB', help='which of them, by name')
    parser.add_argument('-v', action='store_true', help='tell of each of them')
    return parser


def run_rows(rows, options, lacking, run):
    """Runs the rows that the options ask for, and tells of them. A row begins with its name, for which
    `lacking` gives the reason why it can't run here, or None; `run` takes the row, and gives what is
    wrong. Gives the exit code."""
    outcomes = {}
    skipped = collections.Counter()
    for name, *rest in rows:
        if not fnmatch.fnmatchcase(name, options.filter):
            continue
        if reason := lacking(name):
            skipped[reason] += 1
            continue
        outcomes[name] = run(name, *rest)
        if options.v:
            print(f'{"FAILED" if outcomes[name] else "ok":8}{name}', flush=True)
    return report(outcomes, skipped, options.json)


def report(outcomes, skipped, json_path):
    """Tells of the faults, by what has failed, and counts; an empty one is none. `skipped` has numbers
    by their reasons. Gives the exit code."""
    failures = [f'{name}: {fault}' for name, fault in sorted(outcomes.items()) if fault]
    for failure in failures:
        print(f'FAILED  {failure}\n')
    summary = {'passed': len(outcomes) - len(failures), 'failed': len(failures),
               'skipped': sum(skipped.values()), 'reasons': dict(skipped), 'failures': failures}
    if json_path:
        pathlib.Path(json_path).write_text(json.dumps(summary, indent=1) + '\n', encoding='utf-8')
    print('{passed} passed, {failed} failed, {skipped} skipped'.format(**summary))
    return 1 if failures else 0
