"""What a transcript of the campaign's program tells of a trial: its updates, one after the other."""

from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field

from ..wire.events import ENTER_DFU_MODE
from .program import Line

# What of an event two runs have in common, wherever they are from.
_OF_THE_BUS = {
    "transfer": ("setup", "transferred", "ok", "error", "ms", "data"),
    "descriptor": ("type", "length", "transferred", "ok", "error"),
    "alternate-setting": ("interface", "setting", "ok", "error"),
}
_OF_THE_COMMANDS = {
    "firmware-command": ("magic", "length", "opcode", "parameters", "result"),
    "firmware-reply": ("opcode", "bytes", "result"),
}

_REPLY_BYTES = 1024
_GONE = (22, 433)  # of a device that has left less or more than half a second ago
_GENERAL_FAILURE = -2147024865  # ERROR_GEN_FAILURE as an HRESULT


@dataclass
class ToldUpdate:
    """One update, as far as it came."""

    camera: int
    number: int
    # How it ended: "not asked", "not switched", "not opened", "failed", "updated"; empty when it did not come to an end.
    how: str = ""
    # What the camera had in the end: "none", "old", "image" or "wrong".
    firmware: str = ""
    # Its version was read behind it.
    is_running: bool = False
    # The request that had to come when a rule was broken, "" for none; None when none was broken in it.
    next: str | None = None
    events: list[Line] = field(default_factory=list)

    @property
    def is_accepted(self) -> bool:
        """The user was asked, and the camera was told to go to DFU mode."""
        return len(self.reading) < len(self.commands)

    @property
    def bus(self) -> Sequence[str]:
        """What crossed the bus in DFU mode."""
        return bus_lines(self.events)

    @property
    def commands(self) -> Sequence[str]:
        """The firmware commands and what was read back."""
        return command_lines(self.events)

    @property
    def reading(self) -> Sequence[str]:
        """Those by which the version was read, before the one that sends the camera into DFU mode."""
        opcodes = [event.get("opcode") for event in self.events if event["event"] == "firmware-command"]
        if ENTER_DFU_MODE not in opcodes:
            return self.commands
        switch = [event for event in self.events if event.get("opcode") == ENTER_DFU_MODE][0]
        return command_lines(self.events[: self.events.index(switch)])


def read_story(lines: Iterable[Line]) -> Sequence[ToldUpdate]:
    """The updates of a transcript. Of a trial that the program has died of nothing is told: its first update was broken
    somewhere."""
    updates: list[ToldUpdate] = []
    for line in lines:
        if "died" in line:
            return [ToldUpdate(0, 1, next="")]
        event = line["event"]
        if event == "update":
            updates.append(ToldUpdate(line["camera"], line["number"]))
        elif event == "update-end":
            updates[-1].how, updates[-1].firmware = line["how"], line["firmware"]
        elif event == "broken" and updates:
            last = updates[-1]
            last.next = line["next"]
            if line["by_crossing"] and not last.how:
                last.events.pop()
        elif updates and not updates[-1].how:
            updates[-1].events.append(line)
        elif updates:
            updates[-1].is_running |= event == "firmware-command"
    return updates


def bus_lines(events: Iterable[Line]) -> list[str]:
    """What crossed the bus to devices in DFU mode, in words that do not depend on who has told it."""
    return _lines(events, _OF_THE_BUS)


def command_lines(events: Iterable[Line]) -> list[str]:
    """The same of the firmware commands to running cameras."""
    return _lines(events, _OF_THE_COMMANDS)


def _in_order(event: Line) -> Line:
    """Without what is known to differ. Windows reads a control whole or fails, where Linux has the bytes that came: either
    way nothing is told. And that a camera has gone is noticed on Linux when a request or a pause ends, so for how long is
    less."""
    if event.get("error") in _GONE:
        return {**event, "error": "gone"}
    is_short = event["event"] == "firmware-reply" and event["bytes"] < _REPLY_BYTES
    return {**event, "result": "short"} if is_short and event["result"] in (0, _GENERAL_FAILURE) else event


def _lines(events: Iterable[Line], known: dict[str, tuple[str, ...]]) -> list[str]:
    told = []
    for event in map(_in_order, events):
        fields = known.get(event["event"])
        if fields:
            told.append(" ".join([event["event"], *(f"{name}={event[name]}" for name in fields if name in event)]))
    return told
