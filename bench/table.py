#!/usr/bin/env python3
"""Runs the benches and their peers, and prints one table of ratios, all measured in this run."""

import argparse
import functools
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

import catalog_bench
import memory_bench
import registry_bench
import rehearsal_bench
import tree_bench
from measure import Row

ROUNDS = 333_333  # of the traced loop: three commands each


def run_benches(folder, environment):
    """Milliseconds (best of five) by the benches' names."""
    figures = {}
    for program in sorted(pathlib.Path(folder).iterdir()):
        if not (program.is_file() and os.access(program, os.X_OK)):
            continue
        output = subprocess.run(
            [program, "--benchmark_format=json", "--benchmark_repetitions=5"],
            env=environment, check=True, capture_output=True, text=True).stdout
        scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}
        for row in json.loads(output)["benchmarks"]:
            if row.get("error_occurred"):
                sys.exit(f"{row['name']}: {row['error_message']}")
            if row["run_type"] == "iteration":
                name = row["run_name"].split("/iterations")[0]
                milliseconds = row["real_time"] * scale[row["time_unit"]]
                figures[name] = min(milliseconds, figures.get(name, milliseconds))
    return figures


def time_command(command, environment, times):
    """Milliseconds of the fastest of several runs."""
    best = float("inf")
    for _ in range(times):
        start = time.perf_counter()
        code = subprocess.run(command, env=environment, stdout=subprocess.DEVNULL).returncode
        best = min(best, (time.perf_counter() - start) * 1e3)
        if code != 0:
            sys.exit(f"{command[0]} ended with {code}")
    return best


def pack(arguments, work, name, body, kind="update"):
    script = work / f"{name}.xml"
    script.write_text('<patch version="1.0"><header><property name="id" value="bench"/>'
                      f'<property name="patchType" value="{kind}"/>'
                      f'<property name="created" value="{int(time.time())}"/></header>'
                      f"<script>{body}</script></patch>\n", encoding="utf-8")
    patch = work / f"{name}.tlx"
    subprocess.run([arguments.tlx, "pack", "--key", arguments.key, "--in", script, "--out", patch],
                   check=True, stdout=subprocess.DEVNULL)
    return patch


def engine_rows(figures, one_command, peers):
    """Rows from the figures of the C++ benches."""
    commands = 3 * ROUNDS
    loop = figures[f"TracedLoop/{ROUNDS}"]
    line = figures["BareTraceLine"]
    pieces = [figures[f"ConsumePieces/{count}"] for count in (10_000, 100_000, 1_000_000)]
    siblings = [figures[f"WalkSiblings/{count}"] for count in (10_000, 100_000)]
    listed = [figures[f"ForOverPieces/{count}"] for count in (10_000, 100_000)]
    appended = [figures[f"AppendPieces/{count}"] for count in (10_000, 100_000)]
    return [
        Row("1,000,000 commands, traced", loop, "as many bare flushed lines", commands * line, 2),
        Row("the same loop", loop, "lua5.4, same lines", peers["lua loop"], 1),
        Row("decrypt a patch", figures["DecryptPatchFile"], "bare PEM and RSA loop",
            figures["BareRsaLoop"], 1.1),
        Row("load 100,000 commands", figures["LoadScript"], "TinyXML's parse",
            figures["TinyXmlParse"], 2),
        Row("consume 100,000 pieces", pieces[1], "10,000 pieces", pieces[0], 12),
        Row("consume 1,000,000 pieces", pieces[2], "100,000 pieces", pieces[1], 12),
        Row("append 100,000 pieces", appended[1], "10,000 pieces", appended[0], 12),
        Row("1,000 XPath reads of 20 MB", figures["XmlReads"], "bare libxml2 loop",
            figures["LibxmlReads"], 1.5),
        Row("open 20 MB of XML", figures["XmlOpen"], "TinyXML's parse", figures["TinyXmlOpen"], 2.5),
        Row("walk 100,000 siblings", siblings[1], "10,000 siblings", siblings[0], 12),
        Row("1,000 changes of 20 MB JSON", figures["JsonReadsAndWrites"], "bare JsonCpp loop",
            figures["JsonCppReadsAndWrites"], 1.5),
        Row("for over 100,000 pieces", listed[1], "10,000 pieces", listed[0], 12),
        Row("1,000 x processRun and wait", figures["ProcessRuns"], "bare posix_spawn loop",
            figures["BareSpawns"], 1.3),
        Row("run a one-command patch", one_command, "lua5.4 -e ''", peers["lua"]),
        Row("the same run", one_command, "sh -c :", peers["sh"]),
    ]


def show(rows):
    """Prints each row at once, since the later ones take minutes."""
    for row in rows:
        ratio = row.ours / row.peer
        wanted = "-" if row.at_most is None else f"{row.at_most:g}"
        missed = "  missed" if row.at_most is not None and ratio > row.at_most else ""
        print(f"{row.what:<32}{row.ours:>11.2f} {row.unit}  {row.beside:<28}{row.peer:>11.2f}"
              f" {row.unit}{ratio:>8.2f}{wanted:>9}{missed}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("bin", "tessel", "tlx", "key"):
        parser.add_argument(f"--{name}", required=True)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="tessel-bench-") as folder:
        work = pathlib.Path(folder)
        environment = dict(os.environ, TESSEL_BENCH_FOLDER=folder, TESSEL_MACHINE=str(work / "machine"))
        shutil.copy(pathlib.Path(arguments.key).with_name("public.pem"), work / "public.pem")
        # On an older Windows patches need no catalog.
        subprocess.run([arguments.tlx, "machine", "create", "--windows", "7", work / "machine"],
                       check=True)
        pack(arguments, work, "bench", "<trace value='a step of a script'/>" * 3000)
        one = pack(arguments, work, "one", "<exit code='0'/>")
        figures = run_benches(arguments.bin, environment)
        one_command = time_command([arguments.tessel, "/encfile", str(one)], environment, 50)
        loop = pathlib.Path(__file__).with_name("loop.lua")
        peers = {
            "lua loop": time_command(["lua5.4", loop, str(ROUNDS), work / "lua.txt"], environment, 3),
            "lua": time_command(["lua5.4", "-e", ""], environment, 50),
            "sh": time_command(["sh", "-c", ":"], environment, 50),
        }
        print(f"{'what':<32}{'ours':>14}  {'beside':<28}{'':>14}{'ratio':>8}{'at most':>9}")
        show(engine_rows(figures, one_command, peers))
        prepare = functools.partial(pack, arguments)
        show(registry_bench.rows(arguments.tessel, prepare, work, environment))
        show(tree_bench.rows(arguments.tessel, prepare, work, environment))
        show(rehearsal_bench.rows(arguments.tessel, arguments.tlx, prepare, work, environment))
        trusting = catalog_bench.trust(arguments.tlx, work)
        show(catalog_bench.rows(arguments.tessel, arguments.tlx, prepare, work, trusting))
        show(memory_bench.rows(arguments.tessel, arguments.tlx, prepare, work, environment, trusting))


if __name__ == "__main__":
    main()
