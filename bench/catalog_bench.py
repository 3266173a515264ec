"""Measures the check and the copy of an external patch's files beside sha256sum and cp."""

import os
import pathlib
import shutil
import subprocess
import sys

import measure

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "patches"))

import authority  # noqa: E402  pylint: disable=wrong-import-position

FILES, SIZE = 2000, 250_000
ROUNDS = 3


def rows(tessel, tlx, pack, work):
    """A row of the table; `pack(folder, name, body, kind)` makes a patch."""
    folder, copy, machine = (work / name for name in ("signed", "signed-copy", "trusting-machine"))
    folder.mkdir()
    patch = pack(folder, "patch", "<exit code='0'/>", "external")
    patch.with_suffix(".xml").unlink(missing_ok=True)
    for number in range(FILES):
        place = folder / f"{number % 50:02}"
        place.mkdir(exist_ok=True)
        (place / f"file {number:04}.dat").write_bytes(os.urandom(SIZE))
    root = authority.Authority(work, "root")
    certificate, key = root.issue("publisher")
    subprocess.run([tlx, "catalog", "--cert", certificate, "--key", key, "--chain",
                    root.certificate, "--dir", folder], check=True)
    subprocess.run([tlx, "machine", "create", machine, "--trust", root.certificate], check=True)
    environment = {**os.environ, "TESSEL_MACHINE": str(machine)}
    sums = [str(path) for path in folder.rglob("*.dat")]
    ours, peer = [], []
    for _ in range(ROUNDS):
        ours.append(measure.run([tessel, "/encfile", str(patch)], environment))
        peer.append(measure.run(["sha256sum", *sums], environment) +
                    measure.run(["cp", "-r", folder, copy], environment))
        shutil.rmtree(copy)
    return [("check, copy 500 MB", min(ours), "sha256sum + cp -r", min(peer), "1.2")]
