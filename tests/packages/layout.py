#!/usr/bin/env python3
"""Looks at what an installation puts where: the manual, the completions in the shells themselves, the
files of both platforms, their versions and licences.

    layout.py --build BUILD [--windows BUILD] --json OUT [--filter GLOB] [-v]

Rows that need a shell, or a tool for the manual, are skipped where it isn't installed.
"""

import argparse
import os
import pathlib
import pty
import re
import select
import shutil
import struct
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / 'patches'))

import world  # pylint: disable=wrong-import-position
from world import expect  # pylint: disable=wrong-import-position

ROOT = pathlib.Path(__file__).resolve().parents[2]
WINE_DLLS = pathlib.Path('/usr/lib/x86_64-linux-gnu/wine/x86_64-windows')
OBJDUMP = 'x86_64-w64-mingw32-objdump'
# What is typed, and all that may stand next. The current folder has the file a.xml and the folder below.
LISTS = {
    'tlx catalog --form ': {'content', 'catalog'},
    'tlx machine ': {'create', 'show', 'check'},
    'tlx completion z': {'zsh'},
    'tlx graph ': {'a.xml', 'below', '--visited', '--out', '--help'},
    'tlx pack --in ': {'a.xml', 'below'},
    'tlx inspect a.xml --machine ': {'below'},
    'tlx rehearse --var key value --ht': {'--html'},
    'tlx rehearse --var one two --va': {'--var'},
    'tlx pack --force --fo': set(),
    'tessel /': {'/encfile', '/diagnostic', '/detach', '/skipInstanceCheck', '/var'},
    'tessel -encfile ': {'a.xml', 'below'},
    'tessel /var ': set(),
}
# What is typed into zsh, and what a tab makes of it.
TYPED = {'tlx mach': 'tlx machine ', 'tlx catalog --form con': 'tlx catalog --form content ',
         'tlx lint a': 'tlx lint a.xml ', 'tlx inspect --machine b': 'tlx inspect --machine below/',
         'tessel /enc': 'tessel /encfile '}


def output_of(*command, **how):
    run = subprocess.run(command, capture_output=True, text=True, check=False, **how)
    expect(run.returncode == 0, f'{command[0]} ended with {run.returncode}: {run.stderr}')
    return run.stdout


class Layout:
    """An installation of the native build, for all rows."""

    def __init__(self, options, folder):
        self.options = options
        self.prefix = self.install(options.build, folder / 'installed')
        self.windows = options.windows and self.install(options.windows, folder / 'installed.exe')
        self.path = {**os.environ, 'PATH': f'{self.prefix}/bin:{os.environ["PATH"]}', 'HOME': str(folder)}
        self.version = re.search(r'^project\(tessel VERSION ([\d.]+)', (ROOT / 'CMakeLists.txt').read_text(),
                                 re.MULTILINE)[1]
        help_text = self.tlx('--help')
        self.commands = re.findall(r'^  (\w+(?: \w+)?)  +\w', help_text, re.MULTILINE)

    @staticmethod
    def install(build, prefix):
        output_of('cmake', '--install', build, '--prefix', prefix)
        return prefix

    def tlx(self, *arguments, **how):
        return output_of(self.prefix / 'bin' / 'tlx', *arguments, **how)

    def options_of(self, command):
        return set(re.findall(r'^  (--\w[\w-]*)', self.tlx(*command.split(), '--help'), re.MULTILINE))


