"""The cases in <family>.cases, whose scripts stand with what they leave in the trace.

A case begins with a line '== NAME'. Its entries are those of expectations.py, and the commands:

    each: COMMAND           what a row of values stands for, with {0}, {1} and so on in it
    script:
      COMMAND [=> RESULT] [=> VARIABLE=VALUE]...
      + TRACE
      | TRACE
      - VALUE ; VALUE ...

A command is a line of the script, or several, of which all but the last end without '>'. With its RESULT
('success', an error, 'True' or 'False', and for 'trace' its text) it leaves the lines that commands.txt gives for it, with
those behind '+' before its end and those behind '|' after it. One without a result leaves only the latter, where there are some. Each VARIABLE is traced, and
has the VALUE. A case without an exit code ends with a command that exits with 0.

When a case has an entry 'trace run' or 'trace some', the script is nothing but the script.
"""

import pathlib
import re
import xml.sax.saxutils

import expectations

HERE = pathlib.Path(__file__).resolve().parent
HEADER = """<?xml version="1.0" encoding="UTF-8"?>
<patch version="1.0"><header><property name="id" value="{name}"/>
<property name="patchType" value="external"/><property name="created" value="@NOW@"/></header>
"""
# A line about a variable, behind a command.
_VALUE = re.compile(r'[\w\[\]]+=')
_ENTITIES = {'&quot;': '"', '&apos;': "'", '&#10;': '\n~'}


def _commands():
    begins, ends, words = {}, {}, {}
    for line in (HERE / 'commands.txt').read_text(encoding='utf-8').splitlines():
        name, _, rest = line.partition(' ')
        if name == 'words':
            attribute, *pairs = rest.split()
            words[attribute] = dict(pair.rsplit('=', 1) for pair in pairs)
        elif name.endswith('/end'):
            ends[name.removesuffix('/end')] = rest
        elif name != '#':
            begins[name] = rest.replace(r'\n', '\n')
            if ' begin ' in rest:
                begin = rest.replace(' begin ', ' end   ').split('] [')
                ends[name] = f'{begin[0]}] [{begin[1].rstrip("]")}] [error = {{RESULT}}]'
    return begins, ends, words


_BEGINS, _ENDS, _WORDS = _commands()


def beginning(command):
    """What a command's first line in the trace begins with."""
    return _BEGINS[command].split('{')[0]


def _number(text):
    digits = re.match(r'\s*[+-]?\d+', text)
    return max(-1 << 31, min(int(digits[0]) if digits else 0, (1 << 31) - 1))


class _Trace:
    """The lines that a script leaves, command by command."""

    def __init__(self):
        self.lines = ['Start executing']
        self.variables = {'ProgramData': r'C:\ProgramData', 'enginedir': '@BIN@\\'}

    def add(self, command, result, own):
        start = re.match(r'<(\w+)((?:\s+\w+="[^"]*")*)', command)
        name = start[1]
        attributes = {key: xml.sax.saxutils.unescape(value, _ENTITIES)
                      for key, value in re.findall(r'(\w+)="([^"]*)"', start[2])}
        if name == 'trace' and result is not None:
            self.lines.append(f'Trace: {result}')
        elif result or not own['|']:
            begin = _BEGINS[name]
            if begin:
                self.lines += self._fill_in(begin, attributes).split('\n')
            self.lines += map(self.expand, own['+'])
            if result:
                self.lines.append(self._end(name, attributes, result))
        if name == 'assign' and '[' not in attributes['var']:
            self.variables[attributes['var']] = self.expand(attributes['value'].replace('*', '[*]'))
        self.lines += own['|']

    def expand(self, text):
        return re.sub(r'%(\w*)%', lambda match: self.variables.get(match[1], match[0])
                      if match[1] else '%', text)

    def _fill_in(self, line, attributes):
        def fill_in(match):
            name, kind, default = match.groups()
            value = attributes.get(name)
            if kind == '@':
                return _WORDS[name][value]
            if kind in ('?', '#') and value is None:
                return default
            if kind == '?':
                return '1' if value in ('true', '1') else '0'
            if kind == '#':
                return str(_number(value))
            if kind == '|' and not value:
                value = attributes[default]
            value = (value or '').replace('*', '[*]')
            if kind not in ('!', '^'):
                value = self.expand(value)
            if kind == '^':
                value = value.split('|', 1)[0]
            return value.rstrip('\\') + '\\' if kind == '/' else value
        return re.sub(r'\{([a-z]\w*)([!#?@/|^]?)(\w*)\}', fill_in, line)

    def _end(self, name, attributes, result):
        end, result = _ENDS.get(name, name), self.expand(result)
        if '{RESULT}' in end:
            result = '0' if result == 'success' else result
            return self._fill_in(end, attributes).replace('{RESULT}', result)
        if result in ('True', 'False'):
            return f'{end} function end with {result}.'
        if result == 'success':
            return f"{end} function end with success. err:''"
        return f"{end} function end with error. err:'{result}'"


