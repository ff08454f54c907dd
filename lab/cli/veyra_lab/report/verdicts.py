"""What was expected of a run and what held, as its transcript tells."""

import re
from collections.abc import Iterable
from dataclasses import dataclass, field

from .transcript import Event, text, texts

_PLACE = re.compile(r"steps\[[0-9]{1,6}\](\.steps\[[0-9]{1,6}\])*")
# What the page tells of one scenario at most.
MOST_EXPECTATIONS = 100


@dataclass(frozen=True)
class Expected:
    """One expectation that was looked at. `step` is the number of the step that looked, if one has."""

    t: float
    step: str
    words: str
    complaints: list[str]


@dataclass
class Judged:
    """A scenario, or a whole demo, whose name is empty. Times are the transcript's."""

    name: str
    description: str
    begin: float
    end: float = float("inf")
    # By which scripts/lab replay plays it; empty when it has none.
    id: str = ""
    # None: it was not judged, for example because the record ends before.
    held: bool | None = None
    complaints: list[str] = field(default_factory=list)
    expectations: list[Expected] = field(default_factory=list)

    @property
    def unsaid(self) -> list[str]:
        """Complaints that no expectation of the record has told."""
        told = {complaint for each in self.expectations for complaint in each.complaints}
        return [said for said in self.complaints if not any(said.endswith(each) for each in told)]


def verdicts(events: Iterable[Event]) -> list[Judged]:
    """Each scenario, or the demo; none of a transcript that tells nothing of the kind."""
    found: list[Judged] = []
    for event in events:
        kind = event["event"]
        if kind == "scenario":
            if found:
                found[-1].end = min(found[-1].end, event["t"])
            found.append(Judged(text(event, "name"), text(event, "description"), event["t"], id=text(event, "id")))
        elif kind in ("expectation", "judgement"):
            if not found:
                found.append(Judged("", "", 0.0))
            _take(found[-1], event)
    return found


def _take(judged: Judged, event: Event) -> None:
    if event["event"] == "judgement":
        held = event.get("held")
        judged.held = held if isinstance(held, bool) else None
        judged.id = judged.id or text(event, "id")
        judged.complaints = [_with_number(complaint) for complaint in texts(event, "complaints")]
    elif len(judged.expectations) < MOST_EXPECTATIONS:
        complaints = texts(event, "complaints")
        judged.expectations.append(Expected(event["t"], text(event, "step"), text(event, "text"), complaints))


def judged_at(judged: Iterable[Judged], t: float) -> Judged | None:
    """What a time belongs to; None where nothing was judged."""
    return next((each for each in judged if each.begin <= t < each.end), None)


def _with_number(complaint: str) -> str:
    """A complaint of a step, which has the step's place in its file in front: with its number, as people count."""
    place, colon, said = complaint.partition(": ")
    if not colon or not _PLACE.fullmatch(place):
        return complaint
    return f"step {'.'.join(str(int(each) + 1) for each in re.findall('[0-9]+', place))}: {said}"
