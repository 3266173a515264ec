"""Checks that the tests are no more than a third of the product, in lines. It counts as one test.

Everything that git tracks below tests/ counts, data included; of the product its sources, headers
and CMake files do, and what integrations have of Python and YAML.
"""

import argparse
import subprocess
from pathlib import Path

import layout
import results

PRODUCT_FILES = (".h", ".cpp", ".cmake", "CMakeLists.txt")
INTEGRATION_FILES = (".py", ".yml")


def tracked(root, *folders):
    # A checkout may belong to another account than the one that tests it.
    run = subprocess.run(["git", "-c", "safe.directory=*", "ls-files", "-z", *folders], cwd=root,
                         capture_output=True, text=True, check=True)
    # What is moved or removed and not committed yet is still listed.
    return [path for path in map(root.joinpath, run.stdout.split("\0")[:-1]) if path.is_file()]


def lines(paths):
    return sum(path.read_bytes().count(b"\n") for path in paths)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--json", type=Path, help="where to leave the result of the check")
    arguments = parser.parse_args()

    tests = lines(tracked(arguments.root, "tests"))
    product = lines(path for path in tracked(arguments.root, *layout.PRODUCT)
                    if path.name.endswith(PRODUCT_FILES))
    product += lines(path for path in tracked(arguments.root, "integrations")
                     if path.name.endswith(INTEGRATION_FILES))
    share = f"{tests} lines of tests, {product} of the product, {100 * tests / product:.1f} %"
    print(f"== Share of tests: {share}")
    if arguments.json:
        failures = [f"share of tests: {share}: more than a third"] if 3 * tests > product else []
        results.write(arguments.json, 1, failures)


main()
