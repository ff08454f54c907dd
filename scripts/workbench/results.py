"""Adds up the cases of a run: every test program, and pytest, leaves a JUnit file."""

import xml.etree.ElementTree as ElementTree
from collections import Counter
from collections.abc import Iterable
from pathlib import Path


def _count_file(path: Path) -> Counter[str]:
    counts: Counter[str] = Counter()
    for suite in ElementTree.parse(path).getroot().iter("testsuite"):
        for attribute in ("tests", "failures", "errors", "skipped", "disabled"):
            counts[attribute] += int(suite.get(attribute, 0))
    return counts


def closing_line(expected: Iterable[Path]) -> tuple[str, bool]:
    """ "N passed, N failed" with the skipped ones if there are any, and whether that is a success. A file that is not
    there or not whole is a program that did not run to its end: one failed case."""
    counts: Counter[str] = Counter()
    for path in expected:
        try:
            counts += _count_file(path)
        except (OSError, ElementTree.ParseError):
            print(f"{path.stem} did not run to its end")
            counts += Counter(tests=1, failures=1)
    failed = counts["failures"] + counts["errors"]
    passed = counts["tests"] - failed - counts["skipped"] - counts["disabled"]
    line = f"{passed} passed, {failed} failed"
    if counts["skipped"]:
        line += f", {counts['skipped']} skipped"
    return line, passed > 0 and failed == 0
