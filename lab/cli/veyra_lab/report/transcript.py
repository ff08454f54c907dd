"""Reads a transcript from its file, however it got there."""

import json
import math
import os
from collections.abc import Callable, Iterable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

Event = dict[str, Any]

_LONGEST_TEXT = 1000
_LONGEST_FIRST_LINE = 1 << 20
# Servers of cameras, which tell a bus from the cameras' side.
_SERVERS = ("usbredir", "usbip")
_SOURCES = ("lab", "rig", "toast", "guest", *_SERVERS)
HOW_TO_MAKE_ONE = "scripts/demo --transcript FILE makes a transcript"


class TranscriptError(Exception):
    """The file holds no transcript. The text says so in one line, and what to do."""


@dataclass(frozen=True)
class Transcript:
    """The events in their order. Each has a text `event` and `source` and a number `t`, which never falls; every other
    field may be missing or be of any type."""

    events: list[Event]
    # The last line was half-written and is left out: the run was ended by force, or still goes on.
    cut_short: bool


def read_transcript(path: Path, progress: Callable[[int, int], None] | None = None) -> Transcript:
    """The file's events. `progress` is told the bytes read so far and those of the whole file. An OSError when the file
    cannot be read, a TranscriptError when it is something else."""
    with path.open("rb") as file:
        total = os.fstat(file.fileno()).st_size

        def lines() -> Iterable[bytes]:
            done = 0
            for line in file:
                done += len(line)
                if progress is not None:
                    progress(done, total)
                yield line

        return parse(lines(), str(path))


def is_transcript(path: Path) -> bool:
    """Whether a file begins with an event of a transcript, or with a part of one. An OSError when it cannot be read."""
    if path.is_dir():
        return False
    with path.open("rb") as file:
        first = file.readline(_LONGEST_FIRST_LINE)
    return _event(first) is not None or first.startswith(b'{"t":')


def parse(lines: Iterable[bytes], name: str) -> Transcript:
    """The events of the lines, each with its newline. `name` is what error texts call the file."""
    events: list[Event] = []
    cut_short = False
    time = 0.0
    for number, line in enumerate(lines, 1):
        if not line.strip():
            continue
        event = _event(line)
        if event is None:
            if events and not line.endswith(b"\n"):
                cut_short = True
                break
            raise TranscriptError(f"{name}: line {number} is no event of a transcript; {HOW_TO_MAKE_ONE}")
        time = max(time, _time(event))
        event["t"] = time
        events.append(event)
    if not events:
        raise TranscriptError(
            f"{name} is empty: the run has not begun, or was ended at once; {HOW_TO_MAKE_ONE}"
        )
    if not any(event["source"] in _SOURCES for event in events):
        raise TranscriptError(f"{name} holds no event of the laboratory; {HOW_TO_MAKE_ONE}")
    return Transcript(_told_once(events), cut_short)


def of_events(events: Iterable[Event]) -> Transcript:
    """The transcript of a run that this process has just made."""
    return parse((json.dumps(event).encode() + b"\n" for event in events), "the run")


def _told_once(events: list[Event]) -> list[Event]:
    """Where a rig tells what the service asked, what the cameras were asked is the same again; that they come and go,
    the server tells alone."""
    if not any(event["source"] == "rig" for event in events):
        return events
    return [event for event in events if event["source"] not in _SERVERS or event["event"] == "camera"]


def _event(line: bytes) -> Event | None:
    try:
        event = json.loads(line)
    except (ValueError, RecursionError):
        return None
    if not isinstance(event, dict) or not isinstance(event.get("event"), str):
        return None
    if not isinstance(event.get("source"), str):
        event["source"] = ""
    event["event"] = _shortened(event["event"])
    return event


def _time(event: Event) -> float:
    value = event.get("t")
    if isinstance(value, bool) or not isinstance(value, int | float) or abs(value) > 1e9 or math.isnan(value):
        return 0.0
    return float(value)


# Fields as they should be, whatever the transcript has.


def number(event: Event, name: str) -> int | None:
    """A field's whole number, or None."""
    value = event.get(name)
    if isinstance(value, bool) or not isinstance(value, int) or abs(value) >= 1 << 63:
        return None
    return value


def text(event: Event, name: str) -> str:
    """A field's text, or none. The end of an endless one is left out."""
    value = event.get(name)
    return _shortened(value) if isinstance(value, str) else ""


def texts(event: Event, name: str) -> list[str]:
    """A field's list of texts; what is no text in it is left out."""
    value = event.get(name)
    return [_shortened(each) for each in value if isinstance(each, str)] if isinstance(value, list) else []


def numbers(event: Event, name: str) -> list[int]:
    """A field's list of whole numbers, or none when anything else is in it."""
    value = event.get(name)
    if not isinstance(value, list) or not all(isinstance(each, int) for each in value):
        return []
    return value


def octets(event: Event, name: str) -> bytes:
    """A field's first bytes, from hexadecimal text; none when it is no such text."""
    value = event.get(name)
    try:
        return bytes.fromhex(value[:_LONGEST_TEXT]) if isinstance(value, str) else b""
    except ValueError:
        return b""


def _shortened(value: str) -> str:
    return value if len(value) <= _LONGEST_TEXT else value[:_LONGEST_TEXT] + "…"
