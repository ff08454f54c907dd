"""What a process may hold more than before, though nothing is wrong."""

from collections.abc import Sequence

from ..wire.events import SENSOR_CLASS, VIDEO_CLASS, Event

_REMOVAL = 0x8004
# What one look of the uninstall monitor leaves open for the life of the process: three keys and an event.
KEPT_BY_A_CHECK = 4
# What Wine counts as the private memory of a thread: its stacks, whole. COM begins threads when it needs them.
STACKS_OF_A_THREAD_KIB = 3136


def removals(events: Sequence[Event]) -> int:
    """How often the uninstall monitor has looked: removals of camera interfaces that were handed to the service."""
    return sum(
        event["event"] == "control" and event.get("type") == _REMOVAL and event["class"] in (SENSOR_CLASS, VIDEO_CLASS)
        for event in events
    )
