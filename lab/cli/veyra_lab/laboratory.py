"""One run from beginning to end: the stage set, the road gone, everything taken away again."""

import signal
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

from .machine import Machine
from .narrator import Narrator
from .peer import Event, Peer
from .record import Record
from .road import Road
from .scenario import Scenario
from .screen import Screen
from .stage import Programs, Stage
from .trace_formats import TraceFormats

_ENDING_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Laboratory:
    """A booted machine, and the programs to run in it. Any number of runs may follow one another."""

    def __init__(self, machine: Machine, programs: Programs, trace_formats: Path) -> None:
        self._machine = machine
        self._programs = programs
        self._formats = TraceFormats(trace_formats)

    def run(self, scenario: Scenario, screen: Screen, transcript: Path | None = None) -> Record:
        """Carries the scenario out. However it ends, no program of it is left running and the machine is as it was
        before."""
        with Peer(scenario.stage(), self._add_words, Narrator(screen, scenario), transcript) as peer:
            self._machine.forget_crashes()
            stage = Stage(self._machine, self._programs, scenario)
            try:
                stage.set(peer.port)
                return Road(scenario, self._machine, peer, stage).walk()
            finally:
                with _undisturbed():
                    screen.step("Cleaning up")
                    stage.clear(peer)

    def _add_words(self, event: Event) -> None:
        if event["event"] == "trace":
            event["text"] = self._formats.text(event["group"], event["number"], event["arguments"])


@contextmanager
def _undisturbed() -> Iterator[None]:
    """Lets nobody's Ctrl-C end the cleaning up half-way."""
    before = {number: signal.signal(number, lambda *_: None) for number in _ENDING_SIGNALS}
    try:
        yield
    finally:
        for number, handler in before.items():
            signal.signal(number, handler)
