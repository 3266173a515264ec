"""Runs clang-tidy-14 over the sources of a build, several at a time. It counts as one test, "tidy".

A source without findings isn't checked again as long as its code, the code of our headers that it
includes, its compile command, .clang-tidy and clang-tidy are the same.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import re
import subprocess
import sys
import time
from pathlib import Path

import layout
import results

TIDY = "clang-tidy-14"
FINDING = re.compile(r"^(/\S+?):(\d+):(\d+): (?:warning|error): (.*)$")
INCLUDE = re.compile(rb'^[ \t]*#[ \t]*include[ \t]*"([^"]+)"', re.MULTILINE)
# Of comments, the checks see how long they make a function, and a NOLINT. A line at the left margin is
# in no function.
OUTER_COMMENT = re.compile(rb"^//(?!.*NOLINT).*\n", re.MULTILINE)
INNER_COMMENT = re.compile(rb"^[ \t]+//(?!.*NOLINT).*$", re.MULTILINE)
DAYS_KEPT = 30


class Tidy:
    def __init__(self, root, build, cache):
        self.root = root
        self.build = build
        self.cache = cache
        self.version = subprocess.run([TIDY, "--version"], capture_output=True, check=True).stdout
        self.texts = {}
        entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
        # A source of several targets is checked once.
        self.commands = {Path(entry["file"]): entry["command"] for entry in entries
                         if self.is_ours(Path(entry["file"]))}

    def is_ours(self, file):
        return file.is_relative_to(self.root) and \
            file.relative_to(self.root).parts[0] in layout.SOURCES

    def code(self, file):
        if file not in self.texts:
            self.texts[file] = INNER_COMMENT.sub(b"", OUTER_COMMENT.sub(b"", file.read_bytes()))
        return self.texts[file]

    def with_headers(self, file):
        """The file and our headers that it includes, directly or through another."""
        folders = [self.root, *map(Path, re.findall(r" -I(\S+)", self.commands[file]))]
        found, waiting = {file}, [file]
        while waiting:
            for name in INCLUDE.findall(self.code(waiting.pop())):
                places = (folder / os.fsdecode(name) for folder in folders)
                header = next((place for place in places if place.is_file()), None)
                if header is not None and header not in found:
                    found.add(header)
                    waiting.append(header)
        return found

    def key(self, file):
        # Relative paths, so that other checkouts with the same code find it too.
        command = self.commands[file].replace(str(self.root), "")
        digest = hashlib.sha256(self.version)
        for folder in file.relative_to(self.root).parents:
            settings = self.root / folder / ".clang-tidy"
            digest.update(settings.read_bytes() if settings.is_file() else b"")
        digest.update(command.encode())
        for path in sorted(self.with_headers(file)):
            digest.update(f"\n{path.relative_to(self.root)} {len(self.code(path))}\n".encode())
            digest.update(self.code(path))
        return digest.hexdigest()

    def findings(self, file):
        """What is wrong in the file and its headers; None when they are known to be clean."""
        clean = self.cache / self.key(file)
        if clean.exists():
            os.utime(clean)
            return None
        run = subprocess.run([TIDY, "--quiet", "-p", self.build, file], capture_output=True,
                             text=True, errors="replace", check=False)
        found = []
        for line in run.stdout.splitlines():
            match = FINDING.match(line)
            if match:
                path = os.path.relpath(match[1], self.root)
                found.append(f"{path}:{match[2]}:{match[3]}: {match[4]}")
        if run.returncode != 0 and not found:
            name = file.relative_to(self.root)
            found.append(f"{name}: {TIDY} ended with {run.returncode}: {run.stderr.strip()}")
        if not found:
            clean.touch()
        return found

    def forget_old(self):
        oldest = time.time() - DAYS_KEPT * 24 * 60 * 60
        for path in self.cache.iterdir():
            if path.stat().st_mtime < oldest:
                path.unlink(missing_ok=True)

    def chosen(self, names):
        """The sources that are named, and those that include a header that is named."""
        if not names:
            return set(self.commands)
        chosen = set()
        for name in names:
            file = Path(os.path.abspath(name))
            users = {file} if file in self.commands else {
                source for source in self.commands if file in self.with_headers(source)}
            if not users:
                sys.exit(f"scripts/tidy: no source of {self.build.name} is {name} or includes it")
            chosen |= users
        return chosen


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--cache", type=Path, required=True)
    parser.add_argument("--json", type=Path, help="where to leave the result of the check")
    parser.add_argument("files", nargs="*", metavar="FILE")
    arguments = parser.parse_args()

    start = time.monotonic()
    arguments.cache.mkdir(parents=True, exist_ok=True)
    tidy = Tidy(arguments.root.resolve(), arguments.build.resolve(), arguments.cache)
    # The longest first, so that none of them is left for the end.
    files = sorted(tidy.chosen(arguments.files), key=lambda file: -len(tidy.code(file)))
    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        answers = list(pool.map(tidy.findings, files))
    tidy.forget_old()
    # Sources that include a header all report its findings.
    found = set().union(*(lines for lines in answers if lines))
    print(f"== clang-tidy: {len(found)} findings in {len(files)} sources, "
          f"{answers.count(None)} of them unchanged, {time.monotonic() - start:.0f} s")
    if arguments.json:
        results.write(arguments.json, 1, ["\n".join(["tidy:", *sorted(found)])] if found else [])
    else:
        print(*sorted(found), sep="\n", end="\n" if found else "")
        sys.exit(1 if found else 0)


main()
