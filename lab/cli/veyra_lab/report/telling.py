"""What a line of the page says of an event."""

from dataclasses import dataclass
from enum import Enum

from .transcript import Event


class Lane(Enum):
    """Whose doing it is. The values name the lanes in the page."""

    LABORATORY = "lab"
    CONTROL_MANAGER = "scm"
    SERVICE = "service"
    USER = "user"
    CAMERA = "camera"
    BUS = "bus"


@dataclass(frozen=True)
class Telling:
    """An event in words. `matters` for what a person needs to follow the story, `bad` for what went wrong."""

    lane: Lane
    words: str
    matters: bool = False
    bad: bool = False


def lane_of_source(event: Event) -> Lane:
    """The lane of whoever has told it."""
    return {"rig": Lane.SERVICE, "toast": Lane.USER}.get(event["source"], Lane.LABORATORY)
