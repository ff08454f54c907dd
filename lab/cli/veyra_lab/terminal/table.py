"""Tables: aligned lines in a pipe, fitted to the window on a terminal."""

from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field

from rich import box
from rich.table import Table as RichTable
from rich.text import Text

_GOOD, _BAD = ("yes", "held"), ("NO", "FAILED")


@dataclass(frozen=True)
class Table:
    """Rows of texts. On a terminal the last column is cut when there is no head, and wrapped when there is one."""

    rows: Sequence[Sequence[str]]
    head: Sequence[str] = ()
    # The columns that are aligned on the right.
    right: frozenset[int] = field(default=frozenset())

    def lines(self) -> list[str]:
        """Every row in one line, however long."""
        whole = [self.head, *self.rows] if self.head else [*self.rows]
        widths = [max(map(len, column)) for column in zip(*whole)]
        lines = [self._aligned(row, widths) for row in whole]
        if self.head:
            lines.insert(1, "  ".join("-" * width for width in widths).rstrip())
        return lines

    def __rich__(self) -> RichTable:
        shown = RichTable(box=box.SIMPLE_HEAD if self.head else None, show_header=bool(self.head), pad_edge=False)
        for column in range(max(map(len, self.rows), default=0)):
            shown.add_column(
                self.head[column] if self.head else "",
                justify="right" if column in self.right else "left",
                no_wrap=not self.head,
                overflow="fold" if self.head else "ellipsis",
                # What a person types is never cut.
                min_width=max(len(row[0]) for row in self.rows) if column == 0 else None,
                style="bold" if column == 0 and not self.head else "",
            )
        for row in self.rows:
            shown.add_row(*(Text(cell, style_of(cell)) for cell in row))
        return shown

    def _aligned(self, cells: Iterable[str], widths: Sequence[int]) -> str:
        placed = (
            cell.rjust(width) if column in self.right else cell.ljust(width)
            for column, (cell, width) in enumerate(zip(cells, widths))
        )
        return "  ".join(placed).rstrip()


def style_of(verdict: str) -> str:
    """The colour of a word that says whether something held, none for any other."""
    return "green" if verdict in _GOOD else "bold red" if verdict in _BAD else ""
