"""What a process may hold more than before, though nothing is wrong."""

from collections.abc import Iterator, Sequence

from ..windows.service_under_test import Resources
from ..wire.events import SENSOR_CLASS, VIDEO_CLASS, Event

_REMOVAL = 0x8004
# What one look of the uninstall monitor leaves open for the life of the process: three keys and an event.
KEPT_BY_A_CHECK = 4
# What Wine counts as the private memory of a thread: its stacks, whole. COM begins threads when it needs them.
STACKS_OF_A_THREAD_KIB = 3072


def removals(events: Sequence[Event]) -> int:
    """How often the uninstall monitor has looked: removals of camera interfaces that were handed to the service."""
    return sum(
        event["event"] == "control" and event.get("type") == _REMOVAL and event["class"] in (SENSOR_CLASS, VIDEO_CLASS)
        for event in events
    )


def too_much(before: Resources, now: Resources, removals_since: int, spare: Resources) -> Iterator[str]:
    """What the process holds more than before, less what the uninstall monitor keeps open, where it is more than may be
    spare."""
    for name, grown, most in (
        ("handles", now.handles - before.handles - KEPT_BY_A_CHECK * removals_since, spare.handles),
        ("threads", now.threads - before.threads, spare.threads),
        ("private KiB", now.private_kib - before.private_kib, spare.private_kib),
    ):
        if grown > most:
            yield f"the process has {grown} {name} more than it should, and {most} may be spare"
