"""What a transcript of the campaign's program tells of a trial: its updates, one after the other."""

from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field

from .program import Line

_SWITCH = 0x1E
_FIRMWARE = {
    "the image": "image",
    "the old firmware": "old",
    "no firmware": "none",
    "valid-looking and wrong": "wrong",
}
# What of the bus's events two runs must have in common, wherever they are from. Errors of a device that is gone differ
# by when it left, and nobody's clock is another's.
_OF_THE_BUS = {
    "transfer": ("setup", "transferred", "ok", "data"),
    "descriptor": ("type", "length", "transferred", "ok"),
    "alternate-setting": ("interface", "setting", "ok"),
}


@dataclass
class ToldUpdate:
    """One update, as far as it came."""

    camera: int
    number: int
    # The user was asked, and the camera was told to go to DFU mode.
    is_accepted: bool = False
    # What the camera had in the end: "none", "old", "image" or "wrong"; empty when it did not come to an end.
    firmware: str = ""
    bus: list[str] = field(default_factory=list)


def read_story(lines: Iterable[Line]) -> Sequence[ToldUpdate]:
    """The updates of a transcript."""
    updates: list[ToldUpdate] = []
    camera = 0
    for line in lines:
        if line.get("event") == "step":
            words = line["text"]
            first, _, number = words.partition(" ")
            if words == "another camera":
                camera = 1
            elif first == "update" and number.isdigit():
                updates.append(ToldUpdate(camera, int(number)))
            elif updates and "; the camera has " in words:
                updates[-1].firmware = _FIRMWARE[words.partition("; the camera has ")[2]]
        elif updates and not updates[-1].firmware:
            updates[-1].is_accepted |= line.get("opcode") == _SWITCH
            updates[-1].bus += bus_lines([line])
    return updates


def bus_lines(events: Iterable[Line]) -> list[str]:
    """What crossed the bus to devices in DFU mode, in words that do not depend on who has told it."""
    told = []
    for event in events:
        fields = _OF_THE_BUS.get(event.get("event", ""))
        if fields:
            told.append(" ".join([event["event"], *(f"{name}={event[name]}" for name in fields if name in event)]))
    return told
