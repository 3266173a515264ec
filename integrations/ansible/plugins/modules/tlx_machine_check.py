# -*- coding: utf-8 -*-
# Copyright (c) 2026 Ambry Shield. All rights reserved. See LICENSE.
"""Tells whether a machine is fit to be serviced."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: tlx_machine_check
short_description: Tell whether a machine is fit to be serviced
version_added: 1.0.0
description:
  - Judges a machine by C(tlx machine check), and fails when a run would be refused or unwise.
  - Changes nothing, unless I(end_interrupted) lets it. A machine on which an apply or undo was interrupted
    is then not looked at, for C(tlx) would end that first.
author: Ambry Shield
options:
  machine:
    description: The machine's folder on the host.
    type: path
    required: true
  end_interrupted:
    description: Let an apply or undo that was interrupted be finished, or cleared away; not in check mode.
    type: bool
    default: false
  executable:
    description: C(tlx), by its name or path.
    type: str
    default: tlx
'''

EXAMPLES = r'''
- name: Which machines can't be serviced now?
  ambry_shield.tessel.tlx_machine_check:
    machine: /srv/machines/desk-17
  register: checked
  failed_when: false
'''

RETURN = r'''
is_fit:
  description: Whether a run would neither be refused nor be unwise.
  type: bool
  returned: always
is_pending:
  description: Whether an apply or undo was interrupted there, and nothing else was looked at.
  type: bool
  returned: always
code:
  description: The exit code with which a run would be refused; 0 for none.
  type: int
  returned: when the machine was looked at
refusal:
  description: Why a run would be refused, and the way out.
  type: str
  returned: when the machine was looked at
warnings_of_machine:
  description: Why one would be unwise.
  type: list
  elements: str
  returned: when the machine was looked at
interrupted:
  description: What became of an interrupted apply or undo; empty for none.
  type: str
  returned: when the machine was looked at
windows:
  description: Name, version and build.
  type: dict
  returned: when the machine was looked at
volume:
  description: Whether it is hibernated or read-only, and how much room it has.
  type: dict
  returned: when the machine was looked at
hives:
  description: The state of each hive of the registry.
  type: list
  elements: dict
  returned: when the machine was looked at
pending_moves:
  description: What the next boot would do to files.
  type: list
  elements: str
  returned: when the machine was looked at
install_folder:
  description: Where the product is.
  type: str
  returned: when the machine was looked at
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ambry_shield.tessel.plugins.module_utils.tlx import (
    EXECUTABLE, MACHINE, Tool, machine_results, words_of_machine)


def main():
    module = AnsibleModule(
        argument_spec=dict(machine=MACHINE, end_interrupted=dict(type='bool', default=False),
                           executable=EXECUTABLE),
        supports_check_mode=True,
    )
    tool = Tool(module)
    may_end = module.params['end_interrupted'] and not module.check_mode
    if tool.has_pending_commit() and not may_end:
        module.fail_json(msg="An apply or undo was interrupted there. The next one ends that, or 'tlx "
                             "machine check'.", is_fit=False, is_pending=True)
    check = tool.check_machine()
    result = dict(machine_results(check), changed=bool(check['interrupted']), is_pending=False)
    if not check['isFit']:
        module.fail_json(msg=words_of_machine(check), **result)
    module.exit_json(**result)


if __name__ == '__main__':
    main()
