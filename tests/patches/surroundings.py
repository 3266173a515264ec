"""What the host allows. Each function gives the reason to skip what needs it, or None where it is
allowed; it asks the host's own tools, once, and nothing of what is tested."""

import functools
import os
import shutil
import subprocess

# Another volume for a run, which nobody else sees. In a chroot the root folder may be no mount point,
# and then what is mounted could be seen outside.
MOUNTED = ['unshare', '--mount', '--propagation', 'private']
NOBODY = ['setpriv', '--reuid', '65534', '--regid', '65534', '--clear-groups']
MAPPED = ['unshare', '--mount', '--map-root-user']
# Root, but without the right to look into other processes.
UNPRIVILEGED = ['setpriv', '--bounding-set', '-sys_ptrace,-chown']
OWN_PROCESSES = ['unshare', '--pid', '--fork', '--mount-proc', '--propagation', 'private']


def _refuses(*command):
    if shutil.which(command[0]) is None:
        return True
    return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True,
                          check=False).returncode != 0


@functools.lru_cache
def root():
    """A root that can become other users: in some containers it can't."""
    if os.geteuid() != 0 or _refuses(*NOBODY, 'true'):
        return 'only a root with its privileges can become another user'
    return None


@functools.lru_cache
def fewer_privileges():
    lacks = root() or _refuses(*UNPRIVILEGED, 'true')
    return lacks and 'no privileges can be given up for good here'


@functools.lru_cache
def mounts():
    if root():
        return root()
    tried = [*MOUNTED, 'mount', '-t', 'tmpfs', 'none', '/tmp']
    return 'no volume can be mounted here in a view of its own' if _refuses(*tried) else None


@functools.lru_cache
def views():
    """Whether a rehearsal can have its view of a machine."""
    if (os.geteuid() != 0 or _refuses(*MOUNTED, 'true')) and _refuses(*MAPPED, 'true'):
        return 'there are no mount namespaces here for views of a machine'
    return None


@functools.lru_cache
def user_views():
    """The same for an ordinary user, whom root plays."""
    tried = [*NOBODY, *MAPPED, 'true']
    if root():
        return root()
    return 'ordinary users have no namespaces here' if _refuses(*tried) else None


@functools.lru_cache
def processes():
    if root():
        return root()
    return 'no process can be the first one here' if _refuses(*OWN_PROCESSES, 'true') else None


@functools.lru_cache
def ntfs():
    if mounts():
        return mounts()
    script = ('set -e; test -c /dev/fuse; d=$(mktemp -d); trap \'rm -f "$d/i"; rmdir "$d/m" "$d"\' EXIT; '
              'mkdir "$d/m"; truncate -s 8M "$d/i"; mkntfs -qF "$d/i"; ntfs-3g "$d/i" "$d/m"; '
              'umount "$d/m"')
    tried = [*MOUNTED, 'sh', '-c', script]
    return 'no NTFS can be mounted here' if _refuses(*tried) else None
