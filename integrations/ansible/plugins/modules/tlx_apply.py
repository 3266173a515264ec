# -*- coding: utf-8 -*-
# Copyright (c) 2026 Ambry Shield. All rights reserved. See LICENSE.
"""Applies a patch to a Windows volume that isn't running."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: tlx_apply
short_description: Apply a patch to a Windows volume that isn't running
version_added: 1.0.0
description:
  - Runs a patch on a machine, a folder that is a Windows system volume, by C(tlx apply).
    All that the run changes is committed when it ends with an accepted code, and nothing otherwise.
  - In check mode the patch is rehearsed by C(tlx rehearse) and the machine stays as it is.
    With C(--diff) the change set is shown, rehearsed or made.
  - The machine is judged first, by C(tlx machine check). One that a run would refuse, or on which it
    would be unwise, fails.
  - Where an earlier apply or undo was interrupted it is finished, or cleared away, before anything else.
    In check mode it is left and told.
  - RC(changed) is true when the change set has more than the run's own trace and events.
author: Ambry Shield
options:
  patch:
    description: The patch on the host, or the folder that holds it. Its catalog and all files that
      come with it lie beside it, since a patch is judged by where it lies.
    type: path
    required: true
  machine:
    description: The machine's folder on the host.
    type: path
    required: true
  accept:
    description: The exit codes with which the run is committed.
    type: list
    elements: int
    default: [0]
  variables:
    description: Variables of the script. They stand in traces and events, so they can't be secrets.
    type: dict
    default: {}
  answers:
    description: For check mode, what commands that reach beyond the machine fail with, by their names.
      All others count as done.
    type: dict
    default: {}
  undo_dir:
    description: A folder on the host in which the run's change set is kept for M(ambry_shield.tessel.tlx_undo).
      Each machine needs its own. It is made where it is missing. Without it there is no way back.
    type: path
  once:
    description: Don't run the patch when I(undo_dir) tells that it is applied, the same bytes with the
      same variables. So a play that was interrupted may be repeated with a patch that isn't made to run
      twice.
    type: bool
    default: false
  trace:
    description: A new file on the host for the trace of a run that isn't committed. It is returned as well.
    type: path
  allow_unwise:
    description: Go on where C(tlx machine check) only warns, as of a hive that wasn't written to its end.
    type: bool
    default: false
  max_seconds:
    description: End the run after so long.
    type: int
    default: 600
  max_megabytes:
    description: End it when it has written so much.
    type: int
    default: 4096
  max_processes:
    description: End it when it has started so many programs at once.
    type: int
    default: 64
  allow_copy:
    description: Allow that much of the machine is copied where the host has no overlay mounts.
    type: bool
    default: false
  executable:
    description: C(tlx), by its name or path.
    type: str
    default: tlx
seealso:
  - module: ambry_shield.tessel.tlx_undo
  - module: ambry_shield.tessel.tlx_machine_check
'''

EXAMPLES = r'''
- name: Apply a patch, with a way back
  ambry_shield.tessel.tlx_apply:
    patch: /srv/patches/fix-4711
    machine: /srv/machines/desk-17
    accept: [0, -3010]
    undo_dir: /srv/undo/fix-4711/desk-17
    once: true
'''

RETURN = r'''
outcome:
  description: >-
    C(committed); C(rehearsed) in check mode; C(already) as I(once) tells; C(pending) when an earlier
    commit waits to be ended, or this one was stopped on its way; C(unfit) for a machine that isn't to be
    serviced; C(refused) for a run that ended with a code that isn't accepted; C(failed) for anything else.
  type: str
  returned: always
code:
  description: The exit code of the run, or that with which a run would be refused.
  type: int
  returned: when a run ended, or the machine isn't fit
reason:
  description: The code in words, as the event of the run's end has it.
  type: str
  returned: when there was a run
events:
  description: The events of the run, as they are spooled.
  type: list
  elements: raw
  returned: when there was a run
changes:
  description: What was changed, or would be, without the bytes.
  type: dict
  returned: when there was a run
failures:
  description: The commands that failed.
  type: list
  elements: dict
  returned: when there was a run
beyond:
  description: Commands that may have done something beyond the machine, which no undo takes back.
  type: list
  elements: dict
  returned: when there was a run
would:
  description: What the run would do beyond the machine.
  type: list
  elements: dict
  returned: in check mode
set:
  description: The folder with the change set.
  type: str
  returned: when it was committed, with I(undo_dir)
trace_lines:
  description: The run's trace.
  type: list
  elements: str
  returned: when the run isn't accepted
interrupted:
  description: What became of an earlier apply or undo that was interrupted; empty for none.
  type: str
  returned: always
errors:
  description: What C(tlx) told on standard error.
  type: list
  elements: str
  returned: when there was a run
'''

import os
import shutil

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ambry_shield.tessel.plugins.module_utils.tlx import (
    EXECUTABLE, MACHINE, Sets, Tool, brief, diff_text, find_patch, is_anything_changed,
    patch_digest, words_of_machine)


class Apply:
    """One patch on one machine."""

    def __init__(self, module):
        self.module = module
        self.params = module.params
        self.patch = None
        self.tool = Tool(module)
        self.sets = Sets(module.params['undo_dir']) if module.params['undo_dir'] else None
        self.result = dict(changed=False, interrupted='', outcome='failed')

    def fail(self, words, **more):
        self.result.update(more)
        self.module.fail_json(msg=words, **self.result)

    def leave(self, words, **more):
        self.result.update(more)
        self.module.exit_json(msg=words, **self.result)

    def judge_machine(self):
        check = self.tool.check_machine()
        self.result['interrupted'] = check['interrupted']
        # What was finished now is a change of this task.
        self.result['changed'] = 'was finished' in check['interrupted']
        if check['refusal'] or (check['warnings'] and not self.params['allow_unwise']):
            self.fail(words_of_machine(check), outcome='unfit', code=check['exitCode'])

    def is_applied(self, digest):
        """Whether the latest set of this patch is on the machine."""
        for name in reversed(self.sets.names()):
            if not name.endswith('-' + digest):
                continue
            state = self.sets.state(name)
            if state == 'undone':
                continue
            told = self.tool.run('undo', self.sets.path(name), '--machine', self.tool.machine,
                                 '--dry-run', '--json')
            result = told.document['result'] if told.document else 'refused'
            if result == 'possible' or (result == 'conflicts' and state == 'committed'):
                return True
            if result not in ('neverCommitted', 'wasDone'):
                self.fail("Whether the set %s was committed can't be told: %s Look at it by 'tlx "
                          "changes', and remove it when the patch is to run again."
                          % (self.sets.path(name), told.words()))
        return False

    def words(self):
        words = [self.patch, '--machine', self.tool.machine, '--json']
        for name in ('max_seconds', 'max_megabytes', 'max_processes'):
            words += ['--' + name.replace('_', '-'), self.params[name]]
        for name, value in sorted(self.params['variables'].items()):
            words += ['--var', name, value]
        return words + (['--yes'] if self.params['allow_copy'] else [])

    def take(self, told):
        """What there is to return of a run; its document."""
        document = told.document
        if document is None:
            self.fail('Nothing was changed: ' + told.words(), errors=told.errors)
        self.result.update(
            code=document.get('exitCode'), reason=document.get('reason', document['end']),
            end=document['end'], events=document['events'], failures=document['failures'],
            changes=brief(document['changes']) if 'changes' in document else {}, errors=told.errors)
        if self.module._diff and 'changes' in document:
            self.result['diff'] = dict(prepared=diff_text(document['changes']))
        return document

    def refuse(self, document, told):
        code = document.get('exitCode')
        words = ('The run was cut short (%s)' % document['end'] if code is None or document['end'] != 'ended'
                 else 'The run ended with %d (%s), which isn\'t accepted' % (code, document['reason']))
        self.fail(words + '; nothing was changed. ' + ' '.join(told.errors), outcome='refused',
                  trace_lines=document['trace'].splitlines())

    def is_accepted(self, document):
        return document['end'] == 'ended' and document['exitCode'] in self.params['accept']

    def rehearse(self):
        answers = [word for name, error in sorted(self.params['answers'].items())
                   for word in ('--answer', '%s=%s' % (name, error))]
        told = self.tool.run('rehearse', *(self.words() + answers))
        document = self.take(told)
        self.result['would'] = document['would']
        if not self.is_accepted(document):
            self.refuse(document, told)
        if 'changes' not in document:
            self.fail('What the run would change could not be told. ' + told.words())
        self.leave('It would be committed.', outcome='rehearsed',
                   changed=is_anything_changed(document['changes']))

    def apply(self, digest):
        words = self.words() + ['--accept', ','.join(map(str, self.params['accept']))]
        kept = None
        if self.sets:
            os.makedirs(self.sets.folder, mode=0o700, exist_ok=True)
            kept = self.sets.path(self.sets.new_name(digest))
            words += ['--undo', kept]
        if self.params['trace']:
            words += ['--trace', self.params['trace']]
        told = self.tool.run('apply', *words)
        document = self.take(told)
        self.result['beyond'] = document['beyond']
        if document['commit'] == 'none':
            if kept:
                shutil.rmtree(kept, ignore_errors=True)
            if not self.is_accepted(document):
                self.refuse(document, told)
            self.fail('Nothing was changed. ' + told.words())
        if kept:
            self.result['set'] = kept
        self.result['changed'] = self.result['changed'] or is_anything_changed(document['changes'])
        if document['commit'] == 'begun':
            self.fail(told.words(), outcome='pending', changed=True)
        self.leave('Committed.', outcome='committed')

    def run(self):
        if self.module.check_mode and self.tool.has_pending_commit():
            self.leave("An earlier apply or undo was interrupted. It is ended before a run, and no "
                       "rehearsal tells what comes then.", outcome='pending', changed=True)
        self.judge_machine()
        self.patch = find_patch(self.params['patch'])
        if self.patch is None:
            self.fail('There is no patch at %s on the host, or there are several.' % self.params['patch'])
        digest = patch_digest(self.patch, self.params['variables'])
        if self.params['once'] and self.is_applied(digest):
            self.leave('It is applied already.', outcome='already')
        if self.module.check_mode:
            self.rehearse()
        self.apply(digest)


def main():
    module = AnsibleModule(
        argument_spec=dict(
            patch=dict(type='path', required=True),
            machine=MACHINE,
            accept=dict(type='list', elements='int', default=[0]),
            variables=dict(type='dict', default={}),
            answers=dict(type='dict', default={}),
            undo_dir=dict(type='path'),
            once=dict(type='bool', default=False),
            trace=dict(type='path'),
            allow_unwise=dict(type='bool', default=False),
            max_seconds=dict(type='int', default=600),
            max_megabytes=dict(type='int', default=4096),
            max_processes=dict(type='int', default=64),
            allow_copy=dict(type='bool', default=False),
            executable=EXECUTABLE,
        ),
        required_if=[('once', True, ('undo_dir',))],
        supports_check_mode=True,
    )
    try:
        Apply(module).run()
    except (OSError, ValueError, KeyError) as fault:
        module.fail_json(msg='%s: %s' % (type(fault).__name__, fault), outcome='failed')


if __name__ == '__main__':
    main()
