"""Checks all our C++ with clang-format. It counts as one test, "formatting"."""

import argparse
import subprocess
from pathlib import Path

import layout
import results


def sources(root):
    return sorted(path for folder in layout.SOURCES for path in (root / folder).rglob("*")
                  if path.suffix in (".h", ".cpp") and path.is_file())


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    action = parser.add_mutually_exclusive_group(required=True)
    action.add_argument("--json", type=Path, help="where to leave the result of the check")
    action.add_argument("--fix", action="store_true", help="format the sources in place")
    arguments = parser.parse_args()

    files = [str(path.relative_to(arguments.root)) for path in sources(arguments.root)]
    if arguments.fix:
        if files:
            subprocess.run(["clang-format-14", "-i", *files], cwd=arguments.root, check=True)
        return

    failures = []
    if files:
        check = subprocess.run(["clang-format-14", "--dry-run", "-Werror", *files],
                               cwd=arguments.root, capture_output=True, text=True, check=False)
        if check.returncode != 0:
            wrong = sorted({line.split(":", 1)[0] for line in check.stderr.splitlines()
                            if "[-Wclang-format-violations]" in line})
            failures.append("formatting: scripts/format would change "
                            + (", ".join(wrong) or check.stderr.strip()))
    results.write(arguments.json, 1, failures)
    print(f"== Formatting: {'wrong' if failures else 'right'} ({len(files)} files)")


main()
