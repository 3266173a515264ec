"""Patches whose catalogs are made here, and are judged by Windows: by the product, and by its own tools."""

import fnmatch
import shutil
import subprocess
import types

import case_files
import gate_runs
import gates
import spooled_events
import world

# What a folder on Windows can't hold.
_NOT_THERE = ('*pipe*', '*device*', '*elsewhere', '*two-other-cases')
_ROWS = ('catalog/*', 'type/update', 'type/none', 'undecryptable/custom-*')
# What Wine can do, of this. It takes each signature that it can read for a good one, can't hash as catalogs do,
# and crashes when it is asked for a publisher's name.
_WINE = ('catalog/missing', 'catalog/empty', 'catalog/junk', 'type/*', 'undecryptable/*')
_TOLD = ('CheckCatalog returned *', 'PatchType did not match*', 'Error decrypting*')


class KitGates(gate_runs.Gates):
    def sign_as_it_is(self, folder):
        """Signs what there is; a folder that can't be signed stays without a catalog."""
        certificate, key = self.publisher
        subprocess.run([self.tlx, 'catalog', '--force', '--cert', certificate, '--key', key, '--chain',
                        self.root.certificate, '--dir', folder], check=False, capture_output=True)


def make(options, key, folder):
    return KitGates(types.SimpleNamespace(
        linux=options.linux / 'bin' / 'tessel', tlx=options.linux / 'bin' / 'tlx', key=key, windows=None,
        image=options.windows / 'bin' / 'tlx.exe'), folder)


class KitRun(gate_runs.Run):
    """A run on Linux whose patch folder is kept as it was."""

    kept = None
    told = None

    def foretell(self):
        return None

    def ended(self, *options, **how):
        shutil.copytree(self.place, self.kept / 'files' / 'patch')
        ended = super().ended(*options, **how)
        self.told = options, ended
        return ended


def _write(this):
    options, ended = this.told
    file = case_files.CaseFile()
    for argument in ('/encfile', f'@DIR@\\patch\\{this.patch.name}', *options):
        file.add('arg', argument)
    return file, ended


def _expect(file, ended):
    file.add('exit', next(event['exit_code'] for event in ended.events if 'exit_code' in event))
    file.expect('some', [line for line in ended.trace if any(
        case_files.expectations.regex_of(told).fullmatch(line) for told in _TOLD)])
    file.expect('stdout', ended.stdout)
    file.expect('stderr', ended.stderr)
    file.expect('events', [spooled_events.tell(event) for event in ended.events])


def _add_runs(kit):
    for name, action, *_ in (*gates.location_rows(), *gates.catalog_rows()):
        row = f'gates/{name}'
        if _matches(name, _NOT_THERE) or not _matches(name, _ROWS) or not kit.is_wanted(row):
            continue
        folder = kit.folder / row.replace('/', '.')
        folder.mkdir()
        this = KitRun(kit.gates, folder, kit.gates.machine)
        this.kept = kit.out / 'cases' / row
        fault = world.fault_of(lambda: action(this))  # pylint: disable=cell-var-from-loop
        file, ended = _write(this)
        if not _matches(name, _WINE):
            file.lines.insert(0, "windows Wine can't judge catalogs")
        _expect(file, ended)
        file.write(this.kept)
        kit.add(row, 'failed' if fault else 'passed', fault)
        shutil.rmtree(folder)


# Windows' own tools, by the row, the folder of gates/catalog that they look at, what they are asked, and what
# they should say; nothing is expected of what certutil says, which is in the user's language.
_CATALOG = "(Test-FileCatalog -CatalogFilePath '{0}\\patch.cat' -Path '{0}' -FilesToSkip patch.cat).ToString()"
_STATUS = "(Get-AuthenticodeSignature '{0}\\patch.cat').Status.ToString()"
_TOOLS = (
    ('Test-FileCatalog.as-signed', 'as-signed', _CATALOG, 'Valid'),
    ('Test-FileCatalog.byte-changed', 'payload-byte-changed', _CATALOG, 'ValidationFailed'),
    ('Test-FileCatalog.file-missing', 'payload-missing', _CATALOG, 'ValidationFailed'),
    ('Get-AuthenticodeSignature.as-signed', 'as-signed', _STATUS, 'Valid'),
    ('Get-AuthenticodeSignature.expired', 'expired', f"{_STATUS} -ne 'Valid'", 'True'),
    ('Get-AuthenticodeSignature.wrong-purpose', 'wrong-purpose', f"{_STATUS} -ne 'Valid'", 'True'),
    ('Get-AuthenticodeSignature.untrusted-root', 'untrusted-root', f"{_STATUS} -ne 'Valid'", 'True'),
    ('Get-AuthenticodeSignature.program', 'signed-but-no-catalog', None, 'Valid'),
    ('certutil.dump', 'as-signed', ('-dump', '@DIR@\\patch\\patch.cat'), None),
    ('certutil.verify', 'as-signed', ('-verify', '@DIR@\\publisher.pem'), None),
)
_PROGRAM = "Copy-Item '{0}\\patch.cat' '{0}\\x.exe'; (Get-AuthenticodeSignature '{0}\\x.exe').Status.ToString()"


def _add_tools(kit):
    for name, source, asked, answer in _TOOLS:
        row = f'tools/{name}'
        if not kit.is_wanted(row):
            continue
        place = kit.out / 'cases' / row
        made = kit.out / 'cases' / 'gates' / 'catalog' / source / 'files'
        shutil.copytree(made, place / 'files')
        shutil.copy2(kit.gates.publisher[0], place / 'files')
        file = case_files.CaseFile()
        file.add('windows', 'Wine has neither PowerShell nor certutil')
        file.add('program', 'certutil.exe' if answer is None else
                 'WindowsPowerShell\\v1.0\\powershell.exe')
        for argument in asked if answer is None else (
                '-NoProfile', '-NonInteractive', '-ExecutionPolicy', 'Bypass', '-Command',
                (asked or _PROGRAM).format('@DIR@\\patch')):
            file.add('arg', argument)
        file.add('exit', 0)
        if answer is not None:
            file.expect('stdout', [answer])
        file.write(place)
        kit.add(row, 'unseen')


def _matches(name, patterns):
    return any(fnmatch.fnmatchcase(name, pattern) for pattern in patterns)


def add_rows(kit):
    _add_runs(kit)
    _add_tools(kit)
