"""Checks the product's sources against the layers. It counts as one test, "layers".

CMake's DEPENDS say which folders and libraries a target uses, directly or through another. All
targets share one include root, so the compiler wouldn't notice an include of anything else.
"""

import argparse
import re
import sys
from pathlib import Path

import layout
import results

# The parts of platform/, and the parts that each may use beside itself and the shared headers.
PARTS = {
    "platform": {"formats"},
    "platform/formats": set(),
    "platform/windows": {"formats"},
    "platform/linux": {"formats"},
    "platform/offline/volume": {"formats", "linux"},
    "platform/offline/view": {"formats", "linux", "volume", "changes"},
    "platform/offline/environment": {"formats", "linux", "volume"},
    "platform/offline/registry": {"formats", "linux", "volume", "environment"},
    "platform/offline/changes": {"formats", "linux", "volume", "registry"},
    "platform/offline/commit": {"formats", "linux", "volume", "registry"},
    "platform/offline/machine": {"formats", "linux", "volume", "environment", "registry"},
    "platform/offline/profile": {"formats", "linux", "volume", "registry"},
    "platform/offline/process": {"formats", "linux", "volume", "environment", "registry"},
    "platform/offline/authenticode": {"formats", "linux", "volume", "registry"},
}
BACKENDS = ("platform/windows/", "platform/linux/", "platform/offline/")
# The parts that the layers above platform/ may use as well; bytes in, values out.
PORTABLE_PARTS = ("platform", "platform/formats")
LONGEST_PLATFORM_FILE = 500  # lines; what is longer has more than one subject
STREAMS_AND_FILES = {"cstdio", "filesystem", "fstream", "iostream", "istream", "ostream"}

# The compiler's own, for instructions that each x86-64 processor has, on either platform.
COMPILER_HEADERS = {"emmintrin.h"}

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)
PLATFORM_CONDITION = re.compile(
    r"^[ \t]*#[ \t]*(?:el)?if.*\b(_WIN32|_WIN64|__MINGW\w+|_MSC_VER|__linux__|__unix__)\b", re.MULTILINE)
TARGET = re.compile(r"^tessel_(?:library|program)\((\w+)([^)]*)\)", re.MULTILINE)
DEPENDENCY = re.compile(r"^[ \t]*tessel_dependency\((\w+)[^)]*?\bHEADER ([^\s)]+)", re.MULTILINE)
KEYWORDS = ("OBJECT", "SOURCES", "LINUX_SOURCES", "WINDOWS_SOURCES", "DEPENDS")


def read(path):
    return path.read_text(encoding="utf-8")


