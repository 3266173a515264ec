# -*- coding: utf-8 -*-
# Copyright (c) 2026 Ambry Shield. All rights reserved. See LICENSE.
"""Tells whether a patch would be started on a machine."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: tlx_verify
short_description: Judge a patch without running it
version_added: 1.0.0
description:
  - Judges a patch and the files that come with it as a run on the machine would, by C(tlx verify).
  - Fails when the script wouldn't be started. Nothing is ever changed.
author: Ambry Shield
options:
  patch:
    description: The patch on the host, or the folder that holds it.
    type: path
    required: true
  machine:
    description: The machine's folder on the host, whose trusted roots count.
    type: path
    required: true
  executable:
    description: C(tlx), by its name or path.
    type: str
    default: tlx
'''

EXAMPLES = r'''
- name: Is this patch genuine, and for how long?
  ambry_shield.tessel.tlx_verify:
    patch: /srv/patches/fix-4711
    machine: /srv/machines/desk-17
  register: judged
'''

RETURN = r'''
starts:
  description: Whether a run would start the script.
  type: bool
  returned: always
code:
  description: The exit code of a refusal; 0 for none.
  type: int
  returned: when the patch was judged
obstacles:
  description: What stands in the way.
  type: list
  elements: str
  returned: when the patch was judged
events:
  description: The events that the refusal would leave, with their reasons.
  type: list
  elements: dict
  returned: when the patch was judged
header:
  description: What the patch says of itself, such as its id and when it expires.
  type: dict
  returned: when the patch was judged
catalog:
  description: Signatures and listed files.
  type: dict
  returned: when the patch was judged
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ambry_shield.tessel.plugins.module_utils.tlx import EXECUTABLE, MACHINE, Tool


def main():
    module = AnsibleModule(
        argument_spec=dict(patch=dict(type='path', required=True), machine=MACHINE,
                           executable=EXECUTABLE),
        supports_check_mode=True,
    )
    tool = Tool(module)
    told = tool.run('verify', module.params['patch'], '--machine', tool.machine, '--json')
    if told.document is None:
        module.fail_json(msg=told.words(), starts=False)
    document = told.document
    result = dict(changed=False, starts=document['starts'], code=document['exitCode'],
                  obstacles=document['obstacles'], events=document['events'],
                  header=document.get('header', {}), catalog=document.get('catalog', {}))
    if not document['starts']:
        module.fail_json(msg=' '.join(document['obstacles']), **result)
    module.exit_json(**result)


if __name__ == '__main__':
    main()
