"""Runs the test executables of one platform and leaves their counts in a JSON file.

The build's tests.txt names the executables, unless the command line does. Each runs once, with the
source folder as the current directory and a temporary folder and a machine folder of its own. An
executable that crashes, hangs or leaves no result counts as a failure, whatever its tests said
before.
"""

import argparse
import collections
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
from pathlib import Path

# Far above what any executable needs: only one that hangs is ended.
LONGEST_RUN_IN_SECONDS = 900
SKIPPED = re.compile(r": Skipped\s*\n(.*\S)\s*\n")


class Counts:
    def __init__(self):
        self.passed = 0
        self.skipped = 0
        self.reasons = collections.Counter()
        self.failures = []

    def add(self, other):
        self.passed += other.passed
        self.skipped += other.skipped
        self.reasons += other.reasons
        self.failures += other.failures

    def as_json(self):
        return {"passed": self.passed, "failed": len(self.failures), "skipped": self.skipped,
                "reasons": self.reasons, "failures": self.failures}


def count_tests(results, label):
    counts = Counts()
    for suite in results.get("testsuites", []):
        for test in suite.get("testsuite", []):
            name = f"{label}: {suite['name']}.{test['name']}"
            if "value_param" in test:
                name += f" ({test['value_param'][:60]})"
            if test.get("failures"):
                texts = [failure["failure"].strip() for failure in test["failures"]]
                counts.failures.append("\n".join([name, *texts]))
            elif test.get("status") == "NOTRUN" or test.get("result") == "SKIPPED":
                counts.skipped += 1
            else:
                counts.passed += 1
    return counts


def environment_for(folder, wine):
    environment = dict(os.environ)
    for name in list(environment):
        # A filter or a shard in the caller's environment would leave tests out unnoticed.
        if name.startswith("GTEST_") or name == "TESSEL_MACHINE":
            del environment[name]
    environment["XDG_DATA_HOME"] = str(folder / "data")
    if not wine:
        environment["TMPDIR"] = str(folder)
    return environment


def end_group(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


def run_to_end(command, folder, log, arguments):
    """Returns what is wrong with how the command ended, or None."""
    try:
        # A file and not a pipe, which a child left behind by a hanging test would keep open.
        process = subprocess.Popen(command, cwd=arguments.root, stdin=subprocess.DEVNULL, stdout=log,
                                   stderr=subprocess.STDOUT, start_new_session=True,
                                   env=environment_for(folder, arguments.wine))
    except OSError as error:
        return f"can't be started: {error.strerror}"
    try:
        status = process.wait(timeout=LONGEST_RUN_IN_SECONDS)
    except subprocess.TimeoutExpired:
        end_group(process)
        return f"was stopped after {LONGEST_RUN_IN_SECONDS} seconds"
    except BaseException:
        end_group(process)
        raise
    if status < 0:
        return f"was ended by signal {-status}"
    return f"ended with exit code {status}" if status else None


def run(executable, label, arguments):
    output = arguments.json.with_suffix("") / f"{executable.stem}.json"
    output.parent.mkdir(parents=True, exist_ok=True)
    output_name = "Z:" + str(output).replace("/", "\\") if arguments.wine else str(output)
    command = [arguments.wine] if arguments.wine else []
    command += [str(executable), f"--gtest_output=json:{output_name}", "--gtest_color=no"]
    log_path = output.with_suffix(".log")
    folder = Path(tempfile.mkdtemp(prefix="tessel-test-"))
    # Tests that become another user still have to reach their files in it.
    folder.chmod(0o755)
    try:
        with open(log_path, "wb") as log:
            trouble = run_to_end(command, folder, log, arguments)
    finally:
        subprocess.run(["chmod", "-R", "u+rwX", str(folder)], check=False)
        shutil.rmtree(folder, ignore_errors=True)

    counts = Counts()
    try:
        counts = count_tests(json.loads(output.read_text(encoding="utf-8", errors="replace")), label)
        # The results don't have the reasons, but the log does.
        counts.reasons.update(SKIPPED.findall(log_path.read_text(encoding="utf-8", errors="replace")))
    except (OSError, ValueError):
        trouble = trouble or "left no result"
    # Exit code 1 only repeats the failures that are already counted.
    if trouble and not (counts.failures and trouble == "ended with exit code 1"):
        text = log_path.read_text(encoding="utf-8", errors="replace")
        counts.failures.append("\n".join([f"{label} {trouble}", *text.strip().splitlines()[-60:]]))
    elif counts.passed + counts.skipped + len(counts.failures) == 0:
        counts.failures.append(f"{label} has no tests")
    return counts


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--platform", choices=("linux", "windows"), required=True)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--wine", help="the program that runs Windows programs")
    parser.add_argument("--json", type=Path, required=True)
    parser.add_argument("--label", help="what the results call the platform")
    parser.add_argument("tests", nargs="*", metavar="TEST")
    arguments = parser.parse_args()

    names = arguments.tests or (arguments.build / "tests.txt").read_text(encoding="utf-8").split()
    suffix = ".exe" if arguments.platform == "windows" else ""
    total = Counts()
    label = arguments.label or arguments.platform
    print(f"== Unit tests, {label}")
    for name in names:
        counts = run(arguments.build / "tests" / (name + suffix), f"{label}/{name}", arguments)
        print(f"{name}: {counts.passed} passed, {len(counts.failures)} failed, "
              f"{counts.skipped} skipped", flush=True)
        total.add(counts)
    if not names:
        total.failures.append(f"{arguments.platform}: there are no test executables")
    arguments.json.write_text(json.dumps(total.as_json()), encoding="utf-8")


main()