class Tree:
    def __init__(self, root):
        self.root = root
        self.targets = {}  # the name, with the folder and the names of what it depends on
        self.files = {}  # each file that a target lists: the targets' names
        self.backend_of = {}  # each file that is for one platform only: its folder in platform/
        self.libraries = {}  # the folders with a library: the library's name
        self.external = {header.split("/")[0]: name for name, header in DEPENDENCY.findall(
            read(root / "cmake/TesselDependencies.cmake"))}
        self.generated = {path.stem: path for path in (root / "cmake").glob("*.h.in")}
        for layer in layout.PRODUCT:
            for path in (root / layer).rglob("CMakeLists.txt"):
                self.add_targets(path)
        self.sources = {str(path.relative_to(root)): read(path) for layer in layout.PRODUCT
                        for path in (root / layer).rglob("*") if path.suffix in (".h", ".cpp")}
        self.includes = {name: INCLUDE.findall(text) for name, text in self.sources.items()}

    def add_targets(self, path):
        folder = str(path.parent.relative_to(self.root))
        text = re.sub(r"#.*", "", read(path))
        for name, arguments in TARGET.findall(text):
            keyword, depends = None, set()
            for word in arguments.split():
                if word in KEYWORDS:
                    keyword = word
                elif keyword == "DEPENDS":
                    depends.update(re.findall(r"(?:tessel|dep)_\w+", word))
                else:
                    file = f"{folder}/{word}"
                    self.files.setdefault(file, []).append(name)
                    if keyword != "SOURCES":
                        backend = "windows" if keyword == "WINDOWS_SOURCES" else "linux"
                        self.backend_of[file] = f"platform/{backend}"
            self.targets[name] = (folder, depends)
        for name in re.findall(r"^tessel_library\((\w+)", text, re.MULTILINE):
            self.libraries[folder] = name

    def folder_of(self, file):
        """The folder of the target that the file belongs to."""
        for parent in Path(file).parents:
            if str(parent) in self.libraries:
                return str(parent)
        return str(Path(file).parent)

    def reach(self, target):
        """Everything that the target depends on, and itself."""
        found, waiting = set(), [target]
        while waiting:
            name = waiting.pop()
            if name not in found:
                found.add(name)
                waiting += self.targets.get(name, ("", ()))[1]
        return found

    def targets_of(self, file):
        return self.files.get(file) or [self.libraries.get(self.folder_of(file))]

    # Each rule gives what is wrong with one include, or None.

    def wrong_layer(self, file, header):
        folder = self.folder_of(header)
        for target in self.targets_of(file):
            reach = self.reach(target)
            if folder != self.folder_of(file) and self.libraries.get(folder) not in reach:
                return f"{target} doesn't depend on {folder}/"
        return None

    def wrong_part(self, file, header):
        ours, theirs = part_of(file), part_of(header)
        if theirs is None or ours == theirs:
            return None
        if theirs not in PARTS:
            return f"{theirs}/ isn't a part of platform/ that this check knows"
        if ours is None:
            backend = self.backend_of.get(file)
            return None if theirs in (*PORTABLE_PARTS, backend) else f"{theirs}/ is platform/'s own"
        if ours not in PARTS:
            return f"{ours}/ isn't a part of platform/ that this check knows"
        if theirs != "platform" and Path(theirs).name not in PARTS[ours]:
            return f"{ours}/ may not use {theirs}/"
        if theirs.startswith("platform/offline/") and header != f"{theirs}/{Path(theirs).name}.h":
            return f"{theirs}/ offers {Path(theirs).name}.h only"
        return None

    def wrong_system_header(self, file, header):
        """The standard's own headers have no .h: those of C are included as <cerrno>, <cstdio>."""
        if header in STREAMS_AND_FILES and file.startswith("platform/formats/"):
            return "platform/formats/ reads and writes no file"
        library = self.external.get(header.split("/")[0])
        if library is not None:
            for target in self.targets_of(file):
                if library not in self.reach(target):
                    return f"{target} doesn't depend on {library}"
        elif (header.endswith(".h") and not file.startswith(BACKENDS)
              and not (header in COMPILER_HEADERS and file.startswith("support/"))):
            return "a header of the system, outside the platform's backends"
        return None

    def wrong_includes(self):
        for file, includes in sorted(self.includes.items()):
            for ours, systems in includes:
                if ours in self.generated:
                    continue
                if systems:
                    wrong = self.wrong_system_header(file, systems)
                elif ours not in self.sources:
                    wrong = "there is no such file below the source folder"
                else:
                    wrong = self.wrong_layer(file, ours) or self.wrong_part(file, ours)
                if wrong:
                    yield f"{file}: {ours or systems}: {wrong}"

    def platform_conditions(self):
        for file, text in sorted(self.sources.items()):
            found = PLATFORM_CONDITION.search(text)
            if found and not file.startswith("platform/windows/"):
                yield f"{file}: depends on {found[1]}; what differs belongs to platform/"

    def unlisted_files(self):
        for file in sorted(self.sources):
            if file.endswith(".cpp") and file not in self.files:
                yield f"{file}: no target lists it"

    def long_files(self):
        for file, text in sorted(self.sources.items()):
            if file.startswith("platform/") and text.count("\n") > LONGEST_PLATFORM_FILE:
                yield f"{file}: has more than {LONGEST_PLATFORM_FILE} lines"

    def circles(self):
        """One circle of headers for each that there is to be found from some header."""
        done, way = set(), []

        def visit(header):
            if header in way:
                yield " -> ".join([*way[way.index(header):], header])
            elif header not in done:
                way.append(header)
                for included, _ in self.includes.get(header, ()):
                    yield from visit(included)
                done.add(way.pop())

        for file in sorted(self.sources):
            if file.endswith(".h"):
                for circle in visit(file):
                    yield f"a circle of includes: {circle}"


def part_of(file):
    """The part of platform/ that a file belongs to: its folder."""
    folder = str(Path(file).parent)
    return folder if folder.split("/")[0] == "platform" else None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--json", type=Path, help="where to leave the result of the check")
    arguments = parser.parse_args()

    tree = Tree(arguments.root.resolve())
    found = [*tree.wrong_includes(), *tree.platform_conditions(), *tree.unlisted_files(),
             *tree.long_files(), *tree.circles()]
    print(f"== Layers: {len(found)} faults in {len(tree.sources)} files")
    if arguments.json:
        results.write(arguments.json, 1, ["\n".join(["layers:", *found])] if found else [])
    elif found:
        print(*found, sep="\n")
        sys.exit(1)


main()
