"""Measures checking and copying an external patch's files against sha256sum and cp."""

import os
import pathlib
import shutil
import subprocess
import sys

import measure

CERTIFICATES = pathlib.Path(__file__).resolve().parents[1] / "scripts" / "lib" / "certificates"
FILES, SIZE = 2000, 250_000
MANY, SMALL = (2000, 20_000), 5_000
ROUNDS = 3


def _check_copies(machine, count):
    """A patch whose files can't be copied may run too, and faster, so the trace has to be looked at."""
    trace, = machine.rglob("ts-*.txt")
    text = trace.read_text(encoding="utf-8-sig")
    if text.count("Copying file to protected folder") != count or "Could not copy all" in text:
        sys.exit("the patch's files were not copied")
    trace.unlink()


def trust(tlx, work):
    """Makes a publisher in `work` and a machine that trusts it; returns the environment for it."""
    for what in (["authority", "root"], ["issue", "root", "publisher"]):
        subprocess.run([CERTIFICATES, *what], cwd=work, check=True)
    return _trusting_machine(tlx, work, work / "trusting-machine")


def _trusting_machine(tlx, work, machine):
    subprocess.run([tlx, "machine", "create", machine, "--trust", work / "root.pem"], check=True)
    return {**os.environ, "TESSEL_MACHINE": str(machine)}


def sign(tlx, work, folder):
    """The command that makes the catalog of `folder`."""
    return [tlx, "catalog", "--cert", work / "publisher.pem", "--key", work / "publisher.key",
            "--chain", work / "root.pem", "--dir", folder]


def signed_patch(tlx, pack, work, folder, files):
    """A patch in `folder`, with files of the given names and sizes and their catalog."""
    folder.mkdir()
    patch = pack(folder, "patch", "<exit code='0'/>", "external")
    patch.with_suffix(".xml").unlink()
    block = os.urandom(1_000_000)
    for name, size in files.items():
        (folder / name).parent.mkdir(exist_ok=True)
        with open(folder / name, "wb") as file:
            for start in range(0, size, len(block)):
                file.write(block[:size - start])
    subprocess.run(sign(tlx, work, folder), check=True)
    return patch


def _sum_and_copy(folder, copy, environment):
    """Milliseconds of the host's tools, which remove their copy as a run does."""
    sums = [str(path) for path in folder.rglob("*.dat")]
    times = [measure.run(command, environment) for command in
             (["sha256sum", *sums], ["cp", "-r", folder, copy], ["rm", "-rf", copy])]
    return sum(times)


def _with_files(count, tools, place, environment):
    """Milliseconds of signing so many files in `place`, of the patch's runs, and of the host's tools."""
    tessel, tlx, pack, work = tools
    folder = place / f"signed-{count}"
    patch = signed_patch(tlx, pack, work, folder, {
        f"{number % 50:02}/file {number:05}.dat": SMALL + number % 100 for number in range(count)})
    signing, taking, peer = [], [], []
    for _ in range(ROUNDS):
        signing.append(measure.run(sign(tlx, work, folder), environment))
        taking.append(measure.run([tessel, "/encfile", str(patch)], environment))
        _check_copies(pathlib.Path(environment["TESSEL_MACHINE"]), count)
        peer.append(_sum_and_copy(folder, place / "tools' copy", environment))
    shutil.rmtree(folder)
    return signing, taking, peer


def _growth(tools):
    """Rows on what ten times as many files cost, in memory where that is: ext4 without a journal gives no
    inode again that was deleted within the last minutes, so each run on it would pay for the copies that
    the ones before it removed, and so would the host's tools."""
    _, tlx, _, work = tools
    with measure.memory_or(work) as place:
        there = _trusting_machine(tlx, work, place / "machine")
        few, many = (_with_files(count, tools, place, there) for count in MANY)
    yield measure.Row("sign 20,000 files", many[0], "2,000 files", few[0], measure.GROWTH)
    yield measure.Row("check, copy 20,000 files", many[1], "2,000 files", few[1], measure.GROWTH)
    yield measure.growth_row("growth from 2,000 on", "sha256sum, cp, rm", few[1:], many[1:])


def rows(tessel, tlx, pack, work, environment):
    """The table's rows; `pack(folder, name, body, kind)` makes a patch, and `environment` trusts its
    publisher."""
    folder, copy = work / "signed", work / "signed-copy"
    patch = signed_patch(tlx, pack, work, folder, {
        f"{number % 50:02}/file {number:04}.dat": SIZE + number for number in range(FILES)})
    sums = [str(path) for path in folder.rglob("*.dat")]
    ours, peer = [], []
    for _ in range(ROUNDS):
        ours.append(measure.run([tessel, "/encfile", str(patch)], environment))
        _check_copies(pathlib.Path(environment["TESSEL_MACHINE"]), FILES)
        peer.append(measure.run(["sha256sum", *sums], environment) +
                    measure.run(["cp", "-r", folder, copy], environment))
        shutil.rmtree(copy)
    shutil.rmtree(folder)
    yield measure.Row("check, copy 500 MB", ours, "sha256sum + cp -r", peer, 1.2)
    yield from _growth((tessel, tlx, pack, work))
