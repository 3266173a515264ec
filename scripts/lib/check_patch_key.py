"""Checks that nothing of the public key's text stands in the programs. It counts as one test."""

import argparse
from pathlib import Path

import results

# Short enough to find any piece of the key, long enough never to be found by chance.
PIECE = 8


def stands_in(program, lines):
    image = program.read_bytes()
    pieces = {line[start:start + PIECE].encode("ascii")
              for line in lines for start in range(len(line) - PIECE + 1)}
    return any(piece in image for piece in pieces)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--key", type=Path, required=True)
    parser.add_argument("--json", type=Path, required=True)
    parser.add_argument("programs", type=Path, nargs="+")
    arguments = parser.parse_args()

    # OpenSSL has the PEM labels themselves in its own text, so only the key's lines are looked for.
    lines = [line for line in arguments.key.read_text(encoding="ascii").splitlines()
             if not line.startswith("-----")]
    shown = [str(program) for program in arguments.programs if stands_in(program, lines)]
    failures = [f"patch key: its text stands in {', '.join(shown)}"] if shown else []
    results.write(arguments.json, 1, failures)
    print(f"== Patch key: {'stands in the clear' if failures else 'scrambled'} "
          f"in {len(arguments.programs)} programs")


main()
