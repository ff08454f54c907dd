"""Faults with which a camera answers as a captured device did, where its traits alone would have it answer otherwise."""

import copy
from collections import Counter
from collections.abc import Sequence
from dataclasses import dataclass, field
from typing import Any

from .answers import is_request, ms, poll_in, state_in
from .boot_loader import STATUS_SIZE, BootLoader, Settings, State
from .transfer import End, Request, Transfer

_MOST_FAULTS = 5000
_MOST_WORDS = 50
# A time that is told again differs by when it was asked for.
_POLL_TOLERANCE_MS = 20
_POLL_TOLERANCE = 0.1
_LOOK_AHEAD = 8
_LATE_MS = 20
_SHOWN = 8

Fault = dict[str, Any]


@dataclass
class Pinned:
    """The faults, and what they cannot express."""

    faults: list[Fault] = field(default_factory=list)
    words: list[str] = field(default_factory=list)


def pin(requests: Sequence[Transfer], settings: Settings) -> Pinned:
    """Goes through the captured requests in their order, and has each answered as it was."""
    return _Pins(requests, settings).run()


class _Pins:
    def __init__(self, requests: Sequence[Transfer], settings: Settings) -> None:
        self._requests = requests
        self._loader = BootLoader(settings)
        self._pinned = Pinned()
        self._skipped: Counter[str] = Counter()
        self._said: Counter[str] = Counter()
        answered = [place for place, each in enumerate(requests) if each.end in (End.OK, End.STALL)]
        self._last_answered = answered[-1] if answered else -1

    def run(self) -> Pinned:
        """All of them."""
        for place, each in enumerate(self._requests):
            self._one(place, each)
            self._skipped[each.name] += 1
        if len(self._pinned.faults) > _MOST_FAULTS:
            self._pinned.faults = self._pinned.faults[:_MOST_FAULTS]
            self._pinned.words.append(f"left out: what is beyond the first {_MOST_FAULTS:,} answers of its own")
        for kind, count in self._said.items():
            if count > _MOST_WORDS:
                self._pinned.words.append(f"{kind}: {count - _MOST_WORDS:,} more of these")
        return self._pinned

    def _one(self, place: int, each: Transfer) -> None:
        trial = copy.copy(self._loader)
        answer = trial.ask(each, ms(each.began))
        if each.end is End.UNKNOWN:
            self._say(place, "end", "how it ended is not in the capture")
            self._loader = trial
        elif each.end is End.OK and answer.end is End.OK:
            self._loader = trial
            if each.is_to_host:
                self._distort(place, each, answer.data)
        elif each.end is answer.end:
            self._loader = trial
        elif answer.end is End.OK:
            self._obstruct(place, each, trial)
        else:
            self._loader = trial
            given = answer.end.value
            self._say(place, "differs", f"{_told(each)}; the camera: {given}, and it may differ from there on")
        if ms(each.ended - each.began) > _LATE_MS and each.end is End.OK:
            self._say(place, "late", f"answered {ms(each.ended - each.began)} ms late; the camera answers at once")

    # Answers.

    def _distort(self, place: int, each: Transfer, given: bytes) -> None:
        seen = each.data
        if each.is_cut:
            self._say(place, "cut", "the capture does not have the whole answer")
        elif len(seen) < len(given):
            self._fault(each, "short", len(seen))
        elif len(seen) > len(given):
            self._say(place, "long", f"{len(seen)} bytes came; the camera answers with {len(given)}")
        if is_request(each, Request.GETSTATUS):
            self._status(place, each, given)
        elif is_request(each, Request.GETSTATE) and seen and given and seen[0] != given[0]:
            self._fault(each, "state", seen[0])
        elif is_request(each, Request.UPLOAD) and seen != given[: len(seen)]:
            self._say(place, "content", "what it uploaded; the camera has a content of its own")

    def _status(self, place: int, each: Transfer, given: bytes) -> None:
        seen = each.data
        if seen and given and seen[0] != given[0]:
            self._fault(each, "status", seen[0])
        if min(len(seen), len(given)) >= STATUS_SIZE - 2 and not _is_near(poll_in(seen), poll_in(given)):
            self._fault(each, "poll", poll_in(seen))
        if len(given) >= STATUS_SIZE - 1 and state_in(each) not in (None, given[4]):
            self._fault(each, "state", seen[4])
        if len(seen) == STATUS_SIZE and seen[5]:
            self._say(place, "iString", f"a status text, {seen[5]}; the camera has none")

    # Failures.

    def _obstruct(self, place: int, each: Transfer, after: BootLoader) -> None:
        """A request that failed, and which the camera would carry out: the moment and the error are those that go with
        what is told next."""
        before = self._loader
        if each.end is End.STALL:
            refused = copy.copy(before)
            refused.refuse(in_place=False)
            choices: list[tuple[BootLoader, Fault]] = [
                (refused, {}), (before, {"sets_error": False}), (after, {"moment": "after"}),
            ]  # fmt: skip
        elif each.end in (End.GONE, End.BROKEN) and place > self._last_answered:
            self._fault(each, "unplug")
            self._loader = copy.copy(before)
            self._loader.has_left = True
            return
        else:
            choices = [(before, {}), (after, {"moment": "after"})]
            if each.end is not End.TIMEOUT:
                self._say(place, "broken", f"{each.end.value}; the camera does not answer")
        verdicts = [self._fits(place, loader) for loader, _ in choices]
        chosen = verdicts.index(True) if True in verdicts else verdicts.index(None) if None in verdicts else 0
        if verdicts[chosen] is not True and is_request(each, Request.DNLOAD):
            self._say(place, "moment", "whether it was carried out is not in the capture; the camera does not")
        self._loader, more = choices[chosen]
        self._fault(each, "stall" if each.end is End.STALL else "timeout", None, **more)

    def _fits(self, place: int, loader: BootLoader) -> bool | None:
        """Whether the next state that is told is this one's; none when none is told."""
        trial = copy.copy(loader)
        for each in self._requests[place + 1 : place + 1 + _LOOK_AHEAD]:
            answer = trial.ask(each, ms(each.began))
            if each.end is not End.OK or answer.end is not End.OK:
                if each.end is End.OK:
                    return False
                continue
            state = state_in(each)
            if state is not None:
                busy = (State.DNLOAD_IDLE, State.DNBUSY)
                given = state_in(each, answer.data)
                return given == state or (given in busy and state in busy)
        return None

    # What is written.

    def _fault(self, each: Transfer, what: str, value: int | None = None, **more: Any) -> None:
        skip = self._skipped[each.name]
        fault: Fault = {"where": each.name, "what": what, **({} if value is None else {"value": value}), **more}
        for last in reversed(self._pinned.faults[-4:]):
            count = last.get("count", 1)
            same = {name: content for name, content in last.items() if name not in ("skip", "count")} == fault
            if same and last["skip"] + count == skip:
                last["count"] = count + 1
                return
        self._pinned.faults.append({**fault, "skip": skip})

    def _say(self, place: int, kind: str, words: str) -> None:
        self._said[kind] += 1
        if self._said[kind] <= _MOST_WORDS:
            each = self._requests[place]
            self._pinned.words.append(f"request {place + 1}, {each.name}: {words}")


def _told(each: Transfer) -> str:
    if each.end is not End.OK or not each.is_to_host:
        return each.end.value
    return f"answered {each.data[:_SHOWN].hex(' ')}{'...' if len(each.data) > _SHOWN else ''}"


def _is_near(one: int, other: int) -> bool:
    if not one or not other:
        return one == other
    return abs(one - other) <= max(_POLL_TOLERANCE_MS, _POLL_TOLERANCE * max(one, other))
