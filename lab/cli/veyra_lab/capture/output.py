"""A transcript as a capture file."""

import json
from collections.abc import Iterable, Sequence
from pathlib import Path

from ..report.transcript import Event, TranscriptError, parse, read_transcript, text
from . import usbpcap
from .errors import CaptureError
from .pcapng import write
from .story import transfers_of

_SOURCE_OF_TRIALS = "rig"
# What tells of a machine and a program, by the event's name: the fields and what they are called.
_TELLING = {
    "trial": (("id", "trial"),),
    "scenario": (("name", "scenario"),),
    "bus": (("text", "bus"), ("kernel", "kernel")),
    "hello": (("command_line", "program"), ("kernel", "kernel")),
    "camera": (("version", "camera's firmware"),),
}
_MOST_WORDS = 200


def read_events(path: Path) -> list[Event]:
    """The events of a transcript, or of what scripts/lab replay --on linux has written. CaptureError when it is neither;
    an OSError when it cannot be read."""
    with path.open("rb") as file:
        first = file.readline(1 << 20)
    if b'"event":"trial"' in first:
        return trial_events(path.read_text(encoding="utf-8", errors="replace"), str(path))
    try:
        return read_transcript(path).events
    except TranscriptError as error:
        raise CaptureError(str(error)) from None


def trial_events(transcript: str, name: str) -> list[Event]:
    """The events of a trial, which nobody has timed."""
    try:
        lines = [json.loads(line) for line in transcript.splitlines() if line.startswith("{")]
        told = [json.dumps({"source": _SOURCE_OF_TRIALS, **line}).encode() + b"\n" for line in lines]
        return parse(told, name).events
    except (ValueError, RecursionError, TypeError, TranscriptError):
        raise CaptureError(f"{name} is no transcript of a trial") from None


def scenario_events(events: Sequence[Event], name: str) -> list[Event]:
    """What happened in the scenario of this name; CaptureError when none is there."""
    begins = [place for place, event in enumerate(events) if event["event"] == "scenario"]
    for place, end in zip(begins, [*begins[1:], len(events)], strict=True):
        if text(events[place], "name") == name:
            return list(events[place:end])
    raise CaptureError(f"the transcript has no scenario '{name}'")


def capture_of(events: Sequence[Event], before: Iterable[Event] = ()) -> bytes:
    """The file. `before`: what tells of the machine and is no part of it. CaptureError when nothing crossed a bus."""
    transfers = transfers_of(events)
    if not transfers:
        raise CaptureError("no device was in DFU mode there")
    packets = [
        packet for number, transfer in enumerate(transfers, 1) for packet in usbpcap.packets_of(number, transfer)
    ]
    return write(usbpcap.LINK, _words([*before, *events]), packets)


def _words(events: Iterable[Event]) -> list[str]:
    """What the transcript knows of the machine, the program and the cameras, each said once."""
    words: dict[str, None] = {}
    for event in events:
        for field, called in _TELLING.get(event["event"], ()):
            if said := text(event, field):
                words[f"{called}: {said}"] = None
    return list(words)[:_MOST_WORDS]
