"""A year of the service in virtual time: it rests, and now and then a camera comes."""

import random
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, replace

from ..judgement.growth import KEPT_BY_A_CHECK, STACKS_OF_A_THREAD_KIB, too_much
from ..runner.run import REST_PATIENCE
from ..terminal.screen import Screen
from ..terminal.table import Table
from ..windows.service_under_test import Resources
from ..wire.events import RIG
from .soak import Soak

ARRIVALS = 1000
# More would rest longer, while they are there, than a year is.
MOST_ARRIVALS = 4000
_DAYS = 365
_DAY_MS = 24 * 60 * 60 * 1000
_YEAR_MS = _DAYS * _DAY_MS
_MONTH_MS = _YEAR_MS // 12
# Until Wine's heap has found its size: that of Wine 10 takes 64 KiB now and then for as many rounds.
_WARM_UP = 200
# The service's own look at its stop flag, by its Sleep.
_SLEEP_MS = 1000
# What the process may hold more at the end than after the warm-up, beyond what the monitor keeps: less than a leak at
# every hundredth camera, or of half a KiB at each.
_SPARE = Resources(handles=8, threads=0, private_kib=512)
_WARM = "warmed up"
_END = "end"
# So many looks in a row, a tenth of a second apart, are alike when no thread comes or goes: one that does is counted at
# another moment than its stacks are.
_ALIKE = 10


@dataclass(frozen=True)
class Look:
    """What the process held, and what had happened by then."""

    when: str
    cameras: int
    removals: int
    sleeps: int
    held: Resources

    def kept(self) -> int:
        """Handles that are open on purpose."""
        return KEPT_BY_A_CHECK * self.removals

    def without_stacks(self) -> Resources:
        """What is held but for the threads' stacks, since threads of Wine's come and go."""
        return replace(self.held, private_kib=self.held.private_kib - STACKS_OF_A_THREAD_KIB * self.held.threads)


class Year:
    """One process of the service, warmed up, and its year. `soak` is one of a year's rounds."""

    def __init__(self, soak: Soak, seed: int, arrivals: int) -> None:
        self.soak = soak
        choose = random.Random(f"year {seed}")
        self._times = sorted(choose.randrange(_YEAR_MS) for _ in range(arrivals))
        # Since the start: what was rested altogether; of it, what belongs to the year; and the sleeps in it.
        self._rested = 0
        self._warmed_up_at = 0
        self._sleeps = 0
        self._rests = 0
        self._cameras = 0
        self._month = 0
        self.looks: list[Look] = []

    @property
    def arrivals(self) -> int:
        """How many cameras come behind the warming up."""
        return len(self._times)

    def go(self, screen: Screen) -> None:
        """All of it, with a line for each month. PeerError when the service does not live so long."""
        self._look("start")
        for _ in range(_WARM_UP):
            self._round()
        self._warmed_up_at = self._rested
        self._look(_WARM)
        for time in [*self._times, _YEAR_MS]:
            self._rest_until(time)
            if time < _YEAR_MS:
                self._cameras += 1
                self._round()
                self._look_by_the_month(screen)
        self._look(_END)

    def complaints(self) -> Iterator[str]:
        """What the process holds too much, and whether the service has slept as often as it has to."""
        if not self.looks or self.looks[-1].when != _END:
            return
        end = self.looks[-1]
        yield from self._growth(end)
        # Each rest's end may interrupt a sleep, which goes on in real time.
        seconds = self._rested // _SLEEP_MS
        if abs(end.sleeps - seconds) > self._rests:
            yield f"the service slept {end.sleeps} times, and rested for {seconds} seconds"

    def _growth(self, now: Look) -> Iterator[str]:
        warm = self.looks[1]
        yield from too_much(warm.without_stacks(), now.without_stacks(), now.removals - warm.removals, _SPARE)

    def report(self, screen: Screen) -> None:
        """The table of all looks."""
        head = ("", "cameras", "removals", "sleeps", "handles", "kept", "others", "threads", "private KiB", "without stacks")
        screen.table(Table([*map(_row, self.looks)], head=head, right=frozenset(range(1, len(head)))))

    def _now(self) -> int:
        return self._rested - self._warmed_up_at

    def _round(self) -> None:
        self.soak.round()
        for event in self.soak.events:
            if event["event"] == "rest":
                self._count(event["ms"], event["sleeps"])

    def _rest_until(self, time: int) -> None:
        while self._now() < time:
            end = min(time, (self._now() // _MONTH_MS + 1) * _MONTH_MS)
            length = end - self._now()
            self._count(length, self.soak.peer.command(RIG, "rest", quiet=REST_PATIENCE, ms=length)["sleeps"])

    def _count(self, milliseconds: int, sleeps: int) -> None:
        self._rested += milliseconds
        self._sleeps += sleeps
        self._rests += 1

    def _look_by_the_month(self, screen: Screen) -> None:
        if self._now() // _MONTH_MS > self._month:
            self._month = self._now() // _MONTH_MS
            day = self._now() // _DAY_MS
            self._look(f"day {day}")
            screen.note(f"day {day} of {_DAYS}: {self._cameras} of {len(self._times)} cameras")

    def _look(self, when: str) -> None:
        def look(held: Resources) -> Look:
            return Look(when, self._cameras, self.soak.tally.removals, self._sleeps, held)

        service = self.soak.service
        if when == _WARM:
            held = service.resources_once(_Calm())
        elif when == _END:
            held = service.resources_once(lambda now: not any(self._growth(look(now))))
        else:
            held = service.resources()
        self.looks.append(look(held))


class _Calm:
    """Whether enough looks in a row are alike."""

    def __init__(self) -> None:
        self._held: Resources | None = None
        self._alike = 0

    def __call__(self, held: Resources) -> bool:
        self._alike = self._alike + 1 if held == self._held else 1
        self._held = held
        return self._alike == _ALIKE


def _row(look: Look) -> Sequence[str]:
    numbers = (
        look.cameras, look.removals, look.sleeps, look.held.handles, look.kept(), look.held.handles - look.kept(),
        look.held.threads, look.held.private_kib, look.without_stacks().private_kib,
    )
    return (look.when, *map(str, numbers))
