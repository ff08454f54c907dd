"""The companion program in the machine: put beside the service, run, and what it says."""

import json
from collections.abc import Iterator
from contextlib import AbstractContextManager, contextmanager
from dataclasses import dataclass
from typing import Any

from support import BUILD, Bench
from veyra_lab.windows.companion import PROGRAM, companion_in, give_rig, take_rig
from veyra_lab.windows.programs import COMPANION, Programs
from veyra_lab.wire.events import RIG, Event

BUILT = Programs.of(BUILD).companion
# What the program may do to a camera: the command that reads its version, and descriptors.
READ_VERSION = 0x10
_TOUCHING = {
    "firmware-command",
    "firmware-reply",
    "usb-open",
    "usb-close",
    "transfer",
    "descriptor",
    "alternate-setting",
    "process",
    "command-run",
    "watch",
    "event-log",
}
_READING = {"firmware-reply", "usb-open", "usb-close", "descriptor"}


@dataclass(frozen=True)
class Said:
    """How the program ended, what it wrote, and what its rig saw it do."""

    status: int
    text: str
    events: list[Event]

    @property
    def json(self) -> Any:
        """What it wrote, read as JSON."""
        return json.loads(self.text)

    def touched(self) -> list[Event]:
        """What it did to cameras and to the machine."""
        return [event for event in self.events if event["event"] in _TOUCHING]

    def more_than_reads(self) -> list[Event]:
        """What of that is more than reading a version or a descriptor: nothing is right."""
        return [
            event
            for event in self.touched()
            if event["event"] not in _READING
            and (event["event"], event.get("opcode")) != ("firmware-command", READ_VERSION)
        ]


def installed(bench: Bench) -> AbstractContextManager[None]:
    """It lies beside the service, with the rig for both."""
    return companion_in(bench.machine, BUILT)


@contextmanager
def without_rig(bench: Bench) -> Iterator[None]:
    """It has Wine's own winusb.dll, and whatever else is Wine's."""
    take_rig(bench.machine)
    try:
        yield
    finally:
        give_rig(bench.machine)


def run(bench: Bench, *arguments: str, cameras: list[dict[str, Any]] | None = None, **stage: Any) -> Said:
    """Runs it on a bus with these cameras, which are there when it begins unless they say otherwise."""
    there = [{"starts": "running", **camera} for camera in cameras or []]
    bench.peer.set_stage({"trace": None, "cameras": there, **stage})
    since = bench.peer.mark()
    outcome = bench.machine.run(PROGRAM, *arguments)
    processes = {
        event["pid"]
        for event in bench.peer.events_since(since)
        if event["event"] == "hello" and event["source"] == RIG and COMPANION in event["command_line"]
    }
    for process in processes:
        bench.peer.follow(
            lambda event, process=process: event["event"] == "gone" and event["pid"] == process,
            "the end of the program's connection",
            since=since,
            quiet=20,
        )
    events = [event for event in bench.peer.events_since(since) if event.get("pid") in processes]
    return Said(outcome.status, outcome.text, events)
