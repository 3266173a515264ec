"""Checks that all code in the Windows programs that isn't ours comes from the components whose licences
go along: compares what the linker's maps name with the list of components.
"""

import argparse
import re
import sys
from pathlib import Path

# A member of an archive that was linked, and an object file.
LINKED = re.compile(r"^(?:(\S+\.a)\(|LOAD (\S+\.(?:o|obj))$)", re.MULTILINE)
# What we compile, and what the linker itself makes for imported data.
OURS = re.compile(r"(^|/)libtessel_\w+\.a$|(^|/)CMakeFiles/|^\w+_exe_e?rtr\d+\.o$")


def read_list(path):
    """What the linker takes from each component: pairs of a component and an end or a folder."""
    rows = [line.split() for line in path.read_text(encoding="utf-8").splitlines()
            if line and not line.startswith("#")]
    return [(row[0], row[2]) for row in rows if len(row) == 3]


def component_of(file, known):
    for component, place in known:
        if place.startswith("dir:") and file.startswith(place[len("dir:"):]):
            return component
        if f"/{file}".endswith(place):
            return component
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--list", type=Path, required=True)
    parser.add_argument("maps", type=Path, nargs="+")
    arguments = parser.parse_args()

    known = read_list(arguments.list)
    files = {str(Path(found).resolve()) if found.startswith("/") else found
             for path in arguments.maps
             for pair in LINKED.findall(path.read_text(encoding="utf-8", errors="replace"))
             for found in pair if found}
    theirs = {file: component_of(file, known) for file in files if not OURS.search(file)}
    unknown = sorted(file for file, component in theirs.items() if component is None)
    unused = {component for component, _ in known} - set(theirs.values())
    for file in unknown:
        print(f"{file}: no licence in {arguments.list} is for it")
    for component in sorted(unused):
        print(f"{component}: its licence goes along, and nothing of it is linked")
    sys.exit(1 if unknown or unused else 0)


main()
