"""Hives that were made and changed here, for Windows to load."""

import pathlib

import agreement
import case_files
import world

HIVES = ('SOFTWARE', 'SYSTEM', 'SAM', 'SECURITY', 'DEFAULT')
KEY = 'TesselHive'  # below which the kit loads a hive
_CONFIG = pathlib.PurePath('Windows', 'System32', 'config')
# Name, type, what a script writes, how 'reg query' shows it, and what the hive has.
_VALUES = (
    ('text', 'REG_SZ', 'plain text', 'plain text', 'plain text\0'),
    ('expand', 'REG_EXPAND_SZ', '%%SystemRoot%%\\x', '%SystemRoot%\\x', '%SystemRoot%\\x\0'),
    ('number', 'REG_DWORD', '-2', '0xfffffffe', (0xfffffffe).to_bytes(4, 'little')),
    ('big', 'REG_QWORD', '81985529216486895', '0x123456789abcdef', (0x123456789abcdef).to_bytes(8, 'little')),
    ('list', 'REG_MULTI_SZ', 'a|b', 'a\\0b', 'a\0b\0\0'),
    ('bytes', 'REG_BINARY', '00ff7a', '00FF7A', b'\x00\xff\x7a'),
    ('long', 'REG_BINARY', '5a' * 20000, None, b'\x5a' * 20000),  # in several cells
    ('Größe 漢', 'REG_SZ', 'ß😀', None, 'ß😀\0'),
)
_NUMBERS = {'REG_SZ': 1, 'REG_EXPAND_SZ': 2, 'REG_BINARY': 3, 'REG_DWORD': 4, 'REG_MULTI_SZ': 7, 'REG_QWORD': 11}
_SUBKEYS = 1100  # more than one list of subkeys holds


def _script():
    where = 'root="HKEY_LOCAL_MACHINE" key="{}\\TesselWritten'
    for hive in ('SOFTWARE', 'SYSTEM'):
        key = where.format(hive)
        yield f'<regCreateKey {key}\\sub\\deep"/><regCreateKey {key}\\gone"/>'
        for name, kind, data, *_ in (*_VALUES, ('removed', 'REG_SZ', 'x')):
            yield f'<regWrite {key}" value="{name}" data="{data}" type="{kind}"/>'
        yield f'<regDeleteValue {key}" value="removed"/><regDeleteKey {key}\\gone"/>'
    for number in range(_SUBKEYS):
        yield f'<regCreateKey {where.format("SOFTWARE")}\\many\\{number:04}"/>'


def _data(value):
    return value if isinstance(value, bytes) else value.encode('utf-16-le')


def _faults_in(keys):
    """What an independent reader doesn't find as it was written."""
    values = keys.get('\\TesselWritten', keys.get('TesselWritten', {}))
    wanted = {name: (_NUMBERS[kind], _data(data).hex()) for name, kind, _, _, data in _VALUES}
    return '' if values == wanted else f'{values} is not {wanted}'


def _lines(keys):
    """A line for each key and value, which Windows should find the same."""
    for path, values in keys.items():
        path = path.strip('\\')
        yield f'{path}|'
        for name, (kind, data) in values.items():
            yield f'{path}|{name}|{kind}|{data}'


def add_rows(kit):
    machine = kit.folder / 'hives'
    kit.gates.make_machine(machine, ''.join(_script()))
    for hive in HIVES:
        content = (machine / _CONFIG / hive).read_bytes()
        keys = agreement.keys_in(content)
        is_changed = hive in ('SOFTWARE', 'SYSTEM')
        # The lists of the current control set are below a set's own number.
        fault = _faults_in(keys) if is_changed else '' if keys else 'it is empty'
        _add(kit, f'hives/{hive}', hive, content, fault, lambda file, keys=keys: file.expect(
            'hive', [line.replace('*', '[*]') for line in sorted(_lines(keys))]))
        if is_changed:
            _add(kit, f'hives/{hive}.reg-query', hive, content, None, _ask_reg)


def _add(kit, row, hive, content, fault, complete):
    if not kit.is_wanted(row):
        return
    place = kit.out / 'cases' / row
    (place / 'files').mkdir(parents=True)
    (place / 'files' / hive).write_bytes(content)
    file = case_files.CaseFile()
    file.add('windows', "Wine keeps its registry in another form")
    file.add('load', f'@DIR@\\{hive}')
    complete(file)
    file.write(place)
    kit.add(row, 'unseen' if fault is None else 'failed' if fault else 'passed', fault)


def _ask_reg(file):
    file.add('program', 'reg.exe')
    for argument in ('query', f'HKLM\\{KEY}\\TesselWritten'):
        file.add('arg', argument)
    file.add('exit', 0)
    shown = [f'    {name}    {kind}    {text}' for name, kind, _, text, _ in _VALUES if text]
    file.expect('some of stdout', shown)
