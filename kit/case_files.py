"""The plain files that the kit's program reads: a case's folder, and what its run should leave.

case.txt has an entry a line: a word, and behind a blank its text, in which '\\\\', '\\n' and '\\r' stand for a
backslash and the ends of lines. Placeholders and wildcards are those of expectations.py.

    key NAME                the key, own or stranger, to pack script.xml with; there may be none of both
    sign                    a catalog lists the patch and what files/ holds, where there are functions for it
    arg TEXT    env NAME=VALUE    library PLACE LIBRARY
    make KIND|PATH|TEXT     as in trees.py
    windows REASON          why the case isn't run under Wine
    exit CODE
    expect WHAT             and a line '= PATTERN' for each line of it: 'trace', 'some' (of the trace), 'stdout',
                            'stderr', 'events', 'tree PATH', 'file PATH', 'bytes PATH' (one, hexadecimal)
"""

import re

import expectations
import trees

# Who signed a patch is asked on a machine with the functions for it, and on no other. What tells of that, and
# of where the patch lies, is left out of traces before they are compared.
GATES = ('Cannot find dependency dll.', 'Cannot find cat operation functions!',
         'Old windows found, skip checks ...', 'Started from custom path...', '[InstanceVerif] *',
         'This is first instance running...', 'Current folder *', 'Protected folder for custom patch*',
         'Checking and copying patch files *', 'Checking file: *', 'Copying file to protected folder: *', 'CheckCatalog returned 0',
         'Cleaning up the patch files *')
_GATES = [expectations.regex_of(line) for line in GATES]
_COPIES = re.compile(r'C:\\Program Files\\Ambry Shield\\customPatches\\\d+-\d+', re.I)


def without_gates(lines):
    return [line for line in expectations.without_location(lines)
            if not any(gate.fullmatch(line) for gate in _GATES)]


def patterns(lines, wanted):
    """Patterns for lines that a run gave. One that a wanted pattern with wildcards stands for gets that one."""
    wild = [line for line in wanted if '*' in line.replace('[*]', '') and line.strip('* ')]
    return [next((line for line in wild if expectations.regex_of(line).fullmatch(actual)),
                 _COPIES.sub('*', actual.replace('*', '[*]'))) for actual in lines]


def fault_of(expected, actual):
    return expectations.differ(expected, actual, 'a run behind the gates')


def _escape(text):
    return text.replace('\\', '\\\\').replace('\n', '\\n').replace('\r', '\\r')


class CaseFile:
    """The text of a case.txt."""

    def __init__(self):
        self.lines = []

    def add(self, word, text=''):
        self.lines.append(f'{word} {_escape(str(text))}'.rstrip(' ') if word != '=' else f'= {_escape(text)}')

    def expect(self, what, lines):
        self.add('expect', what)
        for line in lines:
            self.add('=', line)

    def write(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        (folder / 'case.txt').write_text(''.join(f'{line}\n' for line in self.lines), encoding='utf-8',
                                         newline='\n')


def how_to_run(case, reason):
    """What starts the case's run. `reason` is why it isn't run under Wine."""
    file = CaseFile()
    wanted = case.expectations
    if reason:
        file.add('windows', reason)
    if case.script is not None:
        file.add('key', 'stranger' if case.is_strangers else 'own')
    file.add('sign')
    for argument in wanted.arguments:
        file.add('arg', argument)
    for name, value in wanted.environment.items():
        file.add('env', f'{name}={value}')
    if wanted.libraries is not None:
        file.add('copy')
        for line in wanted.libraries:
            file.add('library', line)
    for line in wanted.make:
        file.add('make', '|'.join([*trees.words_of(line), ''][:3]))
    return file


def what_to_expect(file, case, seen):
    """Adds what a run should leave: what it left on a machine with all the gates."""
    wanted = case.expectations
    told = [line for _, lines in wanted.traces for line in lines]
    file.add('exit', wanted.exit_code)
    some = [lines for part, lines in wanted.traces if part == 'some']
    if wanted.differs:
        for lines in some:
            file.expect('some', lines)
    else:
        file.expect('trace', patterns(without_gates(seen.trace), told))
    file.expect('stdout', patterns(without_gates(seen.stdout), wanted.stdout))
    file.expect('stderr', patterns(seen.stderr, wanted.stderr))
    file.expect('events', [event.replace('*', '[*]') for event in seen.events])
    for path, lines in wanted.trees:
        file.expect(f'tree {path}', sorted(lines))
    for path, lines in wanted.files:
        if isinstance(lines, bytes):
            file.expect(f'bytes {path}', [lines.hex()])
        else:
            file.expect(f'file {path}', lines)
