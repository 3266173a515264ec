# -*- coding: utf-8 -*-
# Copyright (c) 2026 Ambry Shield. All rights reserved. See LICENSE.
"""Mounts the Windows volume in a disk image for writing, and unmounts it."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: volume_image
short_description: Mount the Windows volume in a disk image
version_added: 1.0.0
description:
  - Mounts the NTFS volume in an image for writing, or unmounts it and waits until all is in the image.
  - An image that is a bare NTFS volume is mounted by C(ntfs-3g); any other by C(qemu-nbd) where the host
    has block devices C(/dev/nbdN), or else by C(guestmount). Kernel modules aren't loaded.
  - Beside the mount point, a file whose name ends in C(.image.json) says what is mounted there, so that what
    an interrupted play has left can be gone on with, and unmounted.
author: Ambry Shield
options:
  image:
    description: The image on the host. No virtual machine may have it open.
    type: path
    required: true
  mount_point:
    description: The folder to mount at, made where it is missing.
    type: path
    required: true
  state:
    description: What to do.
    type: str
    choices: [mounted, unmounted]
    default: mounted
  format:
    description: The image's format. It isn't guessed, since what a guest has written into a raw image may look
      like any other.
    type: str
    choices: [raw, qcow2, vmdk, vdi, vhdx, vpc]
    default: raw
  partition:
    description: The number of the partition. Without it, the largest NTFS volume, or for C(guestmount) the one
      with Windows.
    type: int
  method:
    description: By what to mount.
    type: str
    choices: [auto, ntfs-3g, nbd, guestmount]
    default: auto
  throwaway:
    description: Mount what looks like the image and loses all changes when it is unmounted, as check mode
      needs it. A bare volume is copied for that; other images need C(qemu-img).
    type: bool
    default: false
'''

EXAMPLES = r'''
- name: Mount a virtual machine's disk
  ambry_shield.tessel.volume_image:
    image: /srv/images/desk-17.qcow2
    format: qcow2
    mount_point: /mnt/desk-17
'''

RETURN = r'''
method:
  description: By what it is mounted.
  type: str
  returned: when it is mounted
device:
  description: The block device, for nbd.
  type: str
  returned: when it is mounted
'''

import fcntl
import glob
import json
import os
import time

from ansible.module_utils.basic import AnsibleModule

LONGEST_WAIT = 60  # seconds


class Image:
    """An image, and what is mounted of it."""

    def __init__(self, module):
        self.module = module
        self.image = os.path.realpath(module.params['image'])
        self.point = os.path.realpath(module.params['mount_point'])
        self.note_path = self.point.rstrip('/') + '.image.json'
        self.copy_path = self.point.rstrip('/') + '.throwaway'
        self.note = {}
        try:
            # Another account may write where the mount point is, and what the note names is removed.
            file = os.open(self.note_path, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK)
        except FileNotFoundError:
            return
        with os.fdopen(file) as note:
            if os.fstat(file).st_uid != os.geteuid():
                module.fail_json(msg='%s belongs to another account: remove it, or choose another mount point.'
                                 % self.note_path)
            self.note = json.load(note)

    def put_note(self, **more):
        self.note.update(more)
        draft = self.note_path + '.tmp'
        if os.path.lexists(draft):
            os.unlink(draft)
        with open(draft, 'x') as file:
            json.dump(self.note, file)
        os.rename(draft, self.note_path)

    def run(self, *words):
        return self.module.run_command(list(words), handle_exceptions=True, errors='surrogateescape')

    def must(self, *words):
        code, out, errors = self.run(*words)
        if code != 0:
            self.clear()
            self.module.fail_json(msg='%s failed: %s' % (words[0], (errors or out).strip()))
        return out

    def program(self, name):
        return self.module.get_bin_path(name, opt_dirs=['/sbin', '/usr/sbin'])

    def is_bare_volume(self):
        if self.module.params['format'] != 'raw':
            return False
        with open(self.image, 'rb') as file:
            return file.read(11)[3:] == b'NTFS    '

    def wait(self, is_done, words):
        end = time.time() + LONGEST_WAIT
        while not is_done():
            if time.time() > end:
                self.module.fail_json(msg=words)
            time.sleep(0.1)

    def choose(self):
        """By what it can be mounted here."""
        wanted = self.module.params['method']
        can = {
            'ntfs-3g': self.is_bare_volume() and bool(self.program('ntfs-3g')),
            'nbd': bool(self.program('qemu-nbd') and self.program('ntfs-3g') and glob.glob('/sys/block/nbd*')),
            'guestmount': bool(self.program('guestmount') and self.program('guestunmount')),
        }
        for name in ('ntfs-3g', 'nbd', 'guestmount') if wanted == 'auto' else (wanted,):
            if can[name]:
                return name
        self.module.fail_json(msg=(
            "The image can't be mounted here%s. A bare NTFS volume needs ntfs-3g. Any other image needs either "
            "qemu-nbd (package qemu-utils), ntfs-3g and block devices /dev/nbdN (an administrator loads the "
            "kernel's module nbd with max_part=16), or guestmount (package guestmount)."
            % ('' if wanted == 'auto' else ' by ' + wanted)))

    def source(self, method):
        """What to mount, and its format."""
        kind = self.module.params['format']
        if not self.module.params['throwaway']:
            return self.image, kind
        self.put_note(copy=self.copy_path)
        if os.path.lexists(self.copy_path):
            os.unlink(self.copy_path)
        if method == 'ntfs-3g':
            self.must('cp', '--reflink=auto', '--sparse=always', self.image, self.copy_path)
            return self.copy_path, kind
        if not self.program('qemu-img'):
            self.clear()
            self.module.fail_json(msg='A throwaway mount of this image needs qemu-img (package qemu-utils).')
        self.must('qemu-img', 'create', '-q', '-f', 'qcow2', '-F', kind, '-b', self.image, self.copy_path)
        return self.copy_path, 'qcow2'

    def connect(self, source, kind):
        """The block device that now shows the image."""
        errors = ''
        for folder in sorted(glob.glob('/sys/block/nbd*')):
            if os.path.exists(os.path.join(folder, 'pid')):
                continue
            device = '/dev/' + os.path.basename(folder)
            code, out, errors = self.run('qemu-nbd', '--connect=' + device, '--format=' + kind, source)
            if code == 0:
                self.put_note(device=device)
                self.wait(lambda: os.path.exists(os.path.join(folder, 'pid')), device + ' shows no image.')
                self.run('udevadm', 'settle')
                return device
        self.clear()
        self.module.fail_json(msg='No block device /dev/nbdN is free. ' + errors.strip())

    def volume_on(self, device):
        """The NTFS volume on a block device."""
        name = os.path.basename(device)
        number = self.module.params['partition']
        found = []
        for folder in glob.glob('/sys/block/%s/%sp*' % (name, name)) or ['/sys/block/' + name]:
            part = '/dev/' + os.path.basename(folder)
            if number is not None and not part.endswith('p%d' % number):
                continue
            code, kind = self.run('blkid', '-p', '-o', 'value', '-s', 'TYPE', part)[:2]
            with open(os.path.join(folder, 'size')) as file:
                size = int(file.read())
            if code == 0 and kind.strip() == 'ntfs':
                found.append((size, part))
        if not found:
            self.clear()
            self.module.fail_json(msg='There is no such NTFS volume in the image.')
        return max(found)[1]

    def mount(self):
        if os.path.ismount(self.point):
            if self.note.get('image') != self.image:
                self.module.fail_json(msg='Something else is mounted at %s.' % self.point)
            self.module.exit_json(changed=False, method=self.note['method'], device=self.note.get('device', ''))
        self.clear()  # what an interrupted play has left
        method = self.choose()
        os.makedirs(self.point, mode=0o700, exist_ok=True)
        self.put_note(image=self.image, method=method)
        source, kind = self.source(method)
        if method == 'guestmount':
            part = self.module.params['partition']
            where = ['-i'] if part is None else ['-m', '/dev/sda%d' % part]
            self.must('guestmount', '--rw', '--format=' + kind, '-a', source,
                      '--pid-file', self.point + '.pid', *(where + [self.point]))
        else:
            if method == 'nbd':
                source = self.volume_on(self.connect(source, kind))
            self.must('ntfs-3g', '-o', 'permissions', source, self.point)
        self.module.exit_json(changed=True, method=method, device=self.note.get('device', ''))

    def is_free(self):
        """Whether the driver has let go of the image."""
        with open(self.note.get('copy') or self.image, 'r+b') as file:
            try:
                fcntl.lockf(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                return True
            except (IOError, OSError):
                return False

    def unmount(self):
        if os.path.ismount(self.point):
            if not self.note:
                self.module.fail_json(msg='What is mounted at %s is not by this module.' % self.point)
            is_guest = self.note['method'] == 'guestmount'
            code, out, errors = self.run(*(['guestunmount'] if is_guest else ['umount']) + [self.point])
            if code != 0:
                self.module.fail_json(msg='%s is still mounted: %s' % (self.point, (errors or out).strip()))
        changed = bool(self.note)
        self.clear()
        self.module.exit_json(changed=changed)

    def clear(self):
        """Gives up all but a mount."""
        if not self.note:
            return
        device = self.note.get('device')
        pid_path = self.point + '.pid'
        if device:
            self.run('qemu-nbd', '--disconnect', device)
            pid = '/sys/block/%s/pid' % os.path.basename(device)
            self.wait(lambda: not os.path.exists(pid), '%s still shows the image.' % device)
        elif os.path.exists(pid_path):
            with open(pid_path) as file:
                pid = file.read().strip()
            self.wait(lambda: not os.path.exists('/proc/' + pid), 'guestmount still writes to the image.')
            os.unlink(pid_path)
        elif os.path.exists(self.note.get('copy') or self.image):
            self.wait(self.is_free, 'The driver still writes to the image.')
        for path in (self.note.get('copy'), self.note_path):
            if path and os.path.exists(path):
                os.unlink(path)
        self.note = {}


def main():
    module = AnsibleModule(argument_spec=dict(
        image=dict(type='path', required=True),
        mount_point=dict(type='path', required=True),
        state=dict(type='str', choices=['mounted', 'unmounted'], default='mounted'),
        format=dict(type='str', choices=['raw', 'qcow2', 'vmdk', 'vdi', 'vhdx', 'vpc'], default='raw'),
        partition=dict(type='int'),
        method=dict(type='str', choices=['auto', 'ntfs-3g', 'nbd', 'guestmount'], default='auto'),
        throwaway=dict(type='bool', default=False),
    ))
    try:
        image = Image(module)
        if module.params['state'] == 'mounted':
            image.mount()
        image.unmount()
    except (OSError, ValueError, KeyError) as fault:
        module.fail_json(msg='%s: %s' % (type(fault).__name__, fault))


if __name__ == '__main__':
    main()
