#!/usr/bin/env python3
"""Runs the benches and their peers, and prints one table of ratios, all measured in this run."""

import argparse
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

import catalog_bench
import registry_bench
import tree_bench

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


def rows(figures, one_command, peers):
    """(what, ours, peer's name, peer, the ratio's target) in milliseconds."""
    commands = 3 * ROUNDS
    loop = figures[f"TracedLoop/{ROUNDS}"]
    line = figures["BareTraceLine"]
    pieces = [figures[f"ConsumePieces/{count}"] for count in (10_000, 100_000, 1_000_000)]
    siblings = [figures[f"WalkSiblings/{count}"] for count in (10_000, 100_000)]
    listed = [figures[f"ForOverPieces/{count}"] for count in (10_000, 100_000)]
    appended = [figures[f"AppendPieces/{count}"] for count in (10_000, 100_000)]
    return [
        ("1,000,000 commands, traced", loop, "as many bare flushed lines", commands * line, "2"),
        ("the same loop", loop, "lua5.4, same lines", peers["lua loop"], "1"),
        ("decrypt a patch", figures["DecryptPatchFile"], "bare PEM and RSA loop", figures["BareRsaLoop"], "1.1"),
        ("load 100,000 commands", figures["LoadScript"], "TinyXML's parse", figures["TinyXmlParse"], "2"),
        ("consume 100,000 pieces", pieces[1], "10,000 pieces", pieces[0], "12"),
        ("consume 1,000,000 pieces", pieces[2], "100,000 pieces", pieces[1], "12"),
        ("append 100,000 pieces", appended[1], "10,000 pieces", appended[0], "12"),
        ("1,000 XPath reads of 20 MB", figures["XmlReads"], "bare libxml2 loop", figures["LibxmlReads"], "1.5"),
        ("open 20 MB of XML", figures["XmlOpen"], "TinyXML's parse", figures["TinyXmlOpen"], "2.5"),
        ("walk 100,000 siblings", siblings[1], "10,000 siblings", siblings[0], "12"),
        ("1,000 changes of 20 MB JSON", figures["JsonReadsAndWrites"], "bare JsonCpp loop",
         figures["JsonCppReadsAndWrites"], "1.5"),
        ("for over 100,000 pieces", listed[1], "10,000 pieces", listed[0], "12"),
        ("1,000 x processRun and wait", figures["ProcessRuns"], "bare posix_spawn loop",
         figures["BareSpawns"], "1.3"),
        ("run a one-command patch", one_command, "lua5.4 -e ''", peers["lua"], "-"),
        ("the same run", one_command, "sh -c :", peers["sh"], "-"),
    ]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("bin", "tessel", "tlx", "key"):
        parser.add_argument(f"--{name}", required=True)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="tessel-bench-") as folder:
        work = pathlib.Path(folder)
        environment = dict(os.environ, TESSEL_BENCH_FOLDER=folder, TESSEL_MACHINE=str(work / "machine"))
        shutil.copy(pathlib.Path(arguments.key).with_name("public.pem"), work / "public.pem")
        # An older Windows, where patches need no catalog.
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
        table = rows(figures, one_command, peers)
        for bench in (registry_bench, tree_bench):
            table += bench.rows(
                arguments.tessel, lambda *what: pack(arguments, *what), work, environment)
        table += catalog_bench.rows(arguments.tessel, arguments.tlx,
                                    lambda *what: pack(arguments, *what), work)
    print(f"{'what':<28}{'ours ms':>12}  {'beside':<28}{'ms':>12}{'ratio':>8}{'at most':>9}")
    for what, ours, peer_name, peer, target in table:
        print(f"{what:<28}{ours:>12.3f}  {peer_name:<28}{peer:>12.3f}{ours / peer:>8.2f}{target:>9}")


if __name__ == "__main__":
    main()
