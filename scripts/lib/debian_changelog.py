"""Prints a changelog as Debian's packages have it, made from CHANGELOG.md. Fails when the newest
release there isn't --version.
"""

import argparse
import datetime
import re
import sys
import textwrap
from pathlib import Path

RELEASE = re.compile(r"^## (\S+) \((\d{4})-(\d{2})-(\d{2})\)$", re.MULTILINE)


def changes_of(text):
    """The entries of a release, "- ...", each as one line."""
    return [re.sub(r"\s+", " ", entry).strip() for entry in re.split(r"^- ", text, flags=re.MULTILINE)[1:]]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--version", required=True)
    parser.add_argument("--maintainer", required=True)
    parser.add_argument("file", type=Path)
    arguments = parser.parse_args()

    # The text before the first release, and then four groups and a text for each.
    parts = RELEASE.split(arguments.file.read_text(encoding="utf-8"))[1:]
    if not parts or parts[0] != arguments.version:
        sys.exit(f"{arguments.file} begins with {parts[0] if parts else 'no release'}, "
                 f"and the project's version is {arguments.version}")
    for version, year, month, day, text in zip(*[iter(parts)] * 5):
        date = datetime.datetime(int(year), int(month), int(day), tzinfo=datetime.timezone.utc)
        print(f"tessel ({version}) stable; urgency=medium\n")
        for change in changes_of(text):
            print(textwrap.fill(change, 78, initial_indent="  * ", subsequent_indent="    "))
        print(f"\n -- {arguments.maintainer}  {date.strftime('%a, %d %b %Y %H:%M:%S +0000')}\n")


main()
