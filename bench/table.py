#!/usr/bin/env python3
"""Runs the benches and their peers, and prints one table of ratios, all measured in this run."""

import argparse
import collections
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
import measure
import memory_bench
import registry_bench
import rehearsal_bench
import tree_bench
from measure import GROWTH, Row

ROUNDS = 333_333  # of the traced loop: three commands each
REPETITIONS = 5
STARTS = 60  # of a run that does next to nothing


def run_benches(folder, environment):
    """Milliseconds by the benches' names, a figure a repetition. The repetitions of a program's
    benches take turns, so that each has the noise of all. They are of processor time, in which other
    work of the machine has little part, except where the work is that of other processes."""
    figures = collections.defaultdict(list)
    for program in sorted(pathlib.Path(folder).iterdir()):
        if not (program.is_file() and os.access(program, os.X_OK)):
            continue
        output = subprocess.run(
            [program, "--benchmark_format=json", f"--benchmark_repetitions={REPETITIONS}",
             "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.2"],
            env=environment, check=True, capture_output=True, text=True).stdout
        clock = "real_time" if program.name == "process_bench" else "cpu_time"
        scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}
        for row in json.loads(output)["benchmarks"]:
            if row.get("error_occurred"):
                sys.exit(f"{row['name']}: {row['error_message']}")
            if row["run_type"] == "iteration":
                name = row["run_name"].split("/iterations")[0]
                figures[name].append(row[clock] * scale[row["time_unit"]])
    return figures


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


def time_programs(arguments, one, work, environment):
    """Milliseconds of what starts, does next to nothing and ends, each beside the others; and those of
    the processor in the traced loop's peer."""
    loop = str(pathlib.Path(__file__).with_name("loop.lua"))
    figures = measure.interleaved({
        "one command": [arguments.tessel, "/encfile", str(one)],
        "lua": ["lua5.4", "-e", ""],
        "sh": ["sh", "-c", ":"],
    }, environment, STARTS)
    lua_loop = ["lua5.4", loop, str(ROUNDS), str(work / "lua.txt")]
    figures["lua loop"] = [measure.processor_time(lua_loop, environment) for _ in range(REPETITIONS)]
    return figures


def engine_rows(figures, starts):
    """Rows from the figures of the C++ benches."""
    commands = 3 * ROUNDS
    loop = figures[f"TracedLoop/{ROUNDS}"]
    lines = [commands * line for line in figures["BareTraceLine"]]
    pieces = [figures[f"ConsumePieces/{count}"] for count in (10_000, 100_000, 1_000_000)]
    siblings = [figures[f"WalkSiblings/{count}"] for count in (10_000, 100_000)]
    listed = [figures[f"ForOverPieces/{count}"] for count in (10_000, 100_000)]
    appended = [figures[f"AppendPieces/{count}"] for count in (10_000, 100_000)]
    return [
        Row("1,000,000 commands, traced", loop, "as many bare flushed lines", lines, 1.6),
        Row("the same loop", loop, "lua5.4, same lines", starts["lua loop"], 1),
        Row("decrypt a patch", figures["DecryptPatchFile"], "bare PEM and RSA loop",
            figures["BareRsaLoop"], 1.1),
        Row("load 100,000 commands", figures["LoadScript"], "TinyXML's parse",
            figures["TinyXmlParse"], 2),
        Row("consume 100,000 pieces", pieces[1], "10,000 pieces", pieces[0], GROWTH),
        Row("consume 1,000,000 pieces", pieces[2], "100,000 pieces", pieces[1], GROWTH),
        Row("append 100,000 pieces", appended[1], "10,000 pieces", appended[0], GROWTH),
        Row("1,000 XPath reads of 20 MB", figures["XmlReads"], "bare libxml2 loop",
            figures["LibxmlReads"], 1.2),
        Row("open 20 MB of XML", figures["XmlOpen"], "TinyXML's parse", figures["TinyXmlOpen"], 2.5),
        Row("walk 100,000 siblings", siblings[1], "10,000 siblings", siblings[0], GROWTH),
        Row("1,000 changes of 20 MB JSON", figures["JsonReadsAndWrites"], "bare JsonCpp loop",
            figures["JsonCppReadsAndWrites"], 1.5),
        Row("for over 100,000 pieces", listed[1], "10,000 pieces", listed[0], GROWTH),
        Row("1,000 x processRun and wait", figures["ProcessRuns"], "bare posix_spawn loop",
            figures["BareSpawns"], 1.3),
        Row("run a one-command patch", starts["one command"], "lua5.4 -e ''", starts["lua"]),
        Row("the same run", starts["one command"], "sh -c :", starts["sh"], 3),
    ]


def judge(row, ratio):
    if row.at_most is None or ratio.middle <= row.at_most:
        return ""
    return "  missed" if ratio.low > row.at_most else "  in the noise"


def show(rows):
    """Prints each row at once, since the later ones take minutes."""
    for row in rows:
        ours, peer = (measure.spread(figures).middle for figures in row.columns())
        ratio = measure.spread(row.ratios())
        quartiles = f"{ratio.low:.2f} to {ratio.high:.2f}" if len(row.ratios()) > 1 else "one figure"
        wanted = "-" if row.at_most is None else f"{row.at_most:g}"
        print(f"{row.what:<32}{ours:>11.2f} {row.unit}  {row.beside:<28}{peer:>11.2f} {row.unit}"
              f"{ratio.middle:>8.2f}  {quartiles:<16}{wanted:>8}{judge(row, ratio)}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("bin", "tessel", "tlx", "key"):
        parser.add_argument(f"--{name}", required=True)
    arguments = parser.parse_args()
    start = time.monotonic()
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
        starts = time_programs(arguments, one, work, environment)
        print(f"{'what':<32}{'ours':>14}  {'beside':<28}{'':>14}{'ratio':>8}"
              f"  {'quartiles':<16}{'at most':>8}")
        show(engine_rows(figures, starts))
        prepare = functools.partial(pack, arguments)
        # Before what deletes many files: for minutes each new one then costs ext4 a search for an inode
        # that nobody had a moment ago.
        trees = tree_bench.Rows(arguments.tessel, prepare, work, environment)
        show(trees.of_copies())
        show(registry_bench.rows(arguments.tessel, prepare, work, environment))
        show(rehearsal_bench.rows(arguments.tessel, arguments.tlx, prepare, work, environment))
        trusting = catalog_bench.trust(arguments.tlx, work)
        show(catalog_bench.rows(arguments.tessel, arguments.tlx, prepare, work, trusting))
        show(memory_bench.rows(arguments.tessel, arguments.tlx, prepare, work, environment, trusting))
        show(trees.of_the_rest())
    minutes, seconds = divmod(round(time.monotonic() - start), 60)
    print(f"The whole run took {minutes} min {seconds} s.")


if __name__ == "__main__":
    main()
