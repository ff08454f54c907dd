"""Line 8: very many device events that are none of the service's business."""

from collections.abc import Iterator
from typing import Any

from ...windows.service_under_test import ServiceUnderTest
from ...wire.events import RIG, Event
from ..table import Row, ratio_at_most
from .contenders import Contenders

LINE = 8
_PER_SECOND = 10_000
_EVENTS = 30_000
_DISK_CLASS = "{53F56307-B6BF-11D0-94F2-00A0C91EFB8B}"
_LINK = r"\\?\storage#volume#{6b2e8d55-0000-0000-0000-100000000000}#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}"
_ARRIVAL = 0x8000
_BAR = 1.01
_AGAINST = "empty handler"


def measure(contenders: Contenders) -> Iterator[Row]:
    """The time to hand them over at a fixed rate, and the time in the handler."""
    ours = _burst(contenders, contenders.product)
    empty = _burst(contenders, contenders.minimal)
    yield ratio_at_most(
        LINE,
        f"handing over {_EVENTS:,} foreign events, {_PER_SECOND:,} a second",
        ours["seconds"],
        empty["seconds"],
        _BAR,
        "s",
        against=_AGAINST,
    )
    yield Row(
        LINE, "time in the handler for each event", ours["handling_us"], empty["handling_us"], "us", _AGAINST
    )


def _burst(contenders: Contenders, service: ServiceUnderTest) -> Event:
    contenders.start(service, skip_waits=False)
    event: dict[str, Any] = {"type": _ARRIVAL, "class": _DISK_CLASS, "link": _LINK}
    since = contenders.peer.mark()
    contenders.peer.command(RIG, "burst", count=_EVENTS, per_second=_PER_SECOND, **event)
    seen = service.follow(lambda event: event["event"] == "burst", "the end of the burst", since)
    service.stop()
    return seen
