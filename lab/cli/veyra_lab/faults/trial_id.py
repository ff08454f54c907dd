"""A trial's id taken apart and put together: "kv400.2500x1.1gs3-time-after.2fw7-pull-mid"."""

import re
from collections.abc import Sequence
from dataclasses import dataclass, replace

_ID = re.compile(r"([a-z0-9-]+)\.([0-9]+)x([0-9]+)((?:\.[a-z0-9-]+)*)")
_CIRCUMSTANCE = re.compile(r"[0-9]+[rs]")
_FAULT = re.compile(r"([0-9]+)([a-z]{2})([0-9]+)-([a-z]+)([0-9]*)(?:-(mid|after)([0-9]*))?(?:-for([0-9]+))?")


@dataclass(frozen=True)
class FaultPart:
    """One fault of it, in the id's own words."""

    update: int
    place: str
    skip: int
    what: str
    value: str = ""
    moment: str = ""
    taken: str = ""
    count: str = ""

    def __str__(self) -> str:
        moment = f"-{self.moment}{self.taken}" if self.moment else ""
        count = f"-for{self.count}" if self.count else ""
        return f"{self.update}{self.place}{self.skip}-{self.what}{self.value}{moment}{count}"


@dataclass(frozen=True)
class TrialId:
    """The whole of it."""

    kind: str
    image_size: int
    seed: int
    faults: Sequence[FaultPart] = ()
    # How updates begin: "2r", the camera arrives again and has not lost power; "1s", an earlier call has left its
    # error.
    circumstances: Sequence[str] = ()

    def __str__(self) -> str:
        return ".".join([self.kind, f"{self.image_size}x{self.seed}", *map(str, self.faults), *self.circumstances])

    def with_faults(self, faults: Sequence[FaultPart]) -> "TrialId":
        """The same trial with other faults."""
        return replace(self, faults=tuple(faults))


def read_id(text: str) -> TrialId:
    """ValueError when it is none; whether its words mean something, the campaign's program knows."""
    whole = _ID.fullmatch(text)
    words = whole[4].split(".")[1:] if whole else []
    circumstances = tuple(word for word in words if _CIRCUMSTANCE.fullmatch(word))
    parts = [_FAULT.fullmatch(word) for word in words if word not in circumstances]
    if whole is None or not all(parts):
        raise ValueError(f"'{text}' is not the id of a trial")
    faults = tuple(_fault(part) for part in parts if part)
    return TrialId(whole[1], int(whole[2]), int(whole[3]), faults, circumstances)


def _fault(part: re.Match[str]) -> FaultPart:
    update, place, skip, what, *rest = part.groups(default="")
    return FaultPart(int(update), place, int(skip), what, *rest)
