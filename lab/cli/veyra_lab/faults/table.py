"""What became of the campaign's trials, as the table of docs/laboratory.md."""

from collections import Counter
from collections.abc import Iterator
from dataclasses import dataclass, field

from .program import Line

_COLUMNS = (
    "camera", "faults", "of", "tried", "all struck", "updated", "written, told as failed", "runs the old", "no firmware",
    "half an image runs", "content with none", "updated again", "as ever", "stays without firmware", "seconds",
)  # fmt: skip


@dataclass
class _Row:
    """A set of trials of one camera, added up over the shares."""

    total: int = 0
    tried: int = 0
    met: int = 0
    ms: int = 0
    ends: Counter[str] = field(default_factory=Counter)
    good: Counter[str] = field(default_factory=Counter)

    def add(self, tally: Line) -> None:
        self.total = tally["total"]
        self.tried += tally["trials"]
        self.met += tally["met"]
        self.ms += tally["ms"]
        self.ends.update(tally["ends"])
        self.good.update(tally["good"])

    def cells(self) -> list[str]:
        updated, content = self.ends["updated, image"], 0
        firmware: Counter[str] = Counter()
        for end, count in self.ends.items():
            how, _, has = end.partition(", ")
            if how != "updated":
                firmware[has] += count
            elif has != "image":
                content += count
        return [
            *map(str, (self.total, self.tried, self.met, updated)),
            *(str(firmware[has]) for has in ("image", "old", "none", "wrong")),
            str(content),
            *(str(self.good[how]) for how in ("updated", "as ever", "stays without firmware")),
            f"{self.ms / 1000:.1f}",
        ]


class Table:
    """Adds the tallies of the shares up."""

    def __init__(self) -> None:
        self._rows: dict[tuple[str, str], _Row] = {}
        self._roads: dict[str, Line] = {}
        self._allowed: Counter[str] = Counter()
        self._reasons: dict[str, str] = {}

    def add(self, line: Line) -> None:
        """Takes a line of the program's, of whatever kind."""
        if "tally" in line:
            tally = line["tally"]
            self._rows.setdefault((tally["kind"], tally["set"]), _Row()).add(tally)
            self._allowed.update(tally["allowed"])
        elif "road" in line:
            self._roads[line["road"]] = line
        elif "reasons" in line:
            self._reasons = line["reasons"]

    @property
    def tried(self) -> int:
        """Trials so far."""
        return sum(row.tried for row in self._rows.values())

    @property
    def pairs(self) -> int:
        """Of those with two faults."""
        return sum(row.tried for (_, name), row in self._rows.items() if "two" in name)

    def lines(self) -> Iterator[str]:
        """The table, what was left out, and what was allowed."""
        yield f"| {' | '.join(_COLUMNS)} |"
        yield "|---" * len(_COLUMNS) + "|"
        for (kind, name), row in self._rows.items():
            yield f"| {kind} | {name} | {' | '.join(row.cells())} |"
        yield ""
        yield from self._left_out()
        for name, reason in self._reasons.items():
            if self._allowed[name]:
                yield f"- allowed {self._allowed[name]} times, {name}: {reason}."

    def _left_out(self) -> Iterator[str]:
        for kind, road in self._roads.items():
            if road["repeats"]:
                yield (
                    f"- left out, {kind}: faults at {road['repeats']} of {road['steps']} steps, looks at the state that are"
                    " answered like those beside them, which stand for them."
                )
        if any("forgotten" in road for road in self._roads.values()):
            yield from self._not_met()
        left = self._left("two in one update", "one in each of two")
        if left:
            yield f"- left out, by the seed: {left} pairs."

    def _not_met(self) -> Iterator[str]:
        forgotten = sum(
            _pairs(road["faults"] + road["forgotten"]) - _pairs(road["faults"]) for road in self._roads.values()
        )
        if forgotten:
            yield f"- left out: {forgotten} pairs with a fault at one of these steps."
        yield (
            f"- not met: in {self.tried - sum(row.met for row in self._rows.values())} trials a fault did not strike, because"
            " another ended the update before it, kept its step from coming, or struck the same step and hid it, or because"
            " the camera has left before its step without any."
        )
        yield (
            "- left out, not counted: faults at steps that only another fault makes, as the third to the fifth attempt at the"
            " version, further looks of a wait, and pages put back."
        )
        again = self._left("two in one update, arriving again", "one in each of two, arriving again")
        if again:
            yield f"- left out, by the seed: {again} pairs of those at which the camera arrives again."

    def _left(self, same: str, following: str) -> int:
        """The pairs of all cameras that were not tried in these two sets."""
        rows = [row for (_, name), row in self._rows.items() if name in (same, following)]
        missing = sum(_pairs(road["faults"]) for kind, road in self._roads.items() if (kind, same) not in self._rows)
        return missing + sum(row.total - row.tried for row in rows)


def _pairs(faults: int) -> int:
    return faults * (faults - 1) // 2 + faults * faults