def check_pages(this, folder):
    pages = {path.name: path for path in sorted((this.prefix / 'share/man').rglob('*.[15]'))}
    wanted = {'tlx.1', 'tessel.1', 'tessel-script.5',
              *(f'tlx-{command.replace(" ", "-")}.1' for command in this.commands)}
    expect(set(pages) == wanted, f'missing or too many: {set(pages) ^ wanted}')
    for name, path in pages.items():
        lint = subprocess.run(['mandoc', '-T', 'lint', '-W', 'warning', path], capture_output=True, text=True,
                              check=False).stdout
        # A date would be another one in each build.
        faults = [line for line in lint.splitlines() if 'missing date' not in line]
        run = subprocess.run(['man', '--warnings', '-l', path], capture_output=True, text=True, check=False,
                             env={**this.path, 'MANWIDTH': '100', 'LC_ALL': 'C.UTF-8'})
        expect(not faults and not run.stderr, f'{name}: {faults} {run.stderr}')
        left = re.search(r'\\f[BIR]|\\\(..|\*\*|`|\]\(', run.stdout)
        expect(not left, f'{name} shows {left and left[0]}, which is markup')
    for command in this.commands:
        text = pages[f'tlx-{command.replace(" ", "-")}.1'].read_text().replace('\\-', '-')
        missing = [option for option in this.options_of(command) if f'\\fB{option}\\fR' not in text]
        expect(not missing, f'{command}: {missing}')
    language = re.findall(r'^### (\w+)', (ROOT / 'docs/language.md').read_text(), re.MULTILINE)
    shown = re.findall(r'^\.SS "(\w+)"', pages['tessel-script.5'].read_text(), re.MULTILINE)
    expect(shown == language, f'tessel-script(5) has {set(language) ^ set(shown)}')


def place_files(folder):
    (folder / 'a.xml').touch()
    (folder / 'below').mkdir()


def check_lists(this, folder, complete):
    """`complete` gives what a shell offers for a line."""
    place_files(folder)
    lists = {f'tlx {command} --': this.options_of(command) for command in this.commands}
    lists['tlx '] = {command.split()[0] for command in this.commands} | {'--help', '--version'}
    for line, wanted in {**LISTS, **lists}.items():
        found = {word.rstrip('/') for word in complete(line)}
        if line.endswith(' ') and '--help' not in wanted:
            # Options may stand anywhere; a list of values is what matters here.
            found = {word for word in found if not word.startswith('--')}
        expect(found == wanted, f'{line}: {sorted(found)} and not {sorted(wanted)}')


