"""Merges reports of the kit that checks a real Windows into docs/conformance.md; see read-windows-report."""

import argparse
import dataclasses
import os
import re
import sys
import tempfile
from pathlib import Path

# A report is a stranger's file.
LARGEST = 1 << 20
SYSTEM = re.compile(r"(Linux|Wine \d+(?:\.\d+){0,3}|Windows \d+\.\d+\.\d+)(, without an administrator)?")
VERSION = re.compile(r"[0-9A-Za-z.+-]{1,60}")
NAME = re.compile(r"(platform|scripts|gates|hives|tools)/[0-9A-Za-z_./+-]{1,120}")
OUTCOMES = ("passed", "failed", "skipped", "unseen")
LONGEST_DETAIL = 400

COLUMNS = ("linux", "wine", "windows")
GROUPS = {
    "platform": ("Operations of the platform", "What `tests/platform/conformance_*` asks of each backend, by suite."),
    "scripts": ("Patch scripts", "Exit code, trace, streams, files and events of the scripts that the tests have, by "
                "family. On Windows they pass all the gates, with catalogs made there."),
    "gates": ("Patches behind the gates", "Folders whose catalogs were made and signed on Linux, and what was done to "
              "them since."),
    "hives": ("Hives", "Hives that `tlx machine create` made and a patch changed on Linux: each key and value as Windows "
              "has it after `RegLoadKey`, and what `reg query` shows."),
    "tools": ("Windows' own tools", "What PowerShell and certutil say of catalogs and signatures made on Linux."),
}
PAGE = """# Conformance

What is the same on a Windows volume that Linux works on, under Wine and on Windows, as far as the kit
([windows-kit.md](windows-kit.md)) has seen it. This page is made by `scripts/read-windows-report` from the reports in
[conformance/](conformance/): every figure is a run's. Why something differs stands in the
[table of differences](running-patches.md#what-differs-from-windows).

"Not seen" is what has not run there; the reasons are below.
"""


class BadReport(Exception):
    """What is wrong with a report."""


@dataclasses.dataclass
class Report:
    version: str
    system: str
    rows: dict  # name to (outcome, detail)

    @property
    def column(self):
        return self.system.split()[0].rstrip(",").lower()


def parse(path):
    if not path.is_file():
        raise BadReport("there is no such file")
    with open(path, "rb") as file:
        data = file.read(LARGEST + 1)
    if len(data) > LARGEST:
        raise BadReport(f"it is larger than {LARGEST} bytes")
    try:
        text = data.decode("utf-8")
    except UnicodeDecodeError as error:
        raise BadReport(f"it is not UTF-8: {error}") from None
    lines = text.replace("\r\n", "\n").split("\n")
    if lines[0] != "tessel-report 1":
        raise BadReport("it doesn't begin as a report does")
    if len(lines) < 5 or lines[-1] != "" or lines[-2] != f"end {len(lines) - 5}":
        raise BadReport("it isn't whole: its last line doesn't tell the number of its rows")
    version, system = lines[1].removeprefix("version "), lines[2].removeprefix("system ")
    if not VERSION.fullmatch(version) or not SYSTEM.fullmatch(system):
        raise BadReport("it doesn't tell what it is about: the version and the system")
    rows = {}
    for number, line in enumerate(lines[3:-2], 4):
        cells = line.split("\t")
        if (len(cells) != 3 or not NAME.fullmatch(cells[0]) or cells[1] not in OUTCOMES or cells[0] in rows
                or len(cells[2]) > LONGEST_DETAIL or not cells[2].isprintable()):
            raise BadReport(f"line {number} is no row, or one that was there before")
        rows[cells[0]] = cells[1], cells[2]
    if not rows:
        raise BadReport("it has no rows")
    return Report(version, system, rows)


def merge(reports, new):
    """Puts a report into its column. Gives how many rows changed, by name."""
    column = new.column
    known = new.rows if column == "linux" else reports["linux"].rows if "linux" in reports else {}
    unknown = sorted(new.rows.keys() - known.keys())
    if unknown:
        raise BadReport(f"these are no rows of the kit: {', '.join(unknown[:5])}. Its version is {new.version}: "
                        "read the report of Linux that was made with that kit first")
    old = reports.get(column)
    kept = old.rows if old and old.system == new.system and column != "linux" else {}
    merged = {name: row for name, row in {**kept, **new.rows}.items() if name in known}
    reports[column] = Report(new.version, new.system, merged)
    if column == "linux":
        for other in COLUMNS[1:]:
            if other in reports:
                reports[other].rows = {name: row for name, row in reports[other].rows.items() if name in known}
    before = old.rows if old else {}
    return sorted(name for name in {*before, *merged} if before.get(name) != merged.get(name))


# --- The page


