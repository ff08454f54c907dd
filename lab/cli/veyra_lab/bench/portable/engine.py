"""Line 2: the protocol engine beside a bare loop that makes the same transfers."""

from collections.abc import Iterator

from ..table import Row, exactly, within
from .comparison import Comparison
from .programs import PortablePrograms

LINE = 2
_BLOCKS = (1_000, 10_000, 65_000)
_BAR = 1.03
_LINEARITY = 0.02


def measure(programs: PortablePrograms) -> Iterator[Row]:
    """Time, instructions and allocations for each block."""
    comparison = Comparison(LINE, "engine, {} a block, n = ", "bare loop", _BLOCKS, _BAR)
    yield from comparison.times(programs, "Engine", "BareLoop")
    counted, bare = programs.instructions("engine", _BLOCKS), programs.instructions("bare-loop", _BLOCKS)
    yield from comparison.instructions(counted, bare)
    # What the camera itself takes for a block is not the same for every n: its flash grows in leaps.
    own = {blocks: counted[blocks] - bare[blocks] for blocks in _BLOCKS}
    yield within(
        LINE,
        f"engine, instructions of its own a block, n = {_BLOCKS[-1]:,}",
        own[_BLOCKS[-1]],
        own[_BLOCKS[0]],
        _LINEARITY,
        "",
        against=f"n = {_BLOCKS[0]:,}",
        bar="linear: within 2 %",
    )
    more = {
        blocks: programs.counts("engine", blocks)["allocations"] - programs.counts("bare-loop", blocks)["allocations"]
        for blocks in (_BLOCKS[0], _BLOCKS[-1])
    }
    yield exactly(
        LINE,
        f"engine, allocations of its own, n = {_BLOCKS[-1]:,}",
        more[_BLOCKS[-1]],
        more[_BLOCKS[0]],
        "",
        against=f"n = {_BLOCKS[0]:,}",
        reference=more[_BLOCKS[0]],
        bar="none for a block: the same",
    )
    handed_over = programs.counts("bytes-in-place", _BLOCKS[-1])
    yield exactly(
        LINE,
        f"engine, bytes sent from inside the image, n = {_BLOCKS[-1]:,}",
        handed_over["in_place"],
        handed_over["bytes"],
        "bytes",
        against="the image",
        reference=handed_over["bytes"],
        bar="no copy: all of them",
    )