def check_bash(this, folder):
    def complete(line):
        words = line.split(' ')
        script = (f'source {this.prefix}/share/bash-completion/completions/{words[0]}\ncompopt() {{ :; }}\n'
                  'COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))\n'
                  'spec=($(complete -p "$1")); ${spec[-2]} "$1" "${COMP_WORDS[-1]}"\n'
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        return output_of('bash', '-c', script, 'bash', *words, env=this.path, cwd=folder).split()

    check_lists(this, folder, complete)


def check_fish(this, folder):
    def complete(line):
        program = line.split(' ')[0]
        script = f'source {this.prefix}/share/fish/vendor_completions.d/{program}.fish; complete -C $argv[1]'
        lines = output_of('fish', '--no-config', '-c', script, line, env=this.path, cwd=folder).splitlines()
        # It offers also what only resembles what was typed.
        return [word.split('\t')[0] for word in lines if word.startswith(line.split(' ')[-1])]

    check_lists(this, folder, complete)


def check_zsh(this, folder):
    place_files(folder)
    place = next((this.prefix / 'share/zsh').rglob('_tlx')).parent
    setup = (f'cd {folder}; fpath=({place} $fpath)\n'
             'autoload -Uz compinit; compinit -u -D\n'
             f'say() {{ print -r -- "$BUFFER|" >>{folder}/said; BUFFER= }}; zle -N say; bindkey "^X" say\n')
    (folder / '.zshrc').write_text(setup)
    child, terminal = pty.fork()
    if child == 0:
        os.execvpe('zsh', ['zsh', '-d', '-i'], {**this.path, 'ZDOTDIR': str(folder), 'TERM': 'dumb'})
    said = folder / 'said'
    try:
        for number, (line, wanted) in enumerate(TYPED.items(), 1):
            os.write(terminal, f'{line}\t\x18'.encode())
            deadline = time.monotonic() + world.TIME_LIMIT
            while not said.exists() or said.read_text().count('|\n') < number:
                expect(time.monotonic() < deadline, f'{line}: zsh says nothing')
                if select.select([terminal], [], [], 0.1)[0]:
                    os.read(terminal, 4096)
            found = said.read_text().split('|\n')[number - 1]
            expect(found.rstrip() == wanted.rstrip(), f'{line}: {found!r} and not {wanted!r}')
    finally:
        os.close(terminal)
        os.waitpid(child, 0)


def check_documents(prefix, documents):
    """No page leads nowhere, and nothing secret goes along."""
    for path in prefix.rglob('*'):
        expect(path.is_dir() or not re.search(rb'-----BEGIN [A-Z ]*PRIVATE KEY-----\n', path.read_bytes()),
               f'{path} holds a private key')
    for page in documents.rglob('*.md'):
        for target in re.findall(r'\]\(([^)#:]+)[^):]*\)', page.read_text(encoding='utf-8')):
            expect((page.parent / target).exists(), f'{page.name} leads to {target}, which isn\'t there')


def check_linux(this, _):
    expect(this.tlx('--version') == f'tlx {this.version}\n', 'tlx has another version than the project')
    check_documents(this.prefix, this.prefix / 'share/doc/tessel')
    schemas = {path.name for path in (this.prefix / 'share/tessel/schemas').iterdir()}
    collection = this.prefix / 'share/tessel/ansible'
    expect(f'\nversion: {this.version}\n' in (collection / 'galaxy.yml').read_text(encoding='utf-8')
           and not (collection / 'LICENSE').is_symlink(), 'the collection has another version, or no licence')
    wanted = {path.name for path in [*(ROOT / 'docs').glob('*.schema.json'), ROOT / 'docs/patch.xsd']}
    expect(schemas == wanted, f'schemas: {schemas ^ wanted}')


def file_version(program):
    """That of the fixed part of the version resource."""
    image = program.read_bytes()
    high, low = struct.unpack_from('<II', image, image.index(struct.pack('<I', 0xFEEF04BD)) + 8)
    return f'{high >> 16}.{high & 0xFFFF}.{low >> 16}'


def check_windows(this, _):
    check_documents(this.windows, this.windows)
    there = {path.name.lower() for path in this.windows.iterdir()}
    for program in (*this.windows.glob('*.exe'), *this.windows.glob('*.dll')):
        for name in re.findall(r'DLL Name: (\S+)', output_of(OBJDUMP, '-p', program)):
            # Wine's own stand for those of Windows.
            expect(name.lower() in there or (WINE_DLLS / name.lower()).exists(),
                   f'{program.name} needs {name}, which doesn\'t go along')
    for program in this.windows.glob('*.exe'):
        expect(file_version(program) == this.version, f'{program.name} has the version {file_version(program)}')
    output = output_of('wine', this.windows / 'tlx.exe', '--version')
    expect(output.strip() == f'tlx {this.version}', f'tlx.exe says {output}')


def check_licences(this, _):
    """Of all that is linked, as the linker tells it."""
    output_of(sys.executable, ROOT / 'scripts/lib/check_linked.py', '--list',
              ROOT / 'scripts/lib/windows-licences.txt', *this.options.windows.glob('maps/*.map'))
    listed = {line.split()[0] for line in (ROOT / 'scripts/lib/windows-licences.txt').read_text().splitlines()
              if not line.startswith('#')}
    folders = {path.name for path in (this.windows / 'licences').iterdir() if path.is_dir()}
    expect(listed == folders, f'licences: {listed ^ folders}')


# The row, what it needs, and what it does.
ROWS = {
    'manual': ('mandoc', check_pages),
    'completion/bash': ('bash', check_bash),
    'completion/zsh': ('zsh', check_zsh),
    'completion/fish': ('fish', check_fish),
    'linux': ('cmake', check_linux),
    'windows/files': (OBJDUMP, check_windows),
    'windows/licences': (OBJDUMP, check_licences),
}


def main():
    parser = argparse.ArgumentParser(description='Looks at what an installation puts where.')
    parser.add_argument('--build', type=pathlib.Path, required=True)
    parser.add_argument('--windows', type=pathlib.Path)
    parser.add_argument('--json')
    parser.add_argument('--filter', default='*')
    parser.add_argument('-v', action='store_true')
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix='tessel-layout.') as name:
        root = pathlib.Path(name).resolve()
        this = Layout(options, root)

        def run(row, action):
            folder = root / row.replace('/', '.')
            folder.mkdir()
            return world.fault_of(lambda: action(this, folder))

        def lacking(row):
            if row.startswith('windows/') and not options.windows:
                return 'there are no Windows programs'
            tool = ROWS[row][0]
            return None if shutil.which(tool) else f'there is no {tool}'

        return world.run_rows(((row, action) for row, (_, action) in ROWS.items()), options,
                              lacking, run)


if __name__ == '__main__':
    sys.exit(main())
