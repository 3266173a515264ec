"""The examples of the language's reference: the scripts in docs/examples, run as they are.

What each should do stands in examples/expected.txt: a section '[name]' for each script, with lines of
the trace, indented by two blanks, and then whatever other entries expectations.py knows. The files
that a patch brings along, for the scripts that look for some, are those in docs/examples/files.
"""

import pathlib
import re
import shutil

import expectations

HERE = pathlib.Path(__file__).resolve().parent
EXAMPLES = HERE.parents[1] / 'docs' / 'examples'
EXPECTED = HERE / 'examples' / 'expected.txt'


def _bring_files_along(patch):
    for file in (EXAMPLES / 'files').iterdir():
        shutil.copy(file, patch.parent)


def all_cases():
    sections = re.split(r'^\[(\w+)\]\n', EXPECTED.read_text(encoding='utf-8'), flags=re.M)[1:]
    expected = dict(zip(sections[::2], sections[1::2]))
    scripts = {path.stem: path for path in EXAMPLES.glob('*.xml')}
    if expected.keys() != scripts.keys():
        raise ValueError(f'{EXPECTED} and {EXAMPLES} differ in '
                         f'{sorted(expected.keys() ^ scripts.keys())}')
    for name, text in expected.items():
        wanted = expectations.parse(f'exit: 0\ntrace some:\n{text}', f'{EXPECTED} [{name}]')
        yield expectations.Case(f'examples/{name}', wanted, script=scripts[name].read_bytes(),
                                prepare=_bring_files_along)
