"""An input of a fuzz target made as small as it goes, byte by byte."""

from collections.abc import Iterator
from dataclasses import replace

from ..again.smallest import smallest
from .input_id import FuzzInput
from .target_run import play

# As many plays, some twenty a second, are spent on one input.
_MOST_PLAYS = 2000


def make_smaller(given: FuzzInput) -> tuple[FuzzInput, str]:
    """The smallest input found that breaks the same, and what does not hold; the one given, and no words, when nothing is
    broken."""
    left = _MOST_PLAYS

    def why(candidate: FuzzInput) -> str:
        nonlocal left
        left -= 1
        return play(candidate).why if left >= 0 else ""

    return smallest(given, why, smaller)


def smaller(given: FuzzInput) -> Iterator[FuzzInput]:
    """Without a half, a quarter, ... a byte of it; then with a byte that is 0, which mostly means that nothing is odd."""
    content = given.content
    length = len(content)
    while length > 1:
        length = (length + 1) // 2 if length > 2 else 1
        for begin in range(0, len(content), length):
            yield replace(given, content=content[:begin] + content[begin + length :])
    if len(content) == 1:
        yield replace(given, content=b"")
    for place, byte in enumerate(content):
        if byte:
            yield replace(given, content=content[:place] + b"\0" + content[place + 1 :])
