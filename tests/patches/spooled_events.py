"""What a run reported: the events that it left, and its lines about them in the trace."""

import json
import pathlib
import re

import jsonschema

import world

_SCHEMA = pathlib.Path(__file__).resolve().parents[2] / 'docs' / 'event.schema.json'
_VALIDATOR = jsonschema.Draft7Validator(json.loads(_SCHEMA.read_text(encoding='utf-8')))
_NAME = re.compile(r'[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}')
# The event's text ends with a line feed of its own.
_TOOL_RAN = re.compile(r'tool_ran event data: \[\{.*\}')
_CRITICAL = re.compile(r'critical_issue_occurred event data: \[event_name: .*\]')
_RESULT = re.compile(r'(ToolRan|CriticalIssueOccurred)::Process result = \[(-?\d+)\]')

# What the product's reader knows the reasons by; others are their own decimal text.
_TOOL_RAN_REASONS = {
    1169: 'PatchTypeMismatchForExternal', 1629: 'PatchTypeMismatchForUpdate',
    6001: 'PatchDecryptionFailed', 87: 'PatchInvalidArguments', 3: 'PatchScriptFileNotFound',
    323: 'PatchIntegrityCheckFailed', 1006: 'PatchInvalidScriptFile', 13: 'PatchCorruptScriptFile',
    1636: 'PatchInvalidPatch', 1618: 'PatchAnotherInstanceRunning', 5: 'PatchUserNotSystem',
    1293: 'PatchCannotGetParent', 127: 'PatchInvalidParent', 0: 'success'}
_CRITICAL_REASONS = {
    1169: 'PatchTypeMismatchForExternal', 1629: 'PatchTypeMismatchForUpdate',
    2: 'PatchCatalogFileNotFound', 1643: 'PatchPackageRejected', 1006: 'PatchInvalidCatalogFile',
    323: 'PatchScriptFile.IntegrityCheckFailed', 13: 'PatchInvolvedFiles.IntegrityCheckFailed',
    5: 'PatchUserNotSystem', 1293: 'PatchCannotGetParent', 1618: 'PatchAnotherInstanceRunning',
    127: 'PatchInvalidParent', 1637: 'PatchDeleted'}


class BrokenEvent(world.Fault):
    """What is wrong with a file of the spool."""


def load(folder):
    """The events of a spool folder, each as its `fields`, the oldest first."""
    events = []
    for path in sorted(folder.iterdir()) if folder.is_dir() else []:
        if path.suffix == '.tmp':
            continue
        if not _NAME.fullmatch(path.name):
            raise BrokenEvent(f'{path.name} is no name for an event')
        text = path.read_text(encoding='utf-8')
        try:
            document = json.loads(text)
        except ValueError as fault:
            raise BrokenEvent(f'{path.name}: {fault}: {text!r}') from None
        if text.count('\n') != 1 or not text.endswith('\n'):
            raise BrokenEvent(f'{path.name} is not one line: {text!r}')
        for fault in _VALIDATOR.iter_errors(document):
            raise BrokenEvent(f'{path.name}: {fault.message}: {text}')
        events.append(document['data']['fields'])
    return sorted(events, key=lambda event: (event['event_time'], event['event_name']))


def tell(event):
    """An event in a line: its name, code and reason."""
    if event['event_name'] == 'm_tool_ran':
        return f'{event["event_name"]} {event["exit_code"]} {event["exit_reason"]}'
    return f'{event["event_name"]} {event["error_code"]} {event["error"]}'


def expected(exit_code, critical=None, reason=None):
    """The events, as tell() has them, of a run with this end, after a critical issue or none.
    `reason` stands in for the name of the end's reason."""
    reason = reason or _TOOL_RAN_REASONS.get(exit_code, exit_code)
    issues = [] if critical is None else [
        f'm_critical_issue_occurred {critical} {_CRITICAL_REASONS[critical]}']
    return [*issues, f'm_tool_ran {exit_code} {reason}']


def status_of(event):
    """What the trace says of an event that reached the spool."""
    kind = 'ToolRan' if event['event_name'] == 'm_tool_ran' else 'CriticalIssueOccurred'
    return f'{kind} 0'


def part(trace):
    """Takes the lines about reports out of a trace. Returns the other lines and the statuses that
    the spool gave, as texts like 'ToolRan 0'."""
    rest = []
    statuses = []
    lines = iter(trace)
    for line in lines:
        result = _RESULT.fullmatch(line)
        if _TOOL_RAN.fullmatch(line):
            closing = next(lines, None)
            if closing not in ('~]', ']'):  # a stream's lines have no stamps
                rest += [line, closing]
        elif result:
            statuses.append(f'{result[1]} {result[2]}')
        elif not _CRITICAL.fullmatch(line):
            rest.append(line)
    return rest, statuses
