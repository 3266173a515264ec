"""Measures the check and the copy of an external patch's files beside sha256sum and cp."""

import os
import pathlib
import shutil
import subprocess
import sys

import measure

CERTIFICATES = pathlib.Path(__file__).resolve().parents[1] / "scripts" / "lib" / "certificates"
FILES, SIZE = 2000, 250_000
ROUNDS = 3


def _check_copies(machine):
    """A patch whose files can't be copied runs all the same, and faster; the trace tells of it."""
    trace, = machine.rglob("ts-*.txt")
    text = trace.read_text(encoding="utf-8-sig")
    if text.count("Copying file to protected folder") != FILES or "Could not copy all" in text:
        sys.exit("the patch's files were not copied")
    trace.unlink()


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
    for what in (["authority", "root"], ["issue", "root", "publisher"]):
        subprocess.run([CERTIFICATES, *what], cwd=work, check=True)
    subprocess.run([tlx, "catalog", "--cert", work / "publisher.pem", "--key",
                    work / "publisher.key", "--chain", work / "root.pem", "--dir", folder],
                   check=True)
    subprocess.run([tlx, "machine", "create", machine, "--trust", work / "root.pem"], check=True)
    environment = {**os.environ, "TESSEL_MACHINE": str(machine)}
    sums = [str(path) for path in folder.rglob("*.dat")]
    ours, peer = [], []
    for _ in range(ROUNDS):
        ours.append(measure.run([tessel, "/encfile", str(patch)], environment))
        _check_copies(machine)
        peer.append(measure.run(["sha256sum", *sums], environment) +
                    measure.run(["cp", "-r", folder, copy], environment))
        shutil.rmtree(copy)
    return [("check, copy 500 MB", min(ours), "sha256sum + cp -r", min(peer), "1.2")]
