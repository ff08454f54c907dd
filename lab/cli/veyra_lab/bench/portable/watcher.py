"""Line 7: the watcher's look at the interfaces that are present."""

from collections.abc import Iterator

from ..table import Row, within
from .comparison import Comparison
from .programs import PortablePrograms

LINE = 7
_LINKS = (10, 1_000, 10_000, 100_000)
_BAR = 3
_LINEARITY = 0.1


def measure(programs: PortablePrograms) -> Iterator[Row]:
    """Refresh with two matching links among many, in time and instructions for each link."""
    comparison = Comparison(LINE, "Refresh, {} a link of ", "fold and search once", _LINKS, _BAR)
    yield from comparison.times(programs, "Refresh", "BareRefresh")
    counted = programs.instructions("refresh", _LINKS)
    yield from comparison.instructions(counted, programs.instructions("bare-refresh", _LINKS))
    most, many = _LINKS[-1], _LINKS[-3]
    yield within(
        LINE,
        f"Refresh, instructions a link of {most:,}",
        counted[most],
        counted[many],
        _LINEARITY,
        "",
        against=f"a link of {many:,}",
        bar="linear: within 10 %",
    )