def _is_whole(text):
    bare = re.sub(r'"[^"]*"|<!--.*?-->', '', text)
    return bare.rstrip().endswith('>') and len(re.findall(r'<\w', bare)) == len(re.findall(r'/>|</', bare)) \
        or not bare.strip()


def _statements(lines):
    """Each command with its result, the variables to look at, and its own lines of the trace: those
    before its end, and those behind it."""
    lines = [line.strip() for line in lines]
    at = 0
    while at < len(lines):
        text, told = '', []
        while not text or not _is_whole(text):
            more, *told = lines[at].split(' => ')
            text += more.rstrip() + '\n'
            at += 1
        own = {'+': [], '|': [], '=': []}
        while at < len(lines) and lines[at][0] in own:
            own[lines[at][0]] += expectations.split([lines[at][2:].strip()])
            at += 1
        told += own['=']
        variables = [item.split('=', 1) for item in told if _VALUE.match(item)]
        results = [item for item in told if not _VALUE.match(item)]
        yield text, results[0] if results else None, variables, own


def _body(lines):
    """The script's text, and the lines that it leaves."""
    text = []
    trace = _Trace()
    for command, result, variables, own in _statements(lines):
        text.append(command)
        if not command.startswith('<!--'):
            trace.add(command, result, own)
        for name, value in variables:
            text.append(f'<trace value="{name}=%{name}%"/>')
            trace.variables[name] = trace.expand(value)
            trace.lines.append(f'Trace: {name}={trace.variables[name]}')
    return text, trace.lines


def _filled_in(row, each):
    """The lines that a line of a script stands for."""
    if not row.startswith('- '):
        return [row]
    lines = []
    for part in row[1:].split(' | '):
        cells = [cell.strip() for cell in f'{part} '.split(' ; ')]
        lines += [re.sub(r'\{(\d)\}', lambda match, cells=cells: cells[int(match[1])], line)
                  for line in each]
    return lines


def case(name, text, source):
    wanted = expectations.parse(text, f'{source} {name}')
    commands = [line for row in wanted.script or [] for line in _filled_in(row, wanted.each)]
    if wanted.exit_code is None:
        wanted.exit_code = 0
        commands.append('<exit/>')
    if commands[0].endswith('.xml'):
        return expectations.Case(name, wanted, script=(HERE.parents[1] / commands[0]).read_bytes())
    if all(part == 'end' for part, _ in wanted.traces):
        commands, lines = _body(commands)
        wanted.traces.append(('run', lines))
    script = HEADER.format(name=name) + '<script>\n' + '\n'.join(commands) + '</script></patch>\n'
    return expectations.Case(name, wanted, script=script.encode())


def all_cases():
    for source in sorted(HERE.glob('*.cases')):
        parts = re.split(r'^== (.+)\n', source.read_text(encoding='utf-8'), flags=re.M)[1:]
        for name, text in zip(parts[::2], parts[1::2]):
            yield case(f'{source.stem}/{name}', text, source.name)
