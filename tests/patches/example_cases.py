"""The examples of the language's reference: the scripts in docs/examples, run as they are.

What each should do stands in examples.txt. The files that a patch brings along, for the scripts that
look for some, are those in docs/examples/files.
"""

import pathlib
import re
import shutil

import expectations

HERE = pathlib.Path(__file__).resolve().parent
EXAMPLES = HERE.parents[1] / 'docs' / 'examples'
_ENTRY = re.compile(r'(args|differs|exit|stdout|stderr): ')


def _bring_files_along(patch):
    for file in (EXAMPLES / 'files').iterdir():
        shutil.copy(file, patch.parent)


def all_cases():
    rows = (HERE / 'examples.txt').read_text(encoding='utf-8').replace(' |\n  ', ' | ').splitlines()
    expected = dict(row.split(': ', 1) for row in rows if not row.startswith('#'))
    scripts = {path.stem: path for path in EXAMPLES.glob('*.xml')}
    if expected.keys() != scripts.keys():
        raise ValueError('examples.txt and docs/examples differ in '
                         f'{sorted(expected.keys() ^ scripts.keys())}')
    for name, row in expected.items():
        items = row.split(' | ')
        entries = [item for item in items if _ENTRY.match(item)]
        trace = [f'  {item}' for item in items if not _ENTRY.match(item)]
        text = '\n'.join(['exit: 0', *entries, 'trace some:', *trace])
        yield expectations.Case(f'examples/{name}', expectations.parse(text, name),
                                script=scripts[name].read_bytes(), prepare=_bring_files_along)
