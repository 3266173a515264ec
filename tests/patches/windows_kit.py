#!/usr/bin/env python3
"""The kit for a real Windows: it is made, a part of it runs under Wine, and reports are merged.

    windows_kit.py --linux BUILD [--wine] [--json OUT] [--filter GLOB] [-v]
"""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

import world
from world import expect

ROOT = pathlib.Path(__file__).resolve().parents[2]
# What is started by a script, what stays in the registry, and what takes a copy of the product.
PART = 'scripts/[pr]*'
ROWS = {'scripts/a/first': 'passed', 'scripts/a/second': 'passed', 'tools/x.y': 'unseen'}


def text_of(system, rows, details=()):
    details = dict(details)
    lines = [f'{name}\t{outcome}\t{details.get(name, "")}' for name, outcome in rows.items()]
    return '\n'.join(['tessel-report 1', 'version abc1234', f'system {system}', *lines, f'end {len(lines)}', ''])


class Reports:
    """A source folder of which there is only the page and its reports."""

    def __init__(self, folder):
        self.folder = folder
        (folder / 'docs').mkdir()
        self.read(text_of('Linux', ROWS))

    def tool(self, *words):
        return subprocess.run([sys.executable, ROOT / 'scripts' / 'lib' / 'conformance.py', '--root', self.folder,
                               *words], capture_output=True, text=True, check=False)

    def read(self, text):
        file = self.folder / 'report.txt'
        file.write_bytes(text if isinstance(text, bytes) else text.encode())
        return self.tool(file)

    def state(self):
        return {path: path.read_bytes() for path in (self.folder / 'docs').rglob('*') if path.is_file()}


def runs_under_wine(_, folder, options):
    made = subprocess.run([ROOT / 'scripts' / 'windows-kit', '--wine', '--only', PART, '--linux', options.linux,
                           '--out', folder], capture_output=True, text=True, check=False)
    expect(made.returncode == 0, made.stdout + made.stderr)
    counts = [[int(number) for number in re.findall(r'(\d+) (?:passed|failed)', line)]
              for line in made.stdout.splitlines() if ' passed' in line]
    expect(len(counts) == 2 and all(passed > 5 and failed == 0 for passed, failed in counts), made.stdout)
    reports = Reports(folder)
    for system in ('linux', 'wine'):
        read = reports.tool(folder / f'{system}-report.txt')
        expect(read.returncode == 0, read.stderr)
    page = (folder / 'docs' / 'conformance.md').read_text()
    expect('Wine' in page and '`registry`' in page, page)


def merges(reports, *_):
    hostile = 'a | b `c` ``d`` <script> [x](http://y) *z*'
    windows = text_of('Windows 10.0.19045', {**ROWS, 'scripts/a/second': 'failed'}, {'scripts/a/second': hostile})
    first = reports.read(windows)
    once = reports.state()
    expect(first.returncode == 0 and 'scripts/a/second: failed' in first.stdout, f'{first}')
    again = reports.read(windows.replace('\n', '\r\n'))
    expect(again.returncode == 0 and 'no rows' in again.stdout and reports.state() == once, f'{again}')
    page = (reports.folder / 'docs' / 'conformance.md').read_text()
    expect(f'``` {hostile} ```' in page or f'```{hostile}```' in page, page)
    expect('| `a` | 2 passed | not seen | 1 passed, 1 failed |' in page, page)
    # A part of the rows leaves the others as they are, on the same system only.
    reports.read(text_of('Windows 10.0.19045', {'scripts/a/second': 'passed'}))
    expect('| 2 passed | not seen | 2 passed |' in (reports.folder / 'docs' / 'conformance.md').read_text(), 'part')
    reports.read(text_of('Windows 10.0.22631', {'scripts/a/second': 'passed'}))
    page = (reports.folder / 'docs' / 'conformance.md').read_text()
    expect('| 2 passed | not seen | 1 passed, 1 not seen |' in page, page)
    expect(reports.tool('--check').returncode == 0, 'the page is what the reports give')
    (reports.folder / 'docs' / 'conformance.md').write_text(page + 'x')
    expect(reports.tool('--check').returncode != 0, 'a changed page is told')


def refuses(reports, *_):
    good = text_of('Windows 10.0.19045', ROWS)
    row = 'scripts/a/first\tpassed\t'
    bad = [b'', b'\xff' * 100, good.replace('report 1', 'report 2'), good[:-8], good.replace('end 3', 'end 2'),
           good.replace('Windows 10.0.19045', 'Windows | <b>'), good.replace('abc1234', 'a b'),
           good.replace(row, f'{row}\n{row}').replace('end 3', 'end 4'), good.replace('passed', 'great', 1),
           good.replace('a/first', 'a/other'), good.replace('a/first', '../a`b'), good.replace(row, row + 'a\tb'),
           good.replace(row, row + 'x' * 1000), good.replace(row, row + '\u202e'), good.replace(row, row + '\x1b[2J'),
           good + 'more\n', good + ' ' * (1 << 20), text_of('Windows 10.0.19045', {})]
    before = reports.state()
    for text in bad:
        read = reports.read(text)
        expect(read.returncode == 1 and 'Nothing was changed.' in read.stderr and reports.state() == before,
               f'{text[:300]!r} gave {read}')


def page_is_made(*_):
    read = subprocess.run([ROOT / 'scripts' / 'read-windows-report', '--check'], capture_output=True, text=True,
                          check=False)
    expect(read.returncode == 0, read.stderr)


def main():
    parser = argparse.ArgumentParser(description='Tries the kit for Windows.')
    parser.add_argument('--linux', required=True, metavar='BUILD')
    parser.add_argument('--wine', action='store_true', help='the Windows programs are built, and Wine is there')
    parser.add_argument('--json', metavar='OUT')
    parser.add_argument('--filter', default='*', metavar='GLOB')
    parser.add_argument('-v', action='store_true')
    options = parser.parse_args()

    def run(_, action):
        with tempfile.TemporaryDirectory(prefix='tessel-windows-kit.') as name:
            folder = pathlib.Path(name)
            reports = None if action is runs_under_wine else Reports(folder)
            return world.fault_of(lambda: action(reports, folder, options))

    def lacking(name):
        if name != 'kit/under-wine' or (options.wine and shutil.which('wine')):
            return None
        return 'the Windows kit runs only where the Windows programs are tested'

    return world.run_rows([('kit/under-wine', runs_under_wine), ('report/merges', merges),
                           ('report/refuses', refuses), ('report/page', page_is_made)], options, lacking, run)


if __name__ == '__main__':
    sys.exit(main())
