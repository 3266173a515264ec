"""What a case expects of a run, as text.

Cases stand in <family>.cases, see script_cases.py, and with the same text in the tables of
container_cases.py and load_cases.py. In scripts these placeholders are filled in:

    @NOW@           the time in seconds since 1970; @NOW-100d@ and @NOW+2h@ are that many days or
                    hours before or after it (also m and s)
    @DIR@           the case's own new folder, as Z:\\...; @PATCH@ the patch in it
    @HTTP@          the address of a web server, see http_files.py

The expectations are lines. A line that begins with '#' is a comment, and an empty line has no
meaning. The others are 'key: value', or 'key:' followed by lines indented by two blanks; a value may
be the first of several lines.

    args: ARGUMENTS         the command line, split as a shell does, without expansion;
                            '/encfile @PATCH@' when there is no such line. @HOSTPATCH@ is the patch
                            as the host names it.
    make:                   what to put into the case's folder before the run, see trees.py
    libraries:              run a copy of the program, in 'product\\bin' in the case's folder, with
                            libraries that the tests build around it, a line each: the path from
                            the program's folder, a blank, and which one
    env: NAME=VALUE         one more environment variable; may be repeated
    script: PATH            the script, from the source folder, of a case that has none of its own
    only: PLATFORM - REASON run the case on this platform only: linux or windows
    differs: REASON         the traces of the two platforms are not compared with each other
    exit: CODE              the exit code as a signed 32-bit number; 0 when there is no such line
    trace PART:             the lines of that part of the trace, each one and in this order:
                                all     the whole trace
                                load    from behind 'Prepare' to 'Execute' or the end, without the
                                        question whether the patch lies in a trusted location
                                run     from behind 'Execute' to 'End execution'
                                end     from behind 'End execution'
                                some    the whole trace, but other lines may stand between these
    stdout: / stderr:       the stream's lines, each one; no lines when there is no such key
    tree PATH:              what a folder in the case's folder holds, see trees.py
    hive FILE KEY:          on Linux, what hivexget tells of a key of a hive file below
                            Windows\\System32\\config: a line for each value
    file PATH:              a text file's lines, with line ends of either kind
    bytes PATH: 'BYTES'     a file's bytes, as Python writes them, in one text or several

A trace line '@NOWHERE@' stands for those that tell that the patch lies in no trusted location. ' | '
splits what stands in one line of make, tree, file, hive, a trace or a stream.

In all expected lines '*' stands for any characters, and '[*]' for itself. In the output the case's
folder appears as @DIR@, the program as @PROGRAM@, the program's folder as @BIN@, and a pointer
(%p) as @P@, unless it is a root of the registry. Trace lines stand without their time stamps; a
line that has none, because the one before it held a line feed, is written with a '~' in front. In
stdout, stderr and files a '~' alone is an empty line.
"""

import ast
import dataclasses
import re
import shlex

TRACE_PARTS = ('all', 'load', 'run', 'end', 'some')
PLATFORMS = ('linux', 'windows')
_SPLIT = ('file', 'hive', 'make', 'stderr', 'stdout', 'trace', 'tree')


@dataclasses.dataclass
class Expectations:
    arguments: list = dataclasses.field(default_factory=lambda: ['/encfile', '@PATCH@'])
    make: list = dataclasses.field(default_factory=list)
    libraries: list = None
    script: list = None
    each: list = dataclasses.field(default_factory=list)
    environment: dict = dataclasses.field(default_factory=dict)
    only: str = None
    only_reason: str = None
    differs: str = None
    exit_code: int = None
    traces: list = dataclasses.field(default_factory=list)  # of (part, lines)
    stdout: list = dataclasses.field(default_factory=list)
    stderr: list = dataclasses.field(default_factory=list)
    trees: list = dataclasses.field(default_factory=list)  # of (path, lines)
    files: list = dataclasses.field(default_factory=list)  # of (path, lines or bytes)
    hives: list = dataclasses.field(default_factory=list)  # of (file, key, lines)


@dataclasses.dataclass
class Case:
    """One case. Its patch is what `script` packs to, and what `prepare`, given the patch's path,
    makes of it or in its place."""
    name: str  # family/name
    expectations: Expectations
    script: bytes = None
    prepare: object = None
    examine: object = None  # given the case's folder after a run, gives what is wrong in it
    is_strangers: bool = False  # packed with a key that is not the program's

    patch_name = 'patch.tlx'

    def __post_init__(self):
        # It names a folder, on both platforms and on cmd's command line.
        if not re.fullmatch(r'[\w-]+/[\w.-]+', self.name):
            raise ValueError(f'{self.name!r} is no name for a case')


def split(lines):
    """The lines that stand in fewer, with what '@NOWHERE@' stands for."""
    for line in lines:
        for part in line.split(' | '):
            stamp = part.removesuffix('@NOWHERE@')
            yield from [part] if stamp == part else (stamp + told for told in _NOWHERE)


