"""Adds up the cases of a run: every test program, and pytest, leaves a JUnit file."""

import xml.etree.ElementTree as ElementTree
from collections import Counter
from collections.abc import Iterable
from pathlib import Path


def _outcome(case: ElementTree.Element) -> str:
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    return "skipped" if case.find("skipped") is not None else "passed"


def _say_why(case: ElementTree.Element) -> None:
    reason = case.find("skipped")
    text = "" if reason is None else reason.get("message") or reason.text or ""
    last = (text.strip() or "no reason").splitlines()[-1]
    print(f"skipped: {case.get('classname')}.{case.get('name')}: {last}")


def closing_line(files: Iterable[Path], held: bool) -> tuple[str, bool]:
    """ "N passed, N failed" with the skipped ones if there are any, and whether that is a success. Why a case was
    skipped is printed. A file that is not there or not whole is a program that did not run to its end: one failed case.
    So is a run that did not hold though every case did."""
    outcomes: Counter[str] = Counter()
    for path in files:
        try:
            cases = list(ElementTree.parse(path).getroot().iter("testcase"))
        except (OSError, ElementTree.ParseError):
            print(f"{path.stem} did not run to its end")
            outcomes["failed"] += 1
            continue
        for case in cases:
            if case.get("status") == "notrun":
                continue
            outcome = _outcome(case)
            outcomes[outcome] += 1
            if outcome == "skipped":
                _say_why(case)
    if not held and not outcomes["failed"]:
        outcomes["failed"] = 1
    line = f"{outcomes['passed']} passed, {outcomes['failed']} failed"
    if outcomes["skipped"]:
        line += f", {outcomes['skipped']} skipped"
    return line, outcomes["passed"] > 0 and not outcomes["failed"]
