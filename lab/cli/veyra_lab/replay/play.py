"""One play of an id, and many that have to be the same."""

import re
from collections.abc import Callable, Sequence
from dataclasses import dataclass, replace
from pathlib import Path

from ..again.transcript import difference
from ..checkout import BUILD

_FOLDER = BUILD / "replayed"
_LONGEST_NAME = 100


@dataclass(frozen=True)
class Play:
    """What became of one play."""

    complaints: Sequence[str]
    # Without times and process ids.
    transcript: Sequence[str]
    # What was done, in words.
    said: str
    # How often it was played again and went the same way.
    times_more: int = 0


def play_again(id_: str, play: Callable[[], Play], times: int, told: Callable[[int], None]) -> Play:
    """Plays it once, and then so many times more. A play that ends or goes otherwise than the first is the last, and told
    with a complaint; both transcripts are kept then."""
    first = play()
    for number in range(1, times + 1):
        other = play()
        words = difference(first.transcript, other.transcript)
        if words or list(other.complaints) != list(first.complaints):
            kept = [_keep(id_, name, each.transcript) for name, each in (("first", first), (str(number), other))]
            words = words or f"the first {_end(first)}, and this one {_end(other)}"
            complaint = f"play {number + 1} is another than the first: {words} ({kept[0]}, {kept[1]})"
            return Play([*other.complaints, complaint], other.transcript, other.said)
        told(number)
    return replace(first, times_more=times)


def _end(play: Play) -> str:
    return f"failed: {'; '.join(play.complaints)}" if play.complaints else "held"


def _keep(id_: str, which: str, transcript: Sequence[str]) -> Path:
    _FOLDER.mkdir(parents=True, exist_ok=True)
    name = re.sub("[^A-Za-z0-9.-]+", "-", id_)[:_LONGEST_NAME]
    path = _FOLDER / f"{name}.{which}.txt"
    path.write_text("".join(f"{line}\n" for line in transcript), encoding="utf-8")
    return path