def _add(expectations, key, value, lines):
    """Takes one entry; returns what is wrong with it, or None."""
    word, _, rest = key.partition(' ')
    if value:
        lines = [value, *lines]
    if word in _SPLIT:
        lines = list(split(lines))
    if word in ('stdout', 'stderr', 'file'):
        lines = ['' if line == '~' else line for line in lines]
    if key == 'args':
        expectations.arguments = shlex.split(' '.join(lines))
    elif key == 'env':
        name, _, text = value.partition('=')
        expectations.environment[name] = text
    elif key == 'only':
        expectations.only, dash, expectations.only_reason = value.partition(' - ')
        if expectations.only not in PLATFORMS or not dash:
            return 'only needs a platform and a reason'
    elif key == 'exit':
        expectations.exit_code = int(value)
    elif key == 'differs':
        expectations.differs = value
    elif key in ('each', 'libraries', 'make', 'script', 'stdout', 'stderr'):
        setattr(expectations, key, lines)
    elif word == 'trace' and rest in TRACE_PARTS:
        expectations.traces.append((rest, lines))
    elif word == 'tree':
        expectations.trees.append((rest, lines))
    elif word == 'hive':
        expectations.hives.append((*rest.split(' ', 1), lines))
    elif word == 'file':
        expectations.files.append((rest, lines))
    elif word == 'bytes':
        expectations.files.append((rest, ast.literal_eval('b' + ' b'.join(lines))))
    else:
        return f'there is no key {key!r}'
    return None


def parse(text, source):
    """The Expectations in `text`; raises ValueError with `source` and the line of a fault."""
    expectations = Expectations()
    lines = text.split('\n')
    at = 0
    while at < len(lines):
        line, number = lines[at], at + 1
        at += 1
        if not line.strip() or line.startswith('#'):
            continue
        match = re.fullmatch(r'([a-z]+(?: .+?)?):(?: (.*))?', line)
        if not match:
            raise ValueError(f'{source}:{number}: not an entry: {line!r}')
        body = []
        while at < len(lines) and (lines[at].startswith('  ') or not lines[at].strip()):
            if lines[at].strip():
                body.append(lines[at][2:])
            at += 1
        fault = _add(expectations, match[1], match[2] or '', body)
        if fault:
            raise ValueError(f'{source}:{number}: {fault}')
    return expectations


def case(family, name, text, **how):
    """A table's case, by a name made of what describes it."""
    name = re.sub(r'[^\w.-]+', '-', name)[:60].strip('-.')
    return Case(f'{family}/{name}', parse(text, name), **how)


def regex_of(pattern):
    """What a line has to be for a pattern with wildcards."""
    parts = re.split(r'(\[\*\]|\*)', pattern)
    return re.compile(
        ''.join('.*' if part == '*' else re.escape('*' if part == '[*]' else part)
                for part in parts), re.DOTALL)


def _told(fault, lines):
    return '\n'.join([fault, '  it has:', *(f'    {line}' for line in lines)])


def differ(expected, actual, what):
    """What is wrong with `actual`, as text, when it must have exactly the expected lines."""
    if actual is None:
        return f'{what} is not there'
    for at, pattern in enumerate(expected):
        if at == len(actual):
            fault = f'line {at + 1} is missing: {pattern!r}'
            break
        if not regex_of(pattern).fullmatch(actual[at]):
            fault = f'line {at + 1} is {actual[at]!r}, not {pattern!r}'
            break
    else:
        if len(actual) == len(expected):
            return None
        fault = f'line {len(expected) + 1} is one too many: {actual[len(expected)]!r}'
    return _told(f'{what}: {fault}', actual)


def lack(expected, actual, what):
    """What is wrong with `actual`, as text, when it must have the expected lines in their order."""
    rest = iter(actual)
    for pattern in expected:
        regex = regex_of(pattern)
        if not any(regex.fullmatch(line) for line in rest):
            return _told(f'{what}: there is no {pattern!r} in its place', actual)
    return None


def part_of_trace(lines, part):
    """The lines of one part of a trace; None when the run did not get there."""
    if part in ('all', 'some'):
        return lines
    start, stop = {'load': ('Prepare', 'Execute'), 'run': ('Execute', 'End execution'),
                   'end': ('End execution', None)}[part]
    if start not in lines:
        return None
    lines = lines[lines.index(start) + 1:]
    if stop in lines:
        lines = lines[:lines.index(stop)]
    return without_location(lines) if part == 'load' else lines


# What the question where the patch lies leaves in the trace when the answer is 'nowhere special'.
_NOWHERE = ('install path: *', 'normalized file path: *', 'compare with: *', 'normalized: *',
            'compare with install path failed', 'QueryService for AmUpdateService returned *',
            'AmUpdateServicePath *', 'compare with: *', 'normalized: *',
            'compare with service path failed')


def without_location(lines):
    """The lines without the questions where the patch lies that were answered with 'nowhere'."""
    rest = []
    for line in lines:
        rest.append(line)
        if line == _NOWHERE[-1]:
            starts = [at for at, other in enumerate(rest) if other.startswith('install path: ')]
            del rest[starts[-1]:]
    return rest
