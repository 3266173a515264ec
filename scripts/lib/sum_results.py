"""Prints the failures in files of results, why something was skipped, and a last line with the sums
of their counts."""

import collections
import json
import sys
from pathlib import Path


def main():
    totals = {"passed": 0, "failed": 0, "skipped": 0}
    failures = []
    reasons = collections.Counter()
    for path in map(Path, sys.argv[1:]):
        try:
            result = json.loads(path.read_text(encoding="utf-8"))
            counts = {key: int(result[key]) for key in totals}
        except (OSError, ValueError, KeyError, TypeError):
            result = {"failures": [f"{path.name} isn't a file of results"]}
            counts = {"passed": 0, "failed": 1, "skipped": 0}
        for key, count in counts.items():
            totals[key] += count
        failures += result.get("failures", [])
        reasons.update(result.get("reasons", {}))

    if reasons:
        print("\n== Skipped")
        for reason, count in sorted(reasons.items()):
            print(f"{count:4} {reason}")
    if failures:
        print("\n== Failures")
        for failure in failures:
            print("- " + str(failure).replace("\n", "\n    "))
        print()
    print(f"{totals['passed']} passed, {totals['failed']} failed, {totals['skipped']} skipped")
    sys.exit(1 if totals["failed"] else 0)


main()
