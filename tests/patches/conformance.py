#!/usr/bin/env python3
"""Makes the table that says, command by command and end by end, what each home does, of the
results that run.py and gates.py left.

    conformance.py --patches JSON --gates JSON --language MD --table OUT [--published MD]
                   [--json OUT]

What stands in the table was seen in runs whose expectations held: a command's outcomes are read from
the traces, and an end from its messages, exit code and events. It fails when a command of the
language's reference or a failure that it documents was not seen at all, and isn't listed in
unproved.txt; when a failure was seen that it doesn't document; when a rule of rules.txt doesn't show
in the run that it names; when two homes differ and no case gives the reason; and when the published
table is another one.
"""

import argparse
import collections
import difflib
import json
import pathlib
import re
import sys

import expectations
import outcomes

HERE = pathlib.Path(__file__).resolve().parent
HOMES = {'linux': 'Linux', 'windows': 'Windows'}
# Each end, when it comes, and the message by which it is known. An exit code of the script's makes
# the last one.
ENDS = (
    ('E1', 'the command line is refused', 'Could not (parse|validate) input parameters.'),
    ('E2', 'there is no such patch', 'Patch not found.'),
    ('E3', "the patch can't be read, or is empty", 'Failed to load the patch. Error: .*'),
    ('E4', "the patch can't be decrypted", 'Failed to decrypt the patch.'),
    ('E5', 'another instance runs', 'Execution of another patch is in progress, .*'),
    ('E6', 'elsewhere, and not of type `external`', 'Patch type for external patches is invalid.'),
    ('E7', "the catalog doesn't vouch for the files", 'Integrity check failed. Reason: .*'),
    ('E8', 'in a trusted place, and not of type `update`',
     'Patch type for update patches is invalid.'),
    ('E9', 'an update patch, started by somebody else',
     'Update patch is not executed with correct permissions.'),
    ('E10', "the script isn't XML", 'Failed to load patch.'),
    ('E11', 'the script is refused, or has expired',
     'Failed to load patch.|Patch is no longer valid.'),
    ('E12', 'the script ran', ''),
)
_SHOWN_DIFFERENCES = 40
CORRUPT = 13  # of the two ends with one message


def end_of(run):
    """The row of the table of ends that a run goes into - the end, and what it left - or None."""
    ran = [event.split() for event in run['events'] if event.startswith('m_tool_ran ')]
    if len(ran) != 1:
        return None
    code = int(ran[0][1])
    if code <= 0:
        return 'E12', "the script's code, made negative", '`m_tool_ran` with the exit code'
    words = run['stderr'][-1] if run['stderr'] else ''
    for name, _, pattern in ENDS[:-1]:
        if re.fullmatch(pattern, words) and (name != 'E10' or code == CORRUPT):
            # Where several runs share a spool, an earlier issue is another's.
            return name, str(code), ', '.join(f'`{event}`' for event in run['events'][-2:])
    return None  # its messages went elsewhere


def documented(language):
    """The commands of the reference, each with its outcomes: outcome to meaning. Other failures
    than those that are listed have None as theirs, where there may be some."""
    commands = {}
    command = None
    for line in language.read_text(encoding='utf-8').splitlines():
        heading = re.fullmatch(r'### (\w+)', line)
        row = re.fullmatch(r'\| (?:`(.+)`|other) \| (.*) \|', line)
        if heading:
            command = commands.setdefault(heading[1], {})
            is_failure = False
        elif command is None:
            continue
        elif line.startswith('A condition, '):
            command.update({'True': '', 'False': ''})
        elif line.startswith('Handlers:'):
            command['success'] = ''
        elif '| **required**' in line:
            command[outcomes.REFUSED] = ''
        elif line == '| Failure | Cause |':
            is_failure = True
        elif not line.startswith('|'):
            is_failure = False
        elif row and is_failure:
            command[f"error '{row[1]}'" if row[1] else None] = row[2]
    return commands


def sections(name, fields):
    """A file's rows, as lists of so many fields, each behind the command of its section."""
    command = None
    for line in (HERE / name).read_text(encoding='utf-8').splitlines():
        if line.startswith('['):
            command = line.strip('[]')
        elif line and not line.startswith('#'):
            row = [part.strip() for part in line.split(' | ', fields - 1)]
            if len(row) != fields:
                raise ValueError(f'{name}: not a row: {line!r}')
            yield command, *row


