"""Checks that the files in docs/ that tlx makes are what it makes today, on each platform. Each file
of each platform counts as one test.

With --update it writes them instead.
"""

import argparse
import subprocess
from pathlib import Path

import results

# The file and what prints it, from the source folder.
MADE = {
    "docs/language.md": ["reference", "--examples", "docs/examples"],
    "docs/patch.xsd": ["schema"],
}


def print_with(program, options, folder):
    command = ["wine"] if program.suffix == ".exe" else []
    run = subprocess.run([*command, program.resolve(), *options], cwd=folder, capture_output=True,
                         check=False)
    # On Windows standard output ends its lines with CR LF.
    return run, run.stdout.replace(b"\r\n", b"\n")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--tlx", type=Path, nargs="+", required=True)
    parser.add_argument("--json", type=Path)
    parser.add_argument("--update", action="store_true")
    arguments = parser.parse_args()

    made = [(program, name) for program in arguments.tlx for name in MADE]
    failures = []
    for program, name in made:
        run, text = print_with(program, MADE[name], arguments.root)
        file = arguments.root / name
        if run.returncode != 0:
            failures.append(f"{name}: {program.name} failed\n{run.stderr.decode(errors='replace')}")
        elif arguments.update:
            file.write_bytes(text)
        elif not file.is_file() or file.read_bytes() != text:
            failures.append(f"{name} isn't what {program.name} prints: run "
                            f"scripts/lib/check_generated_docs.py --root . --tlx {program} --update")
    if arguments.json:
        results.write(arguments.json, len(made), failures)
    print(f"== Generated documents: {len(failures)} of {len(made)} are stale")
    for failure in failures if not arguments.json else ():
        print(failure)


main()
