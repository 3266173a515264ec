"""The file of results that each check leaves for sum_results.py."""

import json


def write(path, checks, failures):
    """`checks` is how many there were; each entry of `failures` is one that failed, and its text."""
    result = {"passed": checks - len(failures), "failed": len(failures), "skipped": 0,
              "failures": failures}
    path.write_text(json.dumps(result), encoding="utf-8")
