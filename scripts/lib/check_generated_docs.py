"""Checks that the files in docs/ that tlx makes are what it makes today. Each counts as one test.

With --update it writes them anew instead.
"""

import argparse
import json
import subprocess
from pathlib import Path

# The file and what prints it, from the source folder.
MADE = {
    "docs/language.md": ["reference", "--examples", "docs/examples"],
}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--tlx", type=Path, required=True)
    parser.add_argument("--json", type=Path)
    parser.add_argument("--update", action="store_true")
    arguments = parser.parse_args()

    failures = []
    for name, options in MADE.items():
        run = subprocess.run([arguments.tlx.resolve(), *options], cwd=arguments.root,
                             capture_output=True, check=False)
        file = arguments.root / name
        if run.returncode != 0:
            failures.append(f"{name}: tlx failed\n{run.stderr.decode(errors='replace')}")
        elif arguments.update:
            file.write_bytes(run.stdout)
        elif not file.is_file() or file.read_bytes() != run.stdout:
            failures.append(f"{name} isn't what tlx prints: run scripts/lib/check_generated_docs.py "
                            f"--root . --tlx {arguments.tlx} --update")
    if arguments.json:
        result = {"passed": len(MADE) - len(failures), "failed": len(failures), "skipped": 0,
                  "failures": failures}
        arguments.json.write_text(json.dumps(result), encoding="utf-8")
    print(f"== Generated documents: {len(failures)} of {len(MADE)} are stale")
    for failure in failures if not arguments.json else ():
        print(failure)


main()
