"""The rows of docs/operations.md that go from a symptom to its cause."""

import re
from dataclasses import dataclass
from functools import cache
from pathlib import Path

from ..checkout import CHECKOUT

OPERATIONS = CHECKOUT / "docs" / "operations.md"
_HEADING = "## From symptom to cause"
_ROW = re.compile(r"^\| `(?P<name>[a-z-]+)` \|(?P<cells>.*)\|$")
_LINK = re.compile(r"\[([^\]]*)\]\([^)]*\)")


@dataclass(frozen=True)
class Row:
    """One row: a symptom, where to look, the cause, and what to do, all without Markdown's signs. An empty `remedy`:
    nothing is to be done."""

    name: str
    symptom: str
    sign: str
    cause: str
    remedy: str


@cache
def rows(path: Path = OPERATIONS) -> dict[str, Row]:
    """Every row by its name, in the order of the table. A row without a symptom has that of the row above."""
    found: dict[str, Row] = {}
    symptom = ""
    table = path.read_text(encoding="utf-8").partition(_HEADING)[2].partition("\n## ")[0]
    for line in table.splitlines():
        if match := _ROW.match(line):
            cells = [_plain(cell) for cell in match["cells"].split("|")]
            symptom = cells[0] or symptom
            found[match["name"]] = Row(match["name"], symptom, *cells[1:])
    return found


def _plain(cell: str) -> str:
    return _LINK.sub(r"\1", cell).replace("`", "").strip()
