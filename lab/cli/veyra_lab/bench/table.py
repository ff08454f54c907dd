"""The table of measurements: its rows, on the screen and as JSON."""

from collections.abc import Sequence
from dataclasses import asdict, dataclass
from typing import Any

from ..terminal.screen import Screen
from ..terminal.table import Table

_TIMES = ("s", "ms", "us", "ns")


@dataclass(frozen=True)
class Row:
    """One figure of the product beside its reference."""

    line: int
    what: str
    ours: float
    reference: float | None
    unit: str
    # What the reference is.
    against: str
    # In words; empty for a figure that has none and stands in the table for the others' sake.
    bar: str = ""
    holds: bool | None = None
    # What a reader has to know of it: why it cannot hold, or what is counted.
    note: str = ""
    # The note says why it cannot hold here.
    excused: bool = False

    @property
    def is_missed(self) -> bool:
        """Whether the bar does not hold, and should."""
        return self.holds is False and not self.excused

    @property
    def ratio(self) -> float | None:
        """Ours in units of the reference."""
        return None if not self.reference else self.ours / self.reference

    def as_json(self) -> dict[str, Any]:
        """The row for other programs to read."""
        return {**asdict(self), "ratio": self.ratio}


@dataclass(frozen=True)
class Failure:
    """A measurement that could not be made."""

    line: int
    what: str
    why: str


def at_most(
    line: int,
    what: str,
    ours: float,
    limit: float,
    unit: str,
    *,
    against: str = "",
    reference: float | None = None,
    note: str = "",
) -> Row:
    """A row whose bar is a limit in its own unit."""
    bar = f"at most {_counted(limit, unit)}"
    return Row(line, what, ours, reference, unit, against, bar, ours <= limit, note)


def ratio_at_most(
    line: int, what: str, ours: float, reference: float, limit: float, unit: str, *, against: str, note: str = ""
) -> Row:
    """A row whose bar is a multiple of the reference."""
    bar = f"ratio at most {limit:g}"
    return Row(line, what, ours, reference, unit, against, bar, ours <= limit * reference, note)


def above_at_most(
    line: int,
    what: str,
    ours: float,
    reference: float,
    limit: float,
    unit: str,
    *,
    against: str,
    note: str = "",
    excused: bool = False,
) -> Row:
    """A row whose bar is what it may have more than the reference."""
    bar = f"at most {_counted(limit, unit)} more"
    holds = ours - reference <= limit
    return Row(line, what, ours, reference, unit, against, bar, holds, note, excused and not holds)


def exactly(
    line: int,
    what: str,
    ours: float,
    wanted: float,
    unit: str,
    *,
    against: str,
    reference: float | None,
    bar: str,
    note: str = "",
) -> Row:
    """A row whose bar is one number."""
    return Row(line, what, ours, reference, unit, against, bar, ours == wanted, note)


def within(
    line: int, what: str, ours: float, reference: float, share: float, unit: str, *, against: str, bar: str
) -> Row:
    """A row that may differ from its reference by a share of it, upwards and downwards."""
    return Row(line, what, ours, reference, unit, against, bar, abs(ours - reference) <= share * abs(reference))


def _counted(limit: float, unit: str) -> str:
    """A limit in its own unit, which is none of time: how long things take is the machine's business."""
    if unit in _TIMES:
        raise ValueError(f"a limit of {limit} {unit} would judge the machine; a time is told, or judged by its ratio")
    return f"{_number(limit)} {unit}".rstrip()


def _number(value: float | None) -> str:
    if value is None:
        return "-"
    if value == int(value):
        return f"{int(value):,}"
    return f"{value:,.1f}" if abs(value) >= 100 else f"{value:,.3g}"


def show(rows: Sequence[Row], screen: Screen) -> None:
    """The rows as a table, their notes below it."""
    notes = list(dict.fromkeys(row.note for row in rows if row.note))
    cells = [
        (
            str(row.line),
            row.what,
            _number(row.ours),
            _number(row.reference),
            row.unit,
            "-" if row.ratio is None else f"{row.ratio:,.3f}" if row.ratio < 1000 else f"{row.ratio:,.0f}",
            row.against or "-",
            row.bar or "-",
            "-" if row.holds is None else "yes" if row.holds else "NO",
            f"[{notes.index(row.note) + 1}]" if row.note else "",
        )
        for row in rows
    ]
    head = ("", "what", "ours", "reference", "unit", "ratio", "against", "bar", "holds", "")
    screen.table(Table(cells, head, right=frozenset({0, 2, 3, 5})))
    for number, note in enumerate(notes, 1):
        screen.line(f"[{number}] {note}")
