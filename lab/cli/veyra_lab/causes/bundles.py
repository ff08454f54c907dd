"""Bundles of the companion's own making: what the service told in a scenario is told again to `collect`, by the rig,
and what the event logs would have stands on its stage."""

from collections.abc import Iterator, Sequence
from contextlib import contextmanager, suppress
from datetime import datetime, timedelta, timezone
from functools import partial
from pathlib import Path
from typing import Any

from ..windows.companion import collect, companion_in, words_beside
from ..windows.installation import EXECUTABLE, Installation
from ..windows.machine import Machine, MachineError
from ..windows.programs import Programs
from ..windows.service_under_test import ServiceUnderTest
from ..wire.events import RIG
from ..wire.peer import Peer
from .stand_in import Logged, event_log_records, event_xml

Event = dict[str, Any]

# The logs stand on the stage before the program starts, and it is told the trace once it listens. So their time is
# ahead: a trace may be told some seconds before what the toast controller records of it, and hardly after.
_AHEAD = timedelta(seconds=4)
_LATE = timedelta(seconds=1)
_ATTEMPTS = 3
_CONNECTING_SECONDS = 30


class Collector:
    """The companion in a machine in which the service runs, and everything is as it should be: what a bundle's
    `status.json` says is no cause then."""

    def __init__(self, machine: Machine, peer: Peer) -> None:
        self._machine = machine
        self._peer = peer
        self._told = _now()

    def collect(self, events: Sequence[Event], cabinet: Path) -> None:
        """Makes the bundle of what these events of a transcript tell. All of it is told in a moment, in its order. A
        file of this name is replaced."""
        for _ in range(_ATTEMPTS):
            cabinet.unlink(missing_ok=True)
            began = _now() + _AHEAD
            self._peer.set_stage({"trace": None, "cameras": [], "event_records": _records(events, began)})
            since = self._peer.mark()
            outcome = collect(self._machine, cabinet, partial(self._tell, events, since))
            if outcome.status != 0 or not cabinet.is_file():
                raise MachineError(f"collect ended with {outcome.status}: {outcome.text.strip()[-300:]}")
            if self._told < began + _LATE:
                return
        raise MachineError("the machine is too busy to tell a companion anything in time")

    def _tell(self, events: Sequence[Event], since: int) -> None:
        self._peer.follow(
            lambda event: event["event"] == "trace-session",
            "the companion's trace session",
            since=since,
            quiet=_CONNECTING_SECONDS,
        )
        for event in events:
            if event["event"] == "trace":
                self._peer.command(
                    RIG,
                    "trace-message",
                    group=event["group"],
                    number=event["number"],
                    process=event.get("pid", 0),
                    arguments=event["arguments"],
                )
        self._told = _now()


def _now() -> datetime:
    return datetime.now(timezone.utc).replace(tzinfo=None)


def _records(events: Sequence[Event], began: datetime) -> list[str]:
    """Of each log the newest first, which is how they are asked for."""
    logged = event_log_records(events)
    placed = [
        Logged(place / 1000, each.channel, each.source, each.number, each.texts) for place, each in enumerate(logged)
    ]
    return [event_xml(each, place + 1, began) for place, each in reversed([*enumerate(placed)])]


@contextmanager
def collector(machine: Machine, programs: Programs) -> Iterator[Collector]:
    """Everything is put into the machine, and taken away again."""
    with Peer({"trace": None, "cameras": []}, lambda event: None, lambda event: None) as peer:
        installation = Installation(machine, programs)
        service = ServiceUnderTest(machine, peer)
        machine.forget_crashes()
        try:
            installation.make(peer.port)
            machine.demand(EXECUTABLE, "-install")
            service.start()
            with companion_in(machine, programs.companion), words_beside(machine):
                yield Collector(machine, peer)
        finally:
            with suppress(MachineError):
                service.end()
            installation.remove(peer)
