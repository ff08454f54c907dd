"""Line 7: the watcher's look at the interfaces that are present."""

from collections.abc import Iterator

from ..table import Row, ratio_at_most, within
from .programs import PAIRS, PortablePrograms

LINE = 7
_LINKS = (10, 1_000, 10_000, 100_000)
_BAR = 3
_LINEARITY = 0.1
_AGAINST = "fold and search once"


def measure(programs: PortablePrograms) -> Iterator[Row]:
    """Refresh with two matching links among many, in time and instructions for each link."""
    times = programs.times("Refresh", "BareRefresh")
    counted = {
        (work, links): programs.instructions(work, links) / links
        for work in ("refresh", "bare-refresh")
        for links in _LINKS
    }
    for links in _LINKS:
        time = times[links]
        yield ratio_at_most(
            LINE,
            f"Refresh, time a link of {links:,}",
            time.ours / links,
            time.bare / links,
            _BAR,
            "ns",
            against=_AGAINST,
            note=PAIRS,
        )
    for links in _LINKS:
        yield ratio_at_most(
            LINE,
            f"Refresh, instructions a link of {links:,}",
            counted["refresh", links],
            counted["bare-refresh", links],
            _BAR,
            "",
            against=_AGAINST,
        )
    most, many = _LINKS[-1], _LINKS[-3]
    yield within(
        LINE,
        f"Refresh, instructions a link of {most:,}",
        counted["refresh", most],
        counted["refresh", many],
        _LINEARITY,
        "",
        against=f"a link of {many:,}",
        bar="linear: within 10 %",
    )
