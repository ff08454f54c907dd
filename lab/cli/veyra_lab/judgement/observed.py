"""What an expectation of a scenario looks at."""

from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass
from typing import Any

from ..wire.events import ENTER_DFU_MODE, RIG, Event
from ..wire.trace_formats import SERVICE_BASE_TRACES, UPDATE_SERVICE_TRACES

TRACE_GROUPS = {
    SERVICE_BASE_TRACES: "base",
    UPDATE_SERVICE_TRACES: "update",
    "{86E9D1B4-5F2A-4C37-B81E-20A7934DF65C}": "sink",
    "{1FC2A5F0-3B7D-4E0C-9A54-6D0B8EC14793}": "launch",
}


@dataclass(frozen=True)
class CameraNow:
    """A camera as its own side of the bus tells it."""

    mode: str
    version: str
    dfu_state: int
    dfu_status: int
    gaps: int
    flash: bytes
    # What its boot loader would find after a power failure now: "valid", "bytes", "checksum".
    survivor: dict[str, Any]


@dataclass(frozen=True)
class Observed:
    """What the service and the toast controller did, and how things are now."""

    events: Sequence[Event]
    cameras: Sequence[dict[str, Any]]
    image: bytes | None
    look: Callable[[int], CameraNow]
    # Waits for the wanted state for a while, and tells the one seen last.
    service_state: Callable[[str, str], str]
    # Images that were in the machine before.
    earlier: Sequence[bytes] = ()

    def of(self, source: str, name: str) -> list[Event]:
        """The events of one kind from one source."""
        return [event for event in self.events if event["source"] == source and event["event"] == name]

    @property
    def transfers(self) -> list[Event]:
        """Every control transfer."""
        return self.of(RIG, "transfer")

    @property
    def failed(self) -> list[Event]:
        """The control transfers that failed."""
        return [event for event in self.transfers if not event["ok"]]

    def calls(self, method: str) -> list[Event]:
        """The calls of one method of the toast controller, told by itself, or by the rig for one that tells nothing."""
        return [event for event in self.events if event["event"] == "prompt-call" and event["method"] == method]

    @property
    def progress(self) -> list[str]:
        """The texts of the download's progress."""
        return [event["texts"][0] for event in self.calls("NotifyProgress")]

    @property
    def commands(self) -> int:
        """How often a camera was sent into DFU mode."""
        return sum(event["opcode"] == ENTER_DFU_MODE for event in self.of(RIG, "firmware-command"))

    @property
    def traces(self) -> list[str]:
        """The trace messages, scopes left out: "update 23: its words"."""
        return [
            f"{TRACE_GROUPS[event['group']]} {event['number']}: {event['text']}"
            for event in self.of(RIG, "trace")
            if event["group"] in TRACE_GROUPS
        ]


def differ(what: str, wanted: Any, seen: Any) -> Iterator[str]:
    """A complaint unless both are the same."""
    if wanted != seen:
        yield f"{what}: expected {wanted}, seen {seen}"
