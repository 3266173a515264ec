# -*- coding: utf-8 -*-
# Copyright (c) 2026 Ambry Shield. All rights reserved. See LICENSE.
"""Takes back what a patch has changed on a Windows volume that isn't running."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: tlx_undo
short_description: Take back what patches have changed on a machine
version_added: 1.0.0
description:
  - Gives a machine back as it was before, by C(tlx undo), with the change sets that
    M(ambry_shield.tessel.tlx_apply) has kept, the newest first.
  - Where the machine isn't as a set left it each conflict is told, nothing of that set is taken back, and
    none of the older ones.
  - In check mode the machine is only compared with the newest set, since the others are about a state
    that isn't there before.
author: Ambry Shield
options:
  machine:
    description: The machine's folder on the host.
    type: path
    required: true
  undo_dir:
    description: The folder on the host with the machine's change sets. All that are on the machine are
      taken back. A folder that is missing or empty is one without any.
    type: path
  set:
    description: A single change set instead.
    type: path
  executable:
    description: C(tlx), by its name or path.
    type: str
    default: tlx
'''

EXAMPLES = r'''
- name: Take back all that was applied from this folder
  ambry_shield.tessel.tlx_undo:
    machine: /srv/machines/desk-17
    undo_dir: /srv/undo/fix-4711/desk-17
'''

RETURN = r'''
outcome:
  description: >-
    C(undone); C(possible) in check mode; C(nothing) when no set was on the machine; C(conflicts);
    C(pending) when a commit waits to be ended; C(failed) for anything else.
  type: str
  returned: always
undone:
  description: The sets that were taken back, or in check mode would be, the newest first.
  type: list
  elements: str
  returned: always
conflicts:
  description: What on the machine isn't as the set left it.
  type: list
  elements: dict
  returned: always
errors:
  description: What C(tlx) told on standard error.
  type: list
  elements: str
  returned: always
'''

import os

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ambry_shield.tessel.plugins.module_utils.tlx import (
    EXECUTABLE, MACHINE, Sets, Tool)


class Undo:
    """The sets of one machine."""

    def __init__(self, module):
        self.module = module
        self.tool = Tool(module)
        self.result = dict(changed=False, outcome='failed', undone=[], conflicts=[], errors=[])

    def sets(self):
        """The sets that may be on the machine, the newest first."""
        if self.module.params['set']:
            return [self.module.params['set']]
        sets = Sets(self.module.params['undo_dir'])
        return [sets.path(name) for name in reversed(sets.names()) if sets.state(name) != 'undone']

    def take_back(self, folder):
        """Whether the set was on the machine; it isn't any more."""
        words = ['undo', folder, '--machine', self.tool.machine, '--json']
        told = self.tool.run(*(words + (['--dry-run'] if self.module.check_mode else [])))
        self.result['errors'] += told.errors
        result = told.document['result'] if told.document else 'refused'
        if result in ('neverCommitted', 'wasDone'):
            # An undo that was interrupted is finished by now.
            self.result['changed'] |= any('was finished' in line for line in told.errors)
            return False
        if result not in ('done', 'possible'):
            self.result['conflicts'] = told.document['conflicts'] if told.document else []
            self.result['changed'] |= result == 'begun'
            outcome = dict(begun='pending', conflicts='conflicts').get(result, 'failed')
            self.module.fail_json(msg=told.words(), **dict(self.result, outcome=outcome))
        self.result['undone'].append(folder)
        self.result['changed'] = True
        return True

    def run(self):
        if self.module.check_mode and self.tool.has_pending_commit():
            self.module.exit_json(
                msg='An earlier apply or undo was interrupted. It is ended before an undo.',
                **dict(self.result, changed=True, outcome='pending'))
        waiting = self.sets()
        while waiting:
            is_undone = self.take_back(waiting.pop(0))
            if is_undone and self.module.check_mode:
                self.result['undone'] += waiting
                break
        done = 'possible' if self.module.check_mode else 'undone'
        self.module.exit_json(**dict(self.result, outcome=done if self.result['undone'] else 'nothing'))


def main():
    module = AnsibleModule(
        argument_spec=dict(machine=MACHINE, undo_dir=dict(type='path'), set=dict(type='path'),
                           executable=EXECUTABLE),
        mutually_exclusive=[('undo_dir', 'set')],
        required_one_of=[('undo_dir', 'set')],
        supports_check_mode=True,
    )
    if module.params['set'] and not os.path.isdir(module.params['set']):
        module.fail_json(msg='There is no set %s.' % module.params['set'], outcome='failed')
    try:
        Undo(module).run()
    except (OSError, ValueError, KeyError) as fault:
        module.fail_json(msg='%s: %s' % (type(fault).__name__, fault), outcome='failed')


if __name__ == '__main__':
    main()