class Table:
    """What was seen, row by row."""

    def __init__(self, patches, gates, commands):
        self.commands = commands
        self.reasons = {**patches['reasons'], **gates['reasons']}
        self.runs = {(run['case'], run['home']): run for run in patches['runs']}
        self.faults = []
        self.seen = collections.defaultdict(dict)  # (command, outcome) to home to cases
        self.ends = collections.defaultdict(dict)  # row to home to cases
        for run in patches['runs']:
            for outcome in run['outcomes']:
                self.note(self.seen, tuple(outcome), run)
        for run in [*patches['runs'], *gates['runs']]:
            row = end_of(run)
            if row:
                self.note(self.ends, row, run)

    @staticmethod
    def note(table, row, run):
        table[row].setdefault(run['home'], set()).add(run['case'])

    def cells(self, row, homes):
        """The cells of a row for each home, why they differ, and the case that proves it."""
        def is_better(case):
            return case.startswith('examples/'), case
        common = set.intersection(*(homes.get(home, set()) for home in HOMES))
        best = [min(common or set.union(*homes.values()), key=is_better)]
        missing = [home for home in HOMES if home not in homes]
        why = ''
        if missing:
            known = [case for case in sorted(set.union(*homes.values()), key=is_better)
                     if case in self.reasons]
            if known:
                best, why = known[:1], self.reasons[known[0]]
            else:
                self.faults.append(f'{row}: only in {sorted(homes)}, by {best[0]}, which gives no '
                                   'reason')
        return [*('yes' if home in homes else '-' for home in HOMES), why, f'`{best[0]}`']

    def command_rows(self, command):
        failures = self.commands[command]
        unproved = {outcome: why for name, outcome, why in sections('unproved.txt', 2)
                    if name == command}
        seen = {outcome: homes for (name, outcome), homes in self.seen.items() if name == command}
        if not seen:
            self.faults.append(f'{command}: no case runs it')
        for outcome in sorted({*seen, *filter(None, failures), *unproved}, key=_order):
            is_failure = outcome.startswith('error')
            meaning = failures.get(outcome, failures.get(None, '') if is_failure else '')
            if outcome in seen:
                if is_failure and not meaning:
                    self.faults.append(f'{command}: {outcome} is documented nowhere')
                if outcome in unproved:
                    self.faults.append(f'{command}: {outcome} is proved, and still in unproved.txt')
                yield outcome, meaning, *self.cells((command, outcome), seen[outcome])
            elif outcome in unproved:
                yield outcome, meaning, 'not run', 'not run', unproved[outcome], ''
            else:
                self.faults.append(f'{command}: no case gives {outcome}')
        for name, rule, case, pattern in sections('rules.txt', 3):
            if name == command:
                yield self.rule_row(command, rule, case, pattern)

    def rule_row(self, command, rule, case, pattern):
        homes = {}
        for home in HOMES:
            run = self.runs.get((case, home))
            if run and not expectations.lack(pattern.split(' & '), run['trace'], ''):
                homes[home] = {case}
            elif run:
                self.faults.append(f'{command}: {case} on {home} has no {pattern!r}, which should '
                                   f'show: {rule}')
        if not homes:
            self.faults.append(f'{command}: no run of {case} shows: {rule}')
            return 'rule', rule, '-', '-', f'no run of {case}', ''
        return 'rule', rule, *self.cells((command, rule), homes)

    def lines(self):
        yield from _INTRODUCTION
        for command in self.commands:
            yield from ('', f'### {command}', '',
                        '| Outcome | Meaning | Linux | Windows | Why they differ | Case |',
                        '|---|---|---|---|---|---|')
            for outcome, *rest in self.command_rows(command):
                shown = re.sub("^error '(.*)'$", r'error `\1`', outcome)
                yield _row(shown, *rest)
        yield from ('', '## Ends', '',
                    '| End | When | Exit code | Events | Linux | Windows | Why they differ | Case |',
                    '|---|---|---|---|---|---|---|---|')
        for name, when, _ in ENDS:
            rows = sorted((row for row in self.ends if row[0] == name), key=str)
            if not rows:
                self.faults.append(f'{name}: no run ends so')
            for row in rows:
                yield _row(name, when, *row[1:], *self.cells(row, self.ends[row]))


def _order(outcome):
    number = re.fullmatch(r"error '(-?\d+)'", outcome)
    return (outcome == outcomes.REFUSED, outcome.startswith('error'),
            int(number[1]) if number else -1, outcome)


def _row(*cells):
    return '| ' + ' | '.join(cell.replace('|', '\\|') for cell in cells) + ' |'


_INTRODUCTION = """# What each home does

Each row was seen in runs of the test suite whose expectations held, on Linux and, for Windows, under
Wine. Where a row is not seen in one home, or not run in either, it says why. A **rule** is a
behaviour beyond the outcome itself, and shows in the trace of the case that is named. The cases are
those of tests/patches.

`scripts/test` makes this page anew as build/test-results/conformance.md, and says so when the two
differ; after a look at the differences, that file is copied here.

## Commands""".splitlines()


def judge(table, options):
    """Writes the table; returns the counts of rows and faults."""
    text = '\n'.join(table.lines()) + '\n'
    options.table.write_text(text, encoding='utf-8')
    failures = table.faults
    published = options.published
    if published:
        old = published.read_text(encoding='utf-8') if published.is_file() else ''
        differences = [line for line in difflib.ndiff(old.splitlines(), text.splitlines())
                       if line[0] in '-+']
        if differences:
            failures.append('\n    '.join((
                f'{published} is not what the tests have seen: look at the differences, and copy '
                f'{options.table} there', *differences[:_SHOWN_DIFFERENCES])))
    return {'passed': len(table.seen) + len(table.ends), 'failed': len(failures), 'skipped': 0,
            'failures': failures}


def main():
    parser = argparse.ArgumentParser(description='Makes the table of what each home does.')
    for name in ('patches', 'gates', 'language', 'table'):
        parser.add_argument(f'--{name}', required=True, type=pathlib.Path)
    parser.add_argument('--published', type=pathlib.Path)
    parser.add_argument('--json', type=pathlib.Path)
    options = parser.parse_args()
    patches, gates = (json.loads(path.read_text(encoding='utf-8'))
                      for path in (options.patches, options.gates))
    # What failed, or needs root, would be missing.
    if patches['failed'] or gates['failed'] or gates['skipped']:
        summary = {'passed': 0, 'failed': 0, 'skipped': 1, 'failures': []}
    else:
        table = Table(patches, gates, documented(options.language))
        summary = judge(table, options)
    for failure in summary['failures']:
        print(f'FAILED  {failure}')
    if options.json:
        options.json.write_text(json.dumps(summary, indent=1) + '\n', encoding='utf-8')
    print('{passed} passed, {failed} failed, {skipped} skipped'.format(**summary))
    return 1 if summary['failed'] else 0


if __name__ == '__main__':
    sys.exit(main())
