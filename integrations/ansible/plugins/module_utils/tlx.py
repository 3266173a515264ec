# -*- coding: utf-8 -*-
# Copyright (c) 2026 Ambry Shield. All rights reserved. See LICENSE.
"""What the modules share: running tlx, machines, and kept change sets."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import hashlib
import json
import os
import re

COMMIT_FOLDER = '$TesselCommit'
SET_NAME = re.compile(r'(\d{4,})-[0-9a-f]{16}\Z')

EXECUTABLE = dict(type='str', default='tlx')
MACHINE = dict(type='path', required=True)


class Told:
    """What a run of tlx has printed; `document` is None when that was no JSON."""

    def __init__(self, exit_code, out, errors):
        self.exit_code = exit_code
        self.errors = [line for line in errors.splitlines() if line]
        try:
            self.document = json.loads(out)
        except ValueError:
            self.document = None

    def words(self):
        return ' '.join(self.errors) or 'tlx ended with %d and told nothing' % self.exit_code


class Tool:
    """tlx, for a machine."""

    def __init__(self, module):
        self.module = module
        self.machine = module.params['machine']
        program = module.params['executable']
        self.program = program if '/' in program else module.get_bin_path(
            program, required=True, opt_dirs=['/usr/local/bin', '/opt/tessel/bin'])

    def run(self, *words):
        ended = self.module.run_command([self.program] + [str(word) for word in words],
                                        handle_exceptions=True, errors='surrogateescape')
        return Told(*ended)

    def has_pending_commit(self):
        """Whether an apply or undo was interrupted there; what only reads leaves that as it is."""
        return os.path.lexists(os.path.join(self.machine, COMMIT_FOLDER))

    def check_machine(self):
        """As 'tlx machine check' tells it, which ends an interrupted apply or undo."""
        told = self.run('machine', 'check', self.machine, '--json')
        if told.document is None:
            self.module.fail_json(msg='The machine was not judged: ' + told.words(), outcome='failed')
        return told.document


def machine_results(check):
    """What modules return of a machine's check."""
    return dict(
        is_fit=check['isFit'], code=check['exitCode'], refusal=check['refusal'],
        warnings_of_machine=check['warnings'], interrupted=check['interrupted'],
        windows=check['windows'], volume=check['volume'], hives=check['hives'],
        pending_moves=check['pendingMoves'], install_folder=check['installFolder'])


def words_of_machine(check):
    """Why a machine isn't fit."""
    return '; '.join(([check['refusal']] if check['refusal'] else []) + check['warnings'])


def is_anything_changed(changes):
    """Whether a change set has more than what a run leaves of itself: its trace and its events."""
    return any(rows for name, rows in changes.items() if name != 'ownFiles')


def brief(changes):
    """The change set without the bytes: what, and where."""
    return dict(
        files=[dict((name, row[name]) for name in ('kind', 'what', 'path', 'movedFrom') if name in row)
               for row in changes['files']],
        keys=[dict(kind=row['kind'], path=row['path']) for row in changes['keys']],
        services=[dict(kind=row['kind'], name=row['name']) for row in changes['services']],
        at_next_boot=changes['atNextBoot'], not_at_next_boot=changes['notAtNextBoot'])


def _key_lines(keys, indent):
    for key in keys:
        yield '%s%-8s [%s]' % (indent, key['kind'], key['path'])
        for fact in key['facts']:
            yield '%s    %s' % (indent, fact)
        for value in key['values']:
            name = '"%s"' % value['name'] if value['name'] else '@'
            for sign, side in (('-', 'before'), ('+', 'after')):
                for number, line in enumerate(value[side]):
                    yield '%s%s%s %s' % (sign, indent, name + ':' if number == 0 else '   ', line)


def diff_text(changes):
    """The change set as lines of a diff."""
    lines = []
    for row in changes['files']:
        moved = ' from ' + row['movedFrom'] if 'movedFrom' in row else ''
        lines.append('%-8s %s (%s)%s' % (row['kind'], row['path'], row['what'], moved))
        lines += ['    ' + fact for fact in row['facts']]
        lines += row.get('diff', {}).get('lines', [])
    lines += _key_lines(changes['keys'], '')
    for service in changes['services']:
        lines.append('%-8s service %s' % (service['kind'], service['name']))
        lines += _key_lines(service['keys'], '  ')
    lines += ['+at the next boot: ' + one for one in changes['atNextBoot']]
    lines += ['-at the next boot: ' + one for one in changes['notAtNextBoot']]
    return '\n'.join(lines) + '\n' if lines else ''


def find_patch(place):
    """The file of a patch, or of the single one in a folder; None when there is none."""
    if os.path.isdir(place):
        found = [name for name in os.listdir(place) if name.lower().endswith('.tlx')]
        place = os.path.join(place, found[0]) if len(found) == 1 else ''
    return place if os.path.isfile(place) else None


def patch_digest(patch, variables):
    """Tells patches apart: by their bytes, those of the catalog, which lists all that comes with
    them, and the variables of the run."""
    digest = hashlib.sha256()
    for path in (patch, os.path.join(os.path.dirname(patch), 'patch.cat')):
        content = b''
        if os.path.isfile(path):
            with open(path, 'rb') as file:
                content = file.read()
        digest.update(hashlib.sha256(content).digest())
    digest.update(json.dumps(variables, sort_keys=True).encode('utf-8'))
    return digest.hexdigest()[:16]


class Sets:
    """The change sets of one machine, in a folder: 0001-..., 0002-..., in the order of the runs."""

    def __init__(self, folder):
        self.folder = folder

    def names(self):
        """Those that are kept there, the oldest first."""
        found = os.listdir(self.folder) if os.path.isdir(self.folder) else []
        return sorted((name for name in found if SET_NAME.match(name)),
                      key=lambda name: int(name.split('-')[0]))

    def path(self, name):
        return os.path.join(self.folder, name)

    def new_name(self, digest):
        names = self.names()
        return '%04d-%s' % (int(names[-1].split('-')[0]) + 1 if names else 1, digest)

    def state(self, name):
        """As the set's manifest has it: rehearsed, committed, undone."""
        with open(os.path.join(self.path(name), 'manifest.json'), 'rb') as file:
            return json.loads(file.read().decode('utf-8'))['state']
