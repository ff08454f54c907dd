"""A work and the bare one beside it, for each of several sizes: the rows that compare their times and instructions."""

from collections.abc import Iterator, Sequence
from dataclasses import dataclass

from ..table import Row, ratio_at_most
from .programs import PortablePrograms

# Stands under the table where times are told.
_PAIRS = "The ratio is the median of pairs, each work right after its reference; ours is the reference's median time by it."


@dataclass(frozen=True)
class Comparison:
    """What is compared, and the bar for its ratio. `what` is a row's name, with {} where "time" or "instructions" stands and
    the size behind it."""

    line: int
    what: str
    against: str
    sizes: Sequence[int]
    bar: float

    def times(self, programs: PortablePrograms, work: str, bare: str) -> Iterator[Row]:
        """The times of two of the benchmarks, for one piece of the work."""
        times = programs.times(work, bare)
        for size in self.sizes:
            ours, reference = times[size].ours / size, times[size].bare / size
            yield self._row("time", size, ours, reference, "ns", _PAIRS)

    def instructions(self, counted: dict[int, float], bare: dict[int, float]) -> Iterator[Row]:
        """What was counted, for one piece of the work."""
        for size in self.sizes:
            yield self._row("instructions", size, counted[size], bare[size], "", "")

    def _row(self, kind: str, size: int, ours: float, reference: float, unit: str, note: str) -> Row:
        name = f"{self.what.format(kind)}{size:,}"
        return ratio_at_most(self.line, name, ours, reference, self.bar, unit, against=self.against, note=note)