def _code(text):
    """The text as Markdown's code, in which nothing else has a meaning."""
    fence = "`" * (max(map(len, re.findall("`+", text)), default=0) + 1)
    pad = " " if text.startswith("`") or text.endswith("`") else ""
    return f"{fence}{pad}{text}{pad}{fence}"


def _family(name):
    """What a row is counted under."""
    group, rest = name.split("/", 1)
    if group == "platform":
        return f"{group}/{rest.rsplit('.', 1)[0].split('/')[-1]}"
    separator = "." if group in ("hives", "tools") else "/"
    return f"{group}/{rest.split(separator)[0]}"


def _cell(report, names):
    if report is None:
        return "not seen"
    outcomes = [report.rows.get(name, ("unseen", ""))[0] for name in names]
    outcomes = ["not seen" if outcome in ("skipped", "unseen") else outcome for outcome in outcomes]
    told = [f"{outcomes.count(outcome)} {outcome}" for outcome in ("passed", "failed", "not seen")
            if outcome in outcomes]
    return "not seen" if told == [f"{len(names)} not seen"] else ", ".join(told)


def _rest(report):
    """What did not pass, by what is told of it."""
    reasons = {}
    for name, (outcome, detail) in report.rows.items():
        if outcome in ("failed", "skipped"):
            reasons.setdefault((outcome, detail), []).append(name)
    for (outcome, detail), names in sorted(reasons.items()):
        told = f": {_code(detail)}" if detail else ""
        yield f"- {'failed' if outcome == 'failed' else 'not seen'}{told}"
        yield f"  ({', '.join(_code(name) for name in sorted(names))})"


def page(reports):
    names = sorted(reports["linux"].rows)
    titles = []
    for column in COLUMNS:
        report = reports.get(column)
        titles.append(f"{report.system} ({report.version})" if report else column.capitalize())
    lines = [PAGE]
    for group, (title, what) in GROUPS.items():
        families = {}
        for name in names:
            if name.startswith(f"{group}/"):
                families.setdefault(_family(name), []).append(name)
        if families:
            lines += [f"## {title}", "", what, "", f"| | {' | '.join(titles)} |", "|---|---|---|---|"]
            for family, rows in families.items():
                cells = [_cell(reports.get(column), rows) for column in COLUMNS]
                lines.append(f"| {_code(family.split('/', 1)[1])} | {' | '.join(cells)} |")
            lines.append("")
    for column, title in zip(COLUMNS, titles):
        rest = list(_rest(reports[column])) if column in reports else []
        if rest:
            lines += [f"## What did not pass: {title}", "", *rest, ""]
    return "\n".join(lines).rstrip("\n") + "\n"


# --- The files


def folder_of(root):
    return root / "docs" / "conformance"


def load(root):
    return {column: parse(path) for column in COLUMNS
            if (path := folder_of(root) / f"{column}.txt").exists()}


def _replace(path, text):
    """All of the file or nothing."""
    path.parent.mkdir(exist_ok=True)
    handle, name = tempfile.mkstemp(dir=path.parent, prefix=f".{path.name}.")
    with open(handle, "w", encoding="utf-8", newline="\n") as file:
        file.write(text)
    os.chmod(name, 0o644)
    os.replace(name, path)


def save(root, reports):
    for column, report in reports.items():
        rows = [f"{name}\t{outcome}\t{detail}" for name, (outcome, detail) in sorted(report.rows.items())]
        lines = ["tessel-report 1", f"version {report.version}", f"system {report.system}", *rows,
                 f"end {len(rows)}"]
        _replace(folder_of(root) / f"{column}.txt", "\n".join(lines) + "\n")
    _replace(root / "docs" / "conformance.md", page(reports))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--check", action="store_true")
    parser.add_argument("reports", type=Path, nargs="*")
    arguments = parser.parse_args()
    path = None
    try:
        reports = load(arguments.root)
        if arguments.check:
            if (arguments.root / "docs" / "conformance.md").read_text(encoding="utf-8") != page(reports):
                sys.exit("docs/conformance.md is not what the reports in docs/conformance give")
            return
        for path in arguments.reports:
            report = parse(path)
            changed = merge(reports, report)
            counts = [f"{sum(row[0] == outcome for row in report.rows.values())} {outcome}" for outcome in OUTCOMES]
            print(f"{report.system} ({report.version}): {', '.join(counts)}; "
                  f"{len(changed) or 'no'} rows of the page's {len(reports['linux'].rows)} changed")
            for name in changed[:20]:
                print(f"  {name}: {' '.join(reports[report.column].rows.get(name, ('gone',)))[:100]}")
            if len(changed) > 20:
                print("  ...")
    except BadReport as fault:
        sys.exit(f"{path or 'docs/conformance'}: {fault}. Nothing was changed.")
    save(arguments.root, reports)


main()
