"""Measures the memory of runs over large inputs."""

import shutil

import catalog_bench
import measure
from measure import Row, to_drive

MEGABYTE = 1_000_000


def _large_document(work):
    path = work / "large.xml"
    with open(path, "w", encoding="utf-8") as file:
        file.write("<root>\n")
        number = 0
        while file.tell() < 100 * MEGABYTE:
            file.writelines(
                f"  <entry id='{number + i}'><name>the name of entry {number + i}</name>"
                "<value kind='text'>some text that a product keeps in its settings</value></entry>\n"
                for i in range(1000))
            number += 1000
        file.write("</root>\n")
    return path


def _documents(tessel, pack, work, environment):
    document = _large_document(work)
    script = (f"<xmlOpen path='{to_drive(document)}' handle='d'/>"
              "<xmlSetValue handle='d' xpath='/root/entry[500]/name' value='new'/>"
              f"<xmlSave handle='d' path='{to_drive(document)}'><onerror><exit code='1'/></onerror>"
              "</xmlSave><exit code='0'/>")
    patch = pack(work, "large document", script)
    ours = measure.peak([tessel, "/encfile", str(patch)], environment)
    peer = measure.peak([shutil.which("xmllint"), "--noout", str(document)], environment)
    document.unlink()
    return Row("change 100 MB of XML: memory", ours, "xmllint's tree", peer, 1, "MB")


def _commands(tessel, pack, work, environment):
    loop = ("<assign var='i' value='0'/><addInt id='again' var='i' value='1'/>"
            "<test left='%i%' operator='&lt;' right='333333' type='number'>"
            "<onTrue><goto target='again'/></onTrue></test><exit code='0'/>")
    runs = [measure.peak([tessel, "/encfile", str(pack(work, name, body))], environment)
            for name, body in (("many commands", loop), ("one command", "<exit code='0'/>"))]
    return Row("1,000,000 commands: memory", runs[0], "one command", runs[1], 1.1, "MB")


def _payloads(tessel, tlx, pack, work, trusting):
    peaks = []
    for name, size in (("large", 2000 * MEGABYTE), ("small", 20 * MEGABYTE)):
        folder = work / f"{name} payload"
        patch = catalog_bench.signed_patch(tlx, pack, work, folder, {"payload.dat": size})
        peaks.append(measure.peak([tessel, "/encfile", str(patch)], trusting))
        shutil.rmtree(folder)
    return Row("payload of 2 GB: memory", peaks[0], "payload of 20 MB", peaks[1], 1.1, "MB")


def rows(tessel, tlx, pack, work, environment, trusting):
    """Rows of the table. `pack(folder, name, body, kind)` makes a patch; the machine of `trusting`
    trusts the publisher whose certificate is in `work`."""
    yield _documents(tessel, pack, work, environment)
    yield _commands(tessel, pack, work, environment)
    yield _payloads(tessel, tlx, pack, work, trusting)
