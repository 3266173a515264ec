"""Checks that the programs contain no piece of the public key's text. It counts as one test."""

import argparse
from pathlib import Path

import results

# Short enough to find any piece of the key, long enough not to occur by chance.
PIECE = 8


def has_piece(program, lines):
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

    # OpenSSL's own text has the PEM labels, so only the lines between them count.
    lines = [line for line in arguments.key.read_text(encoding="ascii").splitlines()
             if not line.startswith("-----")]
    shown = [str(program) for program in arguments.programs if has_piece(program, lines)]
    failures = [f"patch key: its text is in {', '.join(shown)}"] if shown else []
    results.write(arguments.json, 1, failures)
    print(f"== Patch key: {'in the clear' if failures else 'scrambled'} "
          f"in {len(arguments.programs)} programs")


main()
