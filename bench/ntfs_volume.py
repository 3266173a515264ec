"""A volume with NTFS for measuring, which nothing but this process and what it starts can see."""

import contextlib
import ctypes
import os
import pathlib
import subprocess

_NEW_MOUNTS = 0x00020000  # CLONE_NEWNS
_PRIVATE = 1 << 18 | 1 << 14  # MS_PRIVATE, MS_REC
_SIZE = 1 << 30


def _own_view():
    """Gives this process a view of its own of what is mounted. False when it may not have one."""
    library = ctypes.CDLL(None, use_errno=True)
    return (library.unshare(_NEW_MOUNTS) == 0
            and library.mount(None, b"/", None, ctypes.c_ulong(_PRIVATE), None) == 0)


@contextlib.contextmanager
def mounted(work):
    """A folder of `work` on which an image is mounted by ntfs-3g; None where that can't be done. The
    mount goes with this process, however that ends."""
    folder, image = pathlib.Path(work, "ntfs"), pathlib.Path(work, "ntfs.image")
    folder.mkdir()
    with open(image, "wb") as file:
        file.truncate(_SIZE)
    quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    try:
        if not (os.access("/dev/fuse", os.R_OK | os.W_OK) and _own_view()):
            yield None
            return
        subprocess.run(["mkntfs", "-F", "-q", image], check=True, **quiet)
        if subprocess.run(["ntfs-3g", image, folder], **quiet).returncode != 0:
            yield None
            return
        try:
            yield folder
        finally:
            subprocess.run(["umount", folder], check=True)
    finally:
        image.unlink()
